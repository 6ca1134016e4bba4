// The discovery benchmarks' host: COM joined on the benchmark's thread, an empty virtual machine
// with a default speaker, and a host folder whose config.xml names the KV-1 ("KV-1 Studio").
// Start() makes the core, initialised and started; everything is shut down, emptied and removed
// when the host goes.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "zqCoreAudio.h"
#include "zqplatform/vm/audio_machine.h"
#include "zqplatform/vm/module_path.h"

struct DiscoveryHost {
    explicit DiscoveryHost(const std::string& folderName)
        : folder(std::filesystem::temp_directory_path() / folderName) {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        zqvm::Reset();
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        std::ofstream(folder / "config.xml") << R"(<config>
  <product device_name="KV-1 USB Microphone" friendly_name="KV-1 Studio" api="5" fw="0x12" editor="kv1edit"/>
</config>)";
        zqvm::SetHostModulePath((folder / "zqHost").wstring());
        zqvm::EndpointSpec speaker;
        speaker.flow = eRender;
        speaker.name = L"Speakers";
        speaker.defaultFor = {eConsole, eMultimedia, eCommunications};
        zqvm::AddEndpoint(speaker);
    }
    DiscoveryHost(const DiscoveryHost&) = delete;
    DiscoveryHost& operator=(const DiscoveryHost&) = delete;

    void Start() {
        core = new CZQCoreAudio;
        core->Init(nullptr);
        core->Start();
    }

    ~DiscoveryHost() {
        if (core != nullptr) {
            core->Shutdown();
            delete core;
            g_pCore = nullptr;
        }
        zqvm::Reset();
        zqvm::ResetHostModulePath();
        std::filesystem::remove_all(folder);
        CoUninitialize();
    }

    const std::filesystem::path folder;
    CZQCoreAudio* core = nullptr;
};
