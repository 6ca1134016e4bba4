// The core object on the private PulseAudio server through Wine's Core Audio: a message-only
// window, COM joined, a log that collects its lines, and the streams on a chosen speaker and
// microphone (handed over with a meter where Wine has none, meterless_endpoint.h).
#pragma once

#include <gtest/gtest.h>

#include <windows.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "meterless_endpoint.h"
#include "windows_test_support.h"
#include "zqCoreAudio.h"

namespace zqwintest {

class WindowsCoreAudio : public ::testing::Test {
protected:
    void SetUp() override {
        ZQ_REQUIRE_WINDOWS_TEST_SERVER();
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
        comJoined = true;
        ASSERT_NE(nullptr, window.Handle());
        ASSERT_TRUE(log.OpenSink(L"windows test", [this](const _ZQ_LOG_EVENT& event) {
            std::lock_guard<std::mutex> lock(linesMutex);
            lines.emplace_back(event.strText.GetString());
        }));
        core = std::make_unique<CZQCoreAudio>();
        core->SetLog(&log);
    }

    void TearDown() override {
        if (core) {
            if (core->IsInit()) core->Shutdown();
            core->SetLog(nullptr);
            core.reset();
        }
        log.Close();
        if (comJoined) CoUninitialize();
    }

    std::vector<std::wstring> Lines() {
        log.Flush(5000);
        std::lock_guard<std::mutex> lock(linesMutex);
        return lines;
    }

    static std::vector<std::wstring> Names(int count, CWMAudioDevice* (CZQCoreAudio::*get)(int), CZQCoreAudio& core) {
        std::vector<std::wstring> names;
        for (int i = 0; i < count; ++i) {
            CWMAudioDevice* device = (core.*get)(i);
            names.emplace_back(device != nullptr ? device->GetName().GetString() : L"(none)");
        }
        return names;
    }
    std::vector<std::wstring> RenderNames() {
        return Names(core->GetRenderDeviceCount(), &CZQCoreAudio::GetRenderDevice, *core);
    }

    // The left channel's amplitude at speaker48's monitor over a second, after a quarter.
    double SpeakerLevel() {
        const std::vector<float> frames = RecordWithParec("speaker48.monitor", 48000, 2, 1.25);
        if (frames.empty()) return -1.0;
        return SineAmplitude(frames, 2, 0, 12000, 240);  // 5 ms: five periods of 1 kHz
    }

    void StartOnSpeakerAndMicrophone(IMMDevice* speaker, IMMDevice* microphone) {
        core->Init(window.Handle());
        ASSERT_TRUE(core->IsInit());
        ASSERT_TRUE(core->SetRenderDevice(WithMeter(speaker))) << Joined(Lines());
        ASSERT_TRUE(core->SetCaptureDevice(WithMeter(microphone))) << Joined(Lines());
        core->Start();
        ASSERT_TRUE(core->IsStarted());
    }

    bool comJoined = false;
    MessageWindow window;
    CZqLog log;
    std::mutex linesMutex;
    std::vector<std::wstring> lines;
    std::unique_ptr<CZQCoreAudio> core;
};

}  // namespace zqwintest
