// Streams on the server's devices through IAudioClient and the capture and render clients:
// sound both ways, the latency the server reports, formats the server offers, device loss.
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include "pulse_fixture.h"
#include "pulse_player.h"
#include "zqplatform/vm/message_pump.h"

namespace zqtest::pulse {
namespace {

double Db(double ratio) { return 20.0 * std::log10(ratio); }

class PulseStreams : public PulseTest {};

TEST_F(PulseStreams, RenderStreamPlaysAtTheSinksOwnRateAndReportsItsLatency) {
    CComPtr<IMMDevice> speaker = Device(L"speaker44");
    EventStream stream(speaker, 300000);
    ASSERT_EQ(S_OK, stream.opened);
    EXPECT_EQ(1323u, stream.bufferFrames) << "30 ms at 44.1 kHz";
    StreamPlayer player(stream, StreamPlayer::Sine(440.0, 0.5f));
    ASSERT_EQ(S_OK, stream.client->Start());
    const std::vector<float> recorded = Record("speaker44.monitor", 44100, 2, 1.0);
    REFERENCE_TIME latency = 0;
    EXPECT_EQ(S_OK, stream.client->GetStreamLatency(&latency));
    EXPECT_GT(latency, 0);
    RecordProperty("render_latency_ms", std::to_string(latency / 10000.0));
    std::printf("render stream on speaker44: server-reported latency %.1f ms\n", latency / 10000.0);
    EXPECT_EQ(S_OK, player.LastError());

    const ToneReading left = Analyse(recorded, 2, 0, 44100, 0.4);
    const ToneReading right = Analyse(recorded, 2, 1, 44100, 0.4);
    EXPECT_NEAR(440.0, left.frequency, 1.0);
    EXPECT_NEAR(0.0, Db(left.amplitude / 0.5), 0.2);
    EXPECT_NEAR(0.0, Db(right.amplitude / 0.5), 0.2);
    EXPECT_GT(left.weakestBlock, 0.5) << "a gap in the sound";
}

TEST_F(PulseStreams, CaptureStreamDeliversTheMicrophoneInPacketsOfOnePeriod) {
    ToneFeeder feeder(std::getenv("ZQ_PULSE_MIC_FIFO"), 48000, 1, 1000.0, 0.5f);
    ASSERT_TRUE(feeder.Running());
    CComPtr<IMMDevice> microphone = Device(L"kv1_mic");
    EventStream stream(microphone, 200000);
    ASSERT_EQ(S_OK, stream.opened);
    CComPtr<IAudioCaptureClient> capture = stream.Get<IAudioCaptureClient>();
    ASSERT_TRUE(capture);
    ASSERT_EQ(S_OK, stream.client->Start());

    std::vector<float> received;
    UINT32 largestPacket = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (received.size() < 48000 && std::chrono::steady_clock::now() < deadline) {
        if (WaitForSingleObject(stream.event, 200) != WAIT_OBJECT_0) continue;
        BYTE* data = nullptr;
        UINT32 frames = 0;
        DWORD flags = 0;
        const HRESULT hr = capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr);
        ASSERT_TRUE(SUCCEEDED(hr));
        if (frames > 0) received.insert(received.end(), reinterpret_cast<float*>(data), reinterpret_cast<float*>(data) + frames);
        largestPacket = std::max(largestPacket, frames);
        ASSERT_EQ(S_OK, capture->ReleaseBuffer(frames));
    }
    REFERENCE_TIME latency = 0;
    EXPECT_EQ(S_OK, stream.client->GetStreamLatency(&latency));
    std::printf("capture stream on kv1_mic: server-reported latency %.1f ms\n", latency / 10000.0);
    RecordProperty("capture_latency_ms", std::to_string(latency / 10000.0));
    ASSERT_GE(received.size(), 48000u) << "less than a second of sound in 5 s";
    EXPECT_LE(largestPacket, 480u) << "a packet is one 10 ms period";
    const ToneReading reading = Analyse(received, 1, 0, 48000, 0.3);
    EXPECT_NEAR(1000.0, reading.frequency, 1.0);
    EXPECT_NEAR(0.0, Db(reading.amplitude / 0.5), 0.1);
}

TEST_F(PulseStreams, SharedModeTakesOnlyTheMixFormat) {
    CComPtr<IMMDevice> speaker = Device(L"speaker48");
    CComPtr<IAudioClient> client;
    ASSERT_EQ(S_OK, speaker->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&client)));
    WAVEFORMATEX pcm{WAVE_FORMAT_PCM, 2, 48000, 192000, 4, 16, 0};
    WAVEFORMATEX* closest = nullptr;
    EXPECT_EQ(S_FALSE, client->IsFormatSupported(AUDCLNT_SHAREMODE_SHARED, &pcm, &closest));
    ASSERT_NE(nullptr, closest);
    EXPECT_EQ(32, closest->wBitsPerSample);
    CoTaskMemFree(closest);
    EXPECT_EQ(AUDCLNT_E_UNSUPPORTED_FORMAT,
              client->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_EVENTCALLBACK, 200000, 0, &pcm, nullptr));
    EXPECT_EQ(AUDCLNT_E_NOT_INITIALIZED, client->Start());
}

// Formats at the edges of what a desktop server offers: sound wherever the server takes them.
struct EdgeFormat {
    uint32_t rate;
    uint16_t channels;
};

class PulseEdgeFormats : public PulseTest, public ::testing::WithParamInterface<EdgeFormat> {};

TEST_P(PulseEdgeFormats, SinkPlaysAToneInItsOwnFormat) {
    const EdgeFormat edge = GetParam();
    const std::string name = "zq_edge_" + std::to_string(edge.rate) + "_" + std::to_string(edge.channels);
    std::string arguments = "module-null-sink sink_name=" + name + " rate=" + std::to_string(edge.rate) +
                            " channels=" + std::to_string(edge.channels) + " format=float32le";
    if (edge.channels > 8) {
        arguments += " channel_map=";
        for (uint16_t c = 0; c < edge.channels; ++c) arguments += (c ? ",aux" : "aux") + std::to_string(c);
    }
    RecordingClient client;
    ASSERT_EQ(S_OK, enumerator->RegisterEndpointNotificationCallback(&client));
    const std::optional<uint32_t> module = LoadModule(arguments);
    ASSERT_TRUE(module) << "the server refused " << arguments;
    const std::wstring id(name.begin(), name.end());
    ASSERT_TRUE(client.WaitFor(DeviceEvent::Kind::Added, id));
    {
        CComPtr<IMMDevice> sink = Device(id);
        EventStream stream(sink, 1000000);  // 100 ms: the format is tested here, not the latency
        ASSERT_EQ(S_OK, stream.opened);
        EXPECT_EQ(edge.rate, stream.format->nSamplesPerSec);
        EXPECT_EQ(edge.channels, stream.format->nChannels);
        StreamPlayer player(stream, StreamPlayer::Sine(440.0, 0.5f));
        ASSERT_EQ(S_OK, stream.client->Start());
        const std::vector<float> recorded = Record(name + ".monitor", edge.rate, edge.channels, 0.8);
        const ToneReading first = Analyse(recorded, edge.channels, 0, edge.rate, 0.3);
        const ToneReading last = Analyse(recorded, edge.channels, edge.channels - 1, edge.rate, 0.3);
        EXPECT_NEAR(440.0, first.frequency, 1.0);
        EXPECT_NEAR(0.0, Db(first.amplitude / 0.5), 0.2);
        EXPECT_NEAR(0.0, Db(last.amplitude / 0.5), 0.2);
    }
    EXPECT_TRUE(UnloadModule(*module));
    EXPECT_TRUE(client.WaitFor(DeviceEvent::Kind::Removed, id));
    EXPECT_EQ(S_OK, enumerator->UnregisterEndpointNotificationCallback(&client));
}

INSTANTIATE_TEST_SUITE_P(Rates, PulseEdgeFormats, ::testing::Values(EdgeFormat{8000, 2}, EdgeFormat{192000, 2}, EdgeFormat{48000, 32}),
                         [](const ::testing::TestParamInfo<EdgeFormat>& edge) {
                             return std::to_string(edge.param.rate) + "Hz" + std::to_string(edge.param.channels) + "ch";
                         });

TEST_F(PulseStreams, UnloadingTheSinkInvalidatesItsStreamAndIsHeardAsARemoval) {
    RecordingClient client;
    // A client may call back into the enumerator from its callback (the system does: it lists
    // the microphones again): the backend's own notification thread makes that safe.
    std::wstring nameSeenInCallback;
    client.onAdded = [&](const std::wstring& id) {
        CComPtr<IMMDevice> added;
        if (SUCCEEDED(enumerator->GetDevice(id.c_str(), &added))) nameSeenInCallback = FriendlyNameOf(added);
    };
    ASSERT_EQ(S_OK, enumerator->RegisterEndpointNotificationCallback(&client));
    const std::optional<uint32_t> module =
        LoadModule("module-null-sink sink_name=zq_going rate=48000 channels=2 sink_properties=device.description=Going");
    ASSERT_TRUE(module);
    ASSERT_TRUE(client.WaitFor(DeviceEvent::Kind::Added, L"zq_going"));
    EXPECT_EQ(L"Going", nameSeenInCallback);
    CComPtr<IMMDevice> sink = Device(L"zq_going");
    EventStream stream(sink, 300000);
    ASSERT_EQ(S_OK, stream.opened);
    StreamPlayer player(stream, StreamPlayer::Sine(440.0, 0.5f));
    ASSERT_EQ(S_OK, stream.client->Start());

    ASSERT_TRUE(UnloadModule(*module));
    ASSERT_TRUE(client.WaitFor(DeviceEvent::Kind::Removed, L"zq_going"));
    EXPECT_TRUE(client.WaitForState(L"zq_going", DEVICE_STATE_NOTPRESENT));
    UINT32 padding = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    HRESULT hr = S_OK;
    while ((hr = stream.client->GetCurrentPadding(&padding)) == S_OK && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_EQ(AUDCLNT_E_DEVICE_INVALIDATED, hr);
    EXPECT_EQ(AUDCLNT_E_DEVICE_INVALIDATED, stream.client->Stop()) << "stops, and says why";
    DWORD state = 0;
    EXPECT_EQ(S_OK, sink->GetState(&state));
    EXPECT_EQ(static_cast<DWORD>(DEVICE_STATE_NOTPRESENT), state);
    CComPtr<IAudioClient> another;
    EXPECT_EQ(AUDCLNT_E_DEVICE_INVALIDATED,
              sink->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&another)));
    for (const DeviceEvent& event : client.Events()) EXPECT_NE(event.thread, std::this_thread::get_id());
    EXPECT_EQ(S_OK, enumerator->UnregisterEndpointNotificationCallback(&client));
}

// The server's clients that this process's pulse backend opened (its connection and the
// streams' links), by their indices, which the server never gives out twice.
std::set<uint32_t> BackendClients() {
    std::set<uint32_t> clients;
    const std::optional<std::string> list = Pactl("list clients");
    if (!list) return clients;
    const std::string process = "application.process.id = \"" + std::to_string(getpid()) + "\"";
    const std::string marker = "Client #";
    for (size_t at = list->find(marker); at != std::string::npos;) {
        const size_t next = list->find(marker, at + 1);
        const std::string block = list->substr(at, next == std::string::npos ? std::string::npos : next - at);
        if (block.find("application.name = \"zqCoreAudio\"") != std::string::npos &&
            block.find(process) != std::string::npos)
            clients.insert(static_cast<uint32_t>(std::stoul(block.substr(marker.size()))));
        at = next;
    }
    return clients;
}

// A device switch closes the render stream while the capture stream runs on, then opens another:
// the new stream takes the closed one's link instead of making the server a new client, and the
// links go once the last stream of ours has.
TEST_F(PulseStreams, AClosedStreamsLinkServesTheNextStreamAndGoesWithTheLast) {
    const std::set<uint32_t> backendAlone = BackendClients();
    ASSERT_FALSE(backendAlone.empty()) << "the backend's own connection is a client";
    const auto becomes = [](const std::set<uint32_t>& expected) {
        return zqvm::PumpUntil([&] { return BackendClients() == expected; }, 3000);
    };
    auto microphone = std::make_unique<EventStream>(Device(L"kv1_mic"));
    ASSERT_EQ(S_OK, microphone->opened);
    auto speaker = std::make_unique<EventStream>(Device(L"speaker48"));
    ASSERT_EQ(S_OK, speaker->opened);
    const std::set<uint32_t> withStreams = BackendClients();
    EXPECT_EQ(backendAlone.size() + 2, withStreams.size()) << "a link for each stream";

    speaker.reset();
    auto next = std::make_unique<EventStream>(Device(L"speaker44"));
    ASSERT_EQ(S_OK, next->opened);
    EXPECT_TRUE(becomes(withStreams)) << "the new stream runs on the closed one's link";
    {
        StreamPlayer player(*next, StreamPlayer::Sine(440.0, 0.5f));
        ASSERT_EQ(S_OK, next->client->Start());
        const ToneReading heard = Analyse(Record("speaker44.monitor", 44100, 2, 0.5), 2, 0, 44100, 0.2);
        EXPECT_NEAR(440.0, heard.frequency, 1.0) << "and plays on it";
        EXPECT_EQ(S_OK, next->client->Stop());
    }

    next.reset();
    microphone.reset();
    EXPECT_TRUE(becomes(backendAlone)) << "no link left open without a stream";
}

}  // namespace
}  // namespace zqtest::pulse
