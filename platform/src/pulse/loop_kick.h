// A wake-up of the main loop's thread from a stream thread that must not wait: an eventfd
// watched by the loop. Kick() is one non-blocking write(2); it takes no lock, allocates
// nothing and never waits, so the render thread can hand what it just queued to the loop at
// once instead of leaving it until the server's next request. Internal to the platform library.
#pragma once

#include <pulse/mainloop-api.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <functional>

namespace zqplatform::pulse {

class LoopKick {
public:
    LoopKick() = default;
    ~LoopKick() { Close(); }
    LoopKick(const LoopKick&) = delete;
    LoopKick& operator=(const LoopKick&) = delete;

    // Loop lock held: watches a new eventfd on the loop; onKick then runs on the loop's thread
    // (with the loop lock) once per burst of kicks. False when no eventfd could be made.
    bool Open(pa_mainloop_api* api, std::function<void()> onKick) {
        m_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        if (m_fd < 0) return false;
        m_api = api;
        m_onKick = std::move(onKick);
        m_event = api->io_new(api, m_fd, PA_IO_EVENT_INPUT, &LoopKick::OnReadable, this);
        return m_event != nullptr;
    }
    // Loop lock held.
    void Close() {
        if (m_event != nullptr) m_api->io_free(m_event);
        m_event = nullptr;
        if (m_fd >= 0) close(m_fd);
        m_fd = -1;
    }
    // Any thread, while open. A full counter (never, in practice) only means a wake-up is due.
    void Kick() const {
        const uint64_t one = 1;
        if (m_fd < 0) return;
        [[maybe_unused]] const ssize_t written = write(m_fd, &one, sizeof one);
    }

private:
    static void OnReadable(pa_mainloop_api*, pa_io_event*, int fd, pa_io_event_flags_t, void* self) {
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t read = ::read(fd, &count, sizeof count);
        static_cast<LoopKick*>(self)->m_onKick();
    }

    int m_fd = -1;
    pa_mainloop_api* m_api = nullptr;
    pa_io_event* m_event = nullptr;
    std::function<void()> m_onKick;
};

}  // namespace zqplatform::pulse
