// Start of the heading bank.
//
// At rest the heading is unobservable, so the bank starts 18 filters that
// share the attitude levelled on the specific force and differ only by turns
// of 20 degrees about it. The levelling compares the specific force the IMU
// measured over the last 0.5 s with the one GNSS implies over the same span
// (its acceleration minus gravity); the two must agree before the bank starts.
#include <math.h>
#include <string.h>

#include "dr_common_rates.h"
#include "dr_consts.h"
#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "dr_options.h"
#include "drlib_toolkit.h"
#include "kf_dims.h"
#include "matrix_packed.h"

namespace {

using drlib::kEntryIncrements;
using drlib::kIncrementsPerSecond;
using drlib::kPi;
using drlib::kTwoPi;

// 0.5 s of history: five entries of ten 0.01 s increments each.
constexpr int kForceEntries = 5;
constexpr double kPerHalfSecond = 2.0;   // 1 / 0.5 s

// A body at rest or in gentle motion feels about 1 g; GNSS and the IMU must
// see the same magnitude, else one of them saw a manoeuvre the other missed.
constexpr double kMinSpecificForce_mps2 = 6.0;
constexpr double kMaxSpecificForce_mps2 = 14.0;
constexpr double kMaxForceMismatch_mps2 = 0.2;

constexpr double kSeedVelStd_mps = 0.1;
constexpr double kSeedAttStd_rad = 0.5235987755982988;  // 30 deg: nothing known but the levelling
constexpr int kVelStates = 3;
using drlib::kKfBankStates;

// Mean specific force over the 0.5 s ending with the newest entry, body axes, m/s^2.
void mean_specific_force_b(double *f_b, uint32_t newest_pos) {
    double sum[3] = {0.0, 0.0, 0.0};  // m/s over 0.5 s
    for (int back = kForceEntries - 1; back >= 0; --back) {
        const FusionIn &entry = GET_FUSION_IN(newest_pos, -back);
        for (int slot = 1; slot <= kEntryIncrements; ++slot) {
            for (int c = 0; c < 3; ++c) sum[c] += entry.dvel[slot][c];
        }
    }
    for (int c = 0; c < 3; ++c) f_b[c] = kPerHalfSecond * sum[c];
}

bool specific_forces_agree(double f_b_norm, double f_n_norm) {
    return f_n_norm >= kMinSpecificForce_mps2 && f_n_norm <= kMaxSpecificForce_mps2 &&
           f_n_norm >= f_b_norm - kMaxForceMismatch_mps2 &&
           f_n_norm <= f_b_norm + kMaxForceMismatch_mps2;
}

// f_b exactly opposite to f_n (f_b x f_n = 0 with f_b . f_n < 0), where the
// cross product gives no axis: a half-turn about the coordinate axis least
// aligned with f_b, its f_b component removed, hence perpendicular to f_b.
// With the IMU z axis along a vertical pole this is the x axis, so the
// levelled attitude is a roll of pi.
void half_turn_off_axis(double *q, const double *f_b, double f_b_norm) {
    double dir_b[3];
    for (int k = 0; k < 3; ++k) dir_b[k] = f_b[k] / f_b_norm;
    int least = 0;
    for (int k = 1; k < 3; ++k) {
        if (fabs(dir_b[k]) < fabs(dir_b[least])) least = k;
    }
    double axis[3] = {0.0, 0.0, 0.0};
    axis[least] = 1.0;
    for (int k = 0; k < 3; ++k) axis[k] -= dir_b[least] * dir_b[k];
    const double axis_norm = absvect3d(axis);  // >= sqrt(2/3): the least-aligned axis is far from f_b
    q[0] = 0.0;
    for (int k = 0; k < 3; ++k) q[k + 1] = axis[k] / axis_norm;
}

// Rotation that takes f_b onto f_n: about their common normal c = f_b x f_n,
// by their angle asin(|c| / (|f_b| |f_n|)), or pi minus it when the angle is
// obtuse. Only for c exactly 0 is the axis undefined: the identity for
// parallel forces, a half-turn for opposed ones.
void levelling_quat(double *q, const double *f_b, const double *f_n, double f_b_norm,
                    double f_n_norm) {
    const bool obtuse = dotvect3d(f_n, f_b) < 0.0;
    double c[3];
    cross_prod(c, f_b, f_n);
    const double c_norm = absvect3d(c);
    if (c_norm == 0.0) {
        if (obtuse) {
            half_turn_off_axis(q, f_b, f_b_norm);
        } else {
            q[0] = 1.0;
            q[1] = q[2] = q[3] = 0.0;
        }
        return;
    }
    double sin_angle = c_norm / (f_b_norm * f_n_norm);
    if (sin_angle > 1.0) sin_angle = 1.0;  // rounding at right angles would give asin a NaN
    double angle = asin(sin_angle);
    if (obtuse) angle = kPi - angle;
    double rotvec[3];
    for (int k = 0; k < 3; ++k) rotvec[k] = c[k] * (angle / c_norm);
    rotvec2quat(q, rotvec);
}

void seed_bank_filter(KfFilter *flt, uint32_t pos_index) {
    flt->state_dim = static_cast<uint8_t>(kKfBankStates);
    flt->pos_index = pos_index;
    for (int k = 0; k < 3; ++k) {
        flt->acc_bias[k] = 0.0;
        flt->gyro_bias[k] = 0.0;
    }
    memset(flt->L, 0, sizeof flt->L);
    for (int i = 0; i < kKfBankStates; ++i) {
        flt->L[drlib::packed_index(i, i)] = i < kVelStates ? kSeedVelStd_mps : kSeedAttStd_rad;
    }
}

// Hypothesis i: the levelled attitude turned by i x 20 deg about the specific
// force, so that cbn f_b = f_n holds for every member.
void seed_hypothesis(int i, const double *q_lev, const double *force_dir_n, const FusionIn &newest,
                     const double *vel_e, const double *w_ib) {
    NavState *nav = &NavGp[i];
    const double turn_rad = kTwoPi * static_cast<double>(i) / static_cast<double>(kBankSize);
    double rotvec[3];
    for (int k = 0; k < 3; ++k) rotvec[k] = force_dir_n[k] * turn_rad;
    double q_turn[4];
    rotvec2quat(q_turn, rotvec);
    quat_prod(nav->qbn, q_turn, q_lev);
    quat_norm(nav->qbn);
    quat2dcm(nav->cbn, nav->qbn);
    cbn2rph(nav->rph, nav->cbn);

    SetImuPosFromGnss(nav, newest.header.pos);
    SetImuVelFromGnss(nav, vel_e, w_ib);
    if (i > 0) memcpy(nav->acc_n, NavGp[0].acc_n, sizeof nav->acc_n);
    seed_bank_filter(&FltGp[i], newest.pos_index);
}

}  // namespace

extern "C" {

DRLIB_API void InitParelFilter(uint32_t newest_pos) {
    const FusionIn &newest = GET_FUSION_IN(newest_pos, 0);
    // The driver starts the bank with more than 10 entries in the run, so the
    // aligned velocity finds the entries before these two.
    double newest_vel_buf[3];
    const double *newest_vel = drlib::GnssVelocityForState(newest_pos, newest_vel_buf);
    double back_vel_buf[3];
    const double *back_vel =
        drlib::GnssVelocityForState(newest_pos - static_cast<uint32_t>(kForceEntries), back_vel_buf);

    double f_b[3];  // m/s^2, body
    mean_specific_force_b(f_b, newest_pos);
    double a_e[3];  // GNSS acceleration, m/s^2, ECEF
    for (int c = 0; c < 3; ++c) {
        a_e[c] = kPerHalfSecond * (newest_vel[c] - back_vel[c]);
    }
    double llh_g[3] = {0.0, 0.0, 0.0};  // antenna
    ecef2llh(llh_g, newest.header.pos);
    double cne_g[9];
    llh2cne(cne_g, llh_g);
    double a_n[3];  // m/s^2, n
    mtxt_mul_vect_3d(a_n, cne_g, a_e);
    const double gravity_mps2 = local_gravity_v2(sin(llh_g[0]), llh_g[2]);
    const double f_n[3] = {a_n[0], a_n[1], a_n[2] - gravity_mps2};
    double w_ib[3];  // rad/s, body
    for (int c = 0; c < 3; ++c) w_ib[c] = newest.dtheta[kEntryIncrements][c] * kIncrementsPerSecond;
    memcpy(NavGp[0].acc_n, a_n, sizeof a_n);

    const double f_b_norm = absvect3d(f_b);
    const double f_n_norm = absvect3d(f_n);
    if (!specific_forces_agree(f_b_norm, f_n_norm)) return;

    double q_lev[4];
    levelling_quat(q_lev, f_b, f_n, f_b_norm, f_n_norm);
    double force_dir_n[3];
    for (int k = 0; k < 3; ++k) force_dir_n[k] = f_n[k] / f_n_norm;
    for (int i = 0; i < kBankSize; ++i) seed_hypothesis(i, q_lev, force_dir_n, newest, newest_vel, w_ib);

    s_FltState = FLT_STATE_CONV;
    s_updcnt = 0u;
    memset(toggleCnts, 0, sizeof toggleCnts);
}

// The IMU sits at the antenna plus the lever arm turned into n; the small
// north and east offsets become latitude and longitude through the radii.
DRLIB_API void SetImuPosFromGnss(NavState *nav, const double *pos_e) {
    double lever_n[3];  // m
    mtx_mul_vect_3d(lever_n, nav->cbn, g_level_arm_b);
    double llh_g[3] = {0.0, 0.0, 0.0};  // antenna
    ecef2llh(llh_g, pos_e);
    double rm_g = 0.0;  // m
    double rn_g = 0.0;  // m
    calc_radius(&rm_g, &rn_g, sin(llh_g[0]));

    nav->llh[0] = llh_g[0] + lever_n[0] / (rm_g + llh_g[2]);
    nav->llh[1] = llh_g[1] + lever_n[1] / ((rn_g + llh_g[2]) * cos(llh_g[0]));
    nav->llh[2] = llh_g[2] - lever_n[2];
    llh2qne(nav->qne, nav->llh);
    quat2dcm(nav->cne, nav->qne);
    nav->cos_lat = nav->cne[6];
    nav->sin_lat = -nav->cne[8];
    nav->cos_lon = nav->cne[4];
    nav->sin_lon = -nav->cne[1];
    calc_radius(&nav->rm, &nav->rn, nav->sin_lat);
    gravity_model_1971(nav->g_n, pos_e, nav->cne, nav->rn, nav->llh[2]);
    calc_wie_n(nav->wie_n, nav->llh[0]);
}

// The IMU moves with the antenna plus the lever arm swept by the body's
// rotation relative to n: the inverse of the GNSS velocity innovation.
DRLIB_API void SetImuVelFromGnss(NavState *nav, const double *vel_e, const double *w_ib) {
    double v_g[3];  // antenna velocity, m/s, n
    mtxt_mul_vect_3d(v_g, nav->cne, vel_e);
    double lever_rate_n[3];  // m/s
    drlib::lever_arm_velocity(lever_rate_n, nav, v_g, w_ib);
    for (int k = 0; k < 3; ++k) nav->v_n[k] = v_g[k] + lever_rate_n[k];
    drlib::transport_rate(nav->wen_n, nav->v_n, nav);
}

}  // extern "C"
