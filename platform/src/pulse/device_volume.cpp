// A sink's or source's own volume and mute on the server, for the front end's
// IAudioEndpointVolume. The scalar is the server's volume over its 100 % (what desktop mixers
// show as percent), above 100 % read as 1; dB are the server's software-volume scale (cubic).
// Every read asks the server now, as another client may have changed it.
#include <algorithm>
#include <cmath>

#include "objects.h"

namespace zqplatform::pulse {
namespace {

pa_volume_t FromScalar(float scalar) {
    return static_cast<pa_volume_t>(std::lround(static_cast<double>(scalar) * PA_VOLUME_NORM));
}
float ToScalar(pa_volume_t volume) {
    return std::min(1.0f, static_cast<float>(volume) / static_cast<float>(PA_VOLUME_NORM));
}

// One request to the sink or source by its name, its answer awaited; request(context, name,
// whether the endpoint is a sink) makes the operation.
template <typename Request>
bool SendToDevice(Connection& connection, const Endpoint& endpoint, Request request) {
    if (!connection.Alive()) return false;
    Connection::Locked lock(connection);
    return connection.Complete(request(connection.Context(), endpoint.name.c_str(), endpoint.flow == eRender));
}

}  // namespace

bool ReadDeviceVolume(Connection& connection, const Endpoint& endpoint, coreaudio::DeviceVolume& now) {
    if (!connection.Refresh(endpoint)) return false;
    const std::optional<Endpoint> described = connection.Find(endpoint.id);
    if (!described || described->state == DEVICE_STATE_NOTPRESENT) return false;
    now.levels.assign(endpoint.sampleSpec.channels, 0.0f);
    const size_t known = std::min<size_t>(described->volume.channels, now.levels.size());
    std::transform(described->volume.values, described->volume.values + known, now.levels.begin(), ToScalar);
    now.mute = described->mute;
    return true;
}

bool WriteDeviceLevels(Connection& connection, const Endpoint& endpoint, const std::vector<float>& levels) {
    pa_cvolume volume{};
    volume.channels = static_cast<uint8_t>(std::min<size_t>(levels.size(), PA_CHANNELS_MAX));
    std::transform(levels.begin(), levels.begin() + volume.channels, volume.values, FromScalar);
    return SendToDevice(connection, endpoint, [&volume](pa_context* context, const char* name, bool sink) {
        return sink ? pa_context_set_sink_volume_by_name(context, name, &volume, nullptr, nullptr)
                    : pa_context_set_source_volume_by_name(context, name, &volume, nullptr, nullptr);
    });
}

bool WriteDeviceMute(Connection& connection, const Endpoint& endpoint, bool mute) {
    return SendToDevice(connection, endpoint, [mute](pa_context* context, const char* name, bool sink) {
        return sink ? pa_context_set_sink_mute_by_name(context, name, mute, nullptr, nullptr)
                    : pa_context_set_source_mute_by_name(context, name, mute, nullptr, nullptr);
    });
}

float DbOfScalar(float scalar) {
    // pa_sw_volume_to_dB answers -inf for silence; the floor takes it.
    return std::max(coreaudio::kDeviceFloorDb, static_cast<float>(pa_sw_volume_to_dB(FromScalar(scalar))));
}

float ScalarOfDb(float db) { return ToScalar(pa_sw_volume_from_dB(db)); }

}  // namespace zqplatform::pulse
