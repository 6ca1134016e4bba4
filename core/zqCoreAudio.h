// zqCoreAudio: the exported interface of the audio core.
//
// The host constructs one CZQCoreAudio, attaches its CZqLog with SetLog, calls Init with its
// main window, uses the other members, calls Shutdown and destroys the object. Lifecycle,
// device and setting members are called from the host's thread, on which COM must be
// initialised; the meter, volume, spectrum and waveform getters and the log functions may be
// called from any thread. Device records handed out stay owned by the library (see each
// getter for how long they stay valid). Window messages reach the window given to Init from
// the library's threads; WM_AUDIO_DEVICE_CHANGED with wParam 0 is sent (the sender waits for
// the window's thread), the others are posted.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "zqPlatform.h"

#if defined(_WIN32)
#  if defined(ZQCOREAUDIO_BUILDING)
#    define ZQCOREAUDIO_API __declspec(dllexport)
#  else
#    define ZQCOREAUDIO_API __declspec(dllimport)
#  endif
#else
#  define ZQCOREAUDIO_API __attribute__((visibility("default")))
#endif

// Window messages to the host.
#ifndef WM_USER
#define WM_USER 0x0400
#endif
// Posted; wParam 0, lParam 0: the default speaker changed, or the render stream keeps failing.
#define WM_AUDIO_RENDER_CHANGED (WM_USER + 200)
// wParam 0: the microphone list was refreshed (sent), or the capture stream keeps failing
// (posted); 1: a microphone was removed (posted).
#define WM_AUDIO_DEVICE_CHANGED (WM_USER + 204)
// Posted; wParam: float bits of the volume, lParam: mute. The render session's volume or mute
// changed other than through SetRenderVol: by another program, or by the library itself, which
// sets each render stream it opens (Init, RebuildRender, SetRenderDevice) to 0.5. A host that
// keeps its own volume sets it again after those, and shows GetRenderVol() on this message.
#define WM_SESSION_VOLUME_CHANGED (WM_USER + 210)

class CAudioCapture;
class CAudioRender;
class CAudioAnalyzer;
class CMMNotificationClient;

// The record of one audio endpoint and, for the maker's microphones, of its USB identity and
// versions. Holds one reference on its endpoint while it has one. No lock: the list that owns
// a record guards it.
class ZQCOREAUDIO_API CWMAudioDevice {
public:
    CWMAudioDevice();
    CWMAudioDevice(const CWMAudioDevice& src);
    ~CWMAudioDevice();
    CWMAudioDevice& operator=(const CWMAudioDevice& src);

    // Empties everything but the edit mark, and gives back the endpoint reference.
    void Clear();

    // The endpoint, without a reference added: valid while the record holds it.
    IMMDevice* GetDevice();
    // Takes a reference on p (may be null) and gives back the one held before.
    void SetDevice(IMMDevice* p);

    CStringW GetName();
    void SetName(const wchar_t* text);
    CStringW GetFriendlyName();
    void SetFriendlyName(const wchar_t* text);
    CStringW GetManufacturer();
    void SetManufacturer(const wchar_t* text);
    CStringW GetProduct();
    void SetProduct(const wchar_t* text);
    CStringW GetSN();
    void SetSN(const wchar_t* text);
    _GUID GetHidContainerID();
    void SetHidContainerID(_GUID guid);

    unsigned char GetVerAPI();
    unsigned char GetVerFW();
    // Asks the microphone behind bridge nDevice for its protocol and firmware versions.
    bool InitVer(int nDevice);

    bool IsEditNow();
    void MarkEditNow(bool bEdit);

private:
    unsigned char m_nVerAPI;
    unsigned char m_nVerFW;
    bool m_bEditNow;
    GUID m_guidHidContainerID;
    CStringW m_strProduct;
    CStringW m_strManufacturer;
    CStringW m_strName;
    CStringW m_strFriendlyName;
    CStringW m_strSN;
    IMMDevice* m_pDevice;
};

// One product of the product table (config.xml).
struct ZQCOREAUDIO_API _ZQ_CONFIG {
    _ZQ_CONFIG();
    _ZQ_CONFIG(const _ZQ_CONFIG& other);
    ~_ZQ_CONFIG();
    _ZQ_CONFIG& operator=(const _ZQ_CONFIG& other);

    CStringW strDeviceName;
    CStringW strFriendlyName;
    unsigned char nApi;
    unsigned char nFw;
    CStringW strEditor;
};

// A plug-in's description: 524 bytes of the plug-in's own, then the plug-in file's full path
// in UTF-16 (forward slashes, NUL-terminated, at most 259 characters), whatever the width of
// wchar_t on the platform.
struct _ZQ_PLUGIN_INFO {
    unsigned char abPluginData[524];
    char16_t szPath[260];
};
static_assert(sizeof(_ZQ_PLUGIN_INFO) == 1044, "the plug-in description is a fixed 1044-byte record");
static_assert(offsetof(_ZQ_PLUGIN_INFO, szPath) == 524, "the path follows the plug-in's 524 bytes");

class ZQCOREAUDIO_API CZQCoreAudio {
public:
    CZQCoreAudio();
    ~CZQCoreAudio();
    CZQCoreAudio(const CZQCoreAudio&) = delete;
    CZQCoreAudio& operator=(const CZQCoreAudio&) = delete;

    // ---- lifecycle (host's thread) ----
    // Init and Shutdown are called once each, in that order (Init again only after Shutdown).
    // A second Init without Shutdown does nothing but log a warning. Start, Refresh, the Rebuild
    // and Destroy members and FillDevicesZQ need what Init builds: before Init and after
    // Shutdown they do nothing but log a warning (FillDevicesZQ returns false), list no
    // microphone and leave nothing to free; Stop then only logs "CoreAudio: Stop", and
    // SetCaptureDevice / SetRenderDevice return false.
    void Init(HWND hWnd);
    void Shutdown();
    bool IsInit();
    void Start();
    void Stop();
    bool IsStarted();
    void Refresh();
    void DestroyRender();
    void RebuildRender();
    void DestroyCapture();
    void RebuildCapture();

    // ---- engines and stream devices ----
    CAudioCapture* GetCaptureEngine();
    CAudioRender* GetRenderEngine();
    bool SetCaptureDevice(IMMDevice* pDevice);
    bool SetRenderDevice(IMMDevice* pDevice);
    // Records stay valid until the engine's list is next released (Destroy/Rebuild, Refresh,
    // Shutdown).
    unsigned int GetCaptureDeviceCount();
    CWMAudioDevice* GetCaptureDevice(int nIndex);
    unsigned int GetRenderDeviceCount();
    CWMAudioDevice* GetRenderDevice(int nIndex);
    CMMNotificationClient* GetNotifyClient();
    HWND GetHwnd();
    _SECURITY_ATTRIBUTES* GetSA();

    // ---- settings (atomics: any thread) ----
    void SetBypass(bool bBypass);
    bool IsBypass();
    void SetWaveScale(int nScale);
    int GetWaveScale();
    void SetWhichFunction(int nFunction);
    int GetWhichFunction();
    void SetSpectrumView(DWORD dwView);
    int GetSpectrumView();

    // ---- logging (any thread) ----
    void LogInfo(const wchar_t* format, ...);
    void LogWarning(const wchar_t* format, ...);
    void LogError(const wchar_t* format, ...);
    // Attaches the host's log (null detaches it); the core never deletes a log. Detaching is
    // safe at any time: once SetLog returns, no call through the log attached before is under
    // way and none can start, so the host may delete that log at once, even while its own
    // threads or the library's go on logging (their lines go to the new log, or nowhere). To do
    // so SetLog waits for the log calls already handing a line to the old log (each as short as
    // one CZqLog::Log); it must therefore not be called from inside a CZqLog::Log. Otherwise
    // the log must outlive the core object, whose destructor logs a last line.
    void SetLog(CZqLog* pLog);
    CStringW GetDbgTextFIFO();

    // ---- device notifications ----
    void DoDeviceChange(const wchar_t* pwstrDeviceId, DWORD dwNewState);
    void DoDeviceAdded(const wchar_t* pwstrDeviceId);
    void DoDeviceRemoved(const wchar_t* pwstrDeviceId);
    void RemoveDevice(const wchar_t* pwstrDeviceId);
    void DoRenderChanged(const wchar_t* pwstrDeviceId);
    void DoCaptureChanged(const wchar_t* pwstrDeviceId);

    // ---- the maker's microphones ----
    void ClearDeviceZQ();
    // Lists the microphones present and not yet listed; true, or false when it did nothing
    // because the core is not initialised.
    bool FillDevicesZQ();
    // The active capture endpoint of that container, with a reference the caller owns.
    IMMDevice* FindHidDevice(_GUID guidContainer, CStringW& strName);
    unsigned int GetHidCaptureDeviceCount();
    // Valid until ClearDeviceZQ (unless marked with MarkEditNow) or RemoveDevice deletes it.
    CWMAudioDevice* GetHidCaptureDevice(int nIndex);

    // ---- product table ----
    int GetProductCount();
    CStringW GetProductNameByIndex(int nIndex);
    CStringW GetProductFriendlyNameByIndex(int nIndex);
    unsigned char GetProductAPI(int nIndex);
    unsigned char GetProductFW(int nIndex);
    CStringW GetEditorExeByProduct(const CStringW& strFriendlyName);
    int GetGroupId(const CStringW& strFriendlyName);
    CStringW FindFriendlyNameDevice(unsigned char nApi, unsigned char nFw, const CStringW& strProduct);

    // ---- plug-ins ----
    int GetPluginCount();
    _ZQ_PLUGIN_INFO GetPlugin(int nIndex);

    // ---- meters, volumes, mute, waveform peaks (any thread, at any time of the object's life) ----
    float GetPeakCapture();
    float GetPeakCaptureDBFS();
    float GetPeakRender();
    float GetPeakRenderDBFS();
    void SetCaptureVol(float fLevel);
    float GetCaptureVol();
    void SetRenderVol(float fLevel);
    float GetRenderVol();
    void MuteRender(bool bMute);
    bool IsRenderMute();
    // Before Init and after Shutdown the meters and volumes read 0 and mute false. The
    // waveform-peak place (0 to 4799, nIndex moved by nShift) outside the history throws
    // std::out_of_range in every phase of the object's life, before Init and after Shutdown
    // too; inside it, a place reads 0 while there is no analyzer.
    float GetDataPeakIn(int nIndex, int nShift);
    float GetDataPeakOut(int nIndex, int nShift);

    // ---- spectrum (any thread, at any time of the object's life) ----
    // A bin outside 0..4095 throws std::out_of_range in every phase of the object's life; a bin
    // inside reads 0 before Init and after Shutdown.
    float GetSpectrumAmpIn(int nIndex);
    float GetSpectrumAmpOut(int nIndex);
    float GetSpectrumAmpPeakIn(int nIndex);
    float GetSpectrumAmpPeakOut(int nIndex);

private:
    friend class CAudioCapture;  // copies the microphone list (CopyMicrophones)
    class CComponentsReader;     // a getter's admission to the components (ComponentsReader.h)

    void LoadConfig();
    void LoadPlugins();
    bool IsDeviceInConfig(const CStringW& strProduct);
    void LogV(zqLogEventType eType, const wchar_t* format, va_list args);
    // Whether Init built the components and Shutdown has not destroyed them; when not, logs
    // that pszMember does nothing. Host's thread (and the notification thread, which runs only
    // while they exist).
    bool HasComponents(const wchar_t* pszMember);
    // Appends copies of the microphone records to list, under the list's lock; returns how
    // many records the microphone list holds.
    size_t CopyMicrophones(std::vector<std::unique_ptr<CWMAudioDevice>>& list);
    // The volumes the level getters read and set; empty while the components are closed.
    CComPtr<ISimpleAudioVolume> CaptureVolume();
    CComPtr<ISimpleAudioVolume> RenderVolume();
    // Init, once every component exists: from here on the getters use them.
    void OpenComponents();
    // Shutdown, before any component goes: the getters return their empty values from here
    // on, and the getters already inside have left when this returns.
    void CloseComponents();

    std::vector<_ZQ_CONFIG> m_vecProducts;
    std::vector<CWMAudioDevice*> m_vecHidDevices;
    std::vector<_ZQ_PLUGIN_INFO> m_vecPlugins;
    // Owned from Init to Shutdown. The host's thread alone creates and destroys them; other
    // threads reach them through the getters, admitted by m_bComponentsOpen and counted in
    // m_nComponentReaders, which Shutdown waits to drain before it destroys anything.
    std::unique_ptr<CAudioAnalyzer> m_pAnalyzer;
    std::unique_ptr<CAudioCapture> m_pCapture;
    std::unique_ptr<CAudioRender> m_pRender;
    std::unique_ptr<CMMNotificationClient> m_pNotifyClient;
    std::atomic<bool> m_bComponentsOpen;
    std::atomic<int> m_nComponentReaders;
    HWND m_hWnd;
    std::atomic<bool> m_bBypass;
    std::atomic<int32_t> m_nWaveScale;
    std::atomic<int32_t> m_nWhichFunction;
    std::atomic<uint32_t> m_dwSpectrumView;
    CSecurityAttributesRW m_SA;
    // The host's log, reached by log calls admitted as the getters are (CoreLogging.cpp): each
    // counts itself in for the current epoch; SetLog swaps the pointer, opens a new epoch and
    // waits until the calls of the old one have left.
    std::atomic<CZqLog*> m_pLog;
    std::atomic<uint32_t> m_nLogEpoch;
    std::atomic<int> m_nLogCalls[2];
    Concurrency::critical_section m_csSetLog;  // one SetLog at a time
    // Serialises the microphone list, the publication of the product table and the removed
    // serial numbers between the notification thread and the host's thread.
    Concurrency::critical_section m_csHidDevices;
    // One discovery at a time: two at once would both open the same bridges, and the one that
    // finds a bridge held by the other would list its microphone without versions or name.
    // Taken before m_csHidDevices.
    Concurrency::critical_section m_csDiscovery;
    // The serial numbers that removal messages point to, kept until the core object goes, so
    // that a posted message's text stays valid however late the host handles it.
    std::set<std::wstring> m_setRemovedSerials;
};

// The one core object, set by its constructor; valid until its destructor returns.
ZQCOREAUDIO_API extern CZQCoreAudio* g_pCore;
