// The spectrum kernels on every instruction set this processor runs, bit for bit against the
// plain arithmetic (spectrum_reference.h): transform, window product, power, hold view, decay;
// for silence, full scale, NaNs, infinities, overflow and the rounding-sensitive cases.
// Uses only the kernels and their tables, so that it also runs where the rest of the library is
// not built (the cross-compiled run of scripts/test).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "analysis/SpectrumMath.h"
#include "kernel_targets.h"
#include "spectrum_reference.h"

namespace {

using zqtest::KernelTargets;
using zqtest::RandomSamples;
using zqtest::SameBits;
using zqtest::TargetName;

constexpr int N = spectrum::kLength;
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
using Samples = std::vector<float>;

struct Input {
    std::string name;
    Samples samples;
};

// What the analyzer may meet, and what stresses rounding and signed zeros.
std::vector<Input> Inputs() {
    std::vector<Input> inputs;
    inputs.push_back({"silence", Samples(N, 0.0f)});
    Samples signedZeros(N, 0.0f);
    for (int i = 0; i < N; i += 3) signedZeros[i] = -0.0f;
    inputs.push_back({"signed zeros", signedZeros});
    inputs.push_back({"full scale constant", Samples(N, 1.0f)});
    Samples alternating(N);
    for (int i = 0; i < N; ++i) alternating[i] = (i % 2 == 0) ? 1.0f : -1.0f;
    inputs.push_back({"full scale at the Nyquist frequency", alternating});
    Samples sine(N);
    for (int i = 0; i < N; ++i) sine[i] = static_cast<float>(std::sin(0.0491 * i));
    inputs.push_back({"full scale sine", sine});
    Samples impulse(N, 0.0f);
    impulse[1] = 1.0f;
    inputs.push_back({"impulse", impulse});
    Samples wide = RandomSamples(11);
    for (int i = 0; i < N; ++i) wide[i] *= std::ldexp(1.0f, (i * 37) % 60 - 30);
    inputs.push_back({"wide dynamic range", wide});
    inputs.push_back({"tiny (subnormal products)", RandomSamples(12, 1.0e-36f)});
    inputs.push_back({"overflowing sums", Samples(N, 3.0e38f)});
    // Bin 2048 is 4096 * 1e35: beyond the largest float only in the last stage's double
    // difference, which must round to infinity.
    Samples loudNyquist(N);
    for (int i = 0; i < N; ++i) loudNyquist[i] = (i % 2 == 0) ? 1.0e35f : -1.0e35f;
    inputs.push_back({"overflow at the Nyquist frequency", loudNyquist});
    Samples infinities = RandomSamples(13);
    infinities[5] = kInf;
    infinities[3000] = -kInf;
    inputs.push_back({"infinities", infinities});
    Samples nans = RandomSamples(14);
    nans[2048] = kNaN;
    inputs.push_back({"a NaN", nans});
    Samples everything = RandomSamples(15);
    everything[0] = kNaN;
    everything[1] = kInf;
    everything[4095] = -kInf;
    inputs.push_back({"NaN and infinities", everything});
    for (unsigned seed = 20; seed < 23; ++seed) inputs.push_back({"random " + std::to_string(seed), RandomSamples(seed)});
    return inputs;
}

TEST(SpectrumKernelTargets, EachTargetRunsWhenPinned) {
    ASSERT_FALSE(KernelTargets().empty());
    std::string names;
    for (int64_t target : KernelTargets()) {
        spectrum::ScopedKernelTarget pin(target);
        EXPECT_EQ(spectrum::ActiveKernelTarget(), target) << TargetName(target);
        names += " " + TargetName(target);
    }
    EXPECT_EQ(spectrum::ActiveKernelTarget(), KernelTargets().front()) << "the best target once unpinned";
    std::printf("kernel targets of this processor:%s\n", names.c_str());
}

TEST(SpectrumKernelTargets, TransformMatchesThePlainArithmetic) {
    const std::vector<Input> inputs = Inputs();
    std::vector<std::pair<Samples, Samples>> expected;
    for (const Input& input : inputs) {
        Samples re(N), im(N);
        reference::ComputeFFT(input.samples.data(), re.data(), im.data());
        expected.emplace_back(re, im);
    }
    for (int64_t target : KernelTargets()) {
        spectrum::ScopedKernelTarget pin(target);
        for (size_t n = 0; n < inputs.size(); ++n) {
            Samples re(N, 7.0f), im(N, 7.0f);
            spectrum::Transform(inputs[n].samples.data(), re.data(), im.data());
            EXPECT_TRUE(SameBits(expected[n].first, re)) << TargetName(target) << ", " << inputs[n].name << ", real parts";
            EXPECT_TRUE(SameBits(expected[n].second, im))
                << TargetName(target) << ", " << inputs[n].name << ", imaginary parts";
        }
    }
}

TEST(SpectrumKernelTargets, WindowProductMatchesThePlainArithmetic) {
    const std::vector<Input> inputs = Inputs();
    for (int64_t target : KernelTargets()) {
        spectrum::ScopedKernelTarget pin(target);
        for (int function = spectrum::kFirstWindow; function <= spectrum::kLastWindow; ++function) {
            for (const Input& input : inputs) {
                Samples expected = input.samples, actual = input.samples;
                reference::ApplyWindow(function, expected.data());
                spectrum::MultiplyByWindow(spectrum::WindowTable(function), actual.data());
                EXPECT_TRUE(SameBits(expected, actual))
                    << TargetName(target) << ", window " << function << ", " << input.name;
            }
        }
    }
}

TEST(SpectrumKernelTargets, PowerMatchesThePlainArithmeticAndLeavesTheUpperHalf) {
    const std::vector<Input> inputs = Inputs();
    for (int64_t target : KernelTargets()) {
        spectrum::ScopedKernelTarget pin(target);
        for (size_t n = 0; n < inputs.size(); ++n) {
            const Samples& re = inputs[n].samples;
            const Samples& im = inputs[(n + 5) % inputs.size()].samples;
            Samples expected(N, -1.0f), actual(N, -1.0f);
            reference::ComputePower(re.data(), im.data(), expected.data());
            spectrum::Power(re.data(), im.data(), actual.data());
            EXPECT_TRUE(SameBits(expected, actual)) << TargetName(target) << ", " << inputs[n].name;
        }
    }
}

// Displayed values: every decade bound, the floats just below each, zeros of both signs,
// negatives, subnormals, infinities and NaNs, and powers spread over many decades.
Samples DisplayValues(unsigned seed) {
    const std::vector<float> special = {0.0f,  -0.0f,   0.0001f, 0.01f,  0.1f,  1.0f,   10.0f,  100.0f,
                                        1000.0f, 1.0e-40f, -1.0f,  kInf,   -kInf, kNaN,  3.4e38f, 1.0e-5f};
    Samples values;
    for (float v : special) {
        values.push_back(v);
        values.push_back(std::nextafter(v, 0.0f));
    }
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> exponent(-6.0f, 6.0f);
    while (values.size() < static_cast<size_t>(N)) values.push_back(std::pow(10.0f, exponent(generator)));
    std::shuffle(values.begin(), values.end(), generator);
    return values;
}

TEST(SpectrumKernelTargets, HoldViewMatchesThePlainComparisons) {
    for (int64_t target : KernelTargets()) {
        spectrum::ScopedKernelTarget pin(target);
        for (unsigned seed = 1; seed <= 3; ++seed) {
            const Samples power = DisplayValues(seed);
            Samples expectedShown = DisplayValues(seed + 10), expectedPeak = DisplayValues(seed + 20);
            Samples shown = expectedShown, peak = expectedPeak;
            reference::Hold(power.data(), expectedShown.data(), expectedPeak.data());
            spectrum::Hold(power.data(), shown.data(), peak.data());
            EXPECT_TRUE(SameBits(expectedShown, shown)) << TargetName(target) << ", displayed, seed " << seed;
            EXPECT_TRUE(SameBits(expectedPeak, peak)) << TargetName(target) << ", peaks, seed " << seed;
        }
    }
}

TEST(SpectrumKernelTargets, DecayMatchesTheTableOfDecades) {
    for (int64_t target : KernelTargets()) {
        spectrum::ScopedKernelTarget pin(target);
        Samples expected = DisplayValues(7);
        Samples actual = expected;
        for (int round = 0; round < 30; ++round) {  // through several decades down to 0.0
            reference::Decay(expected.data());
            spectrum::Decay(actual.data());
            ASSERT_TRUE(SameBits(expected, actual)) << TargetName(target) << ", round " << round;
        }
    }
}

}  // namespace
