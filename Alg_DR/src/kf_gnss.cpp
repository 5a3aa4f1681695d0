// GNSS update of one filter.
//
// GNSS velocity is the only filtered measurement; it refers to the antenna,
// so the INS velocity is carried to the antenna through the lever arm and the
// body rate relative to n. GNSS position is not filtered: the feedback resets
// the position to the antenna position displaced by the lever arm.
#include "dr_common_rates.h"
#include "dr_consts.h"
#include "dr_global_var.h"
#include "dr_trace.h"
#include "drlib_toolkit.h"
#include "kf_dims.h"

namespace {

using drlib::kKfMaxStates;
using drlib::kPi;
using drlib::kTwoPi;

constexpr int32_t kVelMeasurements = 3;          // north, east, down
constexpr double kHorizontalVelStdFloor = 0.008;  // m/s
constexpr double kVerticalVelStdFloor = 0.015;    // m/s
constexpr double kDegPerRad = 57.29577951308232;

// Two longitudes on either side of the 180 degree meridian are close, not
// 2 pi apart: wrap their difference into (-pi, pi]. A difference already in
// that range keeps its bits.
double wrapped_longitude_difference(double dlon) {
    if (dlon > kPi) return dlon - kTwoPi;
    if (dlon <= -kPi) return dlon + kTwoPi;
    return dlon;
}

// Velocity innovation z (m/s, n) and the lever-arm velocity a (m/s, n) that
// the antenna has in addition to the IMU.
void velocity_innovation(double *z, double *a, const NavState *nav, const double *vel,
                         const double *w_ib) {
    double v_g[3];  // antenna velocity, m/s, n
    mtxt_mul_vect_3d(v_g, nav->cne, vel);
    drlib::lever_arm_velocity(a, nav, v_g, w_ib);
    for (int k = 0; k < 3; ++k) z[k] = nav->v_n[k] - v_g[k] - a[k];
}

// H = [I3 | -[a x] | 0] for the velocity states of an n-state filter.
void velocity_measurement_matrix(double *H, const double *a, int32_t n) {
    F64ToZeros(H, static_cast<uint32_t>(kVelMeasurements * n) * 8u);
    for (int32_t k = 0; k < 3; ++k) H[k * n + k] = 1.0;
    double *h_att = H + 3;  // attitude columns 3..5
    h_att[1] = a[2];
    h_att[2] = -a[1];
    h_att[n + 0] = -a[2];
    h_att[n + 2] = a[0];
    h_att[2 * n + 0] = a[1];
    h_att[2 * n + 1] = -a[0];
}

// Reported deviations below what the receiver can deliver would make the
// filter trust a single epoch too much (and a zero would leave S singular).
void floored_velocity_std(double *r, const float *vel_std) {
    const double floors[3] = {kHorizontalVelStdFloor, kHorizontalVelStdFloor,
                              kVerticalVelStdFloor};
    for (int k = 0; k < 3; ++k) {
        r[k] = static_cast<double>(vel_std[k]);
        if (r[k] < floors[k]) r[k] = floors[k];
    }
}

}  // namespace

extern "C" {

DRLIB_API void DifImuPosWithGnss(double *dpos, const NavState *nav, const double *pos) {
    double llh_g[3] = {0.0, 0.0, 0.0};  // antenna: rad, rad, m
    ecef2llh(llh_g, pos);
    dpos[0] = (nav->llh[0] - llh_g[0]) * (nav->rm + llh_g[2]);
    dpos[1] = wrapped_longitude_difference(nav->llh[1] - llh_g[1]) * (nav->rn + llh_g[2]) * nav->cos_lat;
    dpos[2] = -(nav->llh[2] - llh_g[2]);
    double lever_n[3];  // IMU relative to antenna, m, n
    mtx_mul_vect_3d(lever_n, nav->cbn, g_level_arm_b);
    for (int k = 0; k < 3; ++k) dpos[k] -= lever_n[k];
}

DRLIB_API void DifImuVelWithGnss(double *z, const NavState *nav, const double *vel,
                                 const double *w_ib) {
    double a[3];
    velocity_innovation(z, a, nav, vel, w_ib);
}

DRLIB_API void KFUpdateGnssSol(KfFilter *flt, NavState *nav, const double *pos, const double *vel,
                               const double *w_ib, const float *vel_std) {
    const int32_t n = flt->state_dim;
    double dx[kKfMaxStates];
    double H[kVelMeasurements * kKfMaxStates];
    double r[kVelMeasurements];  // m/s
    F64ToZeros(dx, sizeof(dx));

    double dpos[3];  // m, n; with the attitude before the update
    DifImuPosWithGnss(dpos, nav, pos);
    double z[3];  // m/s
    double a[3];  // m/s
    velocity_innovation(z, a, nav, vel, w_ib);
    velocity_measurement_matrix(H, a, n);

    empty_function(drlib::kTraceLevelDebug, drlib::kTraceMaskFusion, "% 8.2f % 8.2f % 8.2f |",
                   nav->rph[0] * kDegPerRad, nav->rph[1] * kDegPerRad, nav->rph[2] * kDegPerRad);

    floored_velocity_std(r, vel_std);
    KFInnoInput(dx, flt->L, H, z, r, n, kVelMeasurements);
    KFStateFeedback(flt, nav, dx, dpos);
    gravity_model_1971(nav->g_n, pos, nav->cne, nav->rn, nav->llh[2]);
}

}  // extern "C"
