// The tilt status handed to the host after every cycle: attitude, the pole
// tip carried down the lever from the antenna, and the tip's uncertainty
// from the attitude covariance, with its quality class.
#include <math.h>
#include <string.h>

#include "dr_assert.h"
#include "dr_consts.h"
#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "dr_trace.h"
#include "kf_dims.h"
#include "matrix_packed.h"

namespace {

using drlib::kTraceLevelDebug;
using drlib::kTraceMaskTiltStatus;

constexpr uint8_t kTiltStatVersion = 2;
// Class limits on the summed tip variance: (0.012 m)^2, (0.06 m)^2, (0.35 m)^2.
constexpr double kClass1Var_m2 = 0.000144;
constexpr double kClass2Var_m2 = 0.0036;
constexpr double kClass3Var_m2 = 0.12249999999999998;
constexpr float kNoSolutionStd_m = 1.5f;  // also far above what the calibration accepts
using drlib::kKfAtt;
using drlib::kKfMaxStates;

uint8_t ClassOfTipVariance(double var_sum_m2) {
    // Not a number fails every comparison and counts as no solution.
    if (var_sum_m2 < kClass1Var_m2) return 1;
    if (var_sum_m2 < kClass2Var_m2) return 2;
    if (var_sum_m2 < kClass3Var_m2) return 3;
    return 0;
}

void CopyGnssFields(TiltStat *out, const FusionIn &cur) {
    out->version = kTiltStatVersion;
    out->pos_type = cur.header.pos_type;
    out->vel_type = cur.header.vel_type;
    out->tow_ms = cur.header.tow_ms;
    memcpy(out->vel, cur.header.vel, sizeof out->vel);
    memcpy(out->vel_std, cur.header.vel_std, sizeof out->vel_std);
}

void ComposeMain(TiltStat *out, const double *hw, const FusionIn &cur) {
    const FusionIn &prev = GET_FUSION_IN(g_FusionInPos - 1u, ~0u);
    double lever_b_m[3];
    double lever_n_m[3];
    double lever_e_m[3];
    mtx_mul_vect_3d(lever_b_m, s_cub.dcm, hw);
    mtx_mul_vect_3d(lever_n_m, NavMain.cbn, lever_b_m);
    mtx_mul_vect_3d(lever_e_m, NavMain.cne, lever_n_m);
    double ant_e_m[3];
    double tip_e_m[3];
    for (int i = 0; i < 3; ++i) {
        ant_e_m[i] = cur.header.pos[i] * drlib::kSolutionWeightNewest + prev.header.pos[i] * drlib::kSolutionWeightPrevious;
        tip_e_m[i] = lever_e_m[i] + ant_e_m[i];
    }
    double var_m2[3];
    CalcKFVarPole_n(var_m2, lever_n_m, &FltMain);
    out->status = ClassOfTipVariance(var_m2[0] + var_m2[1] + var_m2[2]);
    if (out->status == 0) {
        s_FltState = FLT_STATE_IDLE;  // the heading has drifted away: start the bank again
    }
    float tip_std_m[3];
    float tip_std_total_m[3];
    for (int i = 0; i < 3; ++i) {
        tip_std_m[i] = static_cast<float>(sqrt(var_m2[i]));
        tip_std_total_m[i] = tip_std_m[i] + cur.header.pos_std[i];
    }
    memcpy(out->att, NavMain.rph, sizeof out->att);
    memcpy(out->tip_pos, tip_e_m, sizeof out->tip_pos);
    memcpy(out->tip_std, tip_std_m, sizeof out->tip_std);
    memcpy(out->tip_std_total, tip_std_total_m, sizeof out->tip_std_total);
    CubFltProc(hw, ant_e_m, tip_std_total_m);
}

void ComposeNoSolution(TiltStat *out, const double *hw, const FusionIn &cur) {
    static constexpr float kStd_m[3] = {kNoSolutionStd_m, kNoSolutionStd_m, kNoSolutionStd_m};
    out->status = 0;
    memset(out->att, 0, sizeof out->att);
    memcpy(out->tip_std, kStd_m, sizeof out->tip_std);
    memcpy(out->tip_pos, cur.header.pos, sizeof out->tip_pos);
    memcpy(out->tip_std_total, cur.header.pos_std, sizeof out->tip_std_total);
    if (s_FltState == FLT_STATE_IDLE) {
        empty_function(kTraceLevelDebug, kTraceMaskTiltStatus, "TiltStat %d, IDEL\r\n",
                       static_cast<int>(cur.header.tow_ms));
    } else {
        empty_function(kTraceLevelDebug, kTraceMaskTiltStatus, "TiltStat %d, CONV %d\r\n",
                       static_cast<int>(cur.header.tow_ms), static_cast<int>(s_updcnt));
    }
    CubFltProc(hw, cur.header.pos, kStd_m);
}

}  // namespace

extern "C" {

DRLIB_API void ComposeTiltStat(TiltStat *out, const double *hw) {
    const FusionIn &cur = GET_FUSION_IN(g_FusionInPos - 1u, 0u);
    CopyGnssFields(out, cur);
    if (s_FltState == FLT_STATE_MAIN) {
        DR_ASSERT(FLT_STATE_MAIN == s_FltState, "FLT_STATE_MAIN == s_FltState",
                  "Alg_DR/src/dr_fusion", 1168, "ComposeTiltStat");
        ComposeMain(out, hw, cur);
    } else {
        ComposeNoSolution(out, hw, cur);
    }
}

DRLIB_API void CalcKFVarPole_n(double *var, const double *lever_n, const KfFilter *flt) {
    const int32_t n = (flt->state_dim < kKfMaxStates) ? flt->state_dim : kKfMaxStates;
    // Sensitivity of the lever vector in n to the attitude error psi:
    // d(l_n) = -psi x l_n = [l_n x] psi.
    double h[3 * kKfMaxStates] = {};
    h[0 * n + kKfAtt + 1] = -lever_n[2];
    h[0 * n + kKfAtt + 2] = lever_n[1];
    h[1 * n + kKfAtt + 0] = lever_n[2];
    h[1 * n + kKfAtt + 2] = -lever_n[0];
    h[2 * n + kKfAtt + 0] = -lever_n[1];
    h[2 * n + kKfAtt + 1] = lever_n[0];
    double hl[3 * kKfMaxStates];
    CalcNL(hl, h, flt->L, 3, n);
    double s[6];
    CalcHHt2S(s, hl, 3, n);
    // The tip variance is defined as three times H P H^T; the quality classes
    // are set on that scale.
    for (int i = 0; i < 3; ++i) {
        var[i] = 3.0 * s[drlib::packed_index(i, i)];
    }
}

}  // extern "C"
