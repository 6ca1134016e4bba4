// The capture engine: device list, opening and releasing a capture stream, start and stop.
// The capture thread itself is in AudioCaptureThread.cpp.
#include "AudioCapture.h"

extern "C" {
#include <libswresample/swresample.h>
}

#include "EngineFormat.h"
#include "EngineReport.h"
#include "ResamplerSetup.h"
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
constexpr DWORD kEventAccess = EVENT_MODIFY_STATE | SYNCHRONIZE;

void CloseIfOpen(HANDLE& handle) {
    if (handle != nullptr) {
        CloseHandle(handle);
        handle = nullptr;
    }
}

}  // namespace

CAudioCapture::CAudioCapture()
    : m_CaptureThread(nullptr),
      m_CaptureShutdownEvent(nullptr),
      m_CaptureAudioSamplesReadyEvent(nullptr),
      m_pCaptureMixFormat(nullptr),
      m_nFrameSize(0),
      m_nBufferFrames(0),
      m_pSyncHost(nullptr),
      m_pResamplerContext(nullptr) {
    g_pCore->LogInfo(L"AudioCapture contructor initialize ...");
    if (m_AudioSharedCapture.CreateBuffer()) {
        g_pCore->LogInfo(L"Create shared capture CreateBuffer: OK!");
    } else {
        g_pCore->LogError(L"Create shared capture CreateBuffer: FAIL!");
    }
    if (m_AudioSharedRender.CreateBuffer()) {
        g_pCore->LogInfo(L"Create shared capture CreateBuffer: OK!");
    } else {
        g_pCore->LogError(L"Create shared capture CreateBuffer: FAIL!");
    }
    m_pSyncHost = new CCircularBuffer(kSyncHostBytes);
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
    delete m_pSyncHost;
    m_pSyncHost = nullptr;
    g_pCore->LogInfo(L"AudioCapture destructor OK");
}

void CAudioCapture::EnumerateAudioDevices() {
    g_pCore->LogInfo(L"AudioCapture: Enumerate audio devices capture:");
    ReleaseAudioDevices();
    Concurrency::critical_section::scoped_lock lock(m_csDevices);
    // The microphone list is changed from the notification thread too: copy it under its lock.
    Concurrency::critical_section::scoped_lock listLock(g_pCore->m_csHidDevices);
    const std::vector<CWMAudioDevice*>& microphones = g_pCore->m_vecHidDevices;
    g_pCore->LogInfo(L"AudioCapture: Num of devices capture %d:", static_cast<int>(microphones.size()));
    for (size_t i = 0; i < microphones.size(); ++i) {
        if (microphones[i] == nullptr) continue;
        auto* copy = new CWMAudioDevice;
        *copy = *microphones[i];
        m_Devices.push_back(copy);
        g_pCore->LogInfo(L"AudioCapture: [%d]: %s", static_cast<int>(i), copy->GetFriendlyName().GetString());
    }
}

void CAudioCapture::ReleaseAudioDevices() {
    g_pCore->LogInfo(L"AudioCapture: ReleaseAudioDevices");
    StopCapture();
    Concurrency::critical_section::scoped_lock lock(m_csDevices);
    for (CWMAudioDevice* device : m_Devices) delete device;
    m_Devices.clear();
}

HRESULT CAudioCapture::SetFirstAudioDevice() {
    IMMDevice* first = nullptr;
    {
        Concurrency::critical_section::scoped_lock lock(m_csDevices);
        if (m_Devices.empty()) return E_FAIL;
        first = m_Devices.front()->GetDevice();
    }
    return SetAudioDevice(first);
}

HRESULT CAudioCapture::SetAudioDevice(IMMDevice* pDevice) {
    g_pCore->LogInfo(L"AudioCapture: Call SetAudioDevice");
    ReleaseResoursesAudio();
    m_spCaptureDevice = pDevice;
    if (pDevice == nullptr) return 1;

    Concurrency::critical_section::scoped_lock lock(m_csDevices);
    g_pCore->LogInfo(
        L"Create our shutdown and samples ready events- we want auto reset events that start in the not-signaled "
        L"state.");
    g_pCore->LogInfo(L"");
    g_pCore->LogInfo(L"AudioCapture: Create shutdown event ...");
    m_CaptureShutdownEvent = CreateEventExW(nullptr, nullptr, 0, kEventAccess);
    if (m_CaptureShutdownEvent == nullptr) {
        ReportEngineFailure(L"Unable to create shutdown event: %d.\n", GetLastError());
        return E_FAIL;
    }
    g_pCore->LogInfo(L"AudioCapture: Create samples ready event ...");
    m_CaptureAudioSamplesReadyEvent = CreateEventExW(nullptr, nullptr, 0, kEventAccess);
    if (m_CaptureAudioSamplesReadyEvent == nullptr) {
        ReportEngineFailure(L"Unable to create samples ready event: %d.\n", GetLastError());
        return E_FAIL;
    }
    g_pCore->LogInfo(L"AudioCapture: Activate audio client ...");
    HRESULT hr = m_spCaptureDevice->Activate(IID_IAudioClient, CLSCTX_INPROC_SERVER, nullptr,
                                             reinterpret_cast<void**>(&m_spCaptureAudioClient));
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to activate audio client: %x.\n", hr);
        return hr;
    }
    g_pCore->LogInfo(L"AudioCapture: Load the MixFormat. This may differ depending on the shared mode used ...");
    hr = m_spCaptureAudioClient->GetMixFormat(&m_pCaptureMixFormat);
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to get mix format on audio client: %x.\n", hr);
        return hr;
    }
    m_nFrameSize = static_cast<size_t>(m_pCaptureMixFormat->nChannels) * (m_pCaptureMixFormat->wBitsPerSample / 8);
    g_pCore->LogInfo(L"AudioCapture: Initialize audio client ...");
    hr = m_spCaptureAudioClient->Initialize(AUDCLNT_SHAREMODE_SHARED,
                                            AUDCLNT_STREAMFLAGS_EVENTCALLBACK | AUDCLNT_STREAMFLAGS_NOPERSIST,
                                            kCaptureBufferDuration, 0, m_pCaptureMixFormat, nullptr);
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to initialize audio client: %x.\n", hr);
        return hr;
    }
    g_pCore->LogInfo(L"AudioCapture: Retrieve the buffer size for the audio client ...");
    hr = m_spCaptureAudioClient->GetBufferSize(&m_nBufferFrames);
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to get audio client buffer: %x. \n", hr);
        return hr;
    }
    g_pCore->LogInfo(L"AudioCapture: Set ready event ...");
    hr = m_spCaptureAudioClient->SetEventHandle(m_CaptureAudioSamplesReadyEvent);
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to set ready event: %x.\n", hr);
        return hr;
    }
    g_pCore->LogInfo(L"AudioCapture: Get new capture clientt ...");
    hr = m_spCaptureAudioClient->GetService(IID_IAudioCaptureClient, reinterpret_cast<void**>(&m_spCaptureClient));
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to get new capture client: %x.\n", hr);
        return hr;
    }
    g_pCore->LogInfo(L"AudioCapture: Get Capture Simple Audio Volume ...");
    hr = m_spCaptureAudioClient->GetService(IID_ISimpleAudioVolume, reinterpret_cast<void**>(&m_spVolume));
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to get Capture Simple Audio Volume: %x.\n", hr);
        return hr;
    }
    m_spVolume->SetMasterVolume(1.0f, nullptr);
    g_pCore->LogInfo(L"AudioCapture: Get Capture Audio Meter Info ...");
    hr = m_spCaptureDevice->Activate(IID_IAudioMeterInformation, CLSCTX_ALL, nullptr,
                                     reinterpret_cast<void**>(&m_spMeterInfo));
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to get Capture Audio Meter Info: %x.\n", hr);
        return hr;
    }
    SizePacketBuffers(m_nBufferFrames);
    return CreateCaptureResampler(m_pCaptureMixFormat, &m_pResamplerContext);
}

void CAudioCapture::SizePacketBuffers(UINT32 frames) {
    const WAVEFORMATEX* mix = m_pCaptureMixFormat;
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
    Concurrency::critical_section::scoped_lock lock(m_csDevices);
    g_pCore->LogInfo(L"AudioCapture: Close CaptureShutdownEvent ...");
    CloseIfOpen(m_CaptureShutdownEvent);
    g_pCore->LogInfo(L"AudioCapture: Close CaptureAudioSamplesReadyEvent ...");
    CloseIfOpen(m_CaptureAudioSamplesReadyEvent);
    g_pCore->LogInfo(L"AudioCapture: Close CaptureMixFormat ...");
    CoTaskMemFree(m_pCaptureMixFormat);
    m_pCaptureMixFormat = nullptr;
    m_spCaptureDevice.Release();
    m_spCaptureAudioClient.Release();
    m_spCaptureClient.Release();
    m_spVolume.Release();
    m_spMeterInfo.Release();
    g_pCore->LogInfo(L"AudioCapture: Close ResamplerContext ...");
    if (m_pResamplerContext != nullptr) swr_free(&m_pResamplerContext);
}

bool CAudioCapture::StartCapture() {
    g_pCore->LogInfo(L"AudioCapture: StartCapture");
    if (!m_spCaptureAudioClient) {
        g_pCore->LogError(L"!m_spCaptureAudioClient.p");
        return false;
    }
    if (m_CaptureThread != nullptr) return true;
    g_pCore->LogInfo(L"AudioCapture: Start WASAPICaptureThread...");
    m_CaptureThread = CreateThread(nullptr, 0, WASAPICaptureThread, this, 0, nullptr);
    if (m_CaptureThread == nullptr) {
        ReportEngineFailure(L"Unable to create transport thread: %x.", GetLastError());
        return false;
    }
    g_pCore->LogInfo(L"AudioCapture: We're ready to go, start capturing!");
    const HRESULT hr = m_spCaptureAudioClient->Start();
    if (FAILED(hr)) {
        ReportEngineFailure(L"Unable to start capture client: %x.\n", hr);
        return false;
    }
    return true;
}

void CAudioCapture::StopCapture() {
    g_pCore->LogInfo(L"AudioCapture: StopCapture");
    if (m_CaptureThread == nullptr) {
        g_pCore->LogWarning(L"!IsStarted");
        return;
    }
    if (m_CaptureShutdownEvent != nullptr) {
        g_pCore->LogInfo(L"AudioCapture: Set CaptureShutdownEvent ...");
        SetEvent(m_CaptureShutdownEvent);
    }
    if (m_spCaptureAudioClient) {
        g_pCore->LogInfo(L"AudioCapture: Stop CaptureAudioClient");
        const HRESULT hr = m_spCaptureAudioClient->Stop();
        if (FAILED(hr)) ReportEngineFailure(L"Unable to stop audio client: %x\n", hr);
    }
    g_pCore->LogInfo(L"AudioCapture: Stop CaptureThread ...");
    WaitForSingleObject(m_CaptureThread, INFINITE);
    CloseHandle(m_CaptureThread);
    m_CaptureThread = nullptr;
}
