// The render engine: device list, opening and releasing a render stream, start and stop.
#include "audio/AudioRender.h"

#include "audio/AudioCapture.h"
#include "audio/SharedStreamOpen.h"
#include "audio/StreamThread.h"
#include "core/FailureReport.h"
#include "devices/EndpointProperties.h"
#include "zqCoreAudio.h"

namespace {

constexpr REFERENCE_TIME kRenderBufferDuration = 300000;  // 30 ms

const SharedStreamTexts kRenderStreamTexts = {
    L"AudioRender: Create RenderShutdownEvent",
    L"AudioRender: Create RenderAudioSamplesReadyEvent",
    L"AudioRender: RenderDevice->Activate ...",
    nullptr,
    L"AudioRender: RenderAudioClient->Initialize ...",
    L"AudioRender: Retrieve the buffer size for the audio client. ...",
    L"AudioRender: SetEventHandle(m_RenderAudioSamplesReadyEvent) ...",
    L"AudioRender: RenderAudioClient->GetService m_spRenderClient ...",
    L"Unable to get new Render client: %x.\n",
    L"AudioRender: RenderAudioClient->GetService m_spVolume ...",
    L"Unable to get Render Simple Audio Volume: %x.\n",
    L"AudioRender: RenderDevice->Activate m_spMeterInfo ...",
    L"Unable to get Render Audio Meter Info: %x.\n",
};

const StreamThreadTexts kRenderThreadTexts = {
    L"AudioRender: start WASAPIRenderThread",
    L"AudioRender: RenderAudioClient->Start",
    L"Unable to start render client: %x.\n",
    nullptr,
    L"AudioRender: RenderAudioClient->Stop",
    L"AudioRender: stop RenderThread",
};

}  // namespace

CAudioRender::CAudioRender() : m_RenderThread(nullptr), m_nBufferFrames(0), m_bMute(false) {
    g_pCore->LogInfo(L"AudioRender constructor");
}

CAudioRender::~CAudioRender() {
    g_pCore->LogInfo(L"AudioRender destructor");
    ReleaseResoursesAudio();
}

void CAudioRender::EnumerateAudioDevices() {
    g_pCore->LogInfo(L"AudioRender: EnumerateAudioDevices");
    ReleaseAudioDevices();
    COwnedCriticalSection::scoped_lock lock(m_csDevices);

    CComPtr<IMMDeviceEnumerator> enumerator;
    if (FAILED(CreateDeviceEnumerator(enumerator))) return;
    {
        CComPtr<IMMDevice> defaultDevice;
        const HRESULT hr = enumerator->GetDefaultAudioEndpoint(eRender, eMultimedia, &defaultDevice);
        if (FAILED(hr)) {
            ReportQuietFailure(L"AudioRender: no default render endpoint: IMMDeviceEnumerator::GetDefaultAudioEndpoint: %x", hr);
            return;
        }
        auto entry = std::make_unique<CWMAudioDevice>();
        entry->SetDevice(defaultDevice);
        entry->SetName(L"Default");
        g_pCore->LogInfo(L"AudioRender: Add default render audio device");
        m_Devices.Add(std::move(entry));
    }

    CComPtr<IMMDeviceCollection> collection;
    UINT count = 0;
    HRESULT hr = enumerator->EnumAudioEndpoints(eRender, DEVICE_STATE_ACTIVE, &collection);
    if (FAILED(hr)) {
        ReportQuietFailure(L"AudioRender: the render endpoints cannot be listed: IMMDeviceEnumerator::EnumAudioEndpoints: %x", hr);
        return;
    }
    hr = collection->GetCount(&count);
    if (FAILED(hr)) {
        ReportQuietFailure(L"AudioRender: the render endpoints cannot be counted: IMMDeviceCollection::GetCount: %x", hr);
        return;
    }
    if (count == 0) return;
    g_pCore->LogInfo(L"AudioRender: Num of render audio devices: %d", static_cast<int>(count));
    for (UINT i = 0; i < count; ++i) {
        CComPtr<IMMDevice> device;
        CComPtr<IPropertyStore> store;
        PROPVARIANT name;
        PropVariantInit(&name);
        if (!OpenEndpointProperties(collection, i, device, store)) continue;  // a failing endpoint is skipped
        hr = store->GetValue(PKEY_Device_FriendlyName, &name);
        if (FAILED(hr)) {
            ReportQuietFailure(L"AudioRender: a render endpoint is skipped: IPropertyStore::GetValue: %x", hr);
            continue;
        }
        auto entry = std::make_unique<CWMAudioDevice>();
        CStringW text;
        text.Format(L"%s", name.vt == VT_LPWSTR && name.pwszVal != nullptr ? name.pwszVal : L"");
        entry->SetName(text);
        entry->SetDevice(device);
        m_Devices.Add(std::move(entry));
        g_pCore->LogInfo(L"AudioRender: [%d]: %s", static_cast<int>(i), text.GetString());
        PropVariantClear(&name);
    }
}

void CAudioRender::ReleaseAudioDevices() {
    g_pCore->LogInfo(L"AudioRender: ReleaseAudioDevices");
    COwnedCriticalSection::scoped_lock lock(m_csDevices);
    m_Devices.Clear();
}

void CAudioRender::ShareConversion(bool install) {
    CAudioCapture* capture = g_pCore->GetCaptureEngine();
    if (capture == nullptr) return;
    if (install) {
        capture->InstallRenderConversion(m_pRenderMixFormat.get(), m_pResamplerContext.get());
    } else {
        capture->InstallRenderConversion(nullptr, nullptr);
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

    COwnedCriticalSection::scoped_lock lock(m_csDevices);
    g_pCore->LogInfo(L"AudioRender: CAudioSessionVolume::CreateInstance ...");
    CAudioSessionVolume* pASV = nullptr;
    const HRESULT created = CAudioSessionVolume::CreateInstance(g_pCore->GetHwnd(), pDevice, &pASV);
    if (SUCCEEDED(created)) {
        Concurrency::critical_section::scoped_lock controls(m_csControls);
        m_pASV.Attach(pASV);
    } else {
        ReportQuietFailure(L"AudioRender: no session volume events: CAudioSessionVolume::CreateInstance: %x", created);
    }
    if (pASV != nullptr) {
        g_pCore->LogInfo(L"AudioRender: ASV EnableNotifications");
        pASV->EnableNotifications(TRUE);
    }
    g_pCore->LogInfo(
        L"AudioRender: Create our shutdown and samples ready events- we want auto reset events that start in the "
        L"not-signaled state.");
    const SharedStreamMembers members = {m_RenderShutdownEvent,
                                         m_RenderAudioSamplesReadyEvent,
                                         m_spRenderAudioClient,
                                         m_pRenderMixFormat,
                                         m_nBufferFrames,
                                         IID_IAudioRenderClient,
                                         reinterpret_cast<void**>(&m_spRenderClient),
                                         m_spVolume,
                                         m_spMeterInfo,
                                         m_csControls,
                                         m_csDevices};
    const HRESULT hr = OpenSharedStream(pDevice, kRenderBufferDuration, 0.5f, kRenderStreamTexts, members);
    if (FAILED(hr)) return hr;
    m_bStreamOpen = true;
    SwrContext* resampler = nullptr;
    const int result = CreateRenderResampler(m_pRenderMixFormat.get(), &resampler);
    m_pResamplerContext.reset(resampler);
    ShareConversion(true);  // complete: the capture thread sees the pair or nothing
    return result;
}

void CAudioRender::ReleaseResoursesAudio() {
    g_pCore->LogInfo(L"AudioRender: ReleaseResoursesAudio");
    StopRender();
    COwnedCriticalSection::scoped_lock lock(m_csDevices);
    m_bStreamOpen = false;
    m_unreleased.reset();
    g_pCore->LogInfo(L"AudioRender: close RenderShutdownEvent");
    m_RenderShutdownEvent.reset();
    g_pCore->LogInfo(L"AudioRender: close RenderAudioSamplesReadyEvent");
    m_RenderAudioSamplesReadyEvent.reset();
    g_pCore->LogInfo(L"AudioRender: close RenderMixFormat");
    ShareConversion(false);  // the capture thread stops using the format and the resampler here
    m_pRenderMixFormat.reset();
    m_spRenderDevice.Release();
    m_spRenderAudioClient.Release();
    m_spRenderClient.Release();
    CComPtr<CAudioSessionVolume> asv;
    {
        Concurrency::critical_section::scoped_lock controls(m_csControls);
        m_spMeterInfo.Release();
        asv.Attach(m_pASV.Detach());
    }
    m_spVolume.Release();
    asv.Release();  // the session sink withdraws its notification request and goes
    g_pCore->LogInfo(L"AudioRender: close ASV");
    if (m_pResamplerContext) {
        g_pCore->LogInfo(L"AudioRender: close ResamplerContext");
        m_pResamplerContext.reset();
    }
}

bool CAudioRender::StartRender() {
    g_pCore->LogInfo(L"AudioRender: StartRender");
    if (!m_spRenderAudioClient) return false;
    if (!m_bStreamOpen) {
        g_pCore->LogError(L"AudioRender: the render device did not open: no stream to start");
        return false;
    }
    return StartStreamThread(m_RenderThread, WASAPIRenderThread, this, m_spRenderAudioClient, kRenderThreadTexts);
}

void CAudioRender::StopRender() {
    g_pCore->LogInfo(L"AudioRender: StopRender");
    if (m_RenderThread == nullptr) {
        g_pCore->LogWarning(L"!IsStarted");
        return;
    }
    StopStreamThread(m_RenderThread, m_RenderShutdownEvent.get(), m_spRenderAudioClient, kRenderThreadTexts);
}

CComPtr<IAudioMeterInformation> CAudioRender::MeterInfo() { return CopyUnder(m_csControls, m_spMeterInfo); }

CComPtr<ISimpleAudioVolume> CAudioRender::SessionVolume() {
    Concurrency::critical_section::scoped_lock controls(m_csControls);
    if (!m_pASV) return {};
    return CComPtr<ISimpleAudioVolume>(m_pASV->m_pSimpleVolume);
}
