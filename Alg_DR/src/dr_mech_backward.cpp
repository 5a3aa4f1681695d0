// Backward strapdown mechanization: from the state at the end of a run of
// intervals to the state at its start, with the forward stride's sums and
// formulas run against time.
#include "dr_assert.h"
#include "dr_mech_stages.h"

namespace {

using namespace drlib;

// Velocity rate of change over the stride, with the attitude it is resolved
// by taken from the record; v_mid is the mid-stride velocity.
void stride_velocity_rate(NavState *nav, double *dv_sf, double *c_n, double *dv_cg,
                          const StrideSums *sums, const double *v_mid, const double *wen_n,
                          double ts_s) {
    specific_force_increment(dv_sf, c_n, sums, nav, wen_n, ts_s);
    coriolis_gravity_increment(dv_cg, v_mid, nav, wen_n, ts_s);
    for (int i = 0; i < 3; ++i) nav->acc_n[i] = (dv_sf[i] + dv_cg[i]) / ts_s;
}

void mid_stride_backward(double *v_mid, double *wen_n, const NavState *nav, double ts_s) {
    for (int i = 0; i < 3; ++i) v_mid[i] = nav->v_n[i] - nav->acc_n[i] * ts_s / 2.0;
    transport_rate(wen_n, v_mid, nav);
}

}  // namespace

extern "C" {

DRLIB_API void dr_mech_stride_backward(NavState *nav, const double *dtheta, const double *dvel,
                                       int32_t m, double tl) {
    DR_ASSERT(tl > 1e-6, "tl > 1e-6", "Alg_DR/src/dr_mech", 289, "dr_mech_stride_backward");
    StrideSums sums;
    accumulate_stride_sums(&sums, dtheta, dvel, m, tl);
    const double ts_s = static_cast<double>(m) * tl;

    // Two passes with the end-of-stride attitude find the mid-stride velocity.
    double v_mid[3], wen_n[3], dv_sf[3], c_n[3], dv_cg[3];
    mid_stride_backward(v_mid, wen_n, nav, ts_s);
    stride_velocity_rate(nav, dv_sf, c_n, dv_cg, &sums, v_mid, wen_n, ts_s);
    mid_stride_backward(v_mid, wen_n, nav, ts_s);

    // Undo the stride's rotations: body by -(Theta + beta), n frame by +(wie + wen) ts.
    double phi_b[3], zeta_n[3];
    for (int i = 0; i < 3; ++i) {
        phi_b[i] = -(sums.theta[i] + sums.beta[i]);
        zeta_n[i] = (nav->wie_n[i] + wen_n[i]) * ts_s;
    }
    rotate_attitude(nav, phi_b, zeta_n);
    quat2dcm(nav->cbn, nav->qbn);
    cbn2rph(nav->rph, nav->cbn);

    // Third pass: the specific force resolved with the start-of-stride
    // attitude, as the forward stride resolves it.
    stride_velocity_rate(nav, dv_sf, c_n, dv_cg, &sums, v_mid, wen_n, ts_s);
    for (int i = 0; i < 3; ++i) nav->v_n[i] = nav->v_n[i] - nav->acc_n[i] * ts_s;

    // Displacement over the stride in forward time, from the start-of-stride state.
    double zeta_fwd[3], dr_n[3];
    for (int i = 0; i < 3; ++i) zeta_fwd[i] = -zeta_n[i];
    stride_displacement(dr_n, nav, &sums, zeta_fwd, c_n, dv_cg, ts_s);
    double xi[3];
    transport_rate(xi, dr_n, nav);
    for (int i = 0; i < 3; ++i) xi[i] = -xi[i];
    move_position(nav, xi, dr_n[2]);

    for (int i = 0; i < 3; ++i) nav->f_n[i] = dv_sf[i] / ts_s;
    refresh_earth_model(nav);
}

DRLIB_API void dr_mech_backward(NavState *nav, const double *dtheta, const double *dvel,
                                int32_t n, double tl) {
    // Strides from the end of the run toward its start; the split mirrors the
    // forward one, so a tail of up to three intervals lands at the start.
    int32_t remaining = n;
    while (remaining > 0) {
        const int32_t m = (remaining < 4) ? remaining : 2;
        const int32_t first = remaining - m;
        dr_mech_stride_backward(nav, dtheta + 3 * first, dvel + 3 * first, m, tl);
        remaining -= m;
    }
}

}  // extern "C"
