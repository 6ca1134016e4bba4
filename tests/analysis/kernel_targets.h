// The spectrum kernels' instruction sets, test samples, and comparing float arrays bit for bit.
#pragma once

#include <gtest/gtest.h>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "analysis/SpectrumMath.h"

namespace zqtest {

// Every instruction set the kernels were built for that this processor runs, best first.
// Taken once, before any restriction.
inline const std::vector<int64_t>& KernelTargets() {
    static const std::vector<int64_t> targets = spectrum::KernelTargets();
    return targets;
}

inline std::string TargetName(int64_t target) { return spectrum::KernelTargetName(target); }

// 4096 samples, uniform in [-scale, scale].
inline std::vector<float> RandomSamples(unsigned seed, float scale = 1.0f) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> uniform(-scale, scale);
    std::vector<float> samples(spectrum::kLength);
    for (float& s : samples) s = uniform(generator);
    return samples;
}

// The same bits, except that two NaNs count as equal whatever their payloads (which operand's
// payload an operation passes on is the processor's choice). -1 when equal, else the index of
// the first difference.
inline int FirstBitDifference(const float* expected, const float* actual, int count) {
    for (int i = 0; i < count; ++i) {
        if (std::isnan(expected[i]) && std::isnan(actual[i])) continue;
        if (std::memcmp(&expected[i], &actual[i], sizeof(float)) != 0) return i;
    }
    return -1;
}

inline ::testing::AssertionResult SameBits(const std::vector<float>& expected, const std::vector<float>& actual) {
    if (expected.size() != actual.size()) return ::testing::AssertionFailure() << "sizes differ";
    const int at = FirstBitDifference(expected.data(), actual.data(), static_cast<int>(expected.size()));
    if (at < 0) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "first difference at " << at << ": expected " << expected[at] << ", got "
                                         << actual[at];
}

}  // namespace zqtest
