// Stages of one strapdown stride shared by both time directions: the
// coning/sculling/scrolling sums, the velocity increments, the attitude and
// position updates and the refresh of the Earth-model fields.
#include "dr_mech_stages.h"

namespace drlib {
namespace {

constexpr double kSixth = 0.16666666666666666;

void add_cross(double *acc, const double *a, const double *b) {
    double c[3];
    cross_prod(c, a, b);
    for (int i = 0; i < 3; ++i) acc[i] += c[i];
}

void subtract_cross(double *acc, const double *a, const double *b) {
    double c[3];
    cross_prod(c, a, b);
    for (int i = 0; i < 3; ++i) acc[i] -= c[i];
}

// One interval's contribution to the stride sums. The fractions 5/12 and
// 1/12 integrate an increment twice under a rate that is linear across the
// interval and the one before it; the cross terms are the second-order
// coning, sculling and scrolling of a rotating body.
void accumulate_interval(StrideSums *s, const double *th, const double *th_prev, const double *u,
                         const double *u_prev, double tl_s) {
    double dth[3], du[3], ds_u[3], b_u[3], ds_th[3], b_th[3];
    for (int i = 0; i < 3; ++i) s->rho[i] += s->sigma[i] * tl_s;
    for (int i = 0; i < 3; ++i) {
        dth[i] = th[i] - th_prev[i];
        du[i] = u[i] - u_prev[i];
        ds_u[i] = (s->u[i] + (5.0 * u[i] + u_prev[i]) / 12.0) * tl_s;
        b_u[i] = ds_u[i] - s->u[i] * tl_s;
        ds_th[i] = (s->theta[i] + (5.0 * th[i] + th_prev[i]) / 12.0) * tl_s;
        b_th[i] = ds_th[i] - s->theta[i] * tl_s;
    }
    double a[3], b[3];
    for (int i = 0; i < 3; ++i) a[i] = (s->theta[i] - dth[i] / 12.0) / 2.0;
    add_cross(s->rho, a, b_u);
    for (int i = 0; i < 3; ++i) a[i] = (s->u[i] - du[i] / 12.0) / 2.0;
    add_cross(s->rho, a, b_th);
    for (int i = 0; i < 3; ++i) a[i] = (s->s_u[i] + du[i] * tl_s / 24.0) / 6.0;
    add_cross(s->rho, a, th);
    for (int i = 0; i < 3; ++i) a[i] = (s->s_theta[i] + dth[i] * tl_s / 24.0) / 6.0;
    subtract_cross(s->rho, a, u);

    double c[3];
    for (int i = 0; i < 3; ++i) {
        a[i] = s->theta[i] - dth[i] / 6.0;
        b[i] = s->u[i] - du[i] / 6.0;
    }
    cross_prod(c, a, b);
    for (int i = 0; i < 3; ++i) s->rho[i] += c[i] * tl_s / 6.0;
    cross_prod(c, dth, du);
    for (int i = 0; i < 3; ++i) s->rho[i] -= c[i] * tl_s / 2160.0;

    for (int i = 0; i < 3; ++i) a[i] = s->theta[i] + th_prev[i] / 6.0;
    cross_prod(c, a, th);
    for (int i = 0; i < 3; ++i) s->beta[i] += c[i] / 2.0;
    cross_prod(c, a, u);
    for (int i = 0; i < 3; ++i) s->sigma[i] += c[i] / 2.0;
    for (int i = 0; i < 3; ++i) a[i] = s->u[i] + u_prev[i] / 6.0;
    cross_prod(c, a, th);
    for (int i = 0; i < 3; ++i) s->sigma[i] += c[i] / 2.0;

    for (int i = 0; i < 3; ++i) {
        s->theta[i] += th[i];
        s->u[i] += u[i];
        s->s_theta[i] += ds_th[i];
        s->s_u[i] += ds_u[i];
    }
}

}  // namespace

void accumulate_stride_sums(StrideSums *sums, const double *dtheta, const double *dvel, int32_t m,
                            double tl_s) {
    *sums = StrideSums{};
    for (int32_t j = 1; j <= m; ++j) {
        accumulate_interval(sums, dtheta + 3 * j, dtheta + 3 * (j - 1), dvel + 3 * j,
                            dvel + 3 * (j - 1), tl_s);
    }
}

void specific_force_increment(double *dv_sf, double *c_n, const StrideSums *sums,
                              const NavState *nav, const double *wen_n, double ts_s) {
    // Velocity increment in start-of-stride body axes: rotation compensation
    // (Theta x U)/2 plus sculling.
    double rot[3], dv_b[3];
    cross_prod(rot, sums->theta, sums->u);
    for (int i = 0; i < 3; ++i) dv_b[i] = sums->u[i] + rot[i] / 2.0 + sums->sigma[i];
    // The n frame turns by (wie + wen) ts over the stride; I + [e x] moves the
    // increment to the mid-stride n frame.
    double e[3], m[9];
    for (int i = 0; i < 3; ++i) e[i] = -(nav->wie_n[i] + wen_n[i]) * ts_s / 2.0;
    cp_form(m, e);
    m[0] += 1.0;
    m[4] += 1.0;
    m[8] += 1.0;
    mtx_mul_vect_3d(c_n, nav->cbn, dv_b);
    mtx_mul_vect_3d(dv_sf, m, c_n);
}

void coriolis_gravity_increment(double *dv_cg, const double *v_mid, const NavState *nav,
                                const double *wen_n, double ts_s) {
    double w[3], c[3];
    for (int i = 0; i < 3; ++i) w[i] = nav->wie_n[i] + nav->wie_n[i] + wen_n[i];
    cross_prod(c, v_mid, w);
    for (int i = 0; i < 3; ++i) dv_cg[i] = (c[i] + nav->g_n[i]) * ts_s;
}

void body_displacement(double *dr_b, const StrideSums *sums) {
    double t[3], c[3], m[9], d[3];
    cross_prod(t, sums->s_theta, sums->u);
    cross_prod(c, sums->theta, sums->s_u);
    for (int i = 0; i < 3; ++i) {
        t[i] += c[i];
        c[i] = sums->theta[i] / 24.0;
    }
    cp_form(m, c);
    m[0] += kSixth;
    m[4] += kSixth;
    m[8] += kSixth;
    mtx_mul_vect_3d(d, m, t);
    for (int i = 0; i < 3; ++i) dr_b[i] = sums->s_u[i] + d[i] + sums->rho[i];
}

void rotate_attitude(NavState *nav, const double *phi_b, const double *zeta_n) {
    double q[4];
    rotvec2quat(q, phi_b);
    quat_prod(nav->qbn, nav->qbn, q);
    rotvec2quat(q, zeta_n);
    quat_prod(nav->qbn, q, nav->qbn);
    quat_norm(nav->qbn);
}

void move_position(NavState *nav, const double *xi, double dh_m) {
    double q[4];
    rotvec2quat(q, xi);
    quat_prod(nav->qne, nav->qne, q);
    quat_norm(nav->qne);
    quat2dcm(nav->cne, nav->qne);
    cne2llh(nav->llh, nav->cne);
    nav->llh[2] += dh_m;
}

void refresh_earth_model(NavState *nav) {
    nav->cos_lat = nav->cne[6];
    nav->sin_lat = -nav->cne[8];
    nav->cos_lon = nav->cne[4];
    nav->sin_lon = -nav->cne[1];
    calc_radius(&nav->rm, &nav->rn, nav->sin_lat);
    transport_rate(nav->wen_n, nav->v_n, nav);
    calc_wie_n(nav->wie_n, nav->llh[0]);
}

void stride_displacement(double *dr_n, const NavState *nav, const StrideSums *sums,
                         const double *zeta_n, const double *c_n, const double *dv_cg, double ts_s) {
    double dr_b[3], zeta_6[3], m_zeta[9], turn[3];
    body_displacement(dr_b, sums);
    for (int i = 0; i < 3; ++i) zeta_6[i] = zeta_n[i] / 6.0;
    cp_form(m_zeta, zeta_6);
    mtx_mul_vect_3d(turn, m_zeta, c_n);
    mtx_mul_vect_3d(dr_n, nav->cbn, dr_b);
    for (int i = 0; i < 3; ++i) {
        const double dr_1 = (nav->v_n[i] + dv_cg[i] / 2.0) * ts_s;
        dr_n[i] = dr_1 + (dr_n[i] + turn[i] * ts_s);
    }
}

}  // namespace drlib
