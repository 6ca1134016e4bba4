// Loading a machine description: at first use of the engine, and on request.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "engine.h"
#include "machine_description.h"
#include "zqplatform/vm/bridges.h"

namespace {

// The built-in machine: one of our microphones (its capture endpoint and its bridge) and one
// speaker, the defaults for every role.
constexpr const char kDefaultMachine[] = R"xml(<?xml version="1.0" encoding="UTF-8"?>
<machine>
  <endpoint id="{0.0.1.00000000}.{8D4B0A6E-2C31-4F57-9B1E-6A0D3C5F7E21}" flow="capture"
            name="Microphone (KV-1 USB Microphone)" container="{5B2C7E41-9A3D-4C68-B1F0-2E8D6A4C9B37}"
            rate="48000" channels="1" format="int16" default="all">
    <source kind="tone" frequency="1000" level_dbfs="-6"/>
  </endpoint>
  <bridge manufacturer="KESTRAVON" product="KV-1 USB Microphone" serial="KV1-2024-0001"
          container="{5B2C7E41-9A3D-4C68-B1F0-2E8D6A4C9B37}" version_reply="AA 05 12"/>
  <endpoint id="{0.0.0.00000000}.{3E9F1C2A-7B64-4D05-8A3E-C1F2B4D6E890}" flow="render"
            name="Speakers (Virtual Audio)" container="{00000000-0000-0000-FFFF-FFFFFFFFFFFF}"
            rate="48000" channels="2" format="float32" default="all"/>
</machine>
)xml";

std::string FolderOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? std::string(".") : path.substr(0, slash == 0 ? 1 : slash);
}

// Replaces the machine, or on any error reports it and leaves an empty machine.
bool Load(zqplatform::audio::Engine& engine, const std::string& xml, const std::string& baseDir,
          const std::string& origin, std::string* error) {
    zqplatform::audio::MachineParts machine;
    std::string why;
    zqvm::RemoveAllBridges();
    if (!zqplatform::audio::ParseMachineDescription(xml, baseDir, machine, why) ||
        !engine.Replace(machine.endpoints, &why)) {
        const std::string message = "machine description " + origin + ": " + why;
        std::fprintf(stderr, "zqplatform: %s; the virtual machine has no audio endpoints\n", message.c_str());
        if (error) *error = message;
        engine.Reset();
        return false;
    }
    // With the machine's own bridges chosen (hidraw), the described ones take no part, nor do
    // their registry values.
    if (zqvm::SelectedBridgeBackend() == zqvm::BridgeBackend::Simulated) {
        for (const zqvm::BridgeDescription& bridge : machine.bridges) zqvm::AddBridge(bridge);
    }
    return true;
}

bool LoadFile(zqplatform::audio::Engine& engine, const std::string& path, std::string* error) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (file.is_open()) text << file.rdbuf();
    if (!file.is_open() || file.bad()) {
        const std::string message = "machine description '" + path + "' cannot be read";
        std::fprintf(stderr, "zqplatform: %s; the virtual machine has no audio endpoints\n", message.c_str());
        if (error) *error = message;
        engine.Reset();
        return false;
    }
    return Load(engine, text.str(), FolderOf(path), "'" + path + "'", error);
}

}  // namespace

namespace zqplatform::audio {

void LoadStartupMachine(Engine& engine) {
    const char* path = std::getenv("ZQ_VIRTUAL_MACHINE");
    if (path != nullptr && path[0] != '\0')
        LoadFile(engine, path, nullptr);
    else
        Load(engine, kDefaultMachine, std::string(), "(built in)", nullptr);
}

}  // namespace zqplatform::audio

namespace zqvm {

bool LoadMachineDescription(const std::string& path, std::string* error) {
    return LoadFile(zqplatform::audio::Engine::Instance(), path, error);
}

bool LoadMachineDescriptionText(const std::string& xml, std::string* error) {
    return Load(zqplatform::audio::Engine::Instance(), xml, ".", "(text)", error);
}

const char* DefaultMachineDescription() { return kDefaultMachine; }

}  // namespace zqvm
