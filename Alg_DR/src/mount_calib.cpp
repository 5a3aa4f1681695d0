// Mounting rotation between IMU and pole: the configured one, its
// calibration on a known point, and the learned gyro bias handed back to the
// host in the configuration's offset encoding.
#include <math.h>
#include <string.h>
#include <time.h>

#include "dr_consts.h"
#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "kf_dims.h"
#include "matrix_packed.h"

namespace {

using drlib::kKfGyroBias;
using drlib::kKfMaxStates;
using drlib::kPi;
using drlib::kTwoPi;
using drlib::packed_index;

constexpr double kMaxMountAngle_rad = 0.020943951023931952;  // 1.2 deg
constexpr double kInitialAngleStd_rad = 0.05235987755982989;  // 3 deg
// A step is used only while the tip is known well and stands on the point.
constexpr double kMaxTipStd_m = 0.025;
constexpr float kTipStdToNoise = 3.0f;
constexpr double kMaxMisclosure_m = 0.06;
// Heading about the pole axis is barely observable from a tip on a point, so
// only part of its estimate is reported.
constexpr double kReportedHeadingShare = 0.3;
constexpr double kMaxReportedAngle_rad = 0.01884955592153876;  // 1.08 deg, inside what config_cub takes

constexpr uint32_t kCodeResult = 0;
constexpr uint32_t kCodeProgress = 1;
constexpr uint32_t kCodeTimeOut = 2;
constexpr uint32_t kLastProgressPercent = 99;

// (0.05 deg/s)^2: below it the main filter's gyro bias is worth keeping.
constexpr double kStorableBiasVar_rad2ps2 = 7.615435494667715e-07;
// Offset-encoded bias limits: code c (1, 2, 3) +- 0.001 pi rad/s (0.18 deg/s).
constexpr double kBiasCodeMin[3] = {0.9968584073464102, 1.9968584073464102, 2.9968584073464104};
constexpr double kBiasCodeMax[3] = {1.0031415926535898, 2.0031415926535896, 3.0031415926535896};

void RestartEstimate(CubFilter &cub) {
    gen_eye3d(cub.dcm);
    memset(cub.L, 0, sizeof cub.L);
    for (int i = 0; i < 3; ++i) cub.L[packed_index(i, i)] = kInitialAngleStd_rad;
    cub.count = 1u;
}

double Clamp(double v, double lo, double hi) {
    if (v > hi) return hi;
    if (v < lo) return lo;
    return v;
}

// One square-root update of the misalignment with the tip misclosure.
// Returns false when the misclosure is too large to be a misalignment.
bool UpdateWithMisclosure(CubFilter &cub, const double *pole_b, const double *ant_pos_e,
                          const float *tip_std) {
    double cbe[9];  // body to ECEF
    mtx_mul_mtx(cbe, NavMain.cne, NavMain.cbn, 3, 3, 3);
    double u_b[3];
    double w_e[3];
    mtx_mul_vect_3d(u_b, cub.dcm, pole_b);
    mtx_mul_vect_3d(w_e, cbe, u_b);
    // Turning the mount by a small rotation x moves the tip by Cbe (x cross u)
    // = -Cbe [u x] x; with z = computed - known and H = Cbe [u x], the
    // estimate x is the turn that removes the misclosure.
    double ux[9];
    double h[9];
    cp_form(ux, u_b);
    mtx_mul_mtx(h, cbe, ux, 3, 3, 3);
    double dz_m[3];
    for (int i = 0; i < 3; ++i) {
        dz_m[i] = w_e[i] + ant_pos_e[i] - cub.ref_pos[i];
    }
    for (int i = 0; i < 3; ++i) {
        if (fabs(dz_m[i]) > kMaxMisclosure_m) {
            return false;
        }
    }
    double r_m[3];
    for (int i = 0; i < 3; ++i) {
        r_m[i] = static_cast<double>(kTipStdToNoise * tip_std[i]);
    }
    double x_rad[3] = {0.0, 0.0, 0.0};
    KFInnoInput(x_rad, cub.L, h, dz_m, r_m, 3, 3);
    double qx[4];
    double qd[4];
    double q[4];
    rotvec2quat(qx, x_rad);
    dcm2quat(qd, cub.dcm);
    quat_prod(q, qx, qd);
    quat_norm(q);
    quat2dcm(cub.dcm, q);
    cbn2rph(cub.rph, cub.dcm);
    if (cub.rph[2] > kPi) {
        cub.rph[2] -= kTwoPi;
    }
    return true;
}

void ReportResult(CubFilter &cub) {
    double result_rad[3] = {cub.rph[0], cub.rph[1], kReportedHeadingShare * cub.rph[2]};
    for (double &angle : result_rad) {
        angle = Clamp(angle, -kMaxReportedAngle_rad, kMaxReportedAngle_rad);
    }
    if (cub.callback != nullptr) {
        cub.callback(kCodeResult, result_rad, static_cast<uint32_t>(sizeof result_rad));
    }
    cub.running = 0u;
}

bool TimeLimitPassed(const CubFilter &cub) {
    const double limit_s = (2.0 * static_cast<double>(cub.target)) / 10.0;
    return difftime(time(nullptr), static_cast<time_t>(cub.start_time)) > limit_s;
}

}  // namespace

extern "C" {

DRLIB_API void config_cub(const double *angles) {
    if (angles != nullptr && fabs(angles[0]) < kMaxMountAngle_rad &&
        fabs(angles[1]) < kMaxMountAngle_rad && fabs(angles[2]) < kMaxMountAngle_rad) {
        double q[4];
        rph2qbn(q, angles);
        quat2dcm(s_cub.dcm, q);
    } else {
        gen_eye3d(s_cub.dcm);
    }
}

DRLIB_API CubFilter *get_cub_flt(void) { return &FltCub; }

DRLIB_API void CubFltProc(const double *pole_b, const double *ant_pos_e, const float *tip_std) {
    CubFilter &cub = FltCub;
    if (cub.enabled == 0u || cub.running == 0u) {
        return;
    }
    if (cub.count == 0u) {
        RestartEstimate(cub);
    }
    for (int i = 0; i < 3; ++i) {
        if (static_cast<double>(tip_std[i]) > kMaxTipStd_m) {
            cub.count = 0u;
            return;
        }
    }
    if (!UpdateWithMisclosure(cub, pole_b, ant_pos_e, tip_std)) {
        cub.count = 0u;
        return;
    }
    ++cub.count;
    uint32_t percent = (cub.count * 100u) / cub.target;
    // A step that completes the estimate reports it even when the time limit
    // has passed on the same step: the result is as good as any other. Before
    // that step the percentage is below 100.
    if (cub.count < cub.target && TimeLimitPassed(cub)) {
        if (cub.callback != nullptr) {
            cub.callback(kCodeTimeOut, nullptr, 0u);
        }
        cub.enabled = 0u;
        cub.running = 0u;
        return;
    }
    if (percent != cub.last_percent) {
        cub.last_percent = percent;
        if (percent <= kLastProgressPercent && cub.callback != nullptr) {
            cub.callback(kCodeProgress, &percent, static_cast<uint32_t>(sizeof percent));
        }
    }
    if (cub.count < cub.target) {
        return;
    }
    ReportResult(cub);
}

DRLIB_API void bwxyz_store(double *out) {
    bool learned = s_FltState == FLT_STATE_MAIN && FltMain.state_dim >= kKfMaxStates;
    for (int c = 0; c < 3 && learned; ++c) {
        learned = get_kf_state_variance(FltMain.L, kKfGyroBias + c) < kStorableBiasVar_rad2ps2;
    }
    if (learned) {
        for (int c = 0; c < 3; ++c) {
            const double code = FltMain.gyro_bias[c] + static_cast<double>(c + 1);
            out[c] = Clamp(code, kBiasCodeMin[c], kBiasCodeMax[c]);
        }
    } else if (g_BgFromCfg != nullptr) {
        memcpy(out, g_BgFromCfg, 3 * sizeof(double));
    } else {
        out[0] = 0.0;
        out[1] = 0.0;
        out[2] = 0.0;
    }
}

}  // extern "C"
