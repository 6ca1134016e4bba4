// IAudioEndpointVolume: the device's own volume and mute, as its backend keeps them (what every
// process on the device hears, not the session's volume). The shape of the scale is the front
// end's, the same on every backend: kDeviceFloorDb..0 dB in 1 dB increments, 101 steps of a
// hundredth of the scalar each, no hardware support; what a scalar means in dB is the
// backend's. The master level is the loudest channel's, as desktop mixers show it.
// Control-change callbacks are not offered (E_NOTIMPL): nothing in the system registers one.
#include <algorithm>
#include <cmath>
#include <optional>

#include "com_object.h"
#include "objects.h"

namespace zqplatform::coreaudio {
namespace {

constexpr UINT kSteps = 101;
// The master level rather than one channel's (every UINT is a channel the caller may ask for).
constexpr std::optional<UINT> kEveryChannel;

bool IsScalar(float level) { return level >= 0.0f && level <= 1.0f; }  // NaN fails both
bool IsDb(float db) { return db >= kDeviceFloorDb && db <= 0.0f; }

float Master(const DeviceVolume& volume) {
    return volume.levels.empty() ? 0.0f : *std::max_element(volume.levels.begin(), volume.levels.end());
}

// A backend answers false when the device has gone since the front end checked (or its server
// would not take the change).
HRESULT Taken(bool taken) { return taken ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED; }

class EndpointVolume final : public Implements<IAudioEndpointVolume> {
public:
    explicit EndpointVolume(std::shared_ptr<Endpoint> endpoint) : m_endpoint(std::move(endpoint)) {}

    HRESULT STDMETHODCALLTYPE RegisterControlChangeNotify(IAudioEndpointVolumeCallback* pNotify) override {
        return NotOffered("IAudioEndpointVolume::RegisterControlChangeNotify", pNotify);
    }
    HRESULT STDMETHODCALLTYPE UnregisterControlChangeNotify(IAudioEndpointVolumeCallback* pNotify) override {
        return NotOffered("IAudioEndpointVolume::UnregisterControlChangeNotify", pNotify);
    }

    HRESULT STDMETHODCALLTYPE GetChannelCount(UINT* pnChannelCount) override {
        return Read(*m_endpoint, "IAudioEndpointVolume::GetChannelCount", pnChannelCount,
                    [this] { return m_endpoint->Channels(); });
    }

    HRESULT STDMETHODCALLTYPE SetMasterVolumeLevel(float fLevelDB, LPCGUID) override {
        return SetLevel("IAudioEndpointVolume::SetMasterVolumeLevel", kEveryChannel, IsDb(fLevelDB),
                        [&] { return m_endpoint->ScalarOfDb(fLevelDB); });
    }
    HRESULT STDMETHODCALLTYPE SetMasterVolumeLevelScalar(float fLevel, LPCGUID) override {
        return SetLevel("IAudioEndpointVolume::SetMasterVolumeLevelScalar", kEveryChannel, IsScalar(fLevel),
                        [&] { return fLevel; });
    }
    HRESULT STDMETHODCALLTYPE GetMasterVolumeLevel(float* pfLevelDB) override {
        return GetLevel("IAudioEndpointVolume::GetMasterVolumeLevel", kEveryChannel, pfLevelDB, true);
    }
    HRESULT STDMETHODCALLTYPE GetMasterVolumeLevelScalar(float* pfLevel) override {
        return GetLevel("IAudioEndpointVolume::GetMasterVolumeLevelScalar", kEveryChannel, pfLevel, false);
    }

    HRESULT STDMETHODCALLTYPE SetChannelVolumeLevel(UINT nChannel, float fLevelDB, LPCGUID) override {
        return SetLevel("IAudioEndpointVolume::SetChannelVolumeLevel", nChannel, IsDb(fLevelDB),
                        [&] { return m_endpoint->ScalarOfDb(fLevelDB); });
    }
    HRESULT STDMETHODCALLTYPE SetChannelVolumeLevelScalar(UINT nChannel, float fLevel, LPCGUID) override {
        return SetLevel("IAudioEndpointVolume::SetChannelVolumeLevelScalar", nChannel, IsScalar(fLevel),
                        [&] { return fLevel; });
    }
    HRESULT STDMETHODCALLTYPE GetChannelVolumeLevel(UINT nChannel, float* pfLevelDB) override {
        return GetLevel("IAudioEndpointVolume::GetChannelVolumeLevel", nChannel, pfLevelDB, true);
    }
    HRESULT STDMETHODCALLTYPE GetChannelVolumeLevelScalar(UINT nChannel, float* pfLevel) override {
        return GetLevel("IAudioEndpointVolume::GetChannelVolumeLevelScalar", nChannel, pfLevel, false);
    }

    HRESULT STDMETHODCALLTYPE SetMute(BOOL bMute, LPCGUID) override {
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioEndpointVolume::SetMute", hr)) return hr;
        return Taken(m_endpoint->WriteDeviceMute(bMute != FALSE));
    }
    HRESULT STDMETHODCALLTYPE GetMute(BOOL* pbMute) override {
        if (pbMute == nullptr) return E_POINTER;
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioEndpointVolume::GetMute", hr)) return hr;
        DeviceVolume now;
        if (!m_endpoint->ReadDeviceVolume(now)) return AUDCLNT_E_DEVICE_INVALIDATED;
        *pbMute = now.mute ? TRUE : FALSE;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetVolumeStepInfo(UINT* pnStep, UINT* pnStepCount) override {
        if (pnStep == nullptr || pnStepCount == nullptr) return E_POINTER;
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioEndpointVolume::GetVolumeStepInfo", hr)) return hr;
        UINT step = 0;
        if (!StepNow(step)) return AUDCLNT_E_DEVICE_INVALIDATED;
        *pnStep = step;
        *pnStepCount = kSteps;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE VolumeStepUp(LPCGUID) override { return Step("IAudioEndpointVolume::VolumeStepUp", +1); }
    HRESULT STDMETHODCALLTYPE VolumeStepDown(LPCGUID) override {
        return Step("IAudioEndpointVolume::VolumeStepDown", -1);
    }

    HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* pdwHardwareSupportMask) override {
        return Read(*m_endpoint, "IAudioEndpointVolume::QueryHardwareSupport", pdwHardwareSupportMask,
                    [] { return DWORD{0}; });  // every backend's volume is software to us
    }
    HRESULT STDMETHODCALLTYPE GetVolumeRange(float* pflVolumeMindB, float* pflVolumeMaxdB,
                                             float* pflVolumeIncrementdB) override {
        if (pflVolumeMindB == nullptr || pflVolumeMaxdB == nullptr || pflVolumeIncrementdB == nullptr) return E_POINTER;
        HRESULT hr;
        if (Intercepted(*m_endpoint, "IAudioEndpointVolume::GetVolumeRange", hr)) return hr;
        *pflVolumeMindB = kDeviceFloorDb;
        *pflVolumeMaxdB = 0.0f;
        *pflVolumeIncrementdB = 1.0f;
        return S_OK;
    }

private:
    HRESULT NotOffered(const char* method, IAudioEndpointVolumeCallback* callback) {
        if (callback == nullptr) return E_POINTER;
        HRESULT hr;
        if (Intercepted(*m_endpoint, method, hr)) return hr;
        return E_NOTIMPL;
    }

    bool IsChannel(std::optional<UINT> channel) const { return !channel || *channel < m_endpoint->Channels(); }

    // One channel's level or the master level (kEveryChannel), as a scalar or in dB.
    HRESULT GetLevel(const char* method, std::optional<UINT> channel, float* out, bool inDb) {
        if (out == nullptr) return E_POINTER;
        HRESULT hr;
        if (Intercepted(*m_endpoint, method, hr)) return hr;
        if (!IsChannel(channel)) return E_INVALIDARG;
        DeviceVolume now;
        if (!m_endpoint->ReadDeviceVolume(now)) return AUDCLNT_E_DEVICE_INVALIDATED;
        const float scalar = channel ? now.levels[*channel] : Master(now);
        *out = inDb ? m_endpoint->DbOfScalar(scalar) : scalar;
        return S_OK;
    }

    // Every channel to one level (kEveryChannel), or one channel with the others as they are now;
    // scalar() converts the caller's level once inRange has passed it.
    template <typename Scalar>
    HRESULT SetLevel(const char* method, std::optional<UINT> channel, bool inRange, Scalar scalar) {
        HRESULT hr;
        if (Intercepted(*m_endpoint, method, hr)) return hr;
        if (!inRange || !IsChannel(channel)) return E_INVALIDARG;
        if (!channel) return Taken(m_endpoint->WriteDeviceLevels(Levels(scalar())));
        DeviceVolume now;
        if (!m_endpoint->ReadDeviceVolume(now)) return AUDCLNT_E_DEVICE_INVALIDATED;
        now.levels[*channel] = scalar();
        return Taken(m_endpoint->WriteDeviceLevels(now.levels));
    }

    std::vector<float> Levels(float scalar) const { return std::vector<float>(m_endpoint->Channels(), scalar); }

    // The step the master level is nearest to.
    bool StepNow(UINT& step) {
        DeviceVolume now;
        if (!m_endpoint->ReadDeviceVolume(now)) return false;
        step = static_cast<UINT>(std::lround(Master(now) * static_cast<float>(kSteps - 1)));
        return true;
    }

    // One step from the master level's nearest, every channel to it; at either end it stays.
    HRESULT Step(const char* method, int direction) {
        HRESULT hr;
        if (Intercepted(*m_endpoint, method, hr)) return hr;
        UINT step = 0;
        if (!StepNow(step)) return AUDCLNT_E_DEVICE_INVALIDATED;
        const int next = std::clamp(static_cast<int>(step) + direction, 0, static_cast<int>(kSteps) - 1);
        return Taken(m_endpoint->WriteDeviceLevels(Levels(static_cast<float>(next) / static_cast<float>(kSteps - 1))));
    }

    const std::shared_ptr<Endpoint> m_endpoint;
};

}  // namespace

HRESULT CreateEndpointVolume(std::shared_ptr<Endpoint> endpoint, REFIID riid, void** ppv) {
    return MakeAs<EndpointVolume>(riid, ppv, std::move(endpoint));
}

}  // namespace zqplatform::coreaudio
