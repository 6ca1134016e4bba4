#include "windows_test_support.h"

#include <tlhelp32.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace zqwintest {
namespace {

constexpr wchar_t kWindowClass[] = L"zqWindowsTestWindow";

std::wstring Widen(const std::string& text) {
    std::wstring out;
    const int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    out.resize(static_cast<size_t>(n));
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), n);
    return out;
}

// A file name unique to this process and call.
std::string UniqueName(const char* stem) {
    static std::atomic<unsigned> counter{0};
    return std::string(stem) + "-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(counter++);
}

bool FileExists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

}  // namespace

std::string ReadWhole(const std::wstring& path) {
    std::ifstream in(path.c_str(), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

MessageWindow::MessageWindow() {
    WNDCLASSEXW wc = {};
    wc.cbSize = sizeof(wc);
    wc.lpfnWndProc = &MessageWindow::Procedure;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.lpszClassName = kWindowClass;
    RegisterClassExW(&wc);  // fails harmlessly when a window before this one registered it
    m_hwnd = CreateWindowExW(0, kWindowClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, wc.hInstance, nullptr);
    if (m_hwnd != nullptr) SetWindowLongPtrW(m_hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
}

MessageWindow::~MessageWindow() {
    if (m_hwnd != nullptr) DestroyWindow(m_hwnd);
}

LRESULT CALLBACK MessageWindow::Procedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* self = reinterpret_cast<MessageWindow*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    if (self != nullptr && message >= WM_USER && message < WM_APP) {
        self->m_received.push_back({message, wParam, lParam});
        return 0;
    }
    return DefWindowProcW(hwnd, message, wParam, lParam);
}

bool MessageWindow::PumpUntilMessage(DWORD timeoutMs) {
    const size_t before = m_received.size();
    const ULONGLONG deadline = GetTickCount64() + timeoutMs;
    for (;;) {
        MSG msg;
        while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
            TranslateMessage(&msg);
            DispatchMessageW(&msg);
        }
        if (m_received.size() > before) return true;
        const ULONGLONG now = GetTickCount64();
        if (now >= deadline) return false;
        // Sent messages are delivered inside this wait too.
        MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(deadline - now), QS_ALLINPUT);
    }
}

bool InCi() {
    const char* ci = std::getenv("CI");
    return ci != nullptr && std::strcmp(ci, "true") == 0;
}

std::optional<std::string> ServerFolderUnix() {
    const char* folder = std::getenv("ZQ_PULSE_TEST_SERVER");
    if (folder == nullptr || folder[0] != '/') return std::nullopt;
    return std::string(folder);
}

std::optional<std::wstring> ServerFolder() {
    const std::optional<std::string> unix = ServerFolderUnix();
    if (!unix) return std::nullopt;
    std::wstring dos = L"Z:" + Widen(*unix);  // Wine's drive for the Unix root
    for (wchar_t& ch : dos) {
        if (ch == L'/') ch = L'\\';
    }
    return dos;
}

std::optional<std::string> RunUnix(const std::string& script, DWORD timeoutMs) {
    const std::optional<std::string> folderUnix = ServerFolderUnix();
    const std::optional<std::wstring> folder = ServerFolder();
    if (!folderUnix || !folder) return std::nullopt;
    const std::string name = UniqueName("wine-run");
    const std::string out = *folderUnix + "/" + name;
    const std::wstring done = *folder + L"\\" + Widen(name) + L".done";
    // The script's text goes in a file of its own: no quoting of it through the command line.
    const std::wstring scriptFile = *folder + L"\\" + Widen(name) + L".sh";
    {
        std::ofstream file(scriptFile.c_str(), std::ios::binary);
        file << "(" << script << ") >'" << out << ".part' 2>/dev/null; mv '" << out << ".part' '" << out << ".done'\n";
        if (!file) return std::nullopt;
    }
    const HANDLE change = FindFirstChangeNotificationW(folder->c_str(), FALSE, FILE_NOTIFY_CHANGE_FILE_NAME);
    if (change == INVALID_HANDLE_VALUE) return std::nullopt;
    std::wstring command = L"/bin/sh \"" + Widen(out) + L".sh\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    const BOOL started = CreateProcessW(L"Z:\\bin\\sh", command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                        &startup, &process);
    if (started) {
        if (process.hProcess != nullptr) CloseHandle(process.hProcess);
        if (process.hThread != nullptr) CloseHandle(process.hThread);
    }
    const ULONGLONG deadline = GetTickCount64() + timeoutMs;
    bool finished = false;
    while (started && !(finished = FileExists(done))) {
        const ULONGLONG now = GetTickCount64();
        if (now >= deadline) break;
        if (WaitForSingleObject(change, static_cast<DWORD>(deadline - now)) != WAIT_OBJECT_0) continue;
        FindNextChangeNotification(change);
    }
    FindCloseChangeNotification(change);
    DeleteFileW(scriptFile.c_str());
    if (!finished) return std::nullopt;
    std::string output = ReadWhole(done);
    DeleteFileW(done.c_str());
    return output;
}

std::vector<float> RecordWithParec(const std::string& source, uint32_t rate, uint16_t channels, double seconds) {
    const size_t bytes = static_cast<size_t>(seconds * rate) * channels * sizeof(float);
    const std::string script = "parec --raw --format=float32le --rate=" + std::to_string(rate) +
                               " --channels=" + std::to_string(channels) + " --latency-msec=10 -d " + source +
                               " | head -c " + std::to_string(bytes);
    const std::optional<std::string> raw = RunUnix(script, static_cast<DWORD>(seconds * 1000) + 10000);
    std::vector<float> frames;
    if (!raw || raw->size() != bytes) return frames;
    frames.resize(bytes / sizeof(float));
    std::memcpy(frames.data(), raw->data(), bytes);
    return frames;
}

double SineAmplitude(const std::vector<float>& frames, uint16_t channels, uint16_t channel, size_t skipFrames) {
    const size_t total = frames.size() / channels;
    if (total <= skipFrames) return 0.0;
    double sumSquares = 0.0;
    for (size_t i = skipFrames; i < total; ++i) {
        const double x = frames[i * channels + channel];
        sumSquares += x * x;
    }
    return std::sqrt(2.0 * sumSquares / static_cast<double>(total - skipFrames));
}

ToneFeeder::ToneFeeder(const std::wstring& fifo, uint32_t rate, double frequency, float amplitude) {
    m_fifo = CreateFileW(fifo.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                         nullptr);
    if (m_fifo == INVALID_HANDLE_VALUE) return;
    m_thread = std::thread([this, rate, frequency, amplitude] {
        const uint32_t block = rate / 100;
        std::vector<float> samples(block);
        uint64_t frame = 0;
        const double step = 2.0 * 3.14159265358979323846 * frequency / rate;
        while (!m_stop.load(std::memory_order_acquire)) {
            for (uint32_t i = 0; i < block; ++i, ++frame) {
                samples[i] = amplitude * static_cast<float>(std::sin(step * static_cast<double>(frame % rate)));
            }
            DWORD written = 0;
            // Blocks while the FIFO is full: the server reads it in real time.
            if (!WriteFile(m_fifo, samples.data(), block * sizeof(float), &written, nullptr)) break;
        }
    });
}

ToneFeeder::~ToneFeeder() {
    m_stop.store(true, std::memory_order_release);
    if (m_thread.joinable()) m_thread.join();
    if (m_fifo != INVALID_HANDLE_VALUE) CloseHandle(m_fifo);
}

size_t ThreadCount() {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE) return 0;
    size_t count = 0;
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
    }
    CloseHandle(snapshot);
    return count;
}

}  // namespace zqwintest
