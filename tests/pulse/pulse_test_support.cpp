#include "pulse_test_support.h"

#include "../../platform/src/usb/usb_container.h"
#include "tone_pitch.h"
#include "zqCoreAudio.h"
#include "zqPlatform.h"
#include "zqplatform/vm/bridges.h"
#include "zqplatform/vm/message_pump.h"
#include "zqplatform/vm/module_path.h"

#include <fcntl.h>
#include <pulse/error.h>
#include <pulse/simple.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace zqtest::pulse {

bool TestServerReachable(std::string* why) {
    const char* folder = std::getenv("ZQ_PULSE_TEST_SERVER");
    if (folder == nullptr || folder[0] == '\0') {
        *why = "ZQ_PULSE_TEST_SERVER is not set";
        return false;
    }
    if (!Pactl("info")) {
        *why = std::string("pactl info fails for the server in ") + folder;
        return false;
    }
    return true;
}

std::string RunCommand(const std::string& command, int* status) {
    *status = -1;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return {};
    std::string output;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, n);
    *status = pclose(pipe);
    return output;
}

std::optional<std::string> Pactl(const std::string& arguments) {
    int status = -1;
    std::string output = RunCommand("pactl " + arguments + " 2>/dev/null", &status);
    if (status != 0) return std::nullopt;
    return output;
}

std::optional<uint32_t> LoadModule(const std::string& nameAndArguments) {
    const std::optional<std::string> output = Pactl("load-module " + nameAndArguments);
    if (!output || output->empty()) return std::nullopt;
    return static_cast<uint32_t>(std::stoul(*output));
}

bool UnloadModule(uint32_t index) { return Pactl("unload-module " + std::to_string(index)).has_value(); }

std::optional<uint32_t> StreamIndexOn(bool sinkInput, const std::string& deviceName) {
    // "short" lists: index, device index, client, driver, format; the device by index.
    const std::optional<std::string> devices = Pactl(sinkInput ? "list short sinks" : "list short sources");
    const std::optional<std::string> streams = Pactl(sinkInput ? "list short sink-inputs" : "list short source-outputs");
    if (!devices || !streams) return std::nullopt;
    std::string deviceIndex;
    std::istringstream deviceLines(*devices);
    for (std::string line; std::getline(deviceLines, line);) {
        std::istringstream fields(line);
        std::string index, name;
        fields >> index >> name;
        if (name == deviceName) deviceIndex = index;
    }
    std::istringstream streamLines(*streams);
    for (std::string line; std::getline(streamLines, line);) {
        std::istringstream fields(line);
        std::string index, device;
        fields >> index >> device;
        if (!deviceIndex.empty() && device == deviceIndex) return static_cast<uint32_t>(std::stoul(index));
    }
    return std::nullopt;
}

std::string UsbFolder(int port) {
    const char* root = std::getenv("ZQ_SYSFS_ROOT");
    return std::string(root != nullptr ? root : "") + "/devices/pci0000:00/0000:00:14.0/usb1/1-" +
           std::to_string(port);
}

void SetUpKv1Host(const std::filesystem::path& folder, const std::vector<int>& ports) {
    CComPtr<IMMDeviceEnumerator> enumerator;
    EXPECT_EQ(S_OK, CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                                     reinterpret_cast<void**>(&enumerator)));
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "config.xml") << R"(<config>
  <product device_name="KV-1 USB Microphone" friendly_name="KV-1" api="5" fw="0x12" editor="kv1editor"/>
</config>)";
    zqvm::SetHostModulePath((folder / "zqHost").wstring());
    zqvm::RemoveAllBridges();
    for (int port : ports) {
        zqvm::BridgeDescription kv1;
        kv1.product = "KV-1 USB Microphone";
        std::ifstream(UsbFolder(port) + "/serial") >> kv1.serial.bytes;
        kv1.containerId = zqplatform::usb::ContainerIdOfUsbFolder(UsbFolder(port));
        zqvm::AddBridge(kv1);
    }
    zqvm::SetBridgeTiming(zqvm::BridgeTiming::Instant);
}

std::vector<ReceivedMessage> MicrophoneRemovals(const MessageWindow& window) {
    std::vector<ReceivedMessage> removals;
    zqvm::PumpUntil(
        [&] {
            removals.clear();
            for (const ReceivedMessage& message : window.Received(WM_AUDIO_DEVICE_CHANGED))
                if (message.wParam == 1) removals.push_back(message);
            return !removals.empty();
        },
        5000);
    return removals;
}

ToneFeeder::ToneFeeder(const std::string& fifo, uint32_t rate, uint16_t channels, double frequency, float amplitude)
    : ToneFeeder(fifo, rate, channels, [rate, frequency, amplitude](uint64_t frame) {
          return amplitude * static_cast<float>(std::sin(2.0 * M_PI * frequency * static_cast<double>(frame) / rate));
      }) {}

ToneFeeder::ToneFeeder(const std::string& fifo, uint32_t rate, uint16_t channels, std::function<float(uint64_t)> generator)
    : m_rate(rate), m_channels(channels), m_signal(std::move(generator)) {
    signal(SIGPIPE, SIG_IGN);  // a server that goes away must not end the test
    m_fd = open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (m_fd >= 0) m_thread = std::thread([this] { Run(); });
}

ToneFeeder::~ToneFeeder() {
    m_stop.store(true);
    if (m_thread.joinable()) m_thread.join();
    if (m_fd >= 0) close(m_fd);
}

void ToneFeeder::Run() {
    // The feeder is the microphone's clock: it runs at the stream threads' priority.
    DWORD taskIndex = 0;
    HANDLE task = AvSetMmThreadCharacteristicsW(L"Audio", &taskIndex);
    PlayUntilStopped();
    if (task != nullptr) AvRevertMmThreadCharacteristics(task);
}

void ToneFeeder::PlayUntilStopped() {
    // Real time, block by block: the pipe source takes audio as fast as it comes, so the feeder is
    // the microphone's clock. Five blocks ahead absorb a busy machine's scheduling.
    const uint32_t blockFrames = m_rate / 100;
    std::vector<float> block(size_t{blockFrames} * m_channels);
    uint64_t frame = 0;
    const auto start = std::chrono::steady_clock::now();
    for (uint64_t n = 0; !m_stop.load(); ++n) {
        for (uint32_t i = 0; i < blockFrames; ++i, ++frame) {
            const float value = m_signal(frame);
            for (uint16_t c = 0; c < m_channels; ++c) block[size_t{i} * m_channels + c] = value;
        }
        const size_t bytes = block.size() * sizeof(float);
        size_t done = 0;
        while (done < bytes && !m_stop.load()) {
            const ssize_t written = write(m_fd, reinterpret_cast<const char*>(block.data()) + done, bytes - done);
            if (written > 0) {
                done += static_cast<size_t>(written);
            } else if (written < 0 && errno != EAGAIN && errno != EINTR) {
                return;  // the server went away
            } else {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));  // the FIFO is full: pacing
            }
        }
        if (n >= 5) std::this_thread::sleep_until(start + std::chrono::milliseconds(10 * (n - 4)));
    }
}

std::vector<float> Record(const std::string& source, uint32_t rate, uint16_t channels, double seconds) {
    pa_sample_spec sampleSpec{PA_SAMPLE_FLOAT32LE, rate, static_cast<uint8_t>(channels)};
    pa_buffer_attr attributes{static_cast<uint32_t>(-1), static_cast<uint32_t>(-1), static_cast<uint32_t>(-1),
                              static_cast<uint32_t>(-1), rate / 100 * channels * 4};
    // Beyond the layouts the server names, the channels are auxiliary ones, as the device has them.
    pa_channel_map map;
    pa_channel_map_init_extend(&map, channels, channels > 8 ? PA_CHANNEL_MAP_AUX : PA_CHANNEL_MAP_DEFAULT);
    int error = 0;
    pa_simple* recorder = pa_simple_new(nullptr, "zqCoreAudio test", PA_STREAM_RECORD, source.c_str(), "recorder",
                                        &sampleSpec, &map, &attributes, &error);
    if (recorder == nullptr) {
        ADD_FAILURE() << "cannot record " << source << ": " << pa_strerror(error);
        return {};
    }
    std::vector<float> frames(static_cast<size_t>(seconds * rate) * channels);
    if (pa_simple_read(recorder, frames.data(), frames.size() * sizeof(float), &error) < 0) {
        ADD_FAILURE() << "recording " << source << " failed: " << pa_strerror(error);
        frames.clear();
    }
    pa_simple_free(recorder);
    return frames;
}

ToneReading Analyse(const std::vector<float>& frames, uint16_t channels, uint16_t channel, uint32_t rate,
                    double skipSeconds) {
    ToneReading reading;
    const size_t first = static_cast<size_t>(skipSeconds * rate);
    const size_t total = frames.size() / channels;
    if (total <= first + rate / 10) return reading;
    double sumSquares = 0.0;
    for (size_t i = first; i < total; ++i) {
        const double x = frames[i * channels + channel];
        sumSquares += x * x;
    }
    reading.amplitude = std::sqrt(2.0 * sumSquares / static_cast<double>(total - first));
    reading.frequency = TonePitchHz(frames.data() + channel, channels, first, total, rate);
    const size_t block = rate / 200;
    reading.weakestBlock = 1e9;
    for (size_t start = first; start + block <= total; start += block) {
        float peak = 0.0f;
        for (size_t i = start; i < start + block; ++i) peak = std::max(peak, std::fabs(frames[i * channels + channel]));
        reading.weakestBlock = std::min(reading.weakestBlock, reading.amplitude > 0.0 ? peak / reading.amplitude : 0.0);
    }
    return reading;
}

}  // namespace zqtest::pulse
