// The render engine: device list, opening and releasing a render stream, start and stop.
#include "AudioRender.h"

extern "C" {
#include <libswresample/swresample.h>
}

#include "AudioCapture.h"
#include "AudioSessionVolume.h"
#include "EngineReport.h"
#include "ResamplerSetup.h"
#include "devices/EndpointProperties.h"
#include "zqCoreAudio.h"

namespace {

constexpr REFERENCE_TIME kRenderBufferDuration = 300000;  // 30 ms
constexpr DWORD kEventAccess = EVENT_MODIFY_STATE | SYNCHRONIZE;

void CloseIfOpen(HANDLE& handle) {
    if (handle != nullptr) {
        CloseHandle(handle);
        handle = nullptr;
    }
}

}  // namespace

CAudioRender::CAudioRender()
    : m_RenderThread(nullptr),
      m_RenderShutdownEvent(nullptr),
      m_RenderAudioSamplesReadyEvent(nullptr),
      m_pRenderMixFormat(nullptr),
      m_nBufferFrames(0),
      m_pResamplerContext(nullptr),
      m_pASV(nullptr),
      m_bMute(false) {
    g_pCore->LogInfo(L"AudioRender constructor");
}

CAudioRender::~CAudioRender() {
    g_pCore->LogInfo(L"AudioRender destructor");
    ReleaseResoursesAudio();
}

void CAudioRender::EnumerateAudioDevices() {
    g_pCore->LogInfo(L"AudioRender: EnumerateAudioDevices");
    ReleaseAudioDevices();
    Concurrency::critical_section::scoped_lock lock(m_csDevices);

    CComPtr<IMMDeviceEnumerator> enumerator;
    if (FAILED(CreateDeviceEnumerator(enumerator))) return;
    {
        CComPtr<IMMDevice> defaultDevice;
        if (FAILED(enumerator->GetDefaultAudioEndpoint(eRender, eMultimedia, &defaultDevice))) return;
        auto* entry = new CWMAudioDevice;
        entry->SetDevice(defaultDevice);
        entry->SetName(L"Default");
        g_pCore->LogInfo(L"AudioRender: Add default render audio device");
        m_Devices.push_back(entry);
    }

    CComPtr<IMMDeviceCollection> collection;
    UINT count = 0;
    if (FAILED(enumerator->EnumAudioEndpoints(eRender, DEVICE_STATE_ACTIVE, &collection)) ||
        FAILED(collection->GetCount(&count)) || count == 0) {
        return;
    }
    g_pCore->LogInfo(L"AudioRender: Num of render audio devices: %d", static_cast<int>(count));
    for (UINT i = 0; i < count; ++i) {
        CComPtr<IMMDevice> device;
        CComPtr<IPropertyStore> store;
        PROPVARIANT name;
        PropVariantInit(&name);
        if (FAILED(collection->Item(i, &device)) || device == nullptr ||
            FAILED(device->OpenPropertyStore(STGM_READ, &store)) ||
            FAILED(store->GetValue(PKEY_Device_FriendlyName, &name))) {
            continue;  // a failing endpoint is skipped
        }
        auto* entry = new CWMAudioDevice;
        CStringW text;
        text.Format(L"%s", name.vt == VT_LPWSTR && name.pwszVal != nullptr ? name.pwszVal : L"");
        entry->SetName(text);
        entry->SetDevice(device);
        m_Devices.push_back(entry);
        g_pCore->LogInfo(L"AudioRender: [%d]: %s", static_cast<int>(i), text.GetString());
        PropVariantClear(&name);
    }
}

void CAudioRender::ReleaseAudioDevices() {
    g_pCore->LogInfo(L"AudioRender: ReleaseAudioDevices");
    Concurrency::critical_section::scoped_lock lock(m_csDevices);
    for (CWMAudioDevice* device : m_Devices) delete device;
    m_Devices.clear();
}

void CAudioRender::SwapConversion(WAVEFORMATEX*& mixFormat, SwrContext*& resampler) {
    CAudioCapture* capture = g_pCore->GetCaptureEngine();
    if (capture == nullptr) {
        std::swap(m_pRenderMixFormat, mixFormat);
        std::swap(m_pResamplerContext, resampler);
        return;
    }
    Concurrency::critical_section::scoped_lock lock(capture->m_csPacket);
    const bool bWithdrawn = m_pRenderMixFormat != nullptr && mixFormat == nullptr;
    std::swap(m_pRenderMixFormat, mixFormat);
    std::swap(m_pResamplerContext, resampler);
    // What is queued was converted for the device that goes now: played on the next one (of
    // another frame size or sample format) it would be noise, so it goes with its device.
    if (bWithdrawn) {
        BYTE scrap[4096];
        while (capture->m_pSyncHost->Read(scrap, sizeof scrap) != 0) {
        }
    }
}

HRESULT CAudioRender::SetAudioDevice(IMMDevice* pDevice) {
    g_pCore->LogInfo(L"AudioRender: SetAudioDevice");
    ReleaseResoursesAudio();
    m_spRenderDevice = pDevice;
    if (pDevice == nullptr) {
        g_pCore->LogError(L"AudioRender: !m_spRenderDevice");
        return 1;
    }

    Concurrency::critical_section::scoped_lock lock(m_csDevices);
    g_pCore->LogInfo(L"AudioRender: CAudioSessionVolume::CreateInstance ...");
    if (FAILED(CAudioSessionVolume::CreateInstance(g_pCore->GetHwnd(), pDevice, &m_pASV))) m_pASV = nullptr;
    if (m_pASV != nullptr) {
        g_pCore->LogInfo(L"AudioRender: ASV EnableNotifications");
        m_pASV->EnableNotifications(TRUE);
    }
    g_pCore->LogInfo(
        L"AudioRender: Create our shutdown and samples ready events- we want auto reset events that start in the "
        L"not-signaled state.");
    g_pCore->LogInfo(L"AudioRender: Create RenderShutdownEvent");
    m_RenderShutdownEvent = CreateEventExW(nullptr, nullptr, 0, kEventAccess);
    if (m_RenderShutdownEvent == nullptr) {
        ReportEngineFailure(L"Unable to create shutdown event: %d.\n", GetLastError());
        return E_FAIL;
    }
    g_pCore->LogInfo(L"AudioRender: Create RenderAudioSamplesReadyEvent");
    m_RenderAudioSamplesReadyEvent = CreateEventExW(nullptr, nullptr, 0, kEventAccess);
    if (m_RenderAudioSamplesReadyEvent == nullptr) {
        ReportEngineFailure(L"Unable to create samples ready event: %d.\n", GetLastError());
        return E_FAIL;
    }
    g_pCore->LogInfo(L"AudioRender: RenderDevice->Activate ...");
    HRESULT hr = m_spRenderDevice->Activate(IID_IAudioClient, CLSCTX_INPROC_SERVER, nullptr,
                                            reinterpret_cast<void**>(&m_spRenderAudioClient));
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to activate audio client: %x.\n", hr);
        return hr;
    }
    WAVEFORMATEX* mixFormat = nullptr;
    hr = m_spRenderAudioClient->GetMixFormat(&mixFormat);
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to get mix format on audio client: %x.\n", hr);
        return hr;
    }
    SwrContext* noResampler = nullptr;
    SwapConversion(mixFormat, noResampler);  // the format is in place; the resampler follows once built
    g_pCore->LogInfo(L"AudioRender: RenderAudioClient->Initialize ...");
    hr = m_spRenderAudioClient->Initialize(AUDCLNT_SHAREMODE_SHARED,
                                           AUDCLNT_STREAMFLAGS_EVENTCALLBACK | AUDCLNT_STREAMFLAGS_NOPERSIST,
                                           kRenderBufferDuration, 0, m_pRenderMixFormat, nullptr);
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to initialize audio client: %x.\n", hr);
        return hr;
    }
    g_pCore->LogInfo(L"AudioRender: Retrieve the buffer size for the audio client. ...");
    hr = m_spRenderAudioClient->GetBufferSize(&m_nBufferFrames);
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to get audio client buffer: %x. \n", hr);
        return hr;
    }
    g_pCore->LogInfo(L"AudioRender: SetEventHandle(m_RenderAudioSamplesReadyEvent) ...");
    hr = m_spRenderAudioClient->SetEventHandle(m_RenderAudioSamplesReadyEvent);
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to set ready event: %x.\n", hr);
        return hr;
    }
    g_pCore->LogInfo(L"AudioRender: RenderAudioClient->GetService m_spRenderClient ...");
    hr = m_spRenderAudioClient->GetService(IID_IAudioRenderClient, reinterpret_cast<void**>(&m_spRenderClient));
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to get new Render client: %x.\n", hr);
        return hr;
    }
    g_pCore->LogInfo(L"AudioRender: RenderAudioClient->GetService m_spVolume ...");
    hr = m_spRenderAudioClient->GetService(IID_ISimpleAudioVolume, reinterpret_cast<void**>(&m_spVolume));
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to get Render Simple Audio Volume: %x.\n", hr);
        return hr;
    }
    m_spVolume->SetMasterVolume(0.5f, nullptr);
    g_pCore->LogInfo(L"AudioRender: RenderDevice->Activate m_spMeterInfo ...");
    hr = m_spRenderDevice->Activate(IID_IAudioMeterInformation, CLSCTX_ALL, nullptr,
                                    reinterpret_cast<void**>(&m_spMeterInfo));
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to get Render Audio Meter Info: %x.\n", hr);
        return hr;
    }
    SwrContext* resampler = nullptr;
    const int result = CreateRenderResampler(m_pRenderMixFormat, &resampler);
    WAVEFORMATEX* sameFormat = m_pRenderMixFormat;  // swapped with itself: only the resampler changes
    SwapConversion(sameFormat, resampler);
    return result;
}

void CAudioRender::ReleaseResoursesAudio() {
    g_pCore->LogInfo(L"AudioRender: ReleaseResoursesAudio");
    StopRender();
    Concurrency::critical_section::scoped_lock lock(m_csDevices);
    g_pCore->LogInfo(L"AudioRender: close RenderShutdownEvent");
    CloseIfOpen(m_RenderShutdownEvent);
    g_pCore->LogInfo(L"AudioRender: close RenderAudioSamplesReadyEvent");
    CloseIfOpen(m_RenderAudioSamplesReadyEvent);
    g_pCore->LogInfo(L"AudioRender: close RenderMixFormat");
    WAVEFORMATEX* mixFormat = nullptr;
    SwrContext* resampler = nullptr;
    SwapConversion(mixFormat, resampler);  // the capture thread stops using both from here on
    CoTaskMemFree(mixFormat);
    m_spRenderDevice.Release();
    m_spRenderAudioClient.Release();
    m_spRenderClient.Release();
    m_spMeterInfo.Release();
    m_spVolume.Release();
    if (m_pASV != nullptr) {
        m_pASV->Release();
        m_pASV = nullptr;
    }
    g_pCore->LogInfo(L"AudioRender: close ASV");
    if (resampler != nullptr) {
        g_pCore->LogInfo(L"AudioRender: close ResamplerContext");
        swr_free(&resampler);
    }
}

bool CAudioRender::StartRender() {
    g_pCore->LogInfo(L"AudioRender: StartRender");
    if (!m_spRenderAudioClient) return false;
    if (m_RenderThread != nullptr) return true;
    g_pCore->LogInfo(L"AudioRender: start WASAPIRenderThread");
    m_RenderThread = CreateThread(nullptr, 0, WASAPIRenderThread, this, 0, nullptr);
    if (m_RenderThread == nullptr) {
        ReportEngineFailure(L"Unable to create transport thread: %x.", GetLastError());
        return false;
    }
    g_pCore->LogInfo(L"AudioRender: RenderAudioClient->Start");
    const HRESULT hr = m_spRenderAudioClient->Start();
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to start render client: %x.\n", hr);
        return false;
    }
    return true;
}

void CAudioRender::StopRender() {
    g_pCore->LogInfo(L"AudioRender: StopRender");
    if (m_RenderThread == nullptr) {
        g_pCore->LogWarning(L"!IsStarted");
        return;
    }
    if (m_RenderShutdownEvent != nullptr) SetEvent(m_RenderShutdownEvent);
    if (m_spRenderAudioClient) {
        g_pCore->LogInfo(L"AudioRender: RenderAudioClient->Stop");
        const HRESULT hr = m_spRenderAudioClient->Stop();
        if (FAILED(hr)) ReportEngineFailure(L"Unable to stop audio client: %x\n", hr);
    }
    g_pCore->LogInfo(L"AudioRender: stop RenderThread");
    WaitForSingleObject(m_RenderThread, INFINITE);
    CloseHandle(m_RenderThread);
    m_RenderThread = nullptr;
}
