// The benchmarks' machine: a core monitoring one microphone through the default speaker on the
// virtual audio engine and the stepped clock. Made on the benchmark's thread (COM joined
// there); the streams are not started. Shut down, and the machine emptied, when it goes.
#pragma once

#include <string>

#include "zqCoreAudio.h"
#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/clock.h"

struct SteppedMonitoring {
    // speaker is made the default of every role; mic is opened as the capture device. With
    // ClockMode::RealTime the devices run on the real clock instead, as on a machine.
    SteppedMonitoring(zqvm::EndpointSpec speakerSpec, zqvm::EndpointSpec micSpec,
                      zqvm::ClockMode mode = zqvm::ClockMode::Stepped) {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        zqvm::Reset();
        zqvm::SetClockMode(mode);
        speakerSpec.flow = eRender;
        speakerSpec.defaultFor = {eConsole, eMultimedia, eCommunications};
        speaker = zqvm::AddEndpoint(speakerSpec);
        micSpec.flow = eCapture;
        mic = zqvm::AddEndpoint(micSpec);
        core = new CZQCoreAudio;
        core->Init(nullptr);
        CComPtr<IMMDeviceEnumerator> enumerator;
        CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                         reinterpret_cast<void**>(&enumerator));
        CComPtr<IMMDevice> device;
        enumerator->GetDevice(mic.c_str(), &device);
        core->SetCaptureDevice(device);
    }
    ~SteppedMonitoring() {
        core->Shutdown();
        delete core;
        g_pCore = nullptr;
        zqvm::Reset();
        zqvm::SetClockMode(zqvm::ClockMode::RealTime);
        CoUninitialize();
    }
    SteppedMonitoring(const SteppedMonitoring&) = delete;
    SteppedMonitoring& operator=(const SteppedMonitoring&) = delete;

    std::wstring speaker;
    std::wstring mic;
    CZQCoreAudio* core = nullptr;
};
