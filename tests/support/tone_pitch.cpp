#include "tone_pitch.h"

#include <algorithm>
#include <vector>

namespace zqtest {

double TonePitchHz(const float* frames, size_t stride, size_t begin, size_t end, double rate) {
    std::vector<double> periods;
    double last = -1.0;
    for (size_t i = begin + 1; i < end; ++i) {
        const float a = frames[(i - 1) * stride], b = frames[i * stride];
        if (a < 0.0f && b >= 0.0f) {
            const double at = static_cast<double>(i - 1) + a / (a - b);
            if (last >= 0.0) periods.push_back(at - last);
            last = at;
        }
    }
    if (periods.empty()) return 0.0;
    const auto middle = periods.begin() + static_cast<std::ptrdiff_t>(periods.size() / 2);
    std::nth_element(periods.begin(), middle, periods.end());
    return rate / *middle;
}

}  // namespace zqtest
