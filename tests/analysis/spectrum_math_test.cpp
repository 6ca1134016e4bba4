// Windows, transform and power through the analyzer: the windows' documented values, the
// transform against a double-precision DFT, and the refusals. Bit for bit against the plain
// arithmetic, on every instruction set, in spectrum_kernel_test.cpp and analyzer_targets_test.cpp.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

#include "analysis/AudioAnalyzer.h"
#include "kernel_targets.h"

namespace {

constexpr int N = 4096;
using Samples = std::vector<float>;

using zqtest::RandomSamples;
using zqtest::SameBits;

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

    for (int none : {0, 10, 11, -1, -7}) EXPECT_TRUE(SameBits(window(none), Samples(N, 1.0f))) << "function " << none;
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
