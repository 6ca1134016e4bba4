// Windows, transform and power: bit for bit against the plain arithmetic (spectrum_reference.h)
// on every code path the processor offers, the transform against a double-precision DFT, and
// the documented values and refusals.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "analysis/AudioAnalyzer.h"
#include "analysis/SpectrumMath.h"
#include "spectrum_reference.h"

namespace {

constexpr int N = 4096;
using Samples = std::vector<float>;

Samples RandomSamples(unsigned seed, float scale = 1.0f) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> uniform(-scale, scale);
    Samples samples(N);
    for (float& s : samples) s = uniform(generator);
    return samples;
}

// Inputs that stress rounding and signed zeros: a wide dynamic range, tiny and negative-zero
// samples, an impulse and a constant.
std::vector<Samples> AwkwardInputs() {
    std::vector<Samples> inputs;
    Samples wide = RandomSamples(11);
    for (int i = 0; i < N; ++i) wide[i] *= std::ldexp(1.0f, (i * 37) % 60 - 30);
    inputs.push_back(wide);
    Samples zeros(N, 0.0f);
    for (int i = 0; i < N; i += 3) zeros[i] = -0.0f;
    inputs.push_back(zeros);
    Samples tiny = RandomSamples(12, 1.0e-36f);  // products reach the subnormal range
    inputs.push_back(tiny);
    Samples impulse(N, 0.0f);
    impulse[1] = 1.0f;
    inputs.push_back(impulse);
    inputs.push_back(Samples(N, 0.3f));
    return inputs;
}

bool SameBits(const Samples& a, const Samples& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

int FirstDifference(const Samples& a, const Samples& b) {
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::memcmp(&a[i], &b[i], sizeof(float)) != 0) return static_cast<int>(i);
    }
    return -1;
}

std::vector<spectrum::TransformPath> AvailablePaths() {
    std::vector<spectrum::TransformPath> paths;
    for (auto path : {spectrum::TransformPath::Portable, spectrum::TransformPath::Avx, spectrum::TransformPath::Avx512}) {
        if (spectrum::IsPathAvailable(path)) paths.push_back(path);
    }
    return paths;
}

TEST(SpectrumWindows, EveryFunctionMatchesItsFormulaBitForBit) {
    CAudioAnalyzer analyzer;
    for (int function = -1; function <= 11; ++function) {
        for (unsigned seed : {1u, 2u, 3u}) {
            Samples expected = RandomSamples(seed);
            Samples actual = expected;
            reference::ApplyWindow(function, expected.data());
            analyzer.ApplyWindow(function, actual.data());
            EXPECT_TRUE(SameBits(expected, actual))
                << "window " << function << ", seed " << seed << ", first difference at "
                << FirstDifference(expected, actual);
        }
    }
}

TEST(SpectrumWindows, ListedValues) {
    CAudioAnalyzer analyzer;
    auto window = [&analyzer](int function) {
        Samples ones(N, 1.0f);
        analyzer.ApplyWindow(function, ones.data());
        return ones;
    };
    const Samples triangular = window(1);
    EXPECT_EQ(triangular[0], 0.0f);
    EXPECT_EQ(triangular[2048], 1.0f);
    EXPECT_EQ(triangular[4095], 1.0f / 2048.0f);
    EXPECT_EQ(triangular[1024], 0.5f);

    EXPECT_NEAR(window(2)[0], 0.08f, 1e-6f);  // Hamming's ends
    const Samples welch = window(6);
    EXPECT_EQ(welch[0], 0.0f);
    EXPECT_EQ(welch[2048], 1.0f);
    EXPECT_EQ(welch[1024], 0.75f);

    const Samples gauss25 = window(7);
    EXPECT_EQ(gauss25[2048], 1.0f);
    EXPECT_EQ(gauss25[0], static_cast<float>(std::exp(-3.125)));
    EXPECT_EQ(window(8)[0], static_cast<float>(std::exp(-6.125)));
    EXPECT_EQ(window(9)[0], static_cast<float>(std::exp(-10.125)));

    for (int none : {0, 10, -7}) EXPECT_TRUE(SameBits(window(none), Samples(N, 1.0f))) << "function " << none;
}

TEST(SpectrumTransform, EveryPathMatchesThePlainArithmeticBitForBit) {
    std::vector<Samples> inputs = AwkwardInputs();
    for (unsigned seed = 20; seed < 26; ++seed) inputs.push_back(RandomSamples(seed));
    for (spectrum::TransformPath path : AvailablePaths()) {
        for (size_t n = 0; n < inputs.size(); ++n) {
            Samples expectedRe(N), expectedIm(N), re(N, 7.0f), im(N, 7.0f);
            reference::ComputeFFT(inputs[n].data(), expectedRe.data(), expectedIm.data());
            spectrum::TransformWith(path, inputs[n].data(), re.data(), im.data());
            EXPECT_TRUE(SameBits(expectedRe, re)) << spectrum::PathName(path) << ", input " << n
                                                 << ", real part differs first at " << FirstDifference(expectedRe, re);
            EXPECT_TRUE(SameBits(expectedIm, im)) << spectrum::PathName(path) << ", input " << n
                                                 << ", imaginary part differs first at "
                                                 << FirstDifference(expectedIm, im);
        }
    }
    if (AvailablePaths().size() < 3) {
        std::printf("note: this processor lacks a wide path; only %zu of 3 paths were compared\n",
                    AvailablePaths().size());
    }
}

TEST(SpectrumTransform, EveryPathSpreadsInfinitiesAndNaNsAsThePlainArithmetic) {
    Samples infinite = RandomSamples(27);
    infinite[5] = std::numeric_limits<float>::infinity();
    Samples notANumber = RandomSamples(28);
    notANumber[2048] = std::numeric_limits<float>::quiet_NaN();
    Samples huge(N, 3.0e38f);  // sums overflow
    for (const Samples& input : {infinite, notANumber, huge}) {
        Samples expectedRe(N), expectedIm(N);
        reference::ComputeFFT(input.data(), expectedRe.data(), expectedIm.data());
        for (spectrum::TransformPath path : AvailablePaths()) {
            Samples re(N), im(N);
            spectrum::TransformWith(path, input.data(), re.data(), im.data());
            // The same bits, except that a NaN may carry another payload.
            for (int k = 0; k < N; ++k) {
                ASSERT_TRUE(std::isnan(expectedRe[k]) ? std::isnan(re[k]) : std::memcmp(&re[k], &expectedRe[k], 4) == 0)
                    << spectrum::PathName(path) << " re " << k << ": " << re[k] << " vs " << expectedRe[k];
                ASSERT_TRUE(std::isnan(expectedIm[k]) ? std::isnan(im[k]) : std::memcmp(&im[k], &expectedIm[k], 4) == 0)
                    << spectrum::PathName(path) << " im " << k << ": " << im[k] << " vs " << expectedIm[k];
            }
        }
    }
}

TEST(SpectrumTransform, AnalyzerUsesTheWidestPathWithItsTablesReused) {
    EXPECT_EQ(spectrum::SelectedPath(), AvailablePaths().back());
    CAudioAnalyzer analyzer;
    const Samples input = RandomSamples(31), other = RandomSamples(32);
    Samples expectedRe(N), expectedIm(N), re(N), im(N);
    reference::ComputeFFT(input.data(), expectedRe.data(), expectedIm.data());
    analyzer.ComputeFFT(other.data(), re.data(), im.data());
    analyzer.ComputeFFT(input.data(), re.data(), im.data());
    EXPECT_TRUE(SameBits(expectedRe, re));
    EXPECT_TRUE(SameBits(expectedIm, im));
}

TEST(SpectrumTransform, AgreesWithADoublePrecisionDft) {
    const Samples input = RandomSamples(41);
    std::vector<double> cosine(N), sine(N);
    for (int m = 0; m < N; ++m) {
        cosine[m] = std::cos(2.0 * std::numbers::pi * m / N);
        sine[m] = std::sin(2.0 * std::numbers::pi * m / N);
    }
    CAudioAnalyzer analyzer;
    Samples re(N), im(N);
    analyzer.ComputeFFT(input.data(), re.data(), im.data());
    double sumAbs = 0.0;
    for (float x : input) sumAbs += std::fabs(x);
    double worst = 0.0;
    int worstBin = -1;
    for (int k = 0; k < N; ++k) {
        // Kernel e^(+2 pi i k n / N): the conjugate of the usual forward transform.
        double dftRe = 0.0, dftIm = 0.0;
        for (int n = 0; n < N; ++n) {
            const int m = static_cast<int>((static_cast<long>(k) * n) % N);
            dftRe += input[n] * cosine[m];
            dftIm += input[n] * sine[m];
        }
        const double error = std::hypot(re[k] - dftRe, im[k] - dftIm);
        if (error > worst) {
            worst = error;
            worstBin = k;
        }
    }
    EXPECT_LT(worst, 1.0e-5 * sumAbs) << "worst bin " << worstBin;
}

TEST(SpectrumTransform, ConstantInputGoesToBinZeroOnly) {
    CAudioAnalyzer analyzer;
    const float c = 0.25f;
    Samples input(N, c), re(N), im(N), power(N, 0.0f);
    analyzer.ApplyWindow(0, input.data());
    analyzer.ComputeFFT(input.data(), re.data(), im.data());
    analyzer.ComputePower(re.data(), im.data(), power.data());
    const double expected = (4096.0 * c) * (4096.0 * c);
    EXPECT_NEAR(power[0], expected, expected * 1e-6);
    for (int k = 1; k < 2048; ++k) ASSERT_LT(power[k], expected * 1e-9) << "bin " << k;
}

TEST(SpectrumPower, SquaresOfTheLowerHalfOnly) {
    CAudioAnalyzer analyzer;
    const Samples re = RandomSamples(51, 100.0f), im = RandomSamples(52, 100.0f);
    Samples expected(N, -1.0f), power(N, -1.0f);
    reference::ComputePower(re.data(), im.data(), expected.data());
    analyzer.ComputePower(re.data(), im.data(), power.data());
    EXPECT_TRUE(SameBits(expected, power)) << "first difference at " << FirstDifference(expected, power);
    EXPECT_EQ(power[2048], -1.0f);
    EXPECT_EQ(power[4095], -1.0f);
}

TEST(SpectrumSteps, NullArraysAreRefusedWithInvalidArgument) {
    CAudioAnalyzer analyzer;
    Samples a(N), b(N), c(N);
    auto message = [](auto&& call) -> std::string {
        try {
            call();
        } catch (const std::invalid_argument& e) {
            return e.what();
        } catch (...) {
            return "another exception";
        }
        return "nothing thrown";
    };
    EXPECT_EQ(message([&] { analyzer.ComputeFFT(nullptr, b.data(), c.data()); }), "Invalid argument");
    EXPECT_EQ(message([&] { analyzer.ComputeFFT(a.data(), nullptr, c.data()); }), "Invalid argument");
    EXPECT_EQ(message([&] { analyzer.ComputeFFT(a.data(), b.data(), nullptr); }), "Invalid argument");
    EXPECT_EQ(message([&] { analyzer.ComputePower(nullptr, b.data(), c.data()); }), "Invalid argument");
    EXPECT_EQ(message([&] { analyzer.ComputePower(a.data(), nullptr, c.data()); }), "Invalid argument");
    EXPECT_EQ(message([&] { analyzer.ComputePower(a.data(), b.data(), nullptr); }), "Invalid argument");
}

}  // namespace
