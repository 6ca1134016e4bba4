// The kernel's hidraw node: open(2) non-blocking, HIDIOCGRAWINFO, HIDIOCGFEATURE / HIDIOCSFEATURE, read(2) and
// write(2) of whole reports, poll(2) for the time-outs.
#include "hidraw_device.h"

#include <fcntl.h>
#include <linux/hidraw.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>
#include <vector>

namespace zqplatform::hidraw {
namespace {

class KernelHidraw final : public HidrawDevice {
public:
    explicit KernelHidraw(int fd) : m_fd(fd) {}
    ~KernelHidraw() override { ::close(m_fd); }
    KernelHidraw(const KernelHidraw&) = delete;
    KernelHidraw& operator=(const KernelHidraw&) = delete;

    bool Info(uint16_t* vendor, uint16_t* product) override {
        hidraw_devinfo info = {};
        if (::ioctl(m_fd, HIDIOCGRAWINFO, &info) < 0) return false;
        *vendor = static_cast<uint16_t>(info.vendor);
        *product = static_cast<uint16_t>(info.product);
        return true;
    }
    bool GetFeature(uint8_t* report, size_t size) override {
        return ::ioctl(m_fd, HIDIOCGFEATURE(size), report) >= 0;
    }
    bool SetFeature(const uint8_t* report, size_t size) override {
        std::vector<uint8_t> copy(report, report + size);  // the request's buffer is read-write
        return ::ioctl(m_fd, HIDIOCSFEATURE(size), copy.data()) == static_cast<int>(size);
    }
    bool Write(const uint8_t* report, size_t size) override {
        return ::write(m_fd, report, size) == static_cast<ssize_t>(size);
    }
    long Read(uint8_t* report, size_t size) override {
        const ssize_t n = ::read(m_fd, report, size);
        if (n >= 0) return static_cast<long>(n);
        return errno == EAGAIN || errno == EINTR ? 0 : -1;
    }
    Ready Wait(int timeoutMs) override {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        for (;;) {
            pollfd p = {m_fd, POLLIN, 0};
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline -
                                                                                    std::chrono::steady_clock::now());
            const int n = ::poll(&p, 1, static_cast<int>(std::max<int64_t>(left.count(), 0)));
            if (n < 0 && errno == EINTR) continue;  // a signal: wait out the rest
            if (n < 0) return Ready::Gone;
            if (n == 0) return Ready::TimedOut;
            if ((p.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) return Ready::Gone;
            return Ready::Readable;
        }
    }

private:
    int m_fd;  // 0 is a valid descriptor: a process may run with its standard input closed
};

}  // namespace

std::mutex g_openerMutex;
zqvm::HidrawOpener g_opener;

std::unique_ptr<HidrawDevice> OpenHidraw(const std::string& path, std::string* why) {
    {
        std::lock_guard<std::mutex> lock(g_openerMutex);
        if (g_opener) return g_opener(path, why);
    }
    const int fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        if (why) *why = std::strerror(errno);
        return nullptr;
    }
    return std::make_unique<KernelHidraw>(fd);
}

}  // namespace zqplatform::hidraw

namespace zqvm {

void SetHidrawOpenerForTest(HidrawOpener opener) {
    std::lock_guard<std::mutex> lock(zqplatform::hidraw::g_openerMutex);
    zqplatform::hidraw::g_opener = std::move(opener);
}

}  // namespace zqvm
