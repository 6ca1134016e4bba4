// zqmonitor's --input and --output: what the microphone plays and what the speaker is given.
#include <gtest/gtest.h>

#include "host_process.h"
#include "scoped_environment.h"
#include "wav_analysis.h"

namespace zqhosttest {
namespace {

// The monitoring rate control is left out: a render thread held up on a loaded machine builds a
// backlog, which the rate control drains at up to 2 % above pitch. These tests check the format
// conversion; the stepped-clock suites test the rate control.
class HostWav : public ::testing::Test {
    zqtest::ScopedEnvironment m_rateControlOff{"ZQ_MONITOR_RATE_CONTROL", "0"};
};

// The last half second of the recording: the streams are running by then.
void ExpectTone(const WavContent& wav, double hz) {
    ASSERT_TRUE(wav.ok);
    const size_t half = static_cast<size_t>(wav.rate / 2);
    ASSERT_GT(wav.first.size(), half) << "the recording is shorter than half a second";
    const size_t begin = wav.first.size() - half;
    EXPECT_GT(PeakOf(wav.first, begin, wav.first.size()), 0.01f) << "the speaker was given silence";
    EXPECT_NEAR(ToneHz(wav.first, wav.rate, begin, wav.first.size()), hz, hz * 0.01);
}

// At the speaker's own rate and format, whether or not it is the microphone's.
TEST_F(HostWav, OutputHoldsTheMicrophonesTone) {
    for (const auto& [rate, format] : {std::pair<unsigned, const char*>{48000, "float32"}, {44100, "int16"}}) {
        SCOPED_TRACE(format);
        TestFolder folder;
        MachineSpec endpointSpec;
        endpointSpec.renderRate = rate;
        endpointSpec.renderFormat = format;
        const std::string output = folder.Path("speaker.wav");
        const SummaryRun result = RunSummary(folder, MachineXml(endpointSpec), 1.5, {"--output", output});
        ASSERT_SUMMARY(result);
        const WavContent wav = ReadWav(output);
        ASSERT_TRUE(wav.ok) << "cannot read " << output;
        EXPECT_EQ(wav.rate, static_cast<int>(rate));
        EXPECT_EQ(wav.channels, 2);
        ExpectTone(wav, endpointSpec.toneHz);
    }
}

TEST_F(HostWav, InputFileReplacesTheMachinesSource) {
    TestFolder folder;
    const std::string input = folder.Path("input.wav");
    ASSERT_TRUE(WriteToneWav(input, 48000, 3000.0, 0.5, 1.0));
    const std::string output = folder.Path("speaker.wav");
    MachineSpec endpointSpec;
    endpointSpec.toneHz = 1000.0;  // what the machine would play without --input
    const SummaryRun result = RunSummary(folder, MachineXml(endpointSpec), 1.5, {"--input", input, "--output", output});
    ASSERT_SUMMARY(result);
    EXPECT_NEAR((*result.json)["spectrum"]["input"]["hz"].Number(), 3000.0, 48000.0 / 4096.0) << result.run.out;
    ExpectTone(ReadWav(output), 3000.0);
}

}  // namespace
}  // namespace zqhosttest
