// Strapdown mechanization: the free-fall example, a body at rest on the
// rotating Earth, coning against an analytic attitude, forward then backward
// with the record's invariants, and the interval-length check.

#include "dr_mech_stages.h"
#include "matrix_test_util.h"

namespace {

constexpr double kTl = 0.01;
constexpr double kDeg = 0.017453292519943295;

// A record with every derived field filled (as the start from GNSS fills
// them) and the gravity of its place.
NavState state_at_rest(double lat, double h, const double *rph, const double *v_n = nullptr) {
    const double still[3] = {0.0, 0.0, 0.0};
    NavState nav = kftest::make_nav(lat, 0.3, h, v_n ? v_n : still, rph);
    double r_e[3];
    llh2ecef(r_e, nav.llh);
    gravity_model_1971(nav.g_n, r_e, nav.cne, nav.rn, h);
    return nav;
}

// Rotation angle between two unit quaternions, rad (from the vector part of
// conj(a) b, which keeps full resolution near zero).
double quat_angle(const double *a, const double *b) {
    const double a_conj[4] = {a[0], -a[1], -a[2], -a[3]};
    double d[4];
    quat_prod(d, a_conj, b);
    return 2.0 * atan2(sqrt(d[1] * d[1] + d[2] * d[2] + d[3] * d[3]), d[0]);
}

// Free fall over one interval gains g dt and drops g dt^2 / 2. A body at rest
// turns with the Earth and its accelerometers read minus gravity: exact
// increments, 60 s in calls of one stride and of 2 + 3.
TEST(MechPhysics, FreeFallThenStationaryImuAtRestFor60s) {
    const double level_north[3] = {0.0, 0.0, 0.0}, zero[2][3] = {};
    NavState fall = state_at_rest(0.5, 100.0, level_north);
    dr_mech(&fall, zero[0], zero[0], 1, kTl);
    for (int i = 0; i < 3; ++i) {
        EXPECT_DOUBLE_EQ(fall.acc_n[i], fall.g_n[i]);
        EXPECT_DOUBLE_EQ(fall.v_n[i], 0.01 * fall.g_n[i]);
    }
    EXPECT_NEAR(fall.llh[2], 100.0 - 0.5 * fall.g_n[2] * 1e-4, 1e-12);
    // 20 degrees of tilt split over roll and pitch, heading 135 degrees.
    const double tilted[3] = {12.0 * kDeg, acos(cos(20.0 * kDeg) / cos(12.0 * kDeg)), 135.0 * kDeg};
    for (const double *rph : {level_north, tilted}) {
        for (int per_call : {1, 5}) {
            const NavState start = state_at_rest(0.5, 100.0, rph);
            NavState nav = start;
            double f_n[3], w_b[3], f_b[3], dth[6][3], dv[6][3];  // n + 1 increments per call
            for (int i = 0; i < 3; ++i) f_n[i] = -nav.g_n[i];
            mtxt_mul_vect_3d(w_b, nav.cbn, nav.wie_n);
            mtxt_mul_vect_3d(f_b, nav.cbn, f_n);
            for (int k = 0; k < 6; ++k)
                for (int i = 0; i < 3; ++i) dth[k][i] = w_b[i] * kTl, dv[k][i] = f_b[i] * kTl;
            for (int step = 0; step < 6000; step += per_call) dr_mech(&nav, dth[0], dv[0], per_call, kTl);
            const double d[3] = {(nav.llh[0] - start.llh[0]) * (start.rm + 100.0),
                                 (nav.llh[1] - start.llh[1]) * start.cos_lat * (start.rn + 100.0), nav.llh[2] - start.llh[2]};
            // Measured: |v| <= 3e-10 m/s, |dr| <= 7.4e-9 m, attitude <= 3.5e-13 rad.
            EXPECT_TRUE(absvect3d(nav.v_n) < 5e-9 && absvect3d(d) < 1e-7 && quat_angle(nav.qbn, start.qbn) < 1e-10)
                << per_call;
        }
    }
}

// Classic coning: the body axis set turns by alpha about an axis that sweeps
// the y-z plane at omega. Attitude relative to inertial space:
// q(t) = (cos(a/2), 0, sin(a/2) cos(wt), sin(a/2) sin(wt)), body rate
// (-2 w sin^2(a/2), -w sin(a) sin(wt), w sin(a) cos(wt)). Without the coning
// correction the error exceeds 1e-3 rad (measured).
TEST(MechPhysics, ConingCorrectionTracksAnalyticAttitude) {
    constexpr double kAlpha = 0.1, kOmega = 2.0 * 3.141592653589793 * 2.0;
    const double rph[3] = {0.0, 0.0, 0.0};
    NavState nav = state_at_rest(0.5, 100.0, rph);
    // Gravity-free and force-free: only the attitude moves.
    nav.g_n[0] = nav.g_n[1] = nav.g_n[2] = 0.0;
    const double q_cone0[4] = {cos(kAlpha / 2.0), 0.0, sin(kAlpha / 2.0), 0.0};
    memcpy(nav.qbn, q_cone0, sizeof q_cone0);
    quat2dcm(nav.cbn, nav.qbn);

    auto increment = [&](int k, double *th) {
        const double t1 = (k - 1) * kTl, t2 = k * kTl;
        th[0] = -2.0 * kOmega * sin(kAlpha / 2.0) * sin(kAlpha / 2.0) * kTl;
        th[1] = sin(kAlpha) * (cos(kOmega * t2) - cos(kOmega * t1));
        th[2] = sin(kAlpha) * (sin(kOmega * t2) - sin(kOmega * t1));
    };
    double dth[2][3];
    const double dv[2][3] = {};
    increment(0, dth[1]);
    constexpr int kSteps = 1000;
    for (int k = 1; k <= kSteps; ++k) {
        memcpy(dth[0], dth[1], sizeof dth[0]);
        increment(k, dth[1]);
        dr_mech_stride(&nav, dth[0], dv[0], 1, kTl);
    }
    // Truth: the coning attitude seen from the n frame, which turned with the Earth.
    const double t = kSteps * kTl;
    const double q_cone[4] = {cos(kAlpha / 2.0), 0.0, sin(kAlpha / 2.0) * cos(kOmega * t),
                              sin(kAlpha / 2.0) * sin(kOmega * t)};
    const double earth_turn[3] = {-nav.wie_n[0] * t, -nav.wie_n[1] * t, -nav.wie_n[2] * t};
    double q_earth[4], truth[4];
    rotvec2quat(q_earth, earth_turn);
    quat_prod(truth, q_earth, q_cone);
    EXPECT_LT(quat_angle(nav.qbn, truth), 1e-5);
}

// The vertical transport rate divides by cos_lat as it stands (signed, and
// whatever value the record holds) until its magnitude falls below 1e-5,
// within 64 m of a pole, where 1e-5 with its sign keeps the rate finite.
TEST(MechPhysics, TransportRateGuardsOnlyTheLastMetresToThePole) {
    NavState nav{};
    nav.rn = 6.39e6, nav.rm = 6.36e6, nav.llh[2] = 100.0, nav.sin_lat = 1.0;
    const double v_n[3] = {1.5, 2.0, 0.0}, rn_h = 6.39e6 + 100.0;
    const struct { double cos_lat, divisor; } cases[] = {
        {0.5, 0.5}, {-0.5, -0.5}, {1e-5, 1e-5}, {-1e-5, -1e-5}, {9e-6, 1e-5}, {-9e-6, -1e-5}, {0.0, 1e-5}, {-0.0, -1e-5}};
    for (const auto &c : cases) {
        nav.cos_lat = c.cos_lat;
        double w[3];
        drlib::transport_rate(w, v_n, &nav);
        EXPECT_TRUE(w[0] == 2.0 / rn_h && w[1] == -1.5 / (6.36e6 + 100.0) && w[2] == -2.0 / (c.divisor * rn_h)) << c.cos_lat;
    }
}

// The derived fields of the record agree with its quaternions, position and velocity.
void expect_invariants(const NavState &nav, const NavState &start) {
    double cne[9], cbn[9], rph[3], llh[3] = {0.0, 0.0, 0.0}, rm, rn, wie[3];
    quat2dcm(cne, nav.qne), quat2dcm(cbn, nav.qbn), cbn2rph(rph, nav.cbn), cne2llh(llh, nav.cne);
    calc_radius(&rm, &rn, nav.sin_lat), calc_wie_n(wie, nav.llh[0]);
    EXPECT_TRUE(!memcmp(cne, nav.cne, sizeof cne) && !memcmp(cbn, nav.cbn, sizeof cbn) &&
                !memcmp(rph, nav.rph, sizeof rph) && !memcmp(wie, nav.wie_n, sizeof wie));
    EXPECT_TRUE(llh[0] == nav.llh[0] && llh[1] == nav.llh[1] && rm == nav.rm && rn == nav.rn &&
                nav.cos_lat == nav.cne[6] && nav.sin_lat == -nav.cne[8] && nav.cos_lon == nav.cne[4] &&
                nav.sin_lon == -nav.cne[1]);
    // Transport rate: east velocity over the prime-vertical radius, north
    // velocity over the meridian radius, tan(lat) for the vertical.
    const double h = nav.llh[2];
    EXPECT_DOUBLE_EQ(nav.wen_n[0], nav.v_n[1] / (nav.rn + h));
    EXPECT_DOUBLE_EQ(nav.wen_n[1], -nav.v_n[0] / (nav.rm + h));
    EXPECT_DOUBLE_EQ(nav.wen_n[2], -nav.v_n[1] * tan(nav.llh[0]) / (nav.rn + h));
    EXPECT_EQ(memcmp(nav.g_n, start.g_n, sizeof nav.g_n), 0);
}

// A smooth run with rotation about changing axes and varying specific force,
// ten epochs forward and the same increments backward.
TEST(MechPhysics, ForwardThenBackwardReturnsToTheStart) {
    double dth[101][3], dv[101][3];
    for (int k = 0; k <= 100; ++k) {
        const double t = k * kTl;
        const double w[3] = {0.3 * sin(2.1 * t), 0.2 * cos(1.3 * t), 0.5 + 0.1 * t};
        const double f[3] = {0.8 * sin(0.7 * t) + 0.3, -0.4 * cos(1.9 * t), -9.8 + 0.5 * sin(3.0 * t)};
        for (int i = 0; i < 3; ++i) dth[k][i] = w[i] * kTl, dv[k][i] = f[i] * kTl;
    }
    const double rph[3] = {0.1, -0.05, 2.0}, v_n[3] = {3.0, -2.0, 0.2};
    NavState nav = state_at_rest(0.6, 250.0, rph, v_n);
    const NavState start = nav;
    for (int e = 0; e < 10; ++e) {
        dr_mech(&nav, dth[10 * e], dv[10 * e], 10, kTl);
        expect_invariants(nav, start);
    }
    for (int e = 9; e >= 0; --e) dr_mech_backward(&nav, dth[10 * e], dv[10 * e], 10, kTl);
    expect_invariants(nav, start);
    const double d_v[3] = {nav.v_n[0] - start.v_n[0], nav.v_n[1] - start.v_n[1], nav.v_n[2] - start.v_n[2]};
    EXPECT_TRUE(quat_angle(nav.qbn, start.qbn) < 1e-9 && quat_angle(nav.qne, start.qne) < 1e-12);
    EXPECT_TRUE(absvect3d(d_v) < 2e-7 && std::fabs(nav.llh[2] - start.llh[2]) < 3e-8);
    EXPECT_NE(memcmp(&nav, &start, sizeof nav), 0);
}

// ---------------------------------------------------------------- checks

TEST(MechDeathTest, IntervalLengthMustExceedOneMicrosecond) {
    GTEST_FLAG_SET(death_test_style, DRLIB_DEATH_TEST_STYLE);
    const double zero[4][3] = {};
    NavState nav = state_at_rest(0.6, 250.0, zero[0]);
    EXPECT_DEATH(dr_mech_stride(&nav, zero[0], zero[0], 1, 1e-6),
                 "Alg_DR/src/dr_mech:25: dr_mech_stride: Assertion `tl > 1e-6' failed");
    EXPECT_DEATH(dr_mech_stride_backward(&nav, zero[0], zero[0], 1, NAN),
                 "Alg_DR/src/dr_mech:289: dr_mech_stride_backward: Assertion `tl > 1e-6' failed");
}

}  // namespace
