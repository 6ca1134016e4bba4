// Window messages: classes and windows, posted and sent messages across threads, the order
// of delivery, and what senders get when the window or its thread goes away.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "zqPlatform.h"
#include "zqplatform/vm/message_pump.h"

namespace {

constexpr DWORD kBoundedMs = 5000;  // every wait for something that must happen is bounded
constexpr wchar_t kClassName[] = L"zqTestWindow";

struct Seen {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD thread;
};

// The test's side of one window: what its procedure saw, and an optional handler.
struct Target {
    std::mutex mutex;
    std::vector<Seen> seen;
    std::function<std::optional<LRESULT>(HWND, UINT, WPARAM, LPARAM)> handler;

    std::vector<UINT> Messages() {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<UINT> messages;
        for (const auto& s : seen) messages.push_back(s.message);
        return messages;
    }
    std::vector<Seen> Of(UINT message) {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<Seen> of;
        for (const auto& s : seen) {
            if (s.message == message) of.push_back(s);
        }
        return of;
    }
};

LRESULT CALLBACK TestProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE) {
        const auto* create = reinterpret_cast<const CREATESTRUCTW*>(lParam);
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(create->lpCreateParams));
    }
    if (auto* target = reinterpret_cast<Target*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA))) {
        {
            std::lock_guard<std::mutex> lock(target->mutex);
            target->seen.push_back({message, wParam, lParam, GetCurrentThreadId()});
        }
        if (target->handler) {
            if (const auto result = target->handler(hwnd, message, wParam, lParam)) return *result;
        }
    }
    return DefWindowProcW(hwnd, message, wParam, lParam);
}

HWND CreateTestWindow(Target* target, HWND parent = HWND_MESSAGE) {
    return CreateWindowExW(0, kClassName, L"test", 0, 0, 0, 0, 0, parent, nullptr, nullptr, target);
}

class WindowMessages : public ::testing::Test {
protected:
    void SetUp() override {
        WNDCLASSEXW wc = {};
        wc.cbSize = sizeof(wc);
        wc.lpfnWndProc = TestProc;
        wc.lpszClassName = kClassName;
        atom = RegisterClassExW(&wc);
        ASSERT_NE(atom, 0);
    }
    // Also proves that every window of the test was destroyed.
    void TearDown() override { EXPECT_TRUE(UnregisterClassW(kClassName, nullptr)); }

    ATOM atom = 0;
};

TEST_F(WindowMessages, CreationAndDestructionAreAnnouncedToTheProcedure) {
    Target target;
    target.handler = [](HWND, UINT m, WPARAM w, LPARAM) -> std::optional<LRESULT> {
        if (m != WM_USER) return std::nullopt;
        return static_cast<LRESULT>(w) * 2;
    };
    HWND hwnd = CreateTestWindow(&target);
    ASSERT_NE(hwnd, nullptr);
    EXPECT_TRUE(IsWindow(hwnd));
    EXPECT_EQ(GetWindowThreadProcessId(hwnd, nullptr), GetCurrentThreadId());
    ASSERT_EQ(target.Messages(), (std::vector<UINT>{WM_NCCREATE, WM_CREATE}));
    // The procedure kept the create parameter as user data.
    EXPECT_EQ(GetWindowLongPtrW(hwnd, GWLP_USERDATA), reinterpret_cast<LONG_PTR>(&target));
    // A send on the window's own thread calls its procedure at once.
    EXPECT_EQ(SendMessageW(hwnd, WM_USER, 21, 0), 42);

    EXPECT_TRUE(DestroyWindow(hwnd));
    EXPECT_EQ(target.Messages(), (std::vector<UINT>{WM_NCCREATE, WM_CREATE, WM_USER, WM_DESTROY, WM_NCDESTROY}));
    EXPECT_FALSE(IsWindow(hwnd));
    EXPECT_EQ(SendMessageW(hwnd, WM_USER, 21, 0), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_WINDOW_HANDLE));
}

TEST_F(WindowMessages, PostedMessagesArriveInOrderOnTheOwnerThread) {
    Target target;
    HWND hwnd = CreateTestWindow(&target);
    ASSERT_NE(hwnd, nullptr);
    constexpr int kCount = 200;
    std::thread poster([&] {
        for (int i = 0; i < kCount; ++i) EXPECT_TRUE(PostMessageW(hwnd, WM_USER + 1, static_cast<WPARAM>(i), -i));
    });
    EXPECT_TRUE(zqvm::PumpUntil([&] { return target.Of(WM_USER + 1).size() == kCount; }, kBoundedMs));
    poster.join();
    const auto posted = target.Of(WM_USER + 1);
    ASSERT_EQ(posted.size(), static_cast<size_t>(kCount));
    for (int i = 0; i < kCount; ++i) {
        EXPECT_EQ(posted[static_cast<size_t>(i)].wParam, static_cast<WPARAM>(i));
        EXPECT_EQ(posted[static_cast<size_t>(i)].lParam, -i);
        EXPECT_EQ(posted[static_cast<size_t>(i)].thread, GetCurrentThreadId());
    }
    EXPECT_TRUE(DestroyWindow(hwnd));

    EXPECT_FALSE(PostMessageW(hwnd, WM_USER, 0, 0));  // the window is gone
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_WINDOW_HANDLE));
}

TEST_F(WindowMessages, ASendFromAnotherThreadWaitsForTheOwnerWhichHandlesItBeforePostedOnes) {
    Target target;
    target.handler = [](HWND, UINT m, WPARAM w, LPARAM l) -> std::optional<LRESULT> {
        if (m != WM_USER + 7) return std::nullopt;
        return static_cast<LRESULT>(w) * 2 + l;
    };
    HWND hwnd = CreateTestWindow(&target);
    ASSERT_NE(hwnd, nullptr);
    PostMessageW(hwnd, WM_USER + 1, 0, 0);
    PostMessageW(hwnd, WM_USER + 2, 0, 0);
    std::atomic<bool> returned{false};
    LRESULT result = 0;
    std::thread sender([&] {
        result = SendMessageW(hwnd, WM_USER + 7, 21, 100);
        returned = true;
    });
    ASSERT_TRUE(zqvm::WaitForQueuedMessages(QS_SENDMESSAGE, kBoundedMs));
    // Queued but not handled: the sender cannot have returned.
    EXPECT_FALSE(returned.load());
    EXPECT_EQ(GetQueueStatus(QS_SENDMESSAGE) >> 16, QS_SENDMESSAGE);
    EXPECT_TRUE(target.Of(WM_USER + 7).empty());

    // A peek that removes nothing, as the core makes while it waits for a notification
    // callback, handles the sent message and leaves the posted ones queued.
    MSG msg = {};
    EXPECT_TRUE(PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE));
    EXPECT_EQ(msg.message, static_cast<UINT>(WM_USER + 1));
    EXPECT_EQ(target.Of(WM_USER + 7).size(), 1u);
    EXPECT_TRUE(target.Of(WM_USER + 1).empty());

    EXPECT_TRUE(zqvm::PumpUntil([&] { return returned.load() && target.Of(WM_USER + 2).size() == 1; }, kBoundedMs));
    sender.join();
    EXPECT_EQ(result, 142);
    ASSERT_EQ(target.Of(WM_USER + 7).size(), 1u);
    EXPECT_EQ(target.Of(WM_USER + 7)[0].thread, GetCurrentThreadId());  // on the owner thread
    const auto all = target.Messages();
    EXPECT_EQ(std::vector<UINT>(all.begin() + 2, all.end()),
              (std::vector<UINT>{WM_USER + 7, WM_USER + 1, WM_USER + 2}));
    EXPECT_TRUE(DestroyWindow(hwnd));
}

// The owner thread of one window sends to a window of a thread that is itself waiting in a
// send to the first: each must handle the other's message while it waits.
TEST_F(WindowMessages, AWaitingSenderHandlesWhatIsSentToItsOwnWindows) {
    Target mine;
    mine.handler = [](HWND, UINT m, WPARAM w, LPARAM) -> std::optional<LRESULT> {
        if (m != WM_USER + 1) return std::nullopt;
        return static_cast<LRESULT>(w) + 1000;
    };
    HWND myWindow = CreateTestWindow(&mine);
    ASSERT_NE(myWindow, nullptr);

    Target theirs;
    std::atomic<HWND> theirWindow{nullptr};
    std::atomic<bool> stop{false};
    LRESULT answerFromMine = 0;
    theirs.handler = [&](HWND, UINT m, WPARAM w, LPARAM) -> std::optional<LRESULT> {
        if (m != WM_USER + 2) return std::nullopt;
        answerFromMine = SendMessageW(myWindow, WM_USER + 1, w, 0);  // the test thread is waiting
        return answerFromMine + 1;
    };
    std::thread other([&] {
        HWND hwnd = CreateTestWindow(&theirs);
        theirWindow = hwnd;
        zqvm::PumpUntil([&] { return stop.load(); }, kBoundedMs);
        DestroyWindow(hwnd);
    });
    ASSERT_TRUE(zqvm::PumpUntil([&] { return theirWindow.load() != nullptr; }, kBoundedMs));

    EXPECT_EQ(SendMessageW(theirWindow, WM_USER + 2, 5, 0), 1006);
    EXPECT_EQ(answerFromMine, 1005);
    ASSERT_EQ(mine.Of(WM_USER + 1).size(), 1u);
    EXPECT_EQ(mine.Of(WM_USER + 1)[0].thread, GetCurrentThreadId());
    stop = true;
    other.join();
    EXPECT_TRUE(DestroyWindow(myWindow));
}

TEST_F(WindowMessages, ASenderGetsZeroWhenTheWindowIsDestroyedBeforeHandlingIt) {
    Target target;
    target.handler = [](HWND, UINT m, WPARAM, LPARAM) -> std::optional<LRESULT> {
        if (m == WM_USER) return 55;
        return std::nullopt;
    };
    HWND hwnd = CreateTestWindow(&target);
    ASSERT_NE(hwnd, nullptr);
    PostMessageW(hwnd, WM_USER, 1, 0);
    LRESULT result = -1;
    std::thread sender([&] { result = SendMessageW(hwnd, WM_USER, 2, 0); });
    ASSERT_TRUE(zqvm::WaitForQueuedMessages(QS_SENDMESSAGE, kBoundedMs));
    EXPECT_TRUE(DestroyWindow(hwnd));
    sender.join();  // returns without the window's thread pumping
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(target.Of(WM_USER).empty());  // neither the sent nor the posted message ran
    MSG msg = {};
    EXPECT_FALSE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
}

TEST_F(WindowMessages, ASenderGetsZeroWhenTheWindowsThreadEnds) {
    Target target;
    std::promise<HWND> created;
    std::thread owner([&] {
        created.set_value(CreateTestWindow(&target));
        // End, never pumping, once the test's message is waiting.
        EXPECT_TRUE(zqvm::WaitForQueuedMessages(QS_SENDMESSAGE, kBoundedMs));
    });
    std::future<HWND> window = created.get_future();
    ASSERT_EQ(window.wait_for(std::chrono::milliseconds(kBoundedMs)), std::future_status::ready);
    const HWND hwnd = window.get();
    ASSERT_NE(hwnd, nullptr);
    EXPECT_EQ(SendMessageW(hwnd, WM_USER, 0, 0), 0);
    owner.join();
    EXPECT_FALSE(IsWindow(hwnd));
    EXPECT_TRUE(target.Of(WM_USER).empty());
}

}  // namespace
