// IAudioEndpointVolume of a sink or source: the device's own volume and mute on the server.
// The scalar is the server's volume over its 100 % (what desktop mixers show as percent); the
// level in dB is the server's software-volume scale. Every call asks the server (none is made
// by the stream threads). Control-change callbacks are not offered (E_NOTIMPL): the system
// does not register any.
#include <algorithm>
#include <cmath>

#include "../coreaudio/com_object.h"
#include "objects.h"

namespace zqplatform::pulse {
namespace {

using coreaudio::Implements;

constexpr UINT kSteps = 101;  // 0 % to 100 % in whole percent
constexpr float kFloorDb = -100.0f;

pa_volume_t FromScalar(float scalar) {
    return static_cast<pa_volume_t>(std::lround(static_cast<double>(scalar) * PA_VOLUME_NORM));
}
float ToScalar(pa_volume_t volume) {
    return std::min(1.0f, static_cast<float>(volume) / static_cast<float>(PA_VOLUME_NORM));
}

class EndpointVolume final : public Implements<IAudioEndpointVolume> {
public:
    EndpointVolume(std::shared_ptr<Connection> connection, Endpoint endpoint)
        : m_connection(std::move(connection)), m_endpoint(std::move(endpoint)) {}

    HRESULT STDMETHODCALLTYPE RegisterControlChangeNotify(IAudioEndpointVolumeCallback*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE UnregisterControlChangeNotify(IAudioEndpointVolumeCallback*) override { return E_NOTIMPL; }

    HRESULT STDMETHODCALLTYPE GetChannelCount(UINT* pnChannelCount) override {
        if (pnChannelCount == nullptr) return E_POINTER;
        *pnChannelCount = m_endpoint.sampleSpec.channels;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetMasterVolumeLevel(float fLevelDB, LPCGUID) override {
        if (!(fLevelDB >= kFloorDb && fLevelDB <= 0.0f)) return E_INVALIDARG;
        return SetAll(pa_sw_volume_from_dB(fLevelDB));
    }
    HRESULT STDMETHODCALLTYPE SetMasterVolumeLevelScalar(float fLevel, LPCGUID) override {
        if (!(fLevel >= 0.0f && fLevel <= 1.0f)) return E_INVALIDARG;
        return SetAll(FromScalar(fLevel));
    }
    HRESULT STDMETHODCALLTYPE GetMasterVolumeLevel(float* pfLevelDB) override {
        return Read(pfLevelDB, [](const Endpoint& now) { return Db(pa_cvolume_max(&now.volume)); });
    }
    HRESULT STDMETHODCALLTYPE GetMasterVolumeLevelScalar(float* pfLevel) override {
        return Read(pfLevel, [](const Endpoint& now) { return ToScalar(pa_cvolume_max(&now.volume)); });
    }

    HRESULT STDMETHODCALLTYPE SetChannelVolumeLevel(UINT nChannel, float fLevelDB, LPCGUID) override {
        if (!(fLevelDB >= kFloorDb && fLevelDB <= 0.0f)) return E_INVALIDARG;
        return SetChannel(nChannel, pa_sw_volume_from_dB(fLevelDB));
    }
    HRESULT STDMETHODCALLTYPE SetChannelVolumeLevelScalar(UINT nChannel, float fLevel, LPCGUID) override {
        if (!(fLevel >= 0.0f && fLevel <= 1.0f)) return E_INVALIDARG;
        return SetChannel(nChannel, FromScalar(fLevel));
    }
    HRESULT STDMETHODCALLTYPE GetChannelVolumeLevel(UINT nChannel, float* pfLevelDB) override {
        if (nChannel >= m_endpoint.sampleSpec.channels) return E_INVALIDARG;
        return Read(pfLevelDB, [nChannel](const Endpoint& now) { return Db(now.volume.values[nChannel]); });
    }
    HRESULT STDMETHODCALLTYPE GetChannelVolumeLevelScalar(UINT nChannel, float* pfLevel) override {
        if (nChannel >= m_endpoint.sampleSpec.channels) return E_INVALIDARG;
        return Read(pfLevel, [nChannel](const Endpoint& now) { return ToScalar(now.volume.values[nChannel]); });
    }

    HRESULT STDMETHODCALLTYPE SetMute(BOOL bMute, LPCGUID) override {
        if (!m_connection->Alive()) return AUDCLNT_E_DEVICE_INVALIDATED;
        Connection::Locked lock(*m_connection);
        pa_context* context = m_connection->Context();
        const char* name = m_endpoint.name.c_str();
        const bool done = m_connection->Complete(
            m_endpoint.flow == eRender ? pa_context_set_sink_mute_by_name(context, name, bMute != FALSE, nullptr, nullptr)
                                       : pa_context_set_source_mute_by_name(context, name, bMute != FALSE, nullptr, nullptr));
        return done ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
    }
    HRESULT STDMETHODCALLTYPE GetMute(BOOL* pbMute) override {
        if (pbMute == nullptr) return E_POINTER;
        const std::optional<Endpoint> now = Now();
        if (!now) return AUDCLNT_E_DEVICE_INVALIDATED;
        *pbMute = now->mute ? TRUE : FALSE;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetVolumeStepInfo(UINT* pnStep, UINT* pnStepCount) override {
        if (pnStep == nullptr || pnStepCount == nullptr) return E_POINTER;
        const std::optional<Endpoint> now = Now();
        if (!now) return AUDCLNT_E_DEVICE_INVALIDATED;
        *pnStepCount = kSteps;
        *pnStep = static_cast<UINT>(std::lround(ToScalar(pa_cvolume_max(&now->volume)) * (kSteps - 1)));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE VolumeStepUp(LPCGUID) override { return Step(+1); }
    HRESULT STDMETHODCALLTYPE VolumeStepDown(LPCGUID) override { return Step(-1); }

    HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* pdwHardwareSupportMask) override {
        if (pdwHardwareSupportMask == nullptr) return E_POINTER;
        *pdwHardwareSupportMask = 0;  // the server's volume is in software as far as we can tell
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetVolumeRange(float* pflVolumeMindB, float* pflVolumeMaxdB,
                                             float* pflVolumeIncrementdB) override {
        if (pflVolumeMindB == nullptr || pflVolumeMaxdB == nullptr || pflVolumeIncrementdB == nullptr) return E_POINTER;
        *pflVolumeMindB = kFloorDb;
        *pflVolumeMaxdB = 0.0f;
        *pflVolumeIncrementdB = 1.0f;
        return S_OK;
    }

private:
    static float Db(pa_volume_t volume) { return std::max(kFloorDb, static_cast<float>(pa_sw_volume_to_dB(volume))); }

    std::optional<Endpoint> Now() {
        if (!m_connection->Refresh(m_endpoint)) return std::nullopt;
        std::optional<Endpoint> now = m_connection->Find(m_endpoint.id);
        if (!now || now->state == DEVICE_STATE_NOTPRESENT) return std::nullopt;
        return now;
    }

    template <typename Value>
    HRESULT Read(float* out, Value value) {
        if (out == nullptr) return E_POINTER;
        const std::optional<Endpoint> now = Now();
        if (!now) return AUDCLNT_E_DEVICE_INVALIDATED;
        *out = value(*now);
        return S_OK;
    }

    HRESULT Send(const pa_cvolume& volume) {
        if (!m_connection->Alive()) return AUDCLNT_E_DEVICE_INVALIDATED;
        Connection::Locked lock(*m_connection);
        pa_context* context = m_connection->Context();
        const char* name = m_endpoint.name.c_str();
        const bool done = m_connection->Complete(
            m_endpoint.flow == eRender ? pa_context_set_sink_volume_by_name(context, name, &volume, nullptr, nullptr)
                                       : pa_context_set_source_volume_by_name(context, name, &volume, nullptr, nullptr));
        return done ? S_OK : AUDCLNT_E_DEVICE_INVALIDATED;
    }
    HRESULT SetAll(pa_volume_t level) {
        pa_cvolume volume;
        pa_cvolume_set(&volume, m_endpoint.sampleSpec.channels, level);
        return Send(volume);
    }
    HRESULT SetChannel(UINT channel, pa_volume_t level) {
        if (channel >= m_endpoint.sampleSpec.channels) return E_INVALIDARG;
        const std::optional<Endpoint> now = Now();
        if (!now) return AUDCLNT_E_DEVICE_INVALIDATED;
        pa_cvolume volume = now->volume;
        volume.values[channel] = level;
        return Send(volume);
    }
    HRESULT Step(int direction) {
        UINT step = 0;
        UINT count = 0;
        if (const HRESULT hr = GetVolumeStepInfo(&step, &count); FAILED(hr)) return hr;
        const int next = std::clamp(static_cast<int>(step) + direction, 0, static_cast<int>(count) - 1);
        return SetAll(FromScalar(static_cast<float>(next) / static_cast<float>(count - 1)));
    }

    const std::shared_ptr<Connection> m_connection;
    const Endpoint m_endpoint;
};

}  // namespace

HRESULT CreateEndpointVolume(std::shared_ptr<Connection> connection, const Endpoint& endpoint, REFIID riid, void** ppv) {
    return coreaudio::MakeAs<EndpointVolume>(riid, ppv, std::move(connection), endpoint);
}

}  // namespace zqplatform::pulse
