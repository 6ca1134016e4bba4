#include "audio/SharedStreamOpen.h"

#include "audio/AudioLog.h"
#include "core/FailureReport.h"

namespace {

constexpr DWORD kEventAccess = EVENT_MODIFY_STATE | SYNCHRONIZE;

// An auto-reset event that starts not signalled.
bool CreateStreamEvent(UniqueHandle& event) {
    event.reset(CreateEventExW(nullptr, nullptr, 0, kEventAccess));
    return static_cast<bool>(event);
}

// Logs the engine's line for a step, if it has one.
void Announce(const wchar_t* line) {
    if (line != nullptr) audiolog::Info(line);
}

}  // namespace

HRESULT OpenSharedStream(IMMDevice* pDevice, REFERENCE_TIME bufferDuration, float initialVolume,
                         const SharedStreamTexts& texts, const SharedStreamMembers& members) {
    ZQ_ASSERT_HELD(members.devicesLock);
    Announce(texts.createShutdownEvent);
    if (!CreateStreamEvent(members.shutdownEvent)) {
        ReportEngineFailure(L"Unable to create shutdown event: %d.\n", GetLastError());
        return E_FAIL;
    }
    Announce(texts.createReadyEvent);
    if (!CreateStreamEvent(members.readyEvent)) {
        ReportEngineFailure(L"Unable to create samples ready event: %d.\n", GetLastError());
        return E_FAIL;
    }
    Announce(texts.activateClient);
    HRESULT hr = pDevice->Activate(IID_IAudioClient, CLSCTX_INPROC_SERVER, nullptr,
                                   reinterpret_cast<void**>(&members.client));
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to activate audio client: %x.\n", hr);
        return hr;
    }
    Announce(texts.getMixFormat);
    hr = members.client->GetMixFormat(members.mixFormat.put());
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to get mix format on audio client: %x.\n", hr);
        return hr;
    }
    Announce(texts.initialize);
    hr = members.client->Initialize(AUDCLNT_SHAREMODE_SHARED,
                                    AUDCLNT_STREAMFLAGS_EVENTCALLBACK | AUDCLNT_STREAMFLAGS_NOPERSIST, bufferDuration,
                                    0, members.mixFormat.get(), nullptr);
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to initialize audio client: %x.\n", hr);
        return hr;
    }
    Announce(texts.getBufferSize);
    hr = members.client->GetBufferSize(&members.bufferFrames);
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to get audio client buffer: %x. \n", hr);
        return hr;
    }
    Announce(texts.setEventHandle);
    hr = members.client->SetEventHandle(members.readyEvent.get());
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to set ready event: %x.\n", hr);
        return hr;
    }
    Announce(texts.getStreamClient);
    hr = members.client->GetService(members.streamClientId, members.streamClient);
    if (FAILED(hr)) {
        ReportEngineFailure(texts.streamClientFailure, hr);
        return hr;
    }
    Announce(texts.getVolume);
    CComPtr<ISimpleAudioVolume> volume;
    hr = members.client->GetService(IID_ISimpleAudioVolume, reinterpret_cast<void**>(&volume));
    if (FAILED(hr)) {
        ReportEngineFailure(texts.volumeFailure, hr);
        return hr;
    }
    {
        Concurrency::critical_section::scoped_lock lock(members.controlsLock);
        members.volume = volume;
    }
    hr = volume->SetMasterVolume(initialVolume, nullptr);
    if (FAILED(hr)) ReportEngineFailure(L"Unable to set the stream's volume: %x.\n", hr);  // the stream opens all the same
    Announce(texts.activateMeter);
    CComPtr<IAudioMeterInformation> meter;
    hr = pDevice->Activate(IID_IAudioMeterInformation, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&meter));
    if (FAILED(hr)) {
        ReportEngineFailure(texts.meterFailure, hr);
        return hr;
    }
    Concurrency::critical_section::scoped_lock lock(members.controlsLock);
    members.meter = meter;
    return S_OK;
}
