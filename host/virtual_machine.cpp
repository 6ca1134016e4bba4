#include "virtual_machine.h"

#include <cstdio>
#include <cstdlib>

#include "zqCoreAudio.h"
#include "zqplatform/vm/audio_machine.h"

namespace zqhost {
namespace {

std::vector<std::wstring> EndpointIds(EDataFlow flow, DWORD stateMask) {
    std::vector<std::wstring> ids;
    CComPtr<IMMDeviceEnumerator> enumerator;
    if (FAILED(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                                reinterpret_cast<void**>(&enumerator))) ||
        !enumerator) {
        return ids;
    }
    CComPtr<IMMDeviceCollection> collection;
    if (FAILED(enumerator->EnumAudioEndpoints(flow, stateMask, &collection)) || !collection) return ids;
    UINT count = 0;
    if (FAILED(collection->GetCount(&count))) return ids;
    for (UINT i = 0; i < count; ++i) {
        CComPtr<IMMDevice> device;
        if (FAILED(collection->Item(i, &device)) || !device) continue;
        LPWSTR id = nullptr;
        if (SUCCEEDED(device->GetId(&id)) && id != nullptr) ids.emplace_back(id);
        CoTaskMemFree(id);
    }
    return ids;
}

}  // namespace

bool SelectMachine(const std::string& path, std::string* error) {
    if (path.empty()) return true;
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        if (error != nullptr) *error = "cannot read the machine description '" + path + "'";
        return false;
    }
    std::fclose(file);
    // The platform reads this when the engine is first used, as it does for any host.
    setenv("ZQ_VIRTUAL_MACHINE", path.c_str(), 1);
    return true;
}

bool MachineHasEndpoints() { return !zqvm::EndpointIds().empty(); }

std::string MachineName(const std::string& path) {
    if (!path.empty()) return path;
    const char* env = std::getenv("ZQ_VIRTUAL_MACHINE");
    return env != nullptr && env[0] != '\0' ? std::string(env) : std::string("built-in");
}

std::vector<std::wstring> CaptureEndpointIds() { return EndpointIds(eCapture, DEVICE_STATEMASK_ALL); }
std::vector<std::wstring> ActiveRenderEndpointIds() { return EndpointIds(eRender, DEVICE_STATE_ACTIVE); }
std::wstring DefaultRenderEndpointId() { return zqvm::DefaultEndpoint(eRender, eMultimedia); }

bool PlayWavOnMicrophones(const std::string& path, std::string* error) {
    const std::vector<std::wstring> ids = CaptureEndpointIds();
    if (ids.empty()) {
        if (error != nullptr) *error = "the machine has no capture endpoint to play '" + path + "'";
        return false;
    }
    for (const std::wstring& id : ids) {
        std::string why;
        if (!zqvm::SetCaptureSource(id, zqvm::CaptureSource::WavFile(path, true), &why)) {
            if (error != nullptr) *error = "cannot play '" + path + "': " + why;
            return false;
        }
    }
    return true;
}

bool RecordSpeaker(const std::string& path, std::wstring& endpointId, std::string* error) {
    endpointId = DefaultRenderEndpointId();
    if (endpointId.empty()) {
        if (error != nullptr) *error = "the machine has no default render endpoint to record";
        return false;
    }
    std::string why;
    if (!zqvm::SetRenderWavFile(endpointId, path, &why)) {
        if (error != nullptr) *error = "cannot record to '" + path + "': " + why;
        endpointId.clear();
        return false;
    }
    return true;
}

void StopRecordingSpeaker(const std::wstring& endpointId) {
    // An empty path closes the file, which completes its header.
    if (!endpointId.empty()) zqvm::SetRenderWavFile(endpointId, std::string());
}

bool SwitchDefaultRender(std::string* error) {
    const std::vector<std::wstring> ids = ActiveRenderEndpointIds();
    if (ids.size() < 2) {
        if (error != nullptr) *error = "the machine has no second active render endpoint";
        return false;
    }
    const std::wstring current = DefaultRenderEndpointId();
    size_t next = 0;
    for (size_t i = 0; i < ids.size(); ++i) {
        if (ids[i] == current) next = (i + 1) % ids.size();
    }
    for (ERole role : {eConsole, eMultimedia, eCommunications}) zqvm::SetDefaultEndpoint(eRender, role, ids[next]);
    return true;
}

bool OtherProgramSetsVolume(float level, std::string* error) {
    const std::wstring id = DefaultRenderEndpointId();
    if (id.empty() || !zqvm::SetSessionVolumeAsOtherProgram(id, level, false)) {
        if (error != nullptr) *error = "cannot change the speaker's session volume";
        return false;
    }
    return true;
}

}  // namespace zqhost
