// The choice between the virtual audio engine and the pulse backend, made where
// CoCreateInstance(CLSID_MMDeviceEnumerator) finds its class.
#include "zqplatform/vm/audio_backend.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "../audio/engine.h"
#include "../audio/objects.h"
#include "../com/class_registry.h"
#if defined(ZQ_HAVE_PULSE)
#include "../pulse/connection.h"
#include "../pulse/objects.h"
#endif

namespace {

constexpr int kUnchosen = -1;
std::atomic<int> g_backend{kUnchosen};

std::optional<zqvm::AudioBackend> Parse(std::string_view name) {
    if (name == "virtual") return zqvm::AudioBackend::Virtual;
    if (name == "pulse") return zqvm::AudioBackend::Pulse;
    return std::nullopt;
}

zqvm::AudioBackend Chosen() {
    int backend = g_backend.load(std::memory_order_acquire);
    if (backend == kUnchosen) {
        const char* name = std::getenv("ZQ_AUDIO_BACKEND");
        zqvm::AudioBackend fromEnvironment = zqvm::AudioBackend::Virtual;
        if (name != nullptr && name[0] != '\0') {
            std::string why;
            if (zqvm::SelectAudioBackend(name, &why)) return zqvm::SelectedAudioBackend();
            std::fprintf(stderr, "zqplatform: ZQ_AUDIO_BACKEND: %s; using the virtual audio engine\n", why.c_str());
        }
        // The first choice stands: a SelectAudioBackend meanwhile wins.
        g_backend.compare_exchange_strong(backend, static_cast<int>(fromEnvironment), std::memory_order_acq_rel);
        backend = g_backend.load(std::memory_order_acquire);
    }
    return static_cast<zqvm::AudioBackend>(backend);
}

HRESULT CreateEnumerator(REFIID riid, void** ppv) {
    // The machine description also describes the bridges and the registry, which the system
    // reads whichever backend plays the sound.
    zqplatform::audio::Engine::Instance();
#if defined(ZQ_HAVE_PULSE)
    if (Chosen() == zqvm::AudioBackend::Pulse) return zqplatform::pulse::CreateDeviceEnumerator(riid, ppv);
#endif
    return zqplatform::audio::CreateDeviceEnumerator(riid, ppv);
}

// Registered when the platform library loads, so the first CoCreateInstance finds the class.
const bool kRegistered = [] {
    zqplatform::RegisterComClass(CLSID_MMDeviceEnumerator, &CreateEnumerator);
    return true;
}();

}  // namespace

namespace zqvm {

bool SelectAudioBackend(std::string_view name, std::string* error) {
    const std::optional<AudioBackend> backend = Parse(name);
    if (!backend) {
        if (error) *error = "unknown audio backend '" + std::string(name) + "' (virtual or pulse)";
        return false;
    }
#if !defined(ZQ_HAVE_PULSE)
    if (*backend == AudioBackend::Pulse) {
        if (error) *error = "this build has no pulse backend (libpulse was not found)";
        return false;
    }
#endif
    g_backend.store(static_cast<int>(*backend), std::memory_order_release);
    return true;
}

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
