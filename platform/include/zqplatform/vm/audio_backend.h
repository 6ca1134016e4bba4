// Which implementation stands behind the Core Audio interfaces: the virtual audio engine
// (the default) or the PulseAudio backend, which talks to a real sound server (a PulseAudio
// desktop, or a PipeWire desktop through its PulseAudio server).
//
// The choice is read from the environment variable ZQ_AUDIO_BACKEND ("virtual" or "pulse") the
// first time a device enumerator is created, unless SelectAudioBackend was called before. It
// applies to every CoCreateInstance(CLSID_MMDeviceEnumerator) made afterwards; objects made
// before keep working on the backend that made them.
//
// On the pulse backend the server is found by libpulse's usual rules (PULSE_SERVER, the
// user's runtime folder) and never spawned. When none answers, creating the enumerator fails
// with AUDCLNT_E_SERVICE_NOT_RUNNING and one line naming the cause goes to the debug output
// (OutputDebugStringW); it is written again only after the cause changed or a server was
// reached in between.
#pragma once

#include <string>
#include <string_view>

#include "zqplatform/export.h"

namespace zqvm {

enum class AudioBackend { Virtual, Pulse };

// False (and the reason in *error) for a name other than "virtual" or "pulse", or for "pulse"
// in a build without libpulse.
ZQPLATFORM_API bool SelectAudioBackend(std::string_view name, std::string* error);
ZQPLATFORM_API AudioBackend SelectedAudioBackend();
ZQPLATFORM_API const char* AudioBackendName(AudioBackend backend);

// Pulse backend: connects (or keeps the connection made) and says whether the server answered;
// the reason otherwise. Waits at most a few seconds; never spawns a server.
ZQPLATFORM_API bool PulseServerReachable(std::string* why);

// Pulse backend: the server's name and version, "" when not connected.
ZQPLATFORM_API std::string PulseServerDescription();

}  // namespace zqvm
