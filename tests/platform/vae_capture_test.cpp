// Capture streams of the virtual audio engine on a stepped clock: packet sizes per device
// period, content per source and format, overflow, and the client's misuse of the buffer.
#include <cmath>
#include <numbers>
#include <vector>

#include "vae_fixture.h"

namespace vaetest {
namespace {

using zqvm::CaptureSource;
using zqvm::SampleFormat;

class CaptureStreamTest : public VirtualAudioTest {};

TEST_F(CaptureStreamTest, EachPeriodDeliversTheRateOverAHundredFramesAndSignalsTheEvent) {
    const std::wstring id = Add(eCapture, 44100, 2, SampleFormat::Float32, CaptureSource::Tone(440.0, 0.5));
    TestStream stream(id);
    EXPECT_EQ(stream.bufferFrames, 882u);  // 20 ms at 44.1 kHz
    CComPtr<IAudioCaptureClient> capture = stream.Get<IAudioCaptureClient>();
    ASSERT_EQ(stream.client->Start(), S_OK);

    EXPECT_FALSE(stream.Signalled()) << "nothing is due before the first period has passed";
    for (int period = 0; period < 5; ++period) {
        Step();
        EXPECT_TRUE(stream.Signalled()) << "period " << period;
        UINT32 next = 0;
        ASSERT_EQ(capture->GetNextPacketSize(&next), S_OK);
        EXPECT_EQ(next, 441u);
        EXPECT_EQ(stream.Padding(), 441u);
        const Packet packet = Take(capture, 8);
        EXPECT_EQ(packet.frames, 441u);
        EXPECT_EQ(packet.position, 441u * static_cast<UINT64>(period));
        EXPECT_EQ(packet.flags, 0u);
    }
    EXPECT_EQ(stream.Padding(), 0u);
    ASSERT_EQ(stream.client->Stop(), S_OK);
    Step(3);
    EXPECT_FALSE(stream.Signalled()) << "a stopped stream's clock is still running";
    EXPECT_EQ(stream.Padding(), 0u);
}

// The tone as the sine of its frequency and amplitude, quantized to each endpoint's format:
// 16-bit mono, and 24-bit stereo in an extensible format of three bytes per sample.
TEST_F(CaptureStreamTest, ToneArrivesAsTheSineQuantizedToTheEndpointFormat) {
    struct Case {
        uint32_t rate;
        uint16_t channels;
        SampleFormat format;
        bool extensible;
        CaptureSource source;
        double frequency, amplitude;  // what the source gives
        int bytes;                    // per sample
        double tolerance;             // in codes
    };
    const double minus6Db = std::pow(10.0, -6.0 / 20.0);
    for (const Case& c : {Case{48000, 1, SampleFormat::Int16, false, CaptureSource::ToneDbfs(1000.0, -6.0), 1000.0,
                               minus6Db, 2, 1.5},
                          Case{96000, 2, SampleFormat::Int24, true, CaptureSource::Tone(3000.0, 0.75), 3000.0, 0.75,
                               3, 2.0}}) {
        const std::wstring id = Add(eCapture, c.rate, c.channels, c.format, c.source, c.extensible);
        TestStream stream(id);
        EXPECT_EQ(stream.format->wFormatTag, c.extensible ? WAVE_FORMAT_EXTENSIBLE : WAVE_FORMAT_PCM);
        const UINT32 blockAlign = stream.format->nBlockAlign;
        ASSERT_EQ(blockAlign, static_cast<UINT32>(c.bytes * c.channels));
        CComPtr<IAudioCaptureClient> capture = stream.Get<IAudioCaptureClient>();
        ASSERT_EQ(stream.client->Start(), S_OK);
        const double fullScale = c.bytes == 2 ? 32768.0 : 8388608.0;
        for (int period = 0; period < 3; ++period) {
            Step();
            const Packet packet = Take(capture, blockAlign);
            ASSERT_EQ(packet.frames, c.rate / 100);
            for (UINT32 f = 0; f < packet.frames; ++f) {
                const double n = static_cast<double>(packet.position + f);
                const double expected = c.amplitude * std::sin(2.0 * std::numbers::pi * c.frequency * n / c.rate);
                for (int channel = 0; channel < c.channels; ++channel) {
                    const BYTE* b = &packet.bytes[blockAlign * f + c.bytes * channel];
                    // Little-endian, sign-extended from the top byte.
                    int32_t code = static_cast<int8_t>(b[c.bytes - 1]);
                    for (int i = c.bytes - 2; i >= 0; --i) code = code * 256 + b[i];
                    ASSERT_NEAR(code / fullScale, expected, c.tolerance / fullScale)
                        << "frame " << n << " channel " << channel;
                }
            }
        }
        ASSERT_EQ(stream.client->Stop(), S_OK);
    }
}

TEST_F(CaptureStreamTest, AFullBufferLosesItsOldestPacketAndFlagsTheNextDiscontinuous) {
    const std::wstring id = Add(eCapture, 48000, 1, SampleFormat::Float32, CaptureSource::Tone(500.0, 0.5));
    TestStream stream(id);
    ASSERT_EQ(stream.bufferFrames, 960u);
    CComPtr<IAudioCaptureClient> capture = stream.Get<IAudioCaptureClient>();
    ASSERT_EQ(stream.client->Start(), S_OK);
    Step(3);  // three packets into room for two
    EXPECT_EQ(stream.Padding(), 960u);
    Packet packet = Take(capture, 4);
    EXPECT_EQ(packet.position, 480u);
    EXPECT_EQ(packet.flags, 0u);
    packet = Take(capture, 4);
    EXPECT_EQ(packet.position, 960u);
    EXPECT_EQ(packet.flags, static_cast<DWORD>(AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY));

    // While the client holds the oldest packet, the newest is the one lost.
    Step(2);
    BYTE* data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    UINT64 position = 0;
    ASSERT_EQ(capture->GetBuffer(&data, &frames, &flags, &position, nullptr), S_OK);
    EXPECT_EQ(position, 1440u);
    Step();  // the packet at 2400 has no room
    ASSERT_EQ(capture->ReleaseBuffer(frames), S_OK);
    Step();
    EXPECT_EQ(Take(capture, 4).position, 1920u);
    packet = Take(capture, 4);
    EXPECT_EQ(packet.position, 2880u);
    EXPECT_EQ(packet.flags, static_cast<DWORD>(AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY));
    ASSERT_EQ(stream.client->Stop(), S_OK);
}

TEST_F(CaptureStreamTest, BufferMisuseIsRefusedWithTheAudioClientCodes) {
    const std::wstring id = Add(eCapture, 48000, 1, SampleFormat::Int16, CaptureSource::Tone(1000.0, 0.5));
    TestStream stream(id);
    CComPtr<IAudioCaptureClient> capture = stream.Get<IAudioCaptureClient>();
    BYTE* data = reinterpret_cast<BYTE*>(1);
    UINT32 frames = 7;
    DWORD flags = 7;
    EXPECT_EQ(capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr), AUDCLNT_S_BUFFER_EMPTY);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(frames, 0u);
    EXPECT_EQ(capture->ReleaseBuffer(0), S_OK) << "releasing what an empty GetBuffer gave";
    EXPECT_EQ(capture->ReleaseBuffer(0), AUDCLNT_E_OUT_OF_ORDER);
    EXPECT_EQ(capture->GetBuffer(nullptr, &frames, &flags, nullptr, nullptr), E_POINTER);

    ASSERT_EQ(stream.client->Start(), S_OK);
    Step();
    ASSERT_EQ(capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr), S_OK);
    EXPECT_EQ(capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr), AUDCLNT_E_OUT_OF_ORDER);
    EXPECT_EQ(capture->ReleaseBuffer(frames - 1), AUDCLNT_E_INVALID_SIZE);
    EXPECT_EQ(capture->ReleaseBuffer(0), S_OK) << "releasing nothing keeps the packet";
    UINT64 position = 99;
    ASSERT_EQ(capture->GetBuffer(&data, &frames, &flags, &position, nullptr), S_OK);
    EXPECT_EQ(position, 0u) << "the same packet comes again";
    EXPECT_EQ(stream.client->Reset(), AUDCLNT_E_NOT_STOPPED);
    ASSERT_EQ(stream.client->Stop(), S_OK);
    EXPECT_EQ(stream.client->Reset(), AUDCLNT_E_BUFFER_OPERATION_PENDING);
    ASSERT_EQ(capture->ReleaseBuffer(frames), S_OK);
    EXPECT_EQ(stream.client->Stop(), S_FALSE) << "stopping twice";
    ASSERT_EQ(stream.client->Start(), S_OK);
    EXPECT_EQ(stream.client->Start(), AUDCLNT_E_NOT_STOPPED);
    ASSERT_EQ(stream.client->Stop(), S_OK);
}

}  // namespace
}  // namespace vaetest
