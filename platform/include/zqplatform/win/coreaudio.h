// The Core Audio interfaces the system calls: endpoints and their enumeration and
// notifications, property stores, audio clients with capture and render clients, simple
// volume, peak meter, session manager, session control and session events. Identifiers, method
// order and result codes are the SDK's.
#pragma once

#include "zqplatform/win/com.h"

typedef LONGLONG REFERENCE_TIME;
typedef const GUID* LPCGUID;

// ---- formats -------------------------------------------------------------------------------
#pragma pack(push, 1)
struct WAVEFORMATEX {
    WORD wFormatTag;
    WORD nChannels;
    DWORD nSamplesPerSec;
    DWORD nAvgBytesPerSec;
    WORD nBlockAlign;
    WORD wBitsPerSample;
    WORD cbSize;
};
#pragma pack(pop)
typedef WAVEFORMATEX* PWAVEFORMATEX;
static_assert(sizeof(WAVEFORMATEX) == 18);

struct WAVEFORMATEXTENSIBLE {
    WAVEFORMATEX Format;
    union {
        WORD wValidBitsPerSample;
        WORD wSamplesPerBlock;
        WORD wReserved;
    } Samples;
    DWORD dwChannelMask;
    GUID SubFormat;
};
typedef WAVEFORMATEXTENSIBLE* PWAVEFORMATEXTENSIBLE;
static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40);

#define WAVE_FORMAT_PCM 0x0001
#define WAVE_FORMAT_IEEE_FLOAT 0x0003
#define WAVE_FORMAT_EXTENSIBLE 0xFFFE

#define SPEAKER_FRONT_LEFT 0x1
#define SPEAKER_FRONT_RIGHT 0x2
#define SPEAKER_FRONT_CENTER 0x4
#define SPEAKER_LOW_FREQUENCY 0x8
#define SPEAKER_BACK_LEFT 0x10
#define SPEAKER_BACK_RIGHT 0x20
#define SPEAKER_FRONT_LEFT_OF_CENTER 0x40
#define SPEAKER_FRONT_RIGHT_OF_CENTER 0x80
#define SPEAKER_BACK_CENTER 0x100
#define SPEAKER_SIDE_LEFT 0x200
#define SPEAKER_SIDE_RIGHT 0x400

ZQPLATFORM_API extern const GUID KSDATAFORMAT_SUBTYPE_PCM;
ZQPLATFORM_API extern const GUID KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;

// ---- audio client --------------------------------------------------------------------------
enum AUDCLNT_SHAREMODE { AUDCLNT_SHAREMODE_SHARED = 0, AUDCLNT_SHAREMODE_EXCLUSIVE = 1 };

#define AUDCLNT_STREAMFLAGS_CROSSPROCESS 0x00010000
#define AUDCLNT_STREAMFLAGS_LOOPBACK 0x00020000
#define AUDCLNT_STREAMFLAGS_EVENTCALLBACK 0x00040000
#define AUDCLNT_STREAMFLAGS_NOPERSIST 0x00080000

enum _AUDCLNT_BUFFERFLAGS {
    AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY = 0x1,
    AUDCLNT_BUFFERFLAGS_SILENT = 0x2,
    AUDCLNT_BUFFERFLAGS_TIMESTAMP_ERROR = 0x4
};

#define AUDCLNT_ERR(n) MAKE_HRESULT_U(0x88890000u | (n))
#define AUDCLNT_SUCCESS(n) MAKE_HRESULT_U(0x08890000u | (n))
#define AUDCLNT_E_NOT_INITIALIZED AUDCLNT_ERR(0x001u)
#define AUDCLNT_E_ALREADY_INITIALIZED AUDCLNT_ERR(0x002u)
#define AUDCLNT_E_WRONG_ENDPOINT_TYPE AUDCLNT_ERR(0x003u)
#define AUDCLNT_E_DEVICE_INVALIDATED AUDCLNT_ERR(0x004u)
#define AUDCLNT_E_NOT_STOPPED AUDCLNT_ERR(0x005u)
#define AUDCLNT_E_BUFFER_TOO_LARGE AUDCLNT_ERR(0x006u)
#define AUDCLNT_E_OUT_OF_ORDER AUDCLNT_ERR(0x007u)
#define AUDCLNT_E_UNSUPPORTED_FORMAT AUDCLNT_ERR(0x008u)
#define AUDCLNT_E_INVALID_SIZE AUDCLNT_ERR(0x009u)
#define AUDCLNT_E_DEVICE_IN_USE AUDCLNT_ERR(0x00Au)
#define AUDCLNT_E_BUFFER_OPERATION_PENDING AUDCLNT_ERR(0x00Bu)
#define AUDCLNT_E_THREAD_NOT_REGISTERED AUDCLNT_ERR(0x00Cu)
#define AUDCLNT_E_SERVICE_NOT_RUNNING AUDCLNT_ERR(0x010u)
#define AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED AUDCLNT_ERR(0x011u)
#define AUDCLNT_E_EVENTHANDLE_NOT_SET AUDCLNT_ERR(0x014u)
#define AUDCLNT_E_BUFFER_SIZE_ERROR AUDCLNT_ERR(0x016u)
#define AUDCLNT_E_BUFFER_ERROR AUDCLNT_ERR(0x018u)
#define AUDCLNT_S_BUFFER_EMPTY AUDCLNT_SUCCESS(0x001u)

struct IAudioClient : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE ShareMode, DWORD StreamFlags,
                                                 REFERENCE_TIME hnsBufferDuration, REFERENCE_TIME hnsPeriodicity,
                                                 const WAVEFORMATEX* pFormat, LPCGUID AudioSessionGuid) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32* pNumBufferFrames) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME* phnsLatency) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32* pNumPaddingFrames) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE ShareMode, const WAVEFORMATEX* pFormat,
                                                        WAVEFORMATEX** ppClosestMatch) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX** ppDeviceFormat) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME* phnsDefaultDevicePeriod,
                                                      REFERENCE_TIME* phnsMinimumDevicePeriod) = 0;
    virtual HRESULT STDMETHODCALLTYPE Start() = 0;
    virtual HRESULT STDMETHODCALLTYPE Stop() = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE eventHandle) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetService(REFIID riid, void** ppv) = 0;
};

struct IAudioCaptureClient : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** ppData, UINT32* pNumFramesToRead, DWORD* pdwFlags,
                                                UINT64* pu64DevicePosition, UINT64* pu64QPCPosition) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 NumFramesRead) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32* pNumFramesInNextPacket) = 0;
};

struct IAudioRenderClient : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetBuffer(UINT32 NumFramesRequested, BYTE** ppData) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 NumFramesWritten, DWORD dwFlags) = 0;
};

struct ISimpleAudioVolume : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE SetMasterVolume(float fLevel, LPCGUID EventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMasterVolume(float* pfLevel) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMute(BOOL bMute, LPCGUID EventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMute(BOOL* pbMute) = 0;
};

struct IAudioMeterInformation : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetPeakValue(float* pfPeak) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMeteringChannelCount(UINT* pnChannelCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelsPeakValues(UINT32 u32ChannelCount, float* afPeakValues) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* pdwHardwareSupportMask) = 0;
};

// ---- endpoint volume -----------------------------------------------------------------------
typedef struct AUDIO_VOLUME_NOTIFICATION_DATA {
    GUID guidEventContext;
    BOOL bMuted;
    float fMasterVolume;
    UINT nChannels;
    float afChannelVolumes[1];
} AUDIO_VOLUME_NOTIFICATION_DATA, *PAUDIO_VOLUME_NOTIFICATION_DATA;

#define ENDPOINT_HARDWARE_SUPPORT_VOLUME 0x00000001
#define ENDPOINT_HARDWARE_SUPPORT_MUTE 0x00000002
#define ENDPOINT_HARDWARE_SUPPORT_METER 0x00000004

struct IAudioEndpointVolumeCallback : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE OnNotify(PAUDIO_VOLUME_NOTIFICATION_DATA pNotify) = 0;
};

struct IAudioEndpointVolume : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE RegisterControlChangeNotify(IAudioEndpointVolumeCallback* pNotify) = 0;
    virtual HRESULT STDMETHODCALLTYPE UnregisterControlChangeNotify(IAudioEndpointVolumeCallback* pNotify) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelCount(UINT* pnChannelCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMasterVolumeLevel(float fLevelDB, LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMasterVolumeLevelScalar(float fLevel, LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMasterVolumeLevel(float* pfLevelDB) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMasterVolumeLevelScalar(float* pfLevel) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetChannelVolumeLevel(UINT nChannel, float fLevelDB, LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetChannelVolumeLevelScalar(UINT nChannel, float fLevel,
                                                                  LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelVolumeLevel(UINT nChannel, float* pfLevelDB) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelVolumeLevelScalar(UINT nChannel, float* pfLevel) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMute(BOOL bMute, LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMute(BOOL* pbMute) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetVolumeStepInfo(UINT* pnStep, UINT* pnStepCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE VolumeStepUp(LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE VolumeStepDown(LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* pdwHardwareSupportMask) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetVolumeRange(float* pflVolumeMindB, float* pflVolumeMaxdB,
                                                     float* pflVolumeIncrementdB) = 0;
};

// ---- sessions ------------------------------------------------------------------------------
enum AudioSessionState { AudioSessionStateInactive = 0, AudioSessionStateActive = 1, AudioSessionStateExpired = 2 };
enum AudioSessionDisconnectReason {
    DisconnectReasonDeviceRemoval = 0,
    DisconnectReasonServerShutdown = 1,
    DisconnectReasonFormatChanged = 2,
    DisconnectReasonSessionLogoff = 3,
    DisconnectReasonSessionDisconnected = 4,
    DisconnectReasonExclusiveModeOverride = 5
};

struct IAudioSessionEvents : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE OnDisplayNameChanged(LPCWSTR NewDisplayName, LPCGUID EventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnIconPathChanged(LPCWSTR NewIconPath, LPCGUID EventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnSimpleVolumeChanged(float NewVolume, BOOL NewMute, LPCGUID EventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnChannelVolumeChanged(DWORD ChannelCount, float NewChannelVolumeArray[],
                                                             DWORD ChangedChannel, LPCGUID EventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnGroupingParamChanged(LPCGUID NewGroupingParam, LPCGUID EventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnStateChanged(AudioSessionState NewState) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnSessionDisconnected(AudioSessionDisconnectReason DisconnectReason) = 0;
};

struct IAudioSessionControl : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetState(AudioSessionState* pRetVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDisplayName(LPWSTR* pRetVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetDisplayName(LPCWSTR Value, LPCGUID EventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetIconPath(LPWSTR* pRetVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetIconPath(LPCWSTR Value, LPCGUID EventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetGroupingParam(GUID* pRetVal) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetGroupingParam(LPCGUID Override, LPCGUID EventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE RegisterAudioSessionNotification(IAudioSessionEvents* NewNotifications) = 0;
    virtual HRESULT STDMETHODCALLTYPE UnregisterAudioSessionNotification(IAudioSessionEvents* NewNotifications) = 0;
};

struct IAudioSessionManager : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetAudioSessionControl(LPCGUID AudioSessionGuid, DWORD StreamFlags,
                                                             IAudioSessionControl** SessionControl) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSimpleAudioVolume(LPCGUID AudioSessionGuid, DWORD StreamFlags,
                                                           ISimpleAudioVolume** AudioVolume) = 0;
};

// ---- endpoints -----------------------------------------------------------------------------
enum EDataFlow { eRender = 0, eCapture = 1, eAll = 2, EDataFlow_enum_count = 3 };
enum ERole { eConsole = 0, eMultimedia = 1, eCommunications = 2, ERole_enum_count = 3 };

#define DEVICE_STATE_ACTIVE 0x00000001
#define DEVICE_STATE_DISABLED 0x00000002
#define DEVICE_STATE_NOTPRESENT 0x00000004
#define DEVICE_STATE_UNPLUGGED 0x00000008
#define DEVICE_STATEMASK_ALL 0x0000000F

struct IPropertyStore : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetCount(DWORD* cProps) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetAt(DWORD iProp, PROPERTYKEY* pkey) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* pv) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY key, REFPROPVARIANT propvar) = 0;
    virtual HRESULT STDMETHODCALLTYPE Commit() = 0;
};

struct IMMDevice : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD dwClsCtx, PROPVARIANT* pActivationParams,
                                               void** ppInterface) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD stgmAccess, IPropertyStore** ppProperties) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetId(LPWSTR* ppstrId) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetState(DWORD* pdwState) = 0;
};

struct IMMEndpoint : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetDataFlow(EDataFlow* pDataFlow) = 0;
};

struct IMMDeviceCollection : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetCount(UINT* pcDevices) = 0;
    virtual HRESULT STDMETHODCALLTYPE Item(UINT nDevice, IMMDevice** ppDevice) = 0;
};

struct IMMNotificationClient : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR pwstrDeviceId, DWORD dwNewState) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR pwstrDeviceId) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR pwstrDeviceId) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role,
                                                             LPCWSTR pwstrDefaultDeviceId) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR pwstrDeviceId, const PROPERTYKEY key) = 0;
};

struct IMMDeviceEnumerator : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow dataFlow, DWORD dwStateMask,
                                                         IMMDeviceCollection** ppDevices) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow dataFlow, ERole role,
                                                              IMMDevice** ppEndpoint) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR pwstrId, IMMDevice** ppDevice) = 0;
    virtual HRESULT STDMETHODCALLTYPE RegisterEndpointNotificationCallback(IMMNotificationClient* pClient) = 0;
    virtual HRESULT STDMETHODCALLTYPE UnregisterEndpointNotificationCallback(IMMNotificationClient* pClient) = 0;
};

ZQPLATFORM_API extern const CLSID CLSID_MMDeviceEnumerator;
ZQPLATFORM_API extern const IID IID_IMMDeviceEnumerator;
ZQPLATFORM_API extern const IID IID_IMMDevice;
ZQPLATFORM_API extern const IID IID_IMMDeviceCollection;
ZQPLATFORM_API extern const IID IID_IMMEndpoint;
ZQPLATFORM_API extern const IID IID_IMMNotificationClient;
ZQPLATFORM_API extern const IID IID_IPropertyStore;
ZQPLATFORM_API extern const IID IID_IAudioClient;
ZQPLATFORM_API extern const IID IID_IAudioCaptureClient;
ZQPLATFORM_API extern const IID IID_IAudioRenderClient;
ZQPLATFORM_API extern const IID IID_ISimpleAudioVolume;
ZQPLATFORM_API extern const IID IID_IAudioMeterInformation;
ZQPLATFORM_API extern const IID IID_IAudioEndpointVolume;
ZQPLATFORM_API extern const IID IID_IAudioEndpointVolumeCallback;
ZQPLATFORM_API extern const IID IID_IAudioSessionManager;
ZQPLATFORM_API extern const IID IID_IAudioSessionControl;
ZQPLATFORM_API extern const IID IID_IAudioSessionEvents;

ZQ_DECLARE_IID(IMMDeviceEnumerator, IID_IMMDeviceEnumerator);
ZQ_DECLARE_IID(IMMDevice, IID_IMMDevice);
ZQ_DECLARE_IID(IMMDeviceCollection, IID_IMMDeviceCollection);
ZQ_DECLARE_IID(IMMEndpoint, IID_IMMEndpoint);
ZQ_DECLARE_IID(IMMNotificationClient, IID_IMMNotificationClient);
ZQ_DECLARE_IID(IPropertyStore, IID_IPropertyStore);
ZQ_DECLARE_IID(IAudioClient, IID_IAudioClient);
ZQ_DECLARE_IID(IAudioCaptureClient, IID_IAudioCaptureClient);
ZQ_DECLARE_IID(IAudioRenderClient, IID_IAudioRenderClient);
ZQ_DECLARE_IID(ISimpleAudioVolume, IID_ISimpleAudioVolume);
ZQ_DECLARE_IID(IAudioMeterInformation, IID_IAudioMeterInformation);
ZQ_DECLARE_IID(IAudioEndpointVolume, IID_IAudioEndpointVolume);
ZQ_DECLARE_IID(IAudioEndpointVolumeCallback, IID_IAudioEndpointVolumeCallback);
ZQ_DECLARE_IID(IAudioSessionManager, IID_IAudioSessionManager);
ZQ_DECLARE_IID(IAudioSessionControl, IID_IAudioSessionControl);
ZQ_DECLARE_IID(IAudioSessionEvents, IID_IAudioSessionEvents);

ZQPLATFORM_API extern const PROPERTYKEY PKEY_Device_FriendlyName;
ZQPLATFORM_API extern const PROPERTYKEY PKEY_Device_ContainerId;
