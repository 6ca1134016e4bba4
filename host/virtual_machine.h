// What the host does to the virtual machine it runs on, through the platform's control API:
// choosing the machine, the microphone's input, recording the speaker, and the things a user
// or another program would do on a real machine (change the default speaker, change its
// volume in the system mixer). Host's thread only; COM must be initialised on it.
#pragma once

#include <string>
#include <vector>

namespace zqhost {

// Makes the platform load the machine from path when it is first used (before any library
// call); empty leaves ZQ_VIRTUAL_MACHINE or the built-in machine. False if the file cannot be
// read.
bool SelectMachine(const std::string& path, std::string* error);
// Loads the machine now if it was not yet; false when it has no endpoint (a description the
// platform refused: it has said why on standard error).
bool MachineHasEndpoints();
// What the host is running on, for the summary.
std::string MachineName(const std::string& path);

// Identifiers of the capture endpoints in any state, and of the active render endpoints.
std::vector<std::wstring> CaptureEndpointIds();
std::vector<std::wstring> ActiveRenderEndpointIds();
// The render endpoint the library opens as "Default".
std::wstring DefaultRenderEndpointId();

// Every capture endpoint plays the WAV file, looped.
bool PlayWavOnMicrophones(const std::string& path, std::string* error);
// Writes what the default render endpoint plays to path; Stop... closes the file.
bool RecordSpeaker(const std::string& path, std::wstring& endpointId, std::string* error);
void StopRecordingSpeaker(const std::wstring& endpointId);

// The next active render endpoint (after the default, in machine order) becomes the default
// for every role, as when the user picks another speaker in the system settings.
bool SwitchDefaultRender(std::string* error);
// The system mixer sets the default speaker's session volume.
bool OtherProgramSetsVolume(float level, std::string* error);

}  // namespace zqhost
