// A session's volume between the library, the server and the session's event sinks.
#include "session.h"

#include <algorithm>
#include <vector>

#include "connection.h"

namespace zqplatform::pulse {

bool Session::SetVolume(Connection& connection, float level, const GUID* context) {
    state->SetVolume(level, context);
    Connection::Locked lock(connection);
    m_applied = pa_sw_volume_from_linear(level);
    return SendLocked(connection);
}

bool Session::SetMute(Connection& connection, bool mute, const GUID* context) {
    state->SetMute(mute, context);
    Connection::Locked lock(connection);
    m_appliedMute = mute;
    return SendLocked(connection);
}

bool Session::SendLocked(Connection& connection) {
    if (!connection.Alive()) return false;
    // While our own change is on its way, what the server reports may predate it: ServerVolume
    // ignores it (the server reports our change afterwards, and anyone else's after that).
    ++m_pending;
    // Every request first, then their answers: the server answers a connection's requests in
    // order, so the changes of all streams cost one round trip (a device switch waits for it).
    std::vector<pa_operation*> operations;
    operations.reserve(2 * m_streams.size());
    pa_context* context = connection.Context();
    for (const StreamRef& stream : m_streams) {
        pa_cvolume volume;
        pa_cvolume_set(&volume, stream.channels, m_applied);
        if (flow == eRender) {
            operations.push_back(pa_context_set_sink_input_volume(context, stream.index, &volume, nullptr, nullptr));
            operations.push_back(pa_context_set_sink_input_mute(context, stream.index, m_appliedMute, nullptr, nullptr));
        } else {
            operations.push_back(pa_context_set_source_output_volume(context, stream.index, &volume, nullptr, nullptr));
            operations.push_back(pa_context_set_source_output_mute(context, stream.index, m_appliedMute, nullptr, nullptr));
        }
    }
    bool sent = true;
    for (pa_operation* operation : operations) sent = connection.Complete(operation) && sent;
    --m_pending;
    return sent;
}

void Session::AddStream(uint32_t index, uint8_t channels) { m_streams.push_back(StreamRef{index, channels}); }

void Session::RemoveStream(uint32_t index) {
    m_streams.erase(std::remove_if(m_streams.begin(), m_streams.end(),
                                   [index](const StreamRef& stream) { return stream.index == index; }),
                    m_streams.end());
}

void Session::ServerVolume(const pa_cvolume& volume, bool mute) {
    if (m_pending != 0) return;
    const pa_volume_t level = pa_cvolume_max(&volume);
    if (level == m_applied && mute == m_appliedMute) return;  // ours, or nothing new
    m_applied = level;
    m_appliedMute = mute;
    state->SetVolumeAndMute(static_cast<float>(std::min(1.0, pa_sw_volume_to_linear(level))), mute, &GUID_NULL);
}

void Session::NotePeak(float peak) {
    float seen = m_peak.load(std::memory_order_relaxed);
    while (peak > seen && !m_peak.compare_exchange_weak(seen, peak, std::memory_order_relaxed)) {
    }
}

}  // namespace zqplatform::pulse
