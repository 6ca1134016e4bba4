#include "windows_test_support.h"

#include <tlhelp32.h>

#include <algorithm>
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

double SineAmplitude(const std::vector<float>& frames, uint16_t channels, uint16_t channel, size_t skipFrames,
                     size_t blockFrames) {
    std::vector<float> peaks;
    const size_t total = frames.size() / channels;
    for (size_t start = skipFrames; start + blockFrames <= total; start += blockFrames) {
        float peak = 0.0f;
        for (size_t i = start; i < start + blockFrames; ++i) peak = std::max(peak, std::fabs(frames[i * channels + channel]));
        peaks.push_back(peak);
    }
    if (peaks.empty()) return 0.0;
    std::nth_element(peaks.begin(), peaks.begin() + static_cast<long>(peaks.size() / 2), peaks.end());
    return peaks[peaks.size() / 2];
}

ToneFeeder::ToneFeeder(const std::wstring& fifo, uint32_t rate, double frequency, float amplitude) {
    // Overlapped: a suspended source stops reading its FIFO, and a write that then waits for
    // room must not hold the feeder's end.
    m_fifo = CreateFileW(fifo.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                         FILE_FLAG_OVERLAPPED, nullptr);
    if (m_fifo == INVALID_HANDLE_VALUE) return;
    m_thread = std::thread([this, rate, frequency, amplitude] {
        const uint32_t block = rate / 100;
        std::vector<float> samples(block);
        uint64_t frame = 0;
        const double step = 2.0 * 3.14159265358979323846 * frequency / rate;
        const HANDLE written = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        while (written != nullptr && !m_stop.load(std::memory_order_acquire)) {
            for (uint32_t i = 0; i < block; ++i, ++frame) {
                samples[i] = amplitude * static_cast<float>(std::sin(step * static_cast<double>(frame % rate)));
            }
            OVERLAPPED overlapped = {};
            overlapped.hEvent = written;
            ResetEvent(written);
            DWORD count = 0;
            if (!WriteFile(m_fifo, samples.data(), block * sizeof(float), &count, &overlapped) &&
                GetLastError() != ERROR_IO_PENDING) {
                break;
            }
            // Waits while the FIFO is full (the server reads it in real time); the destructor
            // cancels a write that waits for a reader that no longer comes.
            if (!GetOverlappedResult(m_fifo, &overlapped, &count, TRUE)) break;
        }
        if (written != nullptr) CloseHandle(written);
    });
}

ToneFeeder::~ToneFeeder() {
    m_stop.store(true, std::memory_order_release);
    if (m_fifo != INVALID_HANDLE_VALUE) CancelIoEx(m_fifo, nullptr);
    if (m_thread.joinable()) m_thread.join();
    if (m_fifo != INVALID_HANDLE_VALUE) CloseHandle(m_fifo);
}

namespace {

// Each endpoint of a flow with its friendly name, until visit returns true.
template <class Visit>
void ForEachEndpoint(EDataFlow flow, Visit visit) {
    CComPtr<IMMDeviceEnumerator> enumerator;
    if (FAILED(CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL, __uuidof(IMMDeviceEnumerator),
                                reinterpret_cast<void**>(&enumerator)))) {
        return;
    }
    CComPtr<IMMDeviceCollection> collection;
    UINT count = 0;
    if (FAILED(enumerator->EnumAudioEndpoints(flow, DEVICE_STATE_ACTIVE, &collection)) ||
        FAILED(collection->GetCount(&count))) {
        return;
    }
    for (UINT i = 0; i < count; ++i) {
        CComPtr<IMMDevice> device;
        CComPtr<IPropertyStore> store;
        if (FAILED(collection->Item(i, &device)) || FAILED(device->OpenPropertyStore(STGM_READ, &store))) continue;
        PROPVARIANT name;
        PropVariantInit(&name);
        std::wstring text;
        if (SUCCEEDED(store->GetValue(PKEY_Device_FriendlyName, &name)) && name.vt == VT_LPWSTR) text = name.pwszVal;
        PropVariantClear(&name);
        if (visit(device, text)) return;
    }
}

}  // namespace

std::vector<std::wstring> EndpointNames(EDataFlow flow) {
    std::vector<std::wstring> names;
    ForEachEndpoint(flow, [&](const CComPtr<IMMDevice>&, const std::wstring& name) {
        names.push_back(name);
        return false;
    });
    return names;
}

CComPtr<IMMDevice> EndpointNamed(EDataFlow flow, const std::wstring& part) {
    CComPtr<IMMDevice> found;
    ForEachEndpoint(flow, [&](const CComPtr<IMMDevice>& device, const std::wstring& name) {
        if (name.find(part) == std::wstring::npos) return false;
        found = device;
        return true;
    });
    return found;
}

bool Contains(const std::vector<std::wstring>& names, const std::wstring& part) {
    for (const std::wstring& name : names) {
        if (name.find(part) != std::wstring::npos) return true;
    }
    return false;
}

std::string Joined(const std::vector<std::wstring>& names) {
    std::string all;
    for (const std::wstring& name : names) {
        const int n = WideCharToMultiByte(CP_UTF8, 0, name.data(), static_cast<int>(name.size()), nullptr, 0, nullptr,
                                          nullptr);
        std::string narrow(static_cast<size_t>(n), '\0');
        WideCharToMultiByte(CP_UTF8, 0, name.data(), static_cast<int>(name.size()), narrow.data(), n, nullptr, nullptr);
        all += "[" + narrow + "] ";
    }
    return all;
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
