#include "dr_common_rates.h"

#include <math.h>

#include "dr_global_var.h"

namespace drlib {
namespace {

constexpr double kMinCosLat = 1e-5;

}  // namespace

void transport_rate(double *w_en, const double *v_n, const NavState *nav) {
    const double rn_h = nav->rn + nav->llh[2];
    const double rm_h = nav->rm + nav->llh[2];
    double cos_lat = nav->cos_lat;
    if (fabs(cos_lat) < kMinCosLat) cos_lat = copysign(kMinCosLat, cos_lat);
    w_en[0] = v_n[1] / rn_h;
    w_en[1] = -v_n[0] / rm_h;
    w_en[2] = -v_n[1] * nav->sin_lat / (cos_lat * rn_h);
}

void lever_arm_velocity(double *a_n, const NavState *nav, const double *v_g, const double *w_ib) {
    double w_en[3];  // rad/s, n
    transport_rate(w_en, v_g, nav);
    double w_in[3];  // rad/s, n
    for (int k = 0; k < 3; ++k) w_in[k] = nav->wie_n[k] + w_en[k];
    double w_in_b[3];  // rad/s, body
    mtxt_mul_vect_3d(w_in_b, nav->cbn, w_in);
    double w_nb[3];  // body rate relative to n, rad/s, body
    for (int k = 0; k < 3; ++k) w_nb[k] = w_ib[k] - w_in_b[k];
    double lever_rate_b[3];  // m/s, body
    cross_prod(lever_rate_b, w_nb, g_level_arm_b);
    mtx_mul_vect_3d(a_n, nav->cbn, lever_rate_b);
}

}  // namespace drlib
