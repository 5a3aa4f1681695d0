// Stages shared by the forward and the backward strapdown stride.
#pragma once

#include <stdint.h>

#include "dr_common_rates.h"
#include "drlib_toolkit.h"

namespace drlib {

// Sums of one stride's increments, body axes, all zero at its start.
struct StrideSums {
    double theta[3];    // sum of angle increments, rad
    double u[3];        // sum of velocity increments, m/s
    double s_theta[3];  // running double integral of the angle increments, rad s
    double s_u[3];      // running double integral of the velocity increments, m
    double beta[3];     // coning correction, rad
    double sigma[3];    // sculling correction, m/s
    double rho[3];      // scrolling correction of the displacement, m
};

// Accumulates increments 1..m of the runs (element 0 precedes the stride).
void accumulate_stride_sums(StrideSums *sums, const double *dtheta, const double *dvel, int32_t m,
                            double tl_s);

// Velocity increment of the stride's specific force in n: the body increment
// with rotation and sculling compensation, through cbn, then through
// I + [e x] with e = -(wie_n + wen_n) * ts / 2 for the n-frame rotation.
// c_n receives cbn times the compensated body increment.
void specific_force_increment(double *dv_sf, double *c_n, const StrideSums *sums,
                              const NavState *nav, const double *wen_n, double ts_s);

// (v_mid x (2 wie_n + wen_n) + g_n) * ts: Coriolis and gravity velocity increment.
void coriolis_gravity_increment(double *dv_cg, const double *v_mid, const NavState *nav,
                                const double *wen_n, double ts_s);

// Body-frame specific-force displacement over the stride, m.
void body_displacement(double *dr_b, const StrideSums *sums);

// Displacement over the stride in n, m, from the start-of-stride velocity,
// cbn and Coriolis-gravity increment: the body displacement through cbn plus
// the turn of the n frame (zeta_n, forward-time sign) acting on c_n.
void stride_displacement(double *dr_n, const NavState *nav, const StrideSums *sums,
                         const double *zeta_n, const double *c_n, const double *dv_cg, double ts_s);

// Attitude update: qbn = rotvec(zeta) (x) qbn (x) rotvec(phi), renormalised.
void rotate_attitude(NavState *nav, const double *phi_b, const double *zeta_n);

// Position update by the n-frame rotation xi; height moves by dh_m.
void move_position(NavState *nav, const double *xi, double dh_m);

// Refreshes the cached trigonometry, radii, transport and Earth rate from
// qne/cne, height and v_n (cne, llh and v_n already updated).
void refresh_earth_model(NavState *nav);

}  // namespace drlib
