#include "fuse_hidraw_folder.h"

#define FUSE_USE_VERSION 35
#include <fcntl.h>
#include <fuse.h>
#include <fuse_lowlevel.h>
#include <linux/hidraw.h>
#include <linux/input.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <vector>

namespace zqtest {

// An opened node: its chip, and the poll handle the kernel left to be woken with.
struct OpenNode {
    std::shared_ptr<BridgeChip> chip;
    fuse_pollhandle* poll = nullptr;
};

struct FuseHidrawFolder::Served {
    std::mutex mutex;
    std::map<std::string, std::shared_ptr<BridgeChip>> nodes;  // by path, "/hidrawN"
    std::set<OpenNode*> open;
    std::vector<std::shared_ptr<BridgeChip>> added;  // removed ones too: their listeners point here

    // Wakes the polls waiting on chip's nodes; each poll handle serves one wake-up.
    void Wake(const BridgeChip* chip) {
        std::lock_guard<std::mutex> lock(mutex);
        for (OpenNode* node : open) {
            if (node->chip.get() != chip || node->poll == nullptr) continue;
            fuse_notify_poll(node->poll);
            fuse_pollhandle_destroy(node->poll);
            node->poll = nullptr;
        }
    }

    // Called with mutex held.
    void Close(OpenNode* node) {
        open.erase(node);
        if (node->poll != nullptr) fuse_pollhandle_destroy(node->poll);
        delete node;
    }
};

namespace {

using Served = FuseHidrawFolder::Served;

Served& TheServed() { return *static_cast<Served*>(fuse_get_context()->private_data); }
OpenNode& NodeOf(const fuse_file_info* fi) { return *reinterpret_cast<OpenNode*>(fi->fh); }

void* Init(fuse_conn_info*, fuse_config* config) {
    // Nodes come and go between lookups: nothing is cached.
    config->entry_timeout = 0;
    config->attr_timeout = 0;
    config->negative_timeout = 0;
    return fuse_get_context()->private_data;
}

int GetAttr(const char* path, struct stat* st, fuse_file_info*) {
    std::memset(st, 0, sizeof(*st));
    if (std::strcmp(path, "/") == 0) {
        st->st_mode = S_IFDIR | 0755;
        st->st_nlink = 2;
        return 0;
    }
    Served& served = TheServed();
    std::lock_guard<std::mutex> lock(served.mutex);
    if (served.nodes.count(path) == 0) return -ENOENT;
    st->st_mode = S_IFREG | 0666;
    st->st_nlink = 1;
    return 0;
}

int Open(const char* path, fuse_file_info* fi) {
    Served& served = TheServed();
    std::lock_guard<std::mutex> lock(served.mutex);
    const auto found = served.nodes.find(path);
    if (found == served.nodes.end()) return -ENOENT;
    auto* node = new OpenNode{found->second};
    served.open.insert(node);
    fi->fh = reinterpret_cast<uint64_t>(node);
    fi->direct_io = 1;  // each read and write reaches the chip: one report each
    fi->nonseekable = 1;
    return 0;
}

int Release(const char*, fuse_file_info* fi) {
    Served& served = TheServed();
    std::lock_guard<std::mutex> lock(served.mutex);
    served.Close(&NodeOf(fi));
    return 0;
}

int Read(const char*, char* buffer, size_t size, off_t, fuse_file_info* fi) {
    const long n = NodeOf(fi).chip->Read(reinterpret_cast<uint8_t*>(buffer), size);
    if (n < 0) return -EIO;  // as the kernel's node answers once its device is gone
    return n == 0 ? -EAGAIN : static_cast<int>(n);
}

int Write(const char*, const char* buffer, size_t size, off_t, fuse_file_info* fi) {
    return NodeOf(fi).chip->Write(reinterpret_cast<const uint8_t*>(buffer), size) ? static_cast<int>(size) : -EIO;
}

int Ioctl(const char*, unsigned int cmd, void*, fuse_file_info* fi, unsigned int, void* data) {
    BridgeChip& chip = *NodeOf(fi).chip;
    const size_t size = _IOC_SIZE(cmd);
    if (_IOC_TYPE(cmd) != 'H') return -ENOTTY;
    switch (_IOC_NR(cmd)) {
        case _IOC_NR(HIDIOCGRAWINFO): {
            uint16_t vendor = 0;
            uint16_t product = 0;
            if (!chip.Ids(&vendor, &product)) return -EIO;
            hidraw_devinfo info = {BUS_USB, static_cast<__s16>(vendor), static_cast<__s16>(product)};
            std::memcpy(data, &info, std::min(size, sizeof(info)));
            return 0;
        }
        case _IOC_NR(HIDIOCSFEATURE(0)):
            return chip.SetFeature(static_cast<const uint8_t*>(data), size) ? static_cast<int>(size) : -EIO;
        case _IOC_NR(HIDIOCGFEATURE(0)):
            return chip.GetFeature(static_cast<uint8_t*>(data), size) ? static_cast<int>(size) : -EIO;
        default: return -ENOTTY;
    }
}

int Poll(const char*, fuse_file_info* fi, fuse_pollhandle* ph, unsigned* revents) {
    Served& served = TheServed();
    std::lock_guard<std::mutex> lock(served.mutex);  // input that arrives now wakes ph
    OpenNode& node = NodeOf(fi);
    *revents = POLLOUT | POLLWRNORM;
    if (node.chip->Gone()) {
        *revents |= POLLERR | POLLHUP;
    } else if (node.chip->HasInput()) {
        *revents |= POLLIN | POLLRDNORM;
    }
    if (ph != nullptr) {
        if (node.poll != nullptr) fuse_pollhandle_destroy(node.poll);
        node.poll = ph;
    }
    return 0;
}

fuse_operations Operations() {
    fuse_operations ops = {};
    ops.init = Init;
    ops.getattr = GetAttr;
    ops.open = Open;
    ops.release = Release;
    ops.read = Read;
    ops.write = Write;
    ops.ioctl = Ioctl;
    ops.poll = Poll;
    return ops;
}

}  // namespace

FuseHidrawFolder::FuseHidrawFolder() : m_served(std::make_unique<Served>()) {
    std::string pattern = (std::filesystem::temp_directory_path() / "zq-hidraw-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        m_why = std::string("cannot create a mount point: ") + std::strerror(errno);
        return;
    }
    m_path = pattern;
    if (::access("/dev/fuse", R_OK | W_OK) != 0) {
        m_why = std::string("/dev/fuse: ") + std::strerror(errno);
        return;
    }
    char name[] = "zq-hidraw";
    char* argv[] = {name, nullptr};
    fuse_args args = FUSE_ARGS_INIT(1, argv);
    const fuse_operations ops = Operations();
    fuse* mounted = fuse_new(&args, &ops, sizeof(ops), m_served.get());
    fuse_opt_free_args(&args);
    if (mounted == nullptr) {
        m_why = "libfuse refused its options";
        return;
    }
    if (fuse_mount(mounted, m_path.c_str()) != 0) {
        fuse_destroy(mounted);
        m_why = "cannot mount " + m_path.string() + " (not allowed to mount, or no fusermount3)";
        return;
    }
    m_wake = ::eventfd(0, EFD_CLOEXEC);
    m_fuse = mounted;
    m_thread = std::thread([this] { Serve(); });
}

FuseHidrawFolder::~FuseHidrawFolder() {
    {
        std::lock_guard<std::mutex> lock(m_served->mutex);
        for (const auto& chip : m_served->added) chip->OnChange(nullptr);
    }
    if (m_fuse != nullptr) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(m_wake, &one, sizeof(one));
        m_thread.join();
        // The kernel sends a close's release after close() has returned, so the loop can stop
        // with releases still queued: the nodes they would have closed are closed here.
        {
            std::lock_guard<std::mutex> lock(m_served->mutex);
            while (!m_served->open.empty()) m_served->Close(*m_served->open.begin());
        }
        fuse_unmount(m_fuse);  // lazily, as root does: a node still open cannot hold it up
        fuse_destroy(m_fuse);
        ::close(m_wake);
    }
    if (!m_path.empty()) ::rmdir(m_path.c_str());
}

void FuseHidrawFolder::Add(const std::string& name, std::shared_ptr<BridgeChip> chip) {
    chip->OnChange([served = m_served.get(), raw = chip.get()] { served->Wake(raw); });
    std::lock_guard<std::mutex> lock(m_served->mutex);
    m_served->added.push_back(chip);
    m_served->nodes["/" + name] = std::move(chip);
}

void FuseHidrawFolder::Remove(const std::string& name) {
    std::lock_guard<std::mutex> lock(m_served->mutex);
    m_served->nodes.erase("/" + name);
}

int FuseHidrawFolder::WaitingPolls() const {
    std::lock_guard<std::mutex> lock(m_served->mutex);
    return static_cast<int>(std::count_if(m_served->open.begin(), m_served->open.end(),
                                          [](const OpenNode* node) { return node->poll != nullptr; }));
}

// Requests are taken one at a time until the destructor wakes the loop; every callback returns
// at once (reads do not block), so one thread serves any number of open nodes.
void FuseHidrawFolder::Serve() {
    fuse_session* session = fuse_get_session(m_fuse);
    fuse_buf buffer = {};
    pollfd ready[2] = {{fuse_session_fd(session), POLLIN, 0}, {m_wake, POLLIN, 0}};
    while (!fuse_session_exited(session)) {
        if (::poll(ready, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (ready[1].revents != 0) break;
        if ((ready[0].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) break;
        const int received = fuse_session_receive_buf(session, &buffer);
        if (received == -EINTR || received == -EAGAIN) continue;
        if (received <= 0) break;
        fuse_session_process_buf(session, &buffer);
    }
    std::free(buffer.mem);
}

}  // namespace zqtest
