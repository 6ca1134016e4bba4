// Audio sessions and their events.
#include "session.h"

namespace zqplatform::audio {

void Session::PostVolumeLocked(const GUID* context) {
    const float volume = Volume();
    const BOOL mute = Mute() ? TRUE : FALSE;
    PostToSinks([volume, mute, ctx = Copy(context)](IAudioSessionEvents* sink) {
        sink->OnSimpleVolumeChanged(volume, mute, ctx ? &*ctx : nullptr);
    });
}

void Session::SetVolume(float level, const GUID* context) {
    std::lock_guard lock(m_lock);
    m_volume.store(level, std::memory_order_relaxed);
    PostVolumeLocked(context);
}

void Session::SetMute(bool mute, const GUID* context) {
    std::lock_guard lock(m_lock);
    m_mute.store(mute, std::memory_order_relaxed);
    PostVolumeLocked(context);
}

void Session::SetVolumeAndMute(float level, bool mute, const GUID* context) {
    std::lock_guard lock(m_lock);
    m_volume.store(level, std::memory_order_relaxed);
    m_mute.store(mute, std::memory_order_relaxed);
    PostVolumeLocked(context);
}

std::wstring Session::DisplayName() {
    std::lock_guard lock(m_lock);
    return m_displayName;
}

void Session::SetDisplayName(std::wstring name, const GUID* context) {
    std::lock_guard lock(m_lock);
    m_displayName = std::move(name);
    PostToSinks([name = m_displayName, ctx = Copy(context)](IAudioSessionEvents* sink) {
        sink->OnDisplayNameChanged(name.c_str(), ctx ? &*ctx : nullptr);
    });
}

std::wstring Session::IconPath() {
    std::lock_guard lock(m_lock);
    return m_iconPath;
}

void Session::SetIconPath(std::wstring path, const GUID* context) {
    std::lock_guard lock(m_lock);
    m_iconPath = std::move(path);
    PostToSinks([path = m_iconPath, ctx = Copy(context)](IAudioSessionEvents* sink) {
        sink->OnIconPathChanged(path.c_str(), ctx ? &*ctx : nullptr);
    });
}

GUID Session::GroupingParam() {
    std::lock_guard lock(m_lock);
    return m_grouping;
}

void Session::SetGroupingParam(const GUID& grouping, const GUID* context) {
    std::lock_guard lock(m_lock);
    m_grouping = grouping;
    PostToSinks([grouping, ctx = Copy(context)](IAudioSessionEvents* sink) {
        sink->OnGroupingParamChanged(&grouping, ctx ? &*ctx : nullptr);
    });
}

AudioSessionState Session::State() const {
    return m_runningStreams.load(std::memory_order_relaxed) > 0 ? AudioSessionStateActive
                                                                 : AudioSessionStateInactive;
}

void Session::StreamStarted() {
    std::lock_guard lock(m_lock);
    if (m_runningStreams.fetch_add(1, std::memory_order_relaxed) == 0)
        PostToSinks([](IAudioSessionEvents* sink) { sink->OnStateChanged(AudioSessionStateActive); });
}

void Session::StreamStopped() {
    std::lock_guard lock(m_lock);
    if (m_runningStreams.fetch_sub(1, std::memory_order_relaxed) == 1)
        PostToSinks([](IAudioSessionEvents* sink) { sink->OnStateChanged(AudioSessionStateInactive); });
}

void Session::Disconnect(AudioSessionDisconnectReason reason) {
    std::lock_guard lock(m_lock);
    PostToSinks([reason](IAudioSessionEvents* sink) { sink->OnSessionDisconnected(reason); });
}

}  // namespace zqplatform::audio
