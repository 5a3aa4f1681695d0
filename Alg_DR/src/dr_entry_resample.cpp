// Resampling of the staged IMU samples onto the 0.01 s grid of a history
// entry: slot k (1..10) stands at tow_ms - 150 ms + (k - 1) * 10 ms.
//
// The IMU clock runs free against the 10 ms grid, so each grid value is the
// linear interpolation of the two samples around the grid instant. Only the
// position within the GNSS second is compared, so every time difference is
// folded into (-0.5 s, 0.5 s].
#include <string.h>

#include "dr_entry.h"
#include "dr_global_var.h"

namespace drlib {
namespace {

constexpr uint32_t kUsPerSecond = 1000000u;
constexpr int32_t kHalfSecond_us = 500000;
constexpr int32_t kSecond_us = 1000000;
constexpr double kDegToRad = 0.017453292519943295;

int32_t FoldIntoSecond(int32_t d_us) {
    if (d_us > kHalfSecond_us) return d_us - kSecond_us;
    if (d_us < -kHalfSecond_us) return d_us + kSecond_us;
    return d_us;
}

int32_t MicrosecondInSecond(const ImuSample &s) { return static_cast<int32_t>(s.time_us % kUsPerSecond); }

// Grid instant of slot k within the second, us. The added 2 s keeps the
// unsigned difference above zero for the early slots of the first epochs of a
// second, which fall in the previous second.
uint32_t SlotTarget_us(uint32_t tow_ms, uint32_t k) {
    const uint32_t ms_in_second = (tow_ms + 2000u) % 1000u;
    return (ms_in_second * 1000u + 2000000u - (10u - k) * 10000u - 60000u) % kUsPerSecond;
}

void InterpolateSlot(FusionIn *entry, uint32_t k, const ImuSample &s0, const ImuSample &s1, int32_t a_us,
                     int32_t b_us) {
    const double span_us = static_cast<double>(a_us + b_us);
    const double w0 = static_cast<double>(b_us) / span_us;
    const double w1 = static_cast<double>(a_us) / span_us;
    const double gyro_scale = drcfg.gyro_scale;
    const double acc_scale = drcfg.acc_scale;
    for (int c = 0; c < 3; ++c) {
        entry->dtheta[k][c] = ((static_cast<double>(s0.gyro[c]) * w0) * gyro_scale) * kDegToRad +
                              ((static_cast<double>(s1.gyro[c]) * w1) * gyro_scale) * kDegToRad;
        entry->dvel[k][c] = (static_cast<double>(s0.acc[c]) * w0) * acc_scale +
                            (static_cast<double>(s1.acc[c]) * w1) * acc_scale;
    }
}

// Finds the staged pair around the target and fills slot k. Samples wholly
// before the target are consumed; the sample just before it is kept, since the
// next slot (or the next epoch) may need it again.
bool FillSlot(FusionIn *entry, uint32_t k, int32_t target_us) {
    for (;;) {
        const uint32_t staged = ImuDataWPos - ImuDataRPos;
        if (staged <= 1u || staged > IMU_DATA_BUF_LEN) return false;
        const ImuSample &s0 = ImuDataBuf[ImuDataRPos & IMU_DATA_INDEX_MASK];
        const ImuSample &s1 = ImuDataBuf[(ImuDataRPos + 1u) & IMU_DATA_INDEX_MASK];
        const int32_t a_us = FoldIntoSecond(target_us - MicrosecondInSecond(s0));
        const int32_t b_us = FoldIntoSecond(MicrosecondInSecond(s1) - target_us);
        if (a_us < 0) return false;  // the target precedes every staged sample
        if (b_us < 0) {
            ++ImuDataRPos;
            continue;
        }
        InterpolateSlot(entry, k, s0, s1, a_us, b_us);
        return true;
    }
}

}  // namespace
}  // namespace drlib

extern "C" DRLIB_API void FillDaDv2FusionIn(FusionIn *entry) {
    uint32_t filled = 0;
    for (uint32_t k = 1; k <= 10u; ++k) {
        const int32_t target_us = static_cast<int32_t>(drlib::SlotTarget_us(entry->header.tow_ms, k));
        if (drlib::FillSlot(entry, k, target_us)) ++filled;
    }
    entry->header.nsamples = static_cast<uint8_t>(filled);
}
