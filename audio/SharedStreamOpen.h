// Opening one endpoint as a shared-mode, event-driven stream: the steps the capture and the
// render engine both take, in their order, each announced by the engine's own log line. The
// first failing step ends the open: its text with the code is logged as an error and written to
// the debug output, and what succeeded so far stays in place for the engine's release.
//
// Runs on the host's thread under the engine's m_csDevices. The meter and volume interfaces
// are stored under the engine's controls lock, which the getters on other threads take to copy
// them.
#pragma once

#include "core/OwnedCriticalSection.h"
#include "zqPlatform.h"

// The engine's own texts for each step.
struct SharedStreamTexts {
    const wchar_t* createShutdownEvent;
    const wchar_t* createReadyEvent;
    const wchar_t* activateClient;
    const wchar_t* getMixFormat;  // null: the engine announces no step here
    const wchar_t* initialize;
    const wchar_t* getBufferSize;
    const wchar_t* setEventHandle;
    const wchar_t* getStreamClient;
    const wchar_t* streamClientFailure;  // "...: %x.\n"
    const wchar_t* getVolume;
    const wchar_t* volumeFailure;
    const wchar_t* activateMeter;
    const wchar_t* meterFailure;
};

// The engine's members the open fills in.
struct SharedStreamMembers {
    UniqueHandle& shutdownEvent;
    UniqueHandle& readyEvent;
    CComPtr<IAudioClient>& client;
    CoTaskMemPtr<WAVEFORMATEX>& mixFormat;
    UINT32& bufferFrames;
    REFIID streamClientId;  // IID_IAudioCaptureClient or IID_IAudioRenderClient
    void** streamClient;
    CComPtr<ISimpleAudioVolume>& volume;
    CComPtr<IAudioMeterInformation>& meter;
    Concurrency::critical_section& controlsLock;
    const COwnedCriticalSection& devicesLock;  // held by the caller
};

// S_OK, or the failing step's code (E_FAIL for an event that could not be created). The
// stream's volume is set to initialVolume once it is had.
HRESULT OpenSharedStream(IMMDevice* pDevice, REFERENCE_TIME bufferDuration, float initialVolume,
                         const SharedStreamTexts& texts, const SharedStreamMembers& members);

// The interface stored under lock, with a reference of the caller's.
template <typename Interface>
CComPtr<Interface> CopyUnder(Concurrency::critical_section& lock, const CComPtr<Interface>& stored) {
    Concurrency::critical_section::scoped_lock held(lock);
    return stored;
}
