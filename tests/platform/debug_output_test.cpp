// The debug output on standard error, as a support engineer reads it: each text a line of its
// own, whether or not the text ends its line, also when several threads write a storm of them.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "zqPlatform.h"

namespace {

// Standard error goes to a file while the object lives; Release gives back what was written.
class StderrToFile {
public:
    StderrToFile() {
        char path[] = "/tmp/zq-stderr-XXXXXX";
        const int fd = mkstemp(path);
        m_path = path;
        std::fflush(stderr);
        m_saved = dup(STDERR_FILENO);
        if (fd >= 0) {
            dup2(fd, STDERR_FILENO);
            close(fd);
        }
    }
    ~StderrToFile() { Release(); }
    StderrToFile(const StderrToFile&) = delete;
    StderrToFile& operator=(const StderrToFile&) = delete;

    std::string Release() {
        if (m_saved < 0) return std::string();
        std::fflush(stderr);
        dup2(m_saved, STDERR_FILENO);
        close(m_saved);
        m_saved = -1;
        std::ifstream in(m_path, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        std::remove(m_path.c_str());
        return text.str();
    }

private:
    std::string m_path;
    int m_saved = -1;
};

TEST(DebugOutput, EachTextIsALineOfItsOwnOnStandardErrorEvenInAStormFromSeveralThreads) {
    constexpr int kThreads = 4;
    constexpr int kEach = 300;
    std::set<std::string> written;
    StderrToFile captured;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kEach; ++i) {
                // The system's quiet-failure texts end without a newline, the engines' with one.
                CStringW text;
                text.Format(L"CoreAudio: failure %d of thread %d (RegOpenKeyExW: 2)%s", i, t, i % 2 == 0 ? L"" : L"\n");
                OutputDebugStringW(text);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    const std::string out = captured.Release();

    std::vector<std::string> lines;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kEach)) << out.substr(0, 400);
    EXPECT_EQ(out.back(), '\n');
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kEach; ++i) {
            written.insert("CoreAudio: failure " + std::to_string(i) + " of thread " + std::to_string(t) +
                           " (RegOpenKeyExW: 2)");
        }
    }
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()), written) << "lines ran together or were cut";
}

}  // namespace
