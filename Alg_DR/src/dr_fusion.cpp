// The fusion driver: the engine's static records and its three-state cycle
// (idle, the converging heading bank, the main filter).
#include <math.h>
#include <string.h>

#include "dr_assert.h"
#include "dr_consts.h"
#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "dr_options.h"
#include "dr_trace.h"
#include "kf_dims.h"
#include "matrix_packed.h"

uint8_t s_FltState = FLT_STATE_IDLE;
uint32_t s_updcnt;
uint8_t toggleCnts[kBankSize];
NavState NavGp[kBankSize];
KfFilter FltGp[kBankSize];
NavState NavMain;
KfFilter FltMain;
ZuptState FltZupt;
CubFilter FltCub;
CubCfg s_cub = {{1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0}};

namespace {

using drlib::kTraceLevelDebug;
using drlib::kTraceMaskFusion;

using drlib::kEntryElements;
using drlib::kEntryIncrements;
using drlib::kIncrementsPerSecond;

constexpr double kStep_s = 0.01;          // one resampled IMU interval
constexpr uint32_t kBankMinEntries = 10;  // more than 1 s of continuous data
constexpr uint32_t kZuptMinEntries = 40;  // the standstill window (3 s) plus margin
constexpr uint32_t kBankMaxCycles = 350;  // 35 s at 10 Hz without a decision

// (0.2 deg/s)^2: what a gyro of this class may drift by between power-ups,
// so the standstill estimator starts knowing nothing better.
constexpr double kZuptInitialBiasVar_rad2ps2 = 1.2184696791468344e-05;

// Uncertainty added when the winning bank member becomes the main filter:
// the bank's six-state model ignored the sensor biases, so its velocity and
// attitude are less certain than its factor claims.
constexpr double kPromoteVelStd_mps = 0.05;
constexpr double kPromoteAttStd_rad = 0.05235987755982989;     // 3 deg
constexpr double kPromoteAccBiasStd_mps2 = 0.15;
// A standstill bias estimate better than (1/15 deg/s)^2 seeds the main filter.
constexpr double kZuptUsableBiasVar_rad2ps2 = 1.3538551990520382e-06;
constexpr double kZuptBiasStdMargin_radps = 0.00010471975511965978;  // 0.006 deg/s
constexpr double kCfgBiasStd_radps = 0.0011635528346628863;          // 1/15 deg/s
constexpr double kNoBiasStd_radps = 0.003490658503988659;            // 0.2 deg/s

using drlib::kKfAccBias;
using drlib::kKfBankStates;
using drlib::kKfGyroBias;
using drlib::kKfMaxStates;
using drlib::packed_size;

double &FactorAt(KfFilter &flt, int row, int col) { return flt.L[drlib::packed_index(row, col)]; }

// Inflates the promoted six-state factor by the hand-over noise: one LQ
// triangularisation of [L6 | diag(q)] gives L6 L6^T + diag(q^2).
void InflatePromotedFactor(KfFilter &flt) {
    constexpr int kCols = 2 * kKfBankStates;
    double a[kKfBankStates * kCols] = {};
    for (int i = 0; i < kKfBankStates; ++i) {
        for (int j = 0; j <= i; ++j) {
            a[i * kCols + j] = FactorAt(flt, i, j);
        }
        a[i * kCols + kKfBankStates + i] = (i < 3) ? kPromoteVelStd_mps : kPromoteAttStd_rad;
    }
    double work[kCols];
    lq_decompose(flt.L, a, kKfBankStates, kCols, work);
    // Rows 6..11 start empty but for the diagonals set below.
    for (int k = packed_size(kKfBankStates); k < packed_size(kKfMaxStates); ++k) {
        flt.L[k] = 0.0;
    }
}

// Gyro-bias states of the promoted filter: the standstill estimate if it is
// good, else the bias stored with the configuration, else none. The factor
// keeps the sign that the triangularisation gave its first diagonal.
void SeedGyroBias(KfFilter &flt, double sgn) {
    bool zupt_usable = true;
    for (int c = 0; c < 3; ++c) {
        zupt_usable = zupt_usable && FltZupt.bias_var[c] < kZuptUsableBiasVar_rad2ps2;
    }
    for (int c = 0; c < 3; ++c) {
        double std_radps;
        if (zupt_usable) {
            flt.gyro_bias[c] = FltZupt.bias[c];
            std_radps = sqrt(FltZupt.bias_var[c]) + kZuptBiasStdMargin_radps;
        } else if (g_BgFromCfg != nullptr) {
            flt.gyro_bias[c] = g_BgFromCfg[c] - static_cast<double>(c + 1);
            std_radps = kCfgBiasStd_radps;
        } else {
            flt.gyro_bias[c] = 0.0;
            std_radps = kNoBiasStd_radps;
        }
        FactorAt(flt, kKfGyroBias + c, kKfGyroBias + c) = std_radps * sgn;
    }
}

void PromoteBankMember(int k) {
    NavMain = NavGp[k];
    FltMain = FltGp[k];
    InflatePromotedFactor(FltMain);
    for (int c = 0; c < 3; ++c) {
        FltMain.acc_bias[c] = 0.0;
    }
    const double sgn = (FltMain.L[0] > 0.0) ? 1.0 : -1.0;
    for (int c = 0; c < 3; ++c) {
        FactorAt(FltMain, kKfAccBias + c, kKfAccBias + c) = kPromoteAccBiasStd_mps2 * sgn;
    }
    SeedGyroBias(FltMain, sgn);
    FltMain.state_dim = static_cast<uint8_t>(kKfMaxStates);
    s_FltState = FLT_STATE_MAIN;
}

// The last interval of the epoch as a body rate, for the lever-arm term.
void EpochRate(double rate_radps[3], const FusionIn &e, const double bias_radps[3]) {
    for (int c = 0; c < 3; ++c) {
        rate_radps[c] = e.dtheta[kEntryIncrements][c] * kIncrementsPerSecond - bias_radps[c];
    }
}

constexpr double kNoBias_radps[3] = {0.0, 0.0, 0.0};

void RunBankCycle(const FusionIn &e) {
    double rate_radps[3];
    EpochRate(rate_radps, e, kNoBias_radps);
    empty_function(kTraceLevelDebug, kTraceMaskFusion, "DR Fusion %d, %d, CONV\r\n",
                   static_cast<int>(e.pos_index), static_cast<int>(e.header.tow_ms));
    // The bank and main states hold a run of more than 11 entries (the bank
    // starts with more than 10; a break returns the engine to idle), so the
    // entry before the newest, which the aligned velocity reads, is of this run.
    double aligned_vel_mps[3];
    const double *vel_mps = drlib::GnssVelocityForState(e.pos_index, aligned_vel_mps);
    // The bank runs on raw increments: its six states hold no biases.
    for (int i = 0; i < kBankSize; ++i) {
        for (int j = 0; j < kEntryIncrements; ++j) {
            dr_mech(&NavGp[i], e.dtheta[j], e.dvel[j], 1, kStep_s);
            KFInflatePMatrix(&FltGp[i], &NavGp[i], e.dtheta[j], e.dvel[j], kStep_s);
        }
        FltGp[i].pos_index = e.pos_index;
        empty_function(kTraceLevelDebug, kTraceMaskFusion, "%2d", i);
        KFUpdateGnssSol(&FltGp[i], &NavGp[i], e.header.pos, vel_mps, rate_radps,
                        e.header.vel_std);
    }
    ++s_updcnt;
    if (!IS_SECOND_ALIGNED(e.header.tow_ms)) {
        return;
    }
    const int32_t winner = CheckParelFltConv();
    if (winner >= 0) {
        PromoteBankMember(winner);
    } else if (winner == -2 || s_updcnt > kBankMaxCycles) {
        s_FltState = FLT_STATE_IDLE;  // two competing headings, or no decision in time
    }
}

void RunMainCycle(const FusionIn &e) {
    double acc_step_mps[3];
    double gyro_step_rad[3];
    for (int c = 0; c < 3; ++c) {
        acc_step_mps[c] = FltMain.acc_bias[c] * kStep_s;
        gyro_step_rad[c] = FltMain.gyro_bias[c] * kStep_s;
    }
    double rate_radps[3];
    EpochRate(rate_radps, e, FltMain.gyro_bias);
    double cdvel[kEntryElements][3];
    double cdtheta[kEntryElements][3];
    ImuSampCorr(&cdvel[0][0], &e.dvel[0][0], acc_step_mps, kEntryElements);
    ImuSampCorr(&cdtheta[0][0], &e.dtheta[0][0], gyro_step_rad, kEntryElements);
    // The covariance sees the raw velocity increments: their size only scales
    // the motion noise, where a bias of a few mg makes no difference.
    for (int j = 0; j < kEntryIncrements; ++j) {
        dr_mech(&NavMain, cdtheta[j], cdvel[j], 1, kStep_s);
        KFInflatePMatrix(&FltMain, &NavMain, cdtheta[j], e.dvel[j], kStep_s);
    }
    FltMain.pos_index = e.pos_index;
    empty_function(kTraceLevelDebug, kTraceMaskFusion, "DR Fusion %d, %d, MAIN\r\n",
                   static_cast<int>(e.pos_index), static_cast<int>(e.header.tow_ms));
    double aligned_vel_mps[3];  // the run is long enough: see RunBankCycle
    const double *vel_mps = drlib::GnssVelocityForState(e.pos_index, aligned_vel_mps);
    KFUpdateGnssSol(&FltMain, &NavMain, e.header.pos, vel_mps, rate_radps, e.header.vel_std);
    ++s_updcnt;
}

}  // namespace

extern "C" {

DRLIB_API void DrFusionReset(void) {
    s_FltState = FLT_STATE_IDLE;
    for (int axis = 0; axis < 3; ++axis) {
        FltZupt.bias_var[axis] = kZuptInitialBiasVar_rad2ps2;
        FltZupt.bias[axis] = 0.0;
    }
    FltZupt.hold_cnt = 0;
    FltCub.enabled = 0u;
    FltCub.running = 0u;
    FltCub.count = 0u;
}

DRLIB_API void DrFusionProc(void) {
    const uint32_t newest = g_FusionInPos - 1u;
    const FusionIn &e = GET_FUSION_IN(newest, 0u);
    const bool whole_second = IS_SECOND_ALIGNED(e.header.tow_ms) != 0u;
    if (g_FusionInNum > kZuptMinEntries && whole_second) {
        ZuptFltProc();
    }
    if (s_FltState == FLT_STATE_IDLE) {
        if (g_FusionInNum > kBankMinEntries && whole_second) {
            InitParelFilter(newest);
        }
    } else if (s_FltState == FLT_STATE_CONV) {
        RunBankCycle(e);
    } else {
        DR_ASSERT(FLT_STATE_MAIN == s_FltState, "FLT_STATE_MAIN == s_FltState",
                  "Alg_DR/src/dr_fusion", 1111, "DrFusionProc");
        RunMainCycle(e);
    }
}

}  // extern "C"
