// Forward strapdown mechanization in the local-level north-east-down frame:
// quaternion attitude (qbn), quaternion position (qne) plus height, and
// velocity, with coning, sculling and scrolling compensation over strides of
// one to three sample intervals.
#include "dr_assert.h"
#include "dr_mech_stages.h"

using namespace drlib;

extern "C" {

DRLIB_API void dr_mech_stride(NavState *nav, const double *dtheta, const double *dvel, int32_t m,
                              double tl_s) {
    DR_ASSERT(tl_s > 1e-6, "tl > 1e-6", "Alg_DR/src/dr_mech", 25, "dr_mech_stride");
    StrideSums sums;
    accumulate_stride_sums(&sums, dtheta, dvel, m, tl_s);
    const double ts_s = static_cast<double>(m) * tl_s;

    // Velocity. The Earth-model fields are the start-of-stride ones; the
    // transport rate is taken at the mid-stride velocity, extrapolated first
    // with the previous stride's rate of change and then with this one's.
    double v_mid[3], wen_n[3], dv_sf[3], c_n[3], dv_cg[3];
    for (int i = 0; i < 3; ++i) v_mid[i] = nav->v_n[i] + nav->acc_n[i] * ts_s / 2.0;
    transport_rate(wen_n, v_mid, nav);
    specific_force_increment(dv_sf, c_n, &sums, nav, wen_n, ts_s);
    coriolis_gravity_increment(dv_cg, v_mid, nav, wen_n, ts_s);
    for (int i = 0; i < 3; ++i) nav->acc_n[i] = (dv_sf[i] + dv_cg[i]) / ts_s;
    for (int i = 0; i < 3; ++i) v_mid[i] = nav->v_n[i] + nav->acc_n[i] * ts_s / 2.0;
    transport_rate(wen_n, v_mid, nav);

    // Attitude: the body turns by Theta + beta, the n frame by (wie + wen) ts.
    double phi_b[3], zeta_n[3];
    for (int i = 0; i < 3; ++i) {
        phi_b[i] = sums.theta[i] + sums.beta[i];
        zeta_n[i] = -(nav->wie_n[i] + wen_n[i]) * ts_s;
    }
    rotate_attitude(nav, phi_b, zeta_n);

    // Position, with the start-of-stride velocity and cbn (both still stored).
    double dr_n[3];
    stride_displacement(dr_n, nav, &sums, zeta_n, c_n, dv_cg, ts_s);
    double xi[3];
    transport_rate(xi, dr_n, nav);
    move_position(nav, xi, -dr_n[2]);

    quat2dcm(nav->cbn, nav->qbn);
    cbn2rph(nav->rph, nav->cbn);
    for (int i = 0; i < 3; ++i) {
        nav->v_n[i] = nav->v_n[i] + nav->acc_n[i] * ts_s;
        nav->f_n[i] = dv_sf[i] / ts_s;
    }
    refresh_earth_model(nav);
}

DRLIB_API void dr_mech(NavState *nav, const double *dtheta, const double *dvel, int32_t n,
                       double tl) {
    // Strides of two keep every stride's coning and sculling terms fed by its
    // own and the preceding interval; a tail of up to three goes in one stride.
    int32_t remaining = n;
    while (remaining > 0) {
        const int32_t m = (remaining < 4) ? remaining : 2;
        dr_mech_stride(nav, dtheta, dvel, m, tl);
        dtheta += 3 * m;
        dvel += 3 * m;
        remaining -= m;
    }
}

}  // extern "C"
