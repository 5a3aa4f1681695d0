// GNSS update geometry (lever arm, position reset, measurement noise floors)
// and the filter's behaviour over time on a static scene.
#include <gtest/gtest.h>

#include "dr_global_var.h"
#include "kf_test_util.h"

using kftest::Mat;

namespace {

const double kLever[3] = {-0.03404, -0.05097, -0.01432};  // m, body: IMU seen from the antenna

struct Scene {
    NavState nav;      // IMU state consistent with the antenna below
    double pos[3];     // antenna, ECEF, m
    double vel[3];     // antenna, ECEF, m/s
    double w_ib[3];    // rad/s, body
};

// Antenna velocity in ECEF and body rate given; the IMU velocity follows
// from v_imu = v_ant + cbn (w_nb x l), w_nb = w_ib - cbn^T (wie_n + wen_n(v_ant)).
Scene make_scene(const double *rph, const double *v_ant_n, const double *w_ib) {
    memcpy(g_level_arm_b, kLever, sizeof kLever);
    Scene s;
    const double lat = 0.7, lon = -1.3, h = 45.0;
    s.nav = kftest::make_nav(lat, lon, h, v_ant_n, rph);
    memcpy(s.w_ib, w_ib, sizeof s.w_ib);

    kftest::mat3_vec(s.vel, s.nav.cne, v_ant_n);
    double w_en[3];
    w_en[0] = v_ant_n[1] / (s.nav.rn + h);
    w_en[1] = -v_ant_n[0] / (s.nav.rm + h);
    w_en[2] = -v_ant_n[1] * s.nav.sin_lat / (s.nav.cos_lat * (s.nav.rn + h));
    double w_in[3], w_in_b[3], w_nb[3], lever_rate_b[3], lever_rate_n[3];
    for (int k = 0; k < 3; ++k) w_in[k] = s.nav.wie_n[k] + w_en[k];
    kftest::mat3t_vec(w_in_b, s.nav.cbn, w_in);
    for (int k = 0; k < 3; ++k) w_nb[k] = w_ib[k] - w_in_b[k];
    kftest::cross3(lever_rate_b, w_nb, kLever);
    kftest::mat3_vec(lever_rate_n, s.nav.cbn, lever_rate_b);
    for (int k = 0; k < 3; ++k) s.nav.v_n[k] = v_ant_n[k] + lever_rate_n[k];
    s.nav.wen_n[0] = s.nav.v_n[1] / (s.nav.rn + h);
    s.nav.wen_n[1] = -s.nav.v_n[0] / (s.nav.rm + h);
    s.nav.wen_n[2] = -s.nav.v_n[1] * s.nav.sin_lat / (s.nav.cos_lat * (s.nav.rn + h));

    // Antenna = IMU - cne cbn l.
    double imu_e[3], lever_n[3], lever_e[3];
    llh2ecef(imu_e, s.nav.llh);
    kftest::mat3_vec(lever_n, s.nav.cbn, kLever);
    kftest::mat3_vec(lever_e, s.nav.cne, lever_n);
    for (int k = 0; k < 3; ++k) s.pos[k] = imu_e[k] - lever_e[k];
    return s;
}

KfFilter seeded_filter(int n) {
    KfFilter flt;
    memset(&flt, 0, sizeof flt);
    flt.state_dim = static_cast<uint8_t>(n);
    const double diag[12] = {0.1, 0.1, 0.1, 0.5235987755982988, 0.5235987755982988,
                             0.5235987755982988, 0.15, 0.15, 0.15, 0.0035, 0.0035, 0.0035};
    for (int i = 0; i < n; ++i) flt.L[i * (i + 1) / 2 + i] = diag[i];
    return flt;
}

// Expected IMU position: the antenna position displaced by cbn l.
void displaced_antenna(double *llh, const double *pos, const double *cbn) {
    double llh_g[3];
    ecef2llh(llh_g, pos);
    double rm, rn;
    calc_radius(&rm, &rn, sin(llh_g[0]));
    double l_n[3];
    kftest::mat3_vec(l_n, cbn, kLever);
    llh[0] = llh_g[0] + l_n[0] / (rm + llh_g[2]);
    llh[1] = llh_g[1] + l_n[1] / ((rn + llh_g[2]) * cos(llh_g[0]));
    llh[2] = llh_g[2] - l_n[2];
}

const double kRph[3] = {0.12, -0.08, 1.9};
const double kVantN[3] = {0.8, -0.4, 0.1};
const double kWib[3] = {0.3, -0.5, 0.9};

}  // namespace

TEST(KfGnssUpdate, SeededVelocityGivesZeroInnovation) {
    const Scene s = make_scene(kRph, kVantN, kWib);
    double z[3];
    DifImuVelWithGnss(z, &s.nav, s.vel, s.w_ib);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(z[k], 0.0, 1e-12) << k;
    // The lever-arm term is really exercised: without it the innovation is not zero.
    const double no_rate[3] = {0.0, 0.0, 0.0};
    DifImuVelWithGnss(z, &s.nav, s.vel, no_rate);
    EXPECT_GT(fabs(z[0]) + fabs(z[1]) + fabs(z[2]), 1e-2);
}

TEST(KfGnssUpdate, PositionDifferenceIsMinusTheOffsetFromTruth) {
    Scene s = make_scene(kRph, kVantN, kWib);
    s.nav.llh[0] += 3.0 / (s.nav.rm + s.nav.llh[2]);
    s.nav.llh[2] -= 1.5;
    double dpos[3];
    DifImuPosWithGnss(dpos, &s.nav, s.pos);
    EXPECT_NEAR(dpos[0], 3.0, 1e-5);
    EXPECT_NEAR(dpos[1], 0.0, 1e-5);
    EXPECT_NEAR(dpos[2], 1.5, 1e-5);
}

TEST(KfGnssUpdate, ResetsPositionToDisplacedAntennaAndKeepsConsistentState) {
    for (int n : {6, 12}) {
        Scene s = make_scene(kRph, kVantN, kWib);
        const double cbn_before[9] = {s.nav.cbn[0], s.nav.cbn[1], s.nav.cbn[2], s.nav.cbn[3], s.nav.cbn[4],
                                      s.nav.cbn[5], s.nav.cbn[6], s.nav.cbn[7], s.nav.cbn[8]};
        // INS position off by a few metres; velocity and attitude right.
        s.nav.llh[0] += 1.2 / (s.nav.rm + s.nav.llh[2]);
        s.nav.llh[1] -= 0.8 / ((s.nav.rn + s.nav.llh[2]) * s.nav.cos_lat);
        s.nav.llh[2] += 0.6;
        llh2qne(s.nav.qne, s.nav.llh);
        quat2dcm(s.nav.cne, s.nav.qne);
        const NavState before = s.nav;
        KfFilter flt = seeded_filter(n);
        const float vel_std[3] = {0.02f, 0.02f, 0.03f};
        KFUpdateGnssSol(&flt, &s.nav, s.pos, s.vel, s.w_ib, vel_std);

        double want[3];
        displaced_antenna(want, s.pos, cbn_before);
        EXPECT_NEAR((s.nav.llh[0] - want[0]) * s.nav.rm, 0.0, 1e-6) << "n = " << n;
        EXPECT_NEAR((s.nav.llh[1] - want[1]) * s.nav.rn * s.nav.cos_lat, 0.0, 1e-6) << "n = " << n;
        EXPECT_NEAR(s.nav.llh[2], want[2], 1e-6) << "n = " << n;
        // Zero innovation: velocity and attitude stay (up to the tiny frame turn of the reset).
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(s.nav.v_n[k], before.v_n[k], 1e-6);
        for (int k = 0; k < 9; ++k) EXPECT_NEAR(s.nav.cbn[k], before.cbn[k], 1e-6);
        // Gravity refreshed for the antenna position: close to normal gravity, pointing down.
        EXPECT_NEAR(s.nav.g_n[2], local_gravity_v2(sin(s.nav.llh[0]), s.nav.llh[2]), 2e-4);
        EXPECT_LT(fabs(s.nav.g_n[0]), 1e-4);
        // The covariance has learned something about velocity.
        EXPECT_LT(get_kf_state_variance(flt.L, 0), 0.01 * 0.01);
    }
}

TEST(KfGnssUpdate, VelocityErrorIsPulledTowardsTheMeasurement) {
    Scene s = make_scene(kRph, kVantN, kWib);
    const double err[3] = {0.4, -0.3, 0.2};  // m/s
    for (int k = 0; k < 3; ++k) s.nav.v_n[k] += err[k];
    KfFilter flt = seeded_filter(12);
    const float vel_std[3] = {0.01f, 0.01f, 0.02f};
    KFUpdateGnssSol(&flt, &s.nav, s.pos, s.vel, s.w_ib, vel_std);
    double z[3];
    DifImuVelWithGnss(z, &s.nav, s.vel, s.w_ib);
    // Prior 0.1 m/s against 0.01 m/s measurements: about 99 % of the error goes.
    for (int k = 0; k < 3; ++k) EXPECT_LT(fabs(z[k]), 0.03 * fabs(err[k])) << k;
}

TEST(KfGnssUpdate, VelocityDeviationsAreFlooredBeforeTheUpdate) {
    const Scene s = make_scene(kRph, kVantN, kWib);
    // Reference: the same update with the floored deviations and a measurement
    // matrix built here from the lever-arm velocity a = cbn (w_nb x l).
    double a[3];
    {
        double v_g[3], w_en[3], w_in[3], w_in_b[3], w_nb[3], lr_b[3];
        kftest::mat3t_vec(v_g, s.nav.cne, s.vel);
        const double h = s.nav.llh[2];
        w_en[0] = v_g[1] / (s.nav.rn + h);
        w_en[1] = -v_g[0] / (s.nav.rm + h);
        w_en[2] = -v_g[1] * s.nav.sin_lat / (s.nav.cos_lat * (s.nav.rn + h));
        for (int k = 0; k < 3; ++k) w_in[k] = s.nav.wie_n[k] + w_en[k];
        kftest::mat3t_vec(w_in_b, s.nav.cbn, w_in);
        for (int k = 0; k < 3; ++k) w_nb[k] = s.w_ib[k] - w_in_b[k];
        kftest::cross3(lr_b, w_nb, kLever);
        kftest::mat3_vec(a, s.nav.cbn, lr_b);
    }
    struct Case {
        float reported[3];
        double used[3];
    };
    const Case cases[] = {
        {{0.005f, 0.02f, 0.01f}, {0.008, 0.02, 0.015}},
        {{0.0f, 0.0f, 0.0f}, {0.008, 0.008, 0.015}},
        {{0.05f, 0.007f, 0.2f}, {0.05, 0.008, 0.2}},
    };
    for (const Case &c : cases) {
        for (int n : {6, 12}) {
            Mat H(3, n);
            for (int k = 0; k < 3; ++k) H(k, k) = 1.0;
            kftest::put_skew(H, 0, 3, a, -1.0);
            KfFilter flt = seeded_filter(n);
            const Mat P0 = kftest::covariance(flt.L, n);
            NavState nav = s.nav;
            KFUpdateGnssSol(&flt, &nav, s.pos, s.vel, s.w_ib, c.reported);

            Mat R(3, 3);
            for (int k = 0; k < 3; ++k) R(k, k) = c.used[k] * c.used[k];
            const Mat pht = kftest::mul(P0, kftest::transpose(H));
            const Mat K = kftest::mul(pht, kftest::inverse(kftest::add(kftest::mul(H, pht), R)));
            const Mat want = kftest::add(P0, kftest::mul(kftest::mul(K, H), P0), -1.0);
            const Mat got = kftest::covariance(flt.L, n);
            EXPECT_LT(kftest::max_abs_diff(got, want), 1e-6 * kftest::max_abs(want))
                << "n = " << n << ", reported " << c.reported[0] << " " << c.reported[1] << " "
                << c.reported[2];
        }
    }
}

// A pole standing still: measurements agree with the truth, the IMU senses only
// gravity and Earth rate. Roll and pitch errors are observable through the
// specific force that they leak into velocity; heading is not, at rest.
TEST(KfConsistency, StaticSceneShrinksTiltButNotHeadingUncertainty) {
    const double rph[3] = {0.03, -0.02, 0.8};
    const double still[3] = {0.0, 0.0, 0.0};
    Scene s = make_scene(rph, still, still);
    s.nav.v_n[0] = s.nav.v_n[1] = s.nav.v_n[2] = 0.0;
    gravity_model_1971(s.nav.g_n, s.pos, s.nav.cne, s.nav.rn, s.nav.llh[2]);
    for (int k = 0; k < 3; ++k) s.nav.f_n[k] = -s.nav.g_n[k];
    double w_ib[3];
    kftest::mat3t_vec(w_ib, s.nav.cbn, s.nav.wie_n);
    double f_b[3];
    kftest::mat3t_vec(f_b, s.nav.cbn, s.nav.f_n);
    double dtheta[6], dvel[6];
    for (int k = 0; k < 3; ++k) {
        dtheta[k] = dtheta[3 + k] = w_ib[k] * 0.01;
        dvel[k] = dvel[3 + k] = f_b[k] * 0.01;
    }
    s.nav.v_n[0] = s.nav.v_n[1] = s.nav.v_n[2] = 0.0;
    const float vel_std[3] = {0.01f, 0.01f, 0.02f};

    for (int n : {6, 12}) {
        NavState nav = s.nav;
        KfFilter flt = seeded_filter(n);
        const double heading_var0 = get_kf_state_variance(flt.L, 5);
        double prev_tilt = 1e9;
        for (int epoch = 0; epoch < 300; ++epoch) {
            for (int j = 0; j < 10; ++j) KFInflatePMatrix(&flt, &nav, dtheta, dvel, 0.01);
            KFUpdateGnssSol(&flt, &nav, s.pos, s.vel, w_ib, vel_std);
            const double tilt = get_kf_state_variance(flt.L, 3) + get_kf_state_variance(flt.L, 4);
            EXPECT_LE(tilt, prev_tilt * (1.0 + 1e-9)) << "n = " << n << ", epoch " << epoch;
            prev_tilt = tilt;
        }
        EXPECT_LT(sqrt(get_kf_state_variance(flt.L, 3)), 0.005) << "n = " << n;
        EXPECT_LT(sqrt(get_kf_state_variance(flt.L, 4)), 0.005) << "n = " << n;
        EXPECT_GT(get_kf_state_variance(flt.L, 5), 0.5 * heading_var0) << "n = " << n;
        // Truth-consistent measurements leave the state where it was.
        for (int k = 0; k < 3; ++k) {
            EXPECT_NEAR(nav.v_n[k], 0.0, 1e-9);
            EXPECT_NEAR(nav.rph[k], s.nav.rph[k], 1e-9);
        }
    }
}
