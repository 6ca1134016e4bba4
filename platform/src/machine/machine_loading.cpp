// Loading a machine description: at the start (its bridges when a backend is first chosen, its
// endpoints when the virtual engine is first used), and on request.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>

#include "machine.h"
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

bool Fail(const std::string& message, zqplatform::machine::EndpointSink* endpoints, std::string* error) {
    std::fprintf(stderr, "zqplatform: %s; the virtual machine has no audio endpoints\n", message.c_str());
    if (error) *error = message;
    if (endpoints) endpoints->Clear();
    return false;
}

// Replaces the machine (the endpoints only when a sink is given, the bridges only when
// withBridges), or on any error reports it and leaves it empty.
bool Load(const std::string& xml, const std::string& baseDir, const std::string& origin,
          zqplatform::machine::EndpointSink* endpoints, bool withBridges, std::string* error) {
    zqplatform::machine::MachineParts machine;
    std::string why;
    if (withBridges) zqvm::RemoveAllBridges();
    if (!zqplatform::machine::ParseMachineDescription(xml, baseDir, machine, why) ||
        (endpoints != nullptr && !endpoints->Replace(machine.endpoints, &why))) {
        return Fail("machine description " + origin + ": " + why, endpoints, error);
    }
    // With the machine's own bridges chosen (hidraw), the described ones take no part, nor do
    // their registry values.
    if (withBridges && zqvm::SelectedBridgeBackend() == zqvm::BridgeBackend::Simulated) {
        for (const zqvm::BridgeDescription& bridge : machine.bridges) zqvm::AddBridge(bridge);
    }
    return true;
}

bool LoadFromFile(const std::string& path, zqplatform::machine::EndpointSink* endpoints, bool withBridges,
                  std::string* error) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (file.is_open()) text << file.rdbuf();
    if (!file.is_open() || file.bad()) {
        if (withBridges) zqvm::RemoveAllBridges();
        return Fail("machine description '" + path + "' cannot be read", endpoints, error);
    }
    return Load(text.str(), FolderOf(path), "'" + path + "'", endpoints, withBridges, error);
}

void LoadStartup(zqplatform::machine::EndpointSink* endpoints, bool withBridges) {
    const char* path = std::getenv("ZQ_VIRTUAL_MACHINE");
    if (path != nullptr && path[0] != '\0')
        LoadFromFile(path, endpoints, withBridges, nullptr);
    else
        Load(kDefaultMachine, std::string(), "(built in)", endpoints, withBridges, nullptr);
}

// Whether the startup description's bridges have been added (they are, once).
std::mutex g_startupLock;
bool g_startupBridges = false;

}  // namespace

namespace zqplatform::machine {

bool LoadText(const std::string& xml, const std::string& baseDir, const std::string& origin,
              EndpointSink& endpoints, std::string* error) {
    return Load(xml, baseDir, origin, &endpoints, true, error);
}

bool LoadFile(const std::string& path, EndpointSink& endpoints, std::string* error) {
    return LoadFromFile(path, &endpoints, true, error);
}

void LoadStartupBridges() {
    std::lock_guard lock(g_startupLock);
    if (g_startupBridges) return;
    g_startupBridges = true;
    LoadStartup(nullptr, true);
}

void LoadStartupInto(EndpointSink& endpoints) {
    std::lock_guard lock(g_startupLock);
    LoadStartup(&endpoints, !g_startupBridges);
    g_startupBridges = true;
}

const char* BuiltInDescription() { return kDefaultMachine; }

}  // namespace zqplatform::machine
