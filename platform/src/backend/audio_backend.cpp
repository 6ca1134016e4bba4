// The choice between the virtual audio engine and the pulse backend, made where
// CoCreateInstance(CLSID_MMDeviceEnumerator) finds its class.
#include "zqplatform/vm/audio_backend.h"

#include <optional>
#include <string>

#include "../audio/engine_backend.h"
#include "../com/class_registry.h"
#include "../coreaudio/objects.h"
#include "../machine/machine.h"
#include "backend_choice.h"
#if defined(ZQ_HAVE_PULSE)
#include "../pulse/connection.h"
#include "../pulse/objects.h"
#endif

namespace {

std::optional<zqvm::AudioBackend> Parse(std::string_view name, std::string* error) {
    if (name == "virtual") return zqvm::AudioBackend::Virtual;
#if defined(ZQ_HAVE_PULSE)
    if (name == "pulse") return zqvm::AudioBackend::Pulse;
#else
    if (name == "pulse") {
        if (error) *error = "this build has no pulse backend (libpulse was not found)";
        return std::nullopt;
    }
#endif
    if (error) *error = "unknown audio backend '" + std::string(name) + "' (virtual or pulse)";
    return std::nullopt;
}

zqplatform::BackendChoice<zqvm::AudioBackend>& TheChoice() {
    static zqplatform::BackendChoice<zqvm::AudioBackend> choice("ZQ_AUDIO_BACKEND", zqvm::AudioBackend::Virtual,
                                                                 "the virtual audio engine", &Parse);
    return choice;
}

zqvm::AudioBackend Chosen() { return TheChoice().Get(); }

// One front end, over the backend chosen.
HRESULT CreateEnumerator(REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    std::shared_ptr<zqplatform::coreaudio::Backend> backend;
#if defined(ZQ_HAVE_PULSE)
    if (Chosen() == zqvm::AudioBackend::Pulse) {
        // The machine description also describes the bridges and their registry values, which
        // the system reads whichever backend plays the sound; the virtual engine loads it whole.
        zqplatform::machine::LoadStartupBridges();
        if (const HRESULT hr = zqplatform::pulse::OpenServerBackend(&backend); FAILED(hr)) return hr;
    }
#endif
    if (!backend) backend = zqplatform::audio::OpenEngineBackend();
    return zqplatform::coreaudio::CreateDeviceEnumerator(std::move(backend), riid, ppv);
}

// Registered when the platform library loads, so the first CoCreateInstance finds the class.
const bool kRegistered = [] {
    zqplatform::RegisterComClass(CLSID_MMDeviceEnumerator, &CreateEnumerator);
    return true;
}();

}  // namespace

namespace zqvm {

bool SelectAudioBackend(std::string_view name, std::string* error) { return TheChoice().Select(name, error); }

AudioBackend SelectedAudioBackend() { return Chosen(); }

const char* AudioBackendName(AudioBackend backend) { return backend == AudioBackend::Pulse ? "pulse" : "virtual"; }

bool PulseServerReachable(std::string* why) {
#if defined(ZQ_HAVE_PULSE)
    return zqplatform::pulse::Backend::Instance().Connect(why) != nullptr;
#else
    if (why) *why = "this build has no pulse backend (libpulse was not found)";
    return false;
#endif
}

std::string PulseServerDescription() {
#if defined(ZQ_HAVE_PULSE)
    std::string why;
    const auto connection = zqplatform::pulse::Backend::Instance().Connect(&why);
    return connection ? connection->ServerDescription() : std::string();
#else
    return {};
#endif
}

}  // namespace zqvm
