// The capture engine: device list, opening and releasing a capture stream, start and stop, and
// the buffer operations of the other threads. The capture thread itself is in
// AudioCaptureThread.cpp.
#include "audio/AudioCapture.h"

#include "audio/EngineFormat.h"
#include "core/FailureReport.h"
#include "audio/SharedStreamOpen.h"
#include "audio/StreamThread.h"
#include "zqCoreAudio.h"

namespace {

constexpr REFERENCE_TIME kCaptureBufferDuration = 200000;  // 20 ms
constexpr size_t kSyncHostBytes = 48000;                   // 125 ms of engine-rate stereo float
// Scratch sizing: frames a resampler may hold back beyond one packet, and the largest render
// frame (8 channels of 32 bits) and rate ratio (192 kHz over 48 kHz) sized for up front; a
// larger format grows the scratch once.
constexpr size_t kResamplerSlackFrames = 256;
constexpr size_t kMaxRenderBlockAlign = 32;
constexpr size_t kMaxRenderRateRatio = 4;

const SharedStreamTexts kCaptureStreamTexts = {
    L"AudioCapture: Create shutdown event ...",
    L"AudioCapture: Create samples ready event ...",
    L"AudioCapture: Activate audio client ...",
    L"AudioCapture: Load the MixFormat. This may differ depending on the shared mode used ...",
    L"AudioCapture: Initialize audio client ...",
    L"AudioCapture: Retrieve the buffer size for the audio client ...",
    L"AudioCapture: Set ready event ...",
    L"AudioCapture: Get new capture clientt ...",
    L"Unable to get new capture client: %x.\n",
    L"AudioCapture: Get Capture Simple Audio Volume ...",
    L"Unable to get Capture Simple Audio Volume: %x.\n",
    L"AudioCapture: Get Capture Audio Meter Info ...",
    L"Unable to get Capture Audio Meter Info: %x.\n",
};

const StreamThreadTexts kCaptureThreadTexts = {
    L"AudioCapture: Start WASAPICaptureThread...",
    L"AudioCapture: We're ready to go, start capturing!",
    L"Unable to start capture client: %x.\n",
    L"AudioCapture: Set CaptureShutdownEvent ...",
    L"AudioCapture: Stop CaptureAudioClient",
    L"AudioCapture: Stop CaptureThread ...",
};

void CreateFeed(CAudioSharedMem& feed) {
    if (feed.CreateBuffer()) {
        g_pCore->LogInfo(L"Create shared capture CreateBuffer: OK!");
    } else {
        g_pCore->LogError(L"Create shared capture CreateBuffer: FAIL!");
    }
}

}  // namespace

CAudioCapture::CAudioCapture()
    : m_CaptureThread(nullptr),
      m_nFrameSize(0),
      m_nBufferFrames(0),
      m_pRenderFormat(nullptr),
      m_pRenderResampler(nullptr) {
    g_pCore->LogInfo(L"AudioCapture contructor initialize ...");
    CreateFeed(m_AudioSharedCapture);
    CreateFeed(m_AudioSharedRender);
    m_pSyncHost = std::make_unique<CCircularBuffer>(kSyncHostBytes);
}

CAudioCapture::~CAudioCapture() {
    g_pCore->LogInfo(L"AudioCapture destructor ...");
    g_pCore->LogInfo(L"ReleaseResoursesAudio");
    ReleaseResoursesAudio();
    g_pCore->LogInfo(L"AudioSharedCapture close");
    if (m_AudioSharedCapture.IsOpen()) m_AudioSharedCapture.Close();
    g_pCore->LogInfo(L"AudioSharedRender close");
    if (m_AudioSharedRender.IsOpen()) m_AudioSharedRender.Close();
    g_pCore->LogInfo(L"SyncHost close");
    m_pSyncHost.reset();
    g_pCore->LogInfo(L"AudioCapture destructor OK");
}

void CAudioCapture::EnumerateAudioDevices() {
    g_pCore->LogInfo(L"AudioCapture: Enumerate audio devices capture:");
    ReleaseAudioDevices();
    COwnedCriticalSection::scoped_lock lock(m_csDevices);
    const size_t count = g_pCore->CopyMicrophones(m_Devices.Storage());
    g_pCore->LogInfo(L"AudioCapture: Num of devices capture %d:", static_cast<int>(count));
    for (size_t i = 0; i < m_Devices.Count(); ++i) {
        g_pCore->LogInfo(L"AudioCapture: [%d]: %s", static_cast<int>(i),
                         m_Devices.At(static_cast<int>(i))->GetFriendlyName().GetString());
    }
}

void CAudioCapture::StoreBypass(std::atomic<bool>& flag, bool bypass) {
    Concurrency::critical_section::scoped_lock lock(m_csBypass);
    flag.exchange(bypass);
}

void CAudioCapture::ReleaseAudioDevices() {
    g_pCore->LogInfo(L"AudioCapture: ReleaseAudioDevices");
    StopCapture();
    COwnedCriticalSection::scoped_lock lock(m_csDevices);
    m_Devices.Clear();
}

HRESULT CAudioCapture::SetFirstAudioDevice() {
    IMMDevice* first = nullptr;
    {
        COwnedCriticalSection::scoped_lock lock(m_csDevices);
        if (m_Devices.Count() == 0) return E_FAIL;
        first = m_Devices.FirstDevice();
    }
    return SetAudioDevice(first);
}

HRESULT CAudioCapture::SetAudioDevice(IMMDevice* pDevice) {
    g_pCore->LogInfo(L"AudioCapture: Call SetAudioDevice");
    ReleaseResoursesAudio();
    m_spCaptureDevice = pDevice;
    if (pDevice == nullptr) return 1;

    COwnedCriticalSection::scoped_lock lock(m_csDevices);
    g_pCore->LogInfo(
        L"Create our shutdown and samples ready events- we want auto reset events that start in the not-signaled "
        L"state.");
    g_pCore->LogInfo(L"");
    const SharedStreamMembers members = {m_CaptureShutdownEvent,
                                         m_CaptureAudioSamplesReadyEvent,
                                         m_spCaptureAudioClient,
                                         m_pCaptureMixFormat,
                                         m_nBufferFrames,
                                         IID_IAudioCaptureClient,
                                         reinterpret_cast<void**>(&m_spCaptureClient),
                                         m_spVolume,
                                         m_spMeterInfo,
                                         m_csControls,
                                         m_csDevices};
    const HRESULT hr = OpenSharedStream(pDevice, kCaptureBufferDuration, 1.0f, kCaptureStreamTexts, members);
    if (m_pCaptureMixFormat) {
        m_nFrameSize = static_cast<size_t>(m_pCaptureMixFormat->nChannels) * (m_pCaptureMixFormat->wBitsPerSample / 8);
    }
    if (FAILED(hr)) return hr;
    m_bStreamOpen = true;
    SizePacketBuffers(m_nBufferFrames);
    SwrContext* resampler = nullptr;
    const HRESULT result = CreateCaptureResampler(m_pCaptureMixFormat.get(), &resampler);
    m_pResamplerContext.reset(resampler);
    return result;
}

void CAudioCapture::SizePacketBuffers(UINT32 frames) {
    const WAVEFORMATEX* mix = m_pCaptureMixFormat.get();
    const size_t sampleBytes = mix->wBitsPerSample / 8;
    m_vecPacketCopy.assign(static_cast<size_t>(frames) * mix->nChannels * sampleBytes, 0);
    // Room for the largest output the conversions can be asked for: a device buffer's worth
    // at the engine rate plus the resamplers' pending frames, in any supported render format.
    const size_t engineFrames = static_cast<size_t>(frames) * ENGINE_SAMPLE_RATE / (mix->nSamplesPerSec ? mix->nSamplesPerSec : 1);
    const size_t outFrames = engineFrames + 480 + kResamplerSlackFrames;
    m_vecEngineFrames.assign(outFrames * ENGINE_CHANNELS, 0.0f);
    m_vecRenderFrames.assign(outFrames * kMaxRenderRateRatio * kMaxRenderBlockAlign, 0);
}

void CAudioCapture::ReleaseResoursesAudio() {
    g_pCore->LogInfo(L"AudioCapture: ReleaseResoursesAudio ...");
    StopCapture();
    g_pCore->LogInfo(L"AudioCapture: StopCapture ...");
    COwnedCriticalSection::scoped_lock lock(m_csDevices);
    m_bStreamOpen = false;
    m_nUnreleasedFrames.reset();
    g_pCore->LogInfo(L"AudioCapture: Close CaptureShutdownEvent ...");
    m_CaptureShutdownEvent.reset();
    g_pCore->LogInfo(L"AudioCapture: Close CaptureAudioSamplesReadyEvent ...");
    m_CaptureAudioSamplesReadyEvent.reset();
    g_pCore->LogInfo(L"AudioCapture: Close CaptureMixFormat ...");
    m_pCaptureMixFormat.reset();
    m_spCaptureDevice.Release();
    m_spCaptureAudioClient.Release();
    m_spCaptureClient.Release();
    {
        Concurrency::critical_section::scoped_lock controls(m_csControls);
        m_spVolume.Release();
        m_spMeterInfo.Release();
    }
    g_pCore->LogInfo(L"AudioCapture: Close ResamplerContext ...");
    m_pResamplerContext.reset();
}

bool CAudioCapture::StartCapture() {
    g_pCore->LogInfo(L"AudioCapture: StartCapture");
    if (!m_spCaptureAudioClient) {
        g_pCore->LogError(L"!m_spCaptureAudioClient.p");
        return false;
    }
    if (!m_bStreamOpen) {
        g_pCore->LogError(L"AudioCapture: the capture device did not open: no stream to start");
        return false;
    }
    return StartStreamThread(m_CaptureThread, WASAPICaptureThread, this, m_spCaptureAudioClient, kCaptureThreadTexts);
}

void CAudioCapture::StopCapture() {
    g_pCore->LogInfo(L"AudioCapture: StopCapture");
    if (m_CaptureThread == nullptr) {
        g_pCore->LogWarning(L"!IsStarted");
        return;
    }
    StopStreamThread(m_CaptureThread, m_CaptureShutdownEvent.get(), m_spCaptureAudioClient, kCaptureThreadTexts);
}

size_t CAudioCapture::ReadFeed(Feed feed, void* dst, size_t bytes) {
    COwnedCriticalSection::scoped_lock lock(m_csPacket);
    return (feed == Feed::Input ? m_AudioSharedCapture : m_AudioSharedRender).Read(dst, bytes);
}

void CAudioCapture::InstallRenderConversion(const WAVEFORMATEX* pMixFormat, SwrContext* pResampler) {
    // Made here and freed after the lock, so the capture thread never waits for either.
    std::unique_ptr<CMonitorRateControl> rateControl =
        pMixFormat != nullptr ? CMonitorRateControl::Create(*pMixFormat) : nullptr;
    COwnedCriticalSection::scoped_lock lock(m_csPacket);
    const bool bWithdrawn = m_pRenderFormat != nullptr && pMixFormat == nullptr;
    m_pRenderFormat = pMixFormat;
    m_pRenderResampler = pResampler;
    m_pRateControl.swap(rateControl);
    if (bWithdrawn) {
        BYTE scrap[4096];
        while (m_pSyncHost->Read(scrap, sizeof scrap) != 0) {
        }
    }
}

CComPtr<IAudioMeterInformation> CAudioCapture::MeterInfo() { return CopyUnder(m_csControls, m_spMeterInfo); }
CComPtr<ISimpleAudioVolume> CAudioCapture::Volume() { return CopyUnder(m_csControls, m_spVolume); }
