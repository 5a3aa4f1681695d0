// Rates of the n frame over the ellipsoid and of the pole's lever arm, shared
// by the mechanization, the filter feedback, the GNSS update and the bank start.
#pragma once

#include "drlib_toolkit.h"

namespace drlib {

// Transport rate (rad/s, n) of the velocity v_n (m/s, n), or, given a
// displacement (m, n), the rotation of the n frame it causes, from the
// record's radii, height and cached latitude trigonometry. Within about 64 m
// of a pole (|cos_lat| < 1e-5) the divisor keeps its sign and that magnitude,
// so the rate stays finite.
void transport_rate(double *w_en, const double *v_n, const NavState *nav);

// Velocity (m/s, n) the antenna has beyond the IMU: the lever arm swept by the
// body's rotation relative to n, w_ib minus the Earth and transport rates of
// the antenna velocity v_g (m/s, n).
void lever_arm_velocity(double *a_n, const NavState *nav, const double *v_g, const double *w_ib);

}  // namespace drlib
