// The virtual engine behind the backend contract. An endpoint's audio objects are tied to the
// generation of the endpoint they were made in (EndpointBinding): leaving the active state or
// the machine invalidates them.
#include "engine_backend.h"

#include "engine.h"
#include "stream.h"

namespace zqplatform::audio {
namespace {

class EngineEndpoint final : public coreaudio::Endpoint {
public:
    explicit EngineEndpoint(std::shared_ptr<EndpointState> endpoint) : m_binding(std::move(endpoint)) {}

    const std::wstring& Id() const override { return m_binding->id; }
    EDataFlow Flow() const override { return m_binding->flow; }
    UINT Channels() const override { return m_binding->format.Channels(); }
    bool Valid() const override { return m_binding.Valid(); }

    WAVEFORMATEX* TaskMemMixFormat() const override { return m_binding->format.TaskMemCopy(); }
    bool IsMixFormat(const WAVEFORMATEX& format) const override {
        const std::optional<MixFormat> asked = MixFormat::FromWaveFormat(&format);
        return asked && asked->SameStream(m_binding->format);
    }
    bool OffersExclusiveMode() const override { return true; }

    std::shared_ptr<coreaudio::Stream> NewStream() override {
        try {
            return std::make_shared<Stream>(m_binding);
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }

    float Peak() override { return m_binding->Peak(); }
    void ChannelPeaks(float* peaks, UINT channels) override {
        for (UINT c = 0; c < channels; ++c) peaks[c] = m_binding->ChannelPeak(c);
    }

    const std::shared_ptr<audio::Session>& Session() const override { return m_binding->session; }
    bool SetSessionVolume(float level, const GUID* context) override {
        m_binding->session->SetVolume(level, context);
        return true;
    }
    bool SetSessionMute(bool mute, const GUID* context) override {
        m_binding->session->SetMute(mute, context);
        return true;
    }

    // The device's volume lives with the endpoint (its state outlives the objects made on it).
    bool ReadDeviceVolume(coreaudio::DeviceVolume& now) override {
        now = m_binding->deviceVolume.Now();
        return true;
    }
    bool WriteDeviceLevels(const std::vector<float>& levels) override {
        m_binding->deviceVolume.SetLevels(levels);
        return true;
    }
    bool WriteDeviceMute(bool mute) override {
        m_binding->deviceVolume.SetMuted(mute);
        return true;
    }
    float DbOfScalar(float scalar) const override { return DeviceVolumeState::DbOfScalar(scalar); }
    float ScalarOfDb(float db) const override { return DeviceVolumeState::ScalarOfDb(db); }

private:
    const EndpointBinding m_binding;
};

class EngineDevice final : public coreaudio::Device {
public:
    explicit EngineDevice(std::shared_ptr<EndpointState> endpoint) : m_endpoint(std::move(endpoint)) {}

    const std::wstring& Id() const override { return m_endpoint->id; }
    EDataFlow Flow() const override { return m_endpoint->flow; }
    const std::wstring& FriendlyName() const override { return m_endpoint->name; }
    GUID Container() const override { return m_endpoint->container; }
    DWORD State() const override { return m_endpoint->state.load(); }
    std::shared_ptr<coreaudio::Endpoint> Activate() override {
        if (m_endpoint->state.load() != DEVICE_STATE_ACTIVE) return nullptr;
        return std::make_shared<EngineEndpoint>(m_endpoint);
    }
    // The control API reports the references held on an endpoint's device objects.
    void CountReferences(long delta) override { m_endpoint->deviceRefs.fetch_add(delta, std::memory_order_acq_rel); }

private:
    const std::shared_ptr<EndpointState> m_endpoint;
};

class EngineBackend final : public coreaudio::Backend {
public:
    explicit EngineBackend(Engine& engine) : m_engine(engine) {}

    std::vector<std::shared_ptr<coreaudio::Device>> Devices(EDataFlow flow, DWORD stateMask) override {
        std::vector<std::shared_ptr<coreaudio::Device>> devices;
        for (std::shared_ptr<EndpointState>& endpoint : m_engine.Endpoints(flow, stateMask))
            devices.push_back(std::make_shared<EngineDevice>(std::move(endpoint)));
        return devices;
    }
    std::shared_ptr<coreaudio::Device> Default(EDataFlow flow, ERole role) override {
        return Wrap(m_engine.Default(flow, role));
    }
    std::shared_ptr<coreaudio::Device> Find(std::wstring_view id) override { return Wrap(m_engine.Find(id)); }
    SinkRegistry<IMMNotificationClient>& Clients() override { return m_engine.Clients(); }

private:
    static std::shared_ptr<coreaudio::Device> Wrap(std::shared_ptr<EndpointState> endpoint) {
        if (!endpoint) return nullptr;
        return std::make_shared<EngineDevice>(std::move(endpoint));
    }

    Engine& m_engine;
};

}  // namespace

std::shared_ptr<coreaudio::Backend> OpenEngineBackend() {
    static const std::shared_ptr<coreaudio::Backend> backend = std::make_shared<EngineBackend>(Engine::Instance());
    return backend;
}

}  // namespace zqplatform::audio
