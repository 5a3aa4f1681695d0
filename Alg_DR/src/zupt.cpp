// Standstill gyro-bias estimator.
//
// While the pole stands still the gyros measure only their bias and the
// Earth rate, so the median rate of each axis over 3 s is a measurement of
// what the main filter will need as its gyro-bias start. One scalar Kalman
// filter per axis accumulates these measurements once per second, as long as
// no main filter runs (it estimates the bias itself).
#include <math.h>

#include <algorithm>

#include "dr_consts.h"
#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "drlib_toolkit.h"

namespace {

using drlib::kEntryIncrements;
using drlib::kIncrementsPerSecond;

constexpr int kEntries = 30;  // 3 s of history, the newest and the 29 before it
constexpr int kSamples = kEntries * kEntryIncrements;
constexpr int kStoreLen = drlib::kZuptStoreLen;
constexpr int kChannels = drlib::kZuptChannels;  // specific force x, y, z (m/s^2), rate x, y, z (rad/s)
constexpr int kRateChannel = 3;

constexpr double kMaxVelComponent_mps = 0.03;
constexpr double kMaxSpeedSquared_m2ps2 = 0.0016;          // 0.04 m/s
constexpr double kMaxForceDev_mps2 = 0.02;
constexpr double kMaxRateDev_radps = 0.0017453292519943296;  // 0.1 deg/s
constexpr double kMaxMedianRate_radps = 0.005235987755982989;  // 0.3 deg/s: beyond any bias

constexpr double kBiasRandomWalk_rad2ps2 = 1.5042835545022647e-09;  // (8 arcsec/s)^2 per second
constexpr double kBiasVarCap_rad2ps2 = 1.2184696791468344e-05;      // (0.2 deg/s)^2
constexpr double kVarFloor_rad2ps2 = 1.2184696791468344e-09;        // (0.002 deg/s)^2
// Consecutive seconds share most of their samples, so their measurements are
// far from independent: the variance is inflated for a few seconds after each.
constexpr int32_t kHoldAfterUpdate = 3;

static_assert(kSamples <= kStoreLen, "sample store too short");

// Exchange sort: each position in turn takes the smallest of what follows.
// Its order is the defined one, also for a run that holds a NaN (which
// compares false both ways and so stays where the swaps leave it).
void exchange_sort(double *x, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        for (int32_t j = i + 1; j < n; ++j) {
            if (x[j] < x[i]) {
                const double held = x[i];
                x[i] = x[j];
                x[j] = held;
            }
        }
    }
}

// Ascending order in place, the exchange sort's array. Without NaN, and
// unless +0 and -0 both occur, values that compare equal are the same bits, so
// the ascending array is unique and introsort reaches it in n log n
// comparisons instead of n^2 / 2 (45,000 per channel, which made the
// once-a-second standstill check the costliest epoch). A NaN (which breaks the
// strict weak order introsort relies on) or zeros of both signs (which the two
// sorts leave in different places) send the run to the exchange sort.
void sort_ascending(double *x, int32_t n) {
    bool positive_zero = false;
    bool negative_zero = false;
    for (int32_t i = 0; i < n; ++i) {
        if (x[i] != x[i]) {
            exchange_sort(x, n);
            return;
        }
        if (x[i] == 0.0) (signbit(x[i]) ? negative_zero : positive_zero) = true;
    }
    if (positive_zero && negative_zero) {
        exchange_sort(x, n);
        return;
    }
    std::sort(x, x + n);
}

}  // namespace

// Samples of the last 3 s per channel; refilled from the start at each use.
static constexpr auto &checkDat = drlib::g_state.zupt_window;

namespace {

void age_estimate() {
    for (int axis = 0; axis < 3; ++axis) {
        FltZupt.bias_var[axis] += kBiasRandomWalk_rad2ps2;
        if (FltZupt.bias_var[axis] > kBiasVarCap_rad2ps2) FltZupt.bias_var[axis] = kBiasVarCap_rad2ps2;
    }
    if (FltZupt.hold_cnt > 0) --FltZupt.hold_cnt;
}

bool antenna_still(const double *vel) {
    for (int c = 0; c < 3; ++c) {
        if (fabs(vel[c]) > kMaxVelComponent_mps) return false;
    }
    // Written as the rejection so that a NaN speed, which no test rejects, passes.
    return !(vel[0] * vel[0] + vel[1] * vel[1] + vel[2] * vel[2] > kMaxSpeedSquared_m2ps2);
}

// Copies the rates of the last 30 entries into checkDat; false as soon as
// one of them shows the antenna moving.
bool gather_still_samples() {
    for (int back = 0; back < kEntries; ++back) {
        const FusionIn &entry = GET_FUSION_IN(g_FusionInPos - 1u, -back);
        if (!antenna_still(entry.header.vel)) return false;
        for (int slot = 1; slot <= kEntryIncrements; ++slot) {
            const int n = back * kEntryIncrements + (slot - 1);
            for (int c = 0; c < 3; ++c) {
                checkDat[c][n] = kIncrementsPerSecond * entry.dvel[slot][c];
                checkDat[kRateChannel + c][n] = kIncrementsPerSecond * entry.dtheta[slot][c];
            }
        }
    }
    return true;
}

bool sensors_quiet(const double *med, const double *dev) {
    for (int c = 0; c < 3; ++c) {
        if (dev[c] > kMaxForceDev_mps2) return false;
    }
    for (int c = kRateChannel; c < kChannels; ++c) {
        if (dev[c] > kMaxRateDev_radps) return false;
    }
    for (int c = kRateChannel; c < kChannels; ++c) {
        if (fabs(med[c]) > kMaxMedianRate_radps) return false;
    }
    return true;
}

// The median rate measures the bias with the scatter of the samples as its
// noise, inflated while the previous measurements still share samples.
void update_bias(const double *median_rate, const double *rate_dev) {
    const int32_t inflation = (FltZupt.hold_cnt + 1) * (FltZupt.hold_cnt + 1);
    for (int axis = 0; axis < 3; ++axis) {
        const double innovation = median_rate[axis] - FltZupt.bias[axis];
        double meas_var = rate_dev[axis] * rate_dev[axis];
        if (meas_var < kVarFloor_rad2ps2) meas_var = kVarFloor_rad2ps2;
        meas_var = meas_var * static_cast<double>(inflation);
        const double gain = FltZupt.bias_var[axis] / (FltZupt.bias_var[axis] + meas_var);
        FltZupt.bias[axis] += gain * innovation;
        FltZupt.bias_var[axis] = gain * meas_var;
        if (FltZupt.bias_var[axis] < kVarFloor_rad2ps2) FltZupt.bias_var[axis] = kVarFloor_rad2ps2;
    }
    FltZupt.hold_cnt = kHoldAfterUpdate;
}

}  // namespace

extern "C" {

DRLIB_API void ZuptFltProc(void) {
    age_estimate();
    if (s_FltState == FLT_STATE_MAIN) return;
    if (!gather_still_samples()) return;

    double med[kChannels];
    double dev[kChannels];
    for (int h = 0; h < kChannels; ++h) {
        med[h] = median_dat(checkDat[h], kSamples);
        dev[h] = std_dat(checkDat[h], kSamples, med[h]);
    }
    if (!sensors_quiet(med, dev)) return;
    update_bias(&med[kRateChannel], &dev[kRateChannel]);
}

// For an even count the middle value that fits the whole sample better (the
// smaller RMS deviation) stands for the median, not the mean of the two.
DRLIB_API double median_dat(double *x, int32_t n) {
    if (n <= 0) return 0.0;
    sort_ascending(x, n);
    const int32_t mid = n / 2;
    if (n % 2 != 0) return x[mid];
    const double dev_lower = std_dat(x, n, x[mid - 1]);
    const double dev_upper = std_dat(x, n, x[mid]);
    return dev_lower < dev_upper ? x[mid - 1] : x[mid];
}

DRLIB_API double std_dat(const double *x, int32_t n, double centre) {
    double sum_sq = 0.0;
    for (int32_t i = 0; i < n; ++i) {
        const double d = x[i] - centre;
        sum_sq += d * d;
    }
    return sqrt(sum_sq / static_cast<double>(n));
}

}  // extern "C"
