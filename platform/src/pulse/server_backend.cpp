// The pulse backend behind the backend contract: the server's sinks (render) and sources
// (capture) as devices, one connection for all. Audio objects are made from a device as the
// server describes it at Activate; the server going away invalidates them.
#include <algorithm>

#include "objects.h"
#include "stream.h"

namespace zqplatform::pulse {
namespace {

class ServerEndpoint final : public coreaudio::Endpoint {
public:
    ServerEndpoint(std::shared_ptr<Connection> connection, pulse::Endpoint endpoint)
        : m_connection(std::move(connection)),
          m_endpoint(std::move(endpoint)),
          m_session(m_connection->SessionOf(m_endpoint)) {}

    const std::wstring& Id() const override { return m_endpoint.id; }
    EDataFlow Flow() const override { return m_endpoint.flow; }
    UINT Channels() const override { return m_endpoint.sampleSpec.channels; }
    bool Valid() const override { return m_connection->Alive(); }

    WAVEFORMATEX* TaskMemMixFormat() const override {
        return pulse::TaskMemMixFormat(m_endpoint.sampleSpec, m_endpoint.channelMap);
    }
    // The device's rate and channels as 32-bit float, plain or extensible.
    bool IsMixFormat(const WAVEFORMATEX& format) const override {
        const bool isFloat = format.wFormatTag == WAVE_FORMAT_IEEE_FLOAT ||
                             (format.wFormatTag == WAVE_FORMAT_EXTENSIBLE && format.cbSize >= 22 &&
                              reinterpret_cast<const WAVEFORMATEXTENSIBLE&>(format).SubFormat ==
                                  KSDATAFORMAT_SUBTYPE_IEEE_FLOAT);
        return isFloat && format.wBitsPerSample == 32 && format.nChannels == m_endpoint.sampleSpec.channels &&
               format.nSamplesPerSec == m_endpoint.sampleSpec.rate;
    }
    // A desktop server mixes every stream: there is no exclusive mode to give.
    bool OffersExclusiveMode() const override { return false; }

    std::shared_ptr<coreaudio::Stream> NewStream() override {
        try {
            return std::make_shared<Stream>(m_connection, m_endpoint, m_session);
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }

    // A sound server keeps no meter per device: the peak of the samples through the process's
    // streams on the endpoint since the meter was last read, every channel the same.
    float Peak() override { return std::min(1.0f, m_session->TakePeak()); }
    void ChannelPeaks(float* peaks, UINT channels) override { std::fill_n(peaks, channels, Peak()); }

    const std::shared_ptr<audio::Session>& Session() const override { return m_session->state; }
    bool SetSessionVolume(float level, const GUID* context) override {
        return m_session->SetVolume(*m_connection, level, context);
    }
    bool SetSessionMute(bool mute, const GUID* context) override {
        return m_session->SetMute(*m_connection, mute, context);
    }

    bool ReadDeviceVolume(coreaudio::DeviceVolume& now) override {
        return pulse::ReadDeviceVolume(*m_connection, m_endpoint, now);
    }
    bool WriteDeviceLevels(const std::vector<float>& levels) override {
        return pulse::WriteDeviceLevels(*m_connection, m_endpoint, levels);
    }
    bool WriteDeviceMute(bool mute) override { return pulse::WriteDeviceMute(*m_connection, m_endpoint, mute); }
    float DbOfScalar(float scalar) const override { return pulse::DbOfScalar(scalar); }
    float ScalarOfDb(float db) const override { return pulse::ScalarOfDb(db); }

private:
    const std::shared_ptr<Connection> m_connection;
    const pulse::Endpoint m_endpoint;
    const std::shared_ptr<pulse::Session> m_session;
};

class ServerDevice final : public coreaudio::Device {
public:
    ServerDevice(std::shared_ptr<Connection> connection, Endpoint endpoint)
        : m_connection(std::move(connection)), m_endpoint(std::move(endpoint)) {}

    const std::wstring& Id() const override { return m_endpoint.id; }
    EDataFlow Flow() const override { return m_endpoint.flow; }
    // The server's description of the device is its friendly name.
    const std::wstring& FriendlyName() const override { return m_endpoint.description; }
    GUID Container() const override { return m_endpoint.container; }
    DWORD State() const override {
        const std::optional<Endpoint> now = Now();
        return now ? now->state : DEVICE_STATE_NOTPRESENT;
    }
    std::shared_ptr<coreaudio::Endpoint> Activate() override {
        std::optional<Endpoint> now = Now();
        if (!now || now->state != DEVICE_STATE_ACTIVE) return nullptr;
        return std::make_shared<ServerEndpoint>(m_connection, std::move(*now));
    }

private:
    std::optional<Endpoint> Now() const {
        return m_connection->Alive() ? m_connection->Find(m_endpoint.id) : std::nullopt;
    }

    const std::shared_ptr<Connection> m_connection;
    const Endpoint m_endpoint;
};

class ServerBackend final : public coreaudio::Backend {
public:
    explicit ServerBackend(std::shared_ptr<Connection> connection) : m_connection(std::move(connection)) {}

    std::vector<std::shared_ptr<coreaudio::Device>> Devices(EDataFlow flow, DWORD stateMask) override {
        std::vector<std::shared_ptr<coreaudio::Device>> devices;
        for (Endpoint& endpoint : m_connection->Endpoints(flow, stateMask))
            devices.push_back(std::make_shared<ServerDevice>(m_connection, std::move(endpoint)));
        return devices;
    }
    // The server's default sink or source serves every role.
    std::shared_ptr<coreaudio::Device> Default(EDataFlow flow, ERole /*role*/) override {
        std::optional<Endpoint> endpoint = m_connection->Default(flow);
        if (!endpoint || endpoint->state != DEVICE_STATE_ACTIVE) return nullptr;
        return std::make_shared<ServerDevice>(m_connection, std::move(*endpoint));
    }
    std::shared_ptr<coreaudio::Device> Find(std::wstring_view id) override {
        std::optional<Endpoint> endpoint = m_connection->Find(id);
        if (!endpoint) return nullptr;
        return std::make_shared<ServerDevice>(m_connection, std::move(*endpoint));
    }
    audio::SinkRegistry<IMMNotificationClient>& Clients() override { return pulse::Backend::Instance().Clients(); }

private:
    const std::shared_ptr<Connection> m_connection;
};

}  // namespace

HRESULT OpenServerBackend(std::shared_ptr<coreaudio::Backend>* out) {
    std::string why;
    std::shared_ptr<Connection> connection = pulse::Backend::Instance().Connect(&why, true);
    if (!connection) return AUDCLNT_E_SERVICE_NOT_RUNNING;
    try {
        *out = std::make_shared<ServerBackend>(std::move(connection));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

}  // namespace zqplatform::pulse
