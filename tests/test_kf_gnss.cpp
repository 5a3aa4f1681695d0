// GNSS update geometry: lever arm, position reset and deviation floors (the
// filter over time is the scenario tests' business).
#include "dr_global_var.h"
#include "matrix_test_util.h"

using kftest::Mat;

namespace {

const double kLever[3] = {-0.03404, -0.05097, -0.01432};  // m, body: IMU seen from the antenna
const double kBankSeed[12] = {0.1, 0.1, 0.1, 0.5235987755982988, 0.5235987755982988,
                              0.5235987755982988, 0.15, 0.15, 0.15, 0.0035, 0.0035, 0.0035};

// The IMU state consistent with the antenna's ECEF position (m) and velocity
// (m/s), the body rate (rad/s) and a, the antenna velocity relative to the IMU.
struct Scene {
    NavState nav;
    double pos[3], vel[3], w_ib[3], a[3];
};

// Antenna velocity and body rate given; the IMU moves with v_ant + a,
// a = cbn (w_nb x l), w_nb = w_ib - cbn^T (wie_n + wen_n(v_ant)).
Scene make_scene(const double *rph, const double *v_ant_n, const double *w_ib) {
    memcpy(g_level_arm_b, kLever, sizeof kLever);
    Scene s;
    s.nav = kftest::make_nav(0.7, -1.3, 45.0, v_ant_n, rph);
    memcpy(s.w_ib, w_ib, sizeof s.w_ib);
    mtx_mul_vect_3d(s.vel, s.nav.cne, v_ant_n);
    double w_in[3], w_in_b[3], w_nb[3], lever_rate_b[3], imu_e[3], lever_n[3], lever_e[3];
    kftest::transport_rate(w_in, s.nav, v_ant_n);
    for (int k = 0; k < 3; ++k) w_in[k] += s.nav.wie_n[k];
    mtxt_mul_vect_3d(w_in_b, s.nav.cbn, w_in);
    for (int k = 0; k < 3; ++k) w_nb[k] = w_ib[k] - w_in_b[k];
    cross_prod(lever_rate_b, w_nb, kLever);
    mtx_mul_vect_3d(s.a, s.nav.cbn, lever_rate_b);
    for (int k = 0; k < 3; ++k) s.nav.v_n[k] = v_ant_n[k] + s.a[k];
    kftest::transport_rate(s.nav.wen_n, s.nav, s.nav.v_n);
    llh2ecef(imu_e, s.nav.llh);  // antenna = IMU - cne cbn l
    mtx_mul_vect_3d(lever_n, s.nav.cbn, kLever);
    mtx_mul_vect_3d(lever_e, s.nav.cne, lever_n);
    for (int k = 0; k < 3; ++k) s.pos[k] = imu_e[k] - lever_e[k];
    return s;
}

const double kRph[3] = {0.12, -0.08, 1.9}, kVantN[3] = {0.8, -0.4, 0.1}, kWib[3] = {0.3, -0.5, 0.9};

}  // namespace

// One update with the INS position off by a metre or two: the position is
// reset to the antenna displaced by cbn l (cbn from before the update),
// velocity and attitude stay, gravity is refreshed, and the covariance is the
// textbook filter's with H = [I3 | -[a x] | 0] and the floored deviations.
TEST(KfGnssUpdate, ResetsPositionToDisplacedAntennaAndFloorsVelocityDeviations) {
    const struct { float reported[3]; double used[3]; } cases[] = {
        {{0.005f, 0.02f, 0.01f}, {0.008, 0.02, 0.015}},
        {{0.05f, 0.007f, 0.2f}, {0.05, 0.008, 0.2}},
    };
    const double zero[3] = {0.0, 0.0, 0.0};
    for (const auto &c : cases)
        for (int n : {6, 12}) {
            Scene s = make_scene(kRph, kVantN, kWib);
            double llh_g[3], rm, rn, l_n[3];
            ecef2llh(llh_g, s.pos);
            calc_radius(&rm, &rn, sin(llh_g[0]));
            mtx_mul_vect_3d(l_n, s.nav.cbn, kLever);
            Mat H(3, n);
            for (int k = 0; k < 3; ++k) H(k, k) = 1.0;
            kftest::put_skew(H, 0, 3, s.a, -1.0);
            KfFilter flt = kftest::make_filter(n, kBankSeed);
            const Mat want = kftest::textbook_update(kftest::covariance(flt.L, n), H, zero, c.used, nullptr);
            s.nav.llh[0] += 1.2 / (s.nav.rm + 45.0);
            s.nav.llh[1] -= 0.8 / ((s.nav.rn + 45.0) * s.nav.cos_lat);
            s.nav.llh[2] += 0.6;
            llh2qne(s.nav.qne, s.nav.llh);
            quat2dcm(s.nav.cne, s.nav.qne);
            const NavState before = s.nav;
            KFUpdateGnssSol(&flt, &s.nav, s.pos, s.vel, s.w_ib, c.reported);
            EXPECT_LT(kftest::rel_err(kftest::covariance(flt.L, n), want), 1e-6) << n << ": " << c.reported[0];
            EXPECT_NEAR((s.nav.llh[0] - llh_g[0]) * (rm + llh_g[2]), l_n[0], 1e-6) << n;
            EXPECT_NEAR((s.nav.llh[1] - llh_g[1]) * (rn + llh_g[2]) * cos(llh_g[0]), l_n[1], 1e-6) << n;
            EXPECT_NEAR(s.nav.llh[2], llh_g[2] - l_n[2], 1e-6) << n;
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(s.nav.v_n[k], before.v_n[k], 1e-6);
            for (int k = 0; k < 9; ++k) EXPECT_NEAR(s.nav.cbn[k], before.cbn[k], 1e-6);
            EXPECT_NEAR(s.nav.g_n[2], local_gravity_v2(sin(s.nav.llh[0]), s.nav.llh[2]), 2e-4);
        }
}
