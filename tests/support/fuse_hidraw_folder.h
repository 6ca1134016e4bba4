// A folder of hidraw nodes served through FUSE, so that the platform's kernel node code runs
// against them unchanged: files named hidrawN, each in front of a BridgeChip, opened for direct
// I/O (one report per read or write), HIDIOCGRAWINFO and HIDIOCG/SFEATURE answered through
// FUSE's ioctl, and poll honest (a waiting poll is woken when input arrives or the chip is
// unplugged), so read time-outs run in real time. Served by a thread of its own until the
// object goes, which unmounts the folder.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "bridge_chip.h"
#include "ci.h"

struct fuse;

namespace zqtest {

class FuseHidrawFolder {
public:
    FuseHidrawFolder();
    ~FuseHidrawFolder();
    FuseHidrawFolder(const FuseHidrawFolder&) = delete;
    FuseHidrawFolder& operator=(const FuseHidrawFolder&) = delete;

    // False when FUSE cannot be used on this machine; Why() then says why.
    bool Mounted() const { return m_fuse != nullptr; }
    const std::string& Why() const { return m_why; }
    const std::filesystem::path& Path() const { return m_path; }

    // A node named name (hidrawN) in front of chip; removing it leaves open nodes working.
    void Add(const std::string& name, std::shared_ptr<BridgeChip> chip);
    void Remove(const std::string& name);
    // Open nodes on which a poll waits to be woken.
    int WaitingPolls() const;

    struct Served;  // what the file system's callbacks reach

private:
    void Serve();

    std::filesystem::path m_path;
    std::string m_why;
    std::unique_ptr<Served> m_served;
    fuse* m_fuse = nullptr;
    int m_wake = -1;  // an eventfd that ends the serving thread
    std::thread m_thread;
};

}  // namespace zqtest

// Skips the test when folder is not mounted, with the reason; fails it instead in CI.
#define ZQ_REQUIRE_FUSE(folder)                                                                  \
    do {                                                                                         \
        if (!(folder).Mounted()) {                                                               \
            if (::zqtest::InCi()) FAIL() << "FUSE is needed in CI: " << (folder).Why();          \
            GTEST_SKIP() << "no FUSE on this machine (" << (folder).Why() << ")";                \
        }                                                                                        \
    } while (false)
