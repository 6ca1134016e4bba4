// PPM2Percent: the meter position of a digital peak programme meter for a level in dBFS.
#include <cmath>

#include "zqplatform/zqSystem.h"

// The deflection law of the IEC 60268-18 digital peak level meter scale, as digital PPMs
// commonly draw it: piecewise linear in dB, with the resolution where listeners look (2.5 %
// per dB from -20 dBFS up to full scale, coarser further down) and nothing below -70 dBFS.
//
//   dBFS:   <= -70   -60   -50   -40   -30   -20     0 (and above)
//   %:          0   2.5   7.5    15    30    50   100
//
// Non-decreasing over the whole float range; -100 dBFS (the floor the meters use for silence)
// is 0 %, full scale is 100 %. A NaN level reads as silence.
float PPM2Percent(float fDbfs) {
    if (std::isnan(fDbfs) || fDbfs < -70.0f) return 0.0f;
    if (fDbfs < -60.0f) return (fDbfs + 70.0f) * 0.25f;
    if (fDbfs < -50.0f) return (fDbfs + 60.0f) * 0.5f + 2.5f;
    if (fDbfs < -40.0f) return (fDbfs + 50.0f) * 0.75f + 7.5f;
    if (fDbfs < -30.0f) return (fDbfs + 40.0f) * 1.5f + 15.0f;
    if (fDbfs < -20.0f) return (fDbfs + 30.0f) * 2.0f + 30.0f;
    if (fDbfs < 0.0f) return (fDbfs + 20.0f) * 2.5f + 50.0f;
    return 100.0f;
}
