// Strapdown mechanization: stride splits, the free-fall example, a body at
// rest on the rotating Earth, coning against an analytic attitude, forward
// then backward, the record's invariants, and the interval-length check.
#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "dr_mech_stages.h"
#include "drlib.h"
#include "kf_test_util.h"

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

NavState moving_state() {
    const double rph[3] = {0.1, -0.05, 2.0}, v_n[3] = {3.0, -2.0, 0.2};
    return state_at_rest(0.6, 250.0, rph, v_n);
}

// Rotation angle between two unit quaternions, rad (from the vector part of
// conj(a) b, which keeps full resolution near zero).
double quat_angle(const double *a, const double *b) {
    const double a_conj[4] = {a[0], -a[1], -a[2], -a[3]};
    double d[4];
    quat_prod(d, a_conj, b);
    const double s = sqrt(d[1] * d[1] + d[2] * d[2] + d[3] * d[3]);
    return 2.0 * atan2(s, d[0]);
}

// A smooth run with rotation about changing axes and varying specific force.
constexpr int kRun = 101;
struct IncrementRun {
    double dth[kRun][3];
    double dv[kRun][3];
};
IncrementRun dynamic_run() {
    IncrementRun r;
    for (int k = 0; k < kRun; ++k) {
        const double t = k * kTl;
        r.dth[k][0] = 0.3 * sin(2.1 * t) * kTl;
        r.dth[k][1] = 0.2 * cos(1.3 * t) * kTl;
        r.dth[k][2] = (0.5 + 0.1 * t) * kTl;
        r.dv[k][0] = (0.8 * sin(0.7 * t) + 0.3) * kTl;
        r.dv[k][1] = -0.4 * cos(1.9 * t) * kTl;
        r.dv[k][2] = (-9.8 + 0.5 * sin(3.0 * t)) * kTl;
    }
    return r;
}

bool same_record(const NavState &a, const NavState &b) { return memcmp(&a, &b, sizeof a) == 0; }

// ---------------------------------------------------------------- splits

TEST(MechSplit, ForwardStridesOfTwoWithTailOfUpToThree) {
    const IncrementRun r = dynamic_run();
    struct Case { int n; int strides[5]; } cases[] = {
        {1, {1}}, {3, {3}}, {4, {2, 2}}, {5, {2, 3}}, {10, {2, 2, 2, 2, 2}}};
    for (const auto &c : cases) {
        NavState whole = moving_state(), split = moving_state();
        dr_mech(&whole, r.dth[0], r.dv[0], c.n, kTl);
        int at = 0;
        for (int m : c.strides) {
            if (m == 0) break;
            dr_mech_stride(&split, r.dth[at], r.dv[at], m, kTl);
            at += m;
        }
        EXPECT_TRUE(same_record(whole, split)) << "n = " << c.n;
    }
}

TEST(MechSplit, BackwardStridesTakenFromTheEnd) {
    const IncrementRun r = dynamic_run();
    struct Case { int n; int firsts[5]; int ms[5]; } cases[] = {
        {3, {0}, {3}}, {5, {3, 0}, {2, 3}}, {10, {8, 6, 4, 2, 0}, {2, 2, 2, 2, 2}}};
    for (const auto &c : cases) {
        NavState whole = moving_state(), split = moving_state();
        dr_mech_backward(&whole, r.dth[0], r.dv[0], c.n, kTl);
        for (int s = 0; s < 5 && c.ms[s] != 0; ++s)
            dr_mech_stride_backward(&split, r.dth[c.firsts[s]], r.dv[c.firsts[s]], c.ms[s], kTl);
        EXPECT_TRUE(same_record(whole, split)) << "n = " << c.n;
    }
}

// ---------------------------------------------------------------- stride sums

TEST(MechStrideSums, ConstantIncrementsHaveNoConing) {
    double th[4][3], u[4][3];
    for (int k = 0; k < 4; ++k)
        for (int i = 0; i < 3; ++i) th[k][i] = 1e-3 * (i - 0.5), u[k][i] = 0.01 * (i - 3.0);
    for (int m = 1; m <= 3; ++m) {
        drlib::StrideSums s;
        drlib::accumulate_stride_sums(&s, th[0], u[0], m, kTl);
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(s.beta[i], 0.0, 1e-20);
            EXPECT_NEAR(s.theta[i], m * th[0][i], 1e-18);
        }
    }
}

// ---------------------------------------------------------------- free fall

TEST(MechExamples, FreeFallOneIntervalForwardAndBackward) {
    const double rph[3] = {0.0, 0.0, 0.0};
    NavState nav = state_at_rest(0.5, 100.0, rph);
    const double zero[2][3] = {};
    dr_mech(&nav, zero[0], zero[0], 1, kTl);
    for (int i = 0; i < 3; ++i) {
        EXPECT_DOUBLE_EQ(nav.acc_n[i], nav.g_n[i]);
        EXPECT_DOUBLE_EQ(nav.v_n[i], 0.01 * nav.g_n[i]);
    }
    EXPECT_NEAR(nav.llh[2], 100.0 - 0.5 * nav.g_n[2] * 1e-4, 1e-12);

    nav = state_at_rest(0.5, 100.0, rph);  // ending at rest
    dr_mech_backward(&nav, zero[0], zero[0], 1, kTl);
    // acc = g + Coriolis of the mid-stride velocity -0.005 g.
    double v_mid[3], w[3], cor[3];
    for (int i = 0; i < 3; ++i) {
        v_mid[i] = -0.005 * nav.g_n[i];
        w[i] = 2.0 * nav.wie_n[i];
    }
    cross_prod(cor, v_mid, w);
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(nav.acc_n[i], nav.g_n[i] + cor[i], 1e-13);
        EXPECT_DOUBLE_EQ(nav.v_n[i], -0.01 * nav.acc_n[i]);
    }
    EXPECT_NEAR(nav.llh[2], 100.0 - 0.5 * nav.acc_n[2] * 1e-4, 1e-12);
}

// ---------------------------------------------------------------- physics

// A body carried along by the n frame at constant velocity v_n (level
// flight over the ellipsoid, or rest for v_n = 0): it turns with Earth rate
// plus transport rate, and its accelerometers read minus gravity minus the
// Coriolis and centripetal terms that hold v_n constant. Exact increments
// from the start state; returns the final state.
NavState carried_by_nframe(const double *rph, const double *v_n, int steps, int per_call) {
    NavState nav = state_at_rest(0.5, 100.0, rph, v_n);
    double w_n[3], w2[3], cor[3], f_n[3], w_b[3], f_b[3];
    for (int i = 0; i < 3; ++i) {
        w_n[i] = nav.wie_n[i] + nav.wen_n[i];
        w2[i] = 2.0 * nav.wie_n[i] + nav.wen_n[i];
    }
    cross_prod(cor, nav.v_n, w2);
    for (int i = 0; i < 3; ++i) f_n[i] = -nav.g_n[i] - cor[i];
    mtxt_mul_vect_3d(w_b, nav.cbn, w_n);
    mtxt_mul_vect_3d(f_b, nav.cbn, f_n);
    double dth[11][3], dv[11][3];
    for (int k = 0; k < 11; ++k) {
        for (int i = 0; i < 3; ++i) {
            dth[k][i] = w_b[i] * kTl;
            dv[k][i] = f_b[i] * kTl;
        }
    }
    for (int step = 0; step < steps; step += per_call) dr_mech(&nav, dth[0], dv[0], per_call, kTl);
    return nav;
}

// North, east, down displacement between two records, m.
void displacement_m(double *d, const NavState &a, const NavState &b) {
    d[0] = (b.llh[0] - a.llh[0]) * (a.rm + a.llh[2]);
    d[1] = (b.llh[1] - a.llh[1]) * a.cos_lat * (a.rn + a.llh[2]);
    d[2] = a.llh[2] - b.llh[2];
}

TEST(MechPhysics, StationaryImuStaysAtRestFor60s) {
    const double level_north[3] = {0.0, 0.0, 0.0};
    // 20 degrees of tilt split over roll and pitch, heading 135 degrees.
    const double tilted[3] = {12.0 * kDeg, acos(cos(20.0 * kDeg) / cos(12.0 * kDeg)), 135.0 * kDeg};
    const double rest[3] = {0.0, 0.0, 0.0};
    for (const double *rph : {level_north, tilted}) {
        for (int per_call : {1, 10}) {
            const NavState start = state_at_rest(0.5, 100.0, rph);
            const NavState nav = carried_by_nframe(rph, rest, 6000, per_call);
            double d[3];
            displacement_m(d, start, nav);
            const double vel = absvect3d(nav.v_n), pos = absvect3d(d);
            const double att = quat_angle(nav.qbn, start.qbn);
            printf("at rest 60 s, heading %.0f deg, n=%d: |v| %.3g m/s, |dr| %.3g m, att %.3g rad\n",
                   rph[2] / kDeg, per_call, vel, pos, att);
            // Measured: |v| <= 3e-10 m/s, |dr| <= 7.4e-9 m, attitude <= 3.5e-13 rad.
            EXPECT_LT(vel, 5e-9);
            EXPECT_LT(pos, 1e-7);
            EXPECT_LT(att, 1e-10);
        }
    }
}

TEST(MechPhysics, SteadyMotionNorthAndEastFollowsTheEllipsoid) {
    const double rph[3] = {0.0, 0.0, 0.0};
    const NavState start = state_at_rest(0.5, 100.0, rph);
    for (int east = 0; east < 2; ++east) {
        const double v_n[3] = {east ? 0.0 : 10.0, east ? 10.0 : 0.0, 0.0};
        const NavState nav = carried_by_nframe(rph, v_n, 1000, 1);
        double d[3], dv_n[3];
        displacement_m(d, start, nav);
        for (int i = 0; i < 3; ++i) dv_n[i] = nav.v_n[i] - v_n[i];
        // The increments hold the start's Earth rate and radii; over 100 m
        // that leaves (measured) 7e-6 m along, 5e-7 m across, 2e-7 m/s, 6e-9 rad.
        EXPECT_NEAR(d[east], 100.0, 1e-4);
        EXPECT_NEAR(d[1 - east], 0.0, 1e-5);
        EXPECT_NEAR(d[2], 0.0, 1e-8);
        EXPECT_LT(absvect3d(dv_n), 2e-6);
        EXPECT_LT(quat_angle(nav.qbn, start.qbn), 5e-8);
    }
}

// Classic coning: the body axis set turns by alpha about an axis that sweeps
// the y-z plane at omega. Attitude relative to inertial space:
// q(t) = (cos(a/2), 0, sin(a/2) cos(wt), sin(a/2) sin(wt)), body rate
// (-2 w sin^2(a/2), -w sin(a) sin(wt), w sin(a) cos(wt)).
double coning_error(drlib::Coning coning) {
    constexpr double kAlpha = 0.1, kOmega = 2.0 * 3.141592653589793 * 2.0;
    const double rph[3] = {0.0, 0.0, 0.0};
    NavState nav = state_at_rest(0.5, 100.0, rph);
    // Gravity-free world with no specific force: the record stays at rest and
    // only the attitude moves.
    nav.g_n[0] = nav.g_n[1] = nav.g_n[2] = 0.0;
    const double q_cone0[4] = {cos(kAlpha / 2.0), 0.0, sin(kAlpha / 2.0), 0.0};
    memcpy(nav.qbn, q_cone0, sizeof q_cone0);
    quat2dcm(nav.cbn, nav.qbn);
    const double wie_n[3] = {nav.wie_n[0], nav.wie_n[1], nav.wie_n[2]};

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
        drlib::mech_stride_forward(&nav, dth[0], dv[0], 1, kTl, coning);
    }
    // Truth: the coning attitude seen from the n frame, which turned with the Earth.
    const double t = kSteps * kTl;
    const double q_cone[4] = {cos(kAlpha / 2.0), 0.0, sin(kAlpha / 2.0) * cos(kOmega * t),
                              sin(kAlpha / 2.0) * sin(kOmega * t)};
    const double earth_turn[3] = {-wie_n[0] * t, -wie_n[1] * t, -wie_n[2] * t};
    double q_earth[4], truth[4];
    rotvec2quat(q_earth, earth_turn);
    quat_prod(truth, q_earth, q_cone);
    return quat_angle(nav.qbn, truth);
}

TEST(MechPhysics, ConingCorrectionTracksAnalyticAttitude) {
    const double with = coning_error(drlib::Coning::kCompensated);
    const double without = coning_error(drlib::Coning::kIgnored);
    printf("coning over 10 s: error %.3g rad with the correction, %.3g rad without\n", with,
           without);
    EXPECT_LT(with, 1e-5);
    EXPECT_GT(without, 1e-3);
}

TEST(MechPhysics, ForwardThenBackwardReturnsToTheStart) {
    const IncrementRun r = dynamic_run();
    NavState nav = moving_state();
    const NavState start = nav;
    for (int e = 0; e < 10; ++e) dr_mech(&nav, r.dth[10 * e], r.dv[10 * e], 10, kTl);
    for (int e = 9; e >= 0; --e) dr_mech_backward(&nav, r.dth[10 * e], r.dv[10 * e], 10, kTl);
    double dv[3];
    for (int i = 0; i < 3; ++i) dv[i] = nav.v_n[i] - start.v_n[i];
    EXPECT_LT(quat_angle(nav.qbn, start.qbn), 1e-9);
    EXPECT_LT(quat_angle(nav.qne, start.qne), 1e-12);
    EXPECT_LT(absvect3d(dv), 2e-7);
    EXPECT_NEAR(nav.llh[2], start.llh[2], 3e-8);
    EXPECT_FALSE(same_record(nav, start));
}

// ---------------------------------------------------------------- record

void expect_invariants(const NavState &nav, const NavState &start) {
    double m[9], rph[3], llh[3] = {0.0, 0.0, 0.0}, rm, rn, wie[3];
    quat2dcm(m, nav.qne);
    EXPECT_EQ(memcmp(m, nav.cne, sizeof m), 0);
    quat2dcm(m, nav.qbn);
    EXPECT_EQ(memcmp(m, nav.cbn, sizeof m), 0);
    cbn2rph(rph, nav.cbn);
    EXPECT_EQ(memcmp(rph, nav.rph, sizeof rph), 0);
    cne2llh(llh, nav.cne);
    EXPECT_TRUE(llh[0] == nav.llh[0] && llh[1] == nav.llh[1]);
    EXPECT_TRUE(nav.cos_lat == nav.cne[6] && nav.sin_lat == -nav.cne[8]);
    EXPECT_TRUE(nav.cos_lon == nav.cne[4] && nav.sin_lon == -nav.cne[1]);
    calc_radius(&rm, &rn, nav.sin_lat);
    EXPECT_TRUE(rm == nav.rm && rn == nav.rn);
    calc_wie_n(wie, nav.llh[0]);
    EXPECT_EQ(memcmp(wie, nav.wie_n, sizeof wie), 0);
    // Transport rate of the new velocity: east velocity over the prime-vertical
    // radius, north velocity over the meridian radius, tan(lat) for the vertical.
    const double h = nav.llh[2];
    EXPECT_DOUBLE_EQ(nav.wen_n[0], nav.v_n[1] / (nav.rn + h));
    EXPECT_DOUBLE_EQ(nav.wen_n[1], -nav.v_n[0] / (nav.rm + h));
    EXPECT_DOUBLE_EQ(nav.wen_n[2], -nav.v_n[1] * tan(nav.llh[0]) / (nav.rn + h));
    EXPECT_EQ(memcmp(nav.g_n, start.g_n, sizeof nav.g_n), 0);
}

TEST(MechRecord, InvariantsHoldAfterStridesBothWays) {
    const IncrementRun r = dynamic_run();
    NavState nav = moving_state();
    const NavState start = nav;
    for (int e = 0; e < 10; ++e) {
        dr_mech(&nav, r.dth[10 * e], r.dv[10 * e], 10, kTl);
        expect_invariants(nav, start);
    }
    dr_mech_backward(&nav, r.dth[0], r.dv[0], 7, kTl);
    expect_invariants(nav, start);
}

// ---------------------------------------------------------------- poles

TEST(MechPoles, StridesAtAndNearThePolesStayFinite) {
    const IncrementRun r = dynamic_run();
    const double rph[3] = {0.0, 0.0, 1.0};
    for (double lat : {1.5707963267948966, 1.5707963257948966, -1.5707963267948966}) {
        NavState nav = state_at_rest(lat, 0.0, rph);
        nav.v_n[0] = 0.5;
        nav.v_n[1] = 1.0;
        for (int e = 0; e < 10; ++e) dr_mech(&nav, r.dth[10 * e], r.dv[10 * e], 10, kTl);
        const double *fields = nav.llh;
        for (int i = 0; i < 56; ++i) EXPECT_TRUE(isfinite(fields[i])) << "field " << i << " lat " << lat;
    }
    // Rounding can push the down axis a hair past unit length at a pole.
    double cne[9] = {0, 0, 0, 0, 1, 0, 0, 0, -1.0000000000000002}, llh[3];
    cne2llh(llh, cne);
    EXPECT_EQ(llh[0], 1.5707963267948966);
}

// ---------------------------------------------------------------- checks

TEST(MechDeathTest, IntervalLengthMustExceedOneMicrosecond) {
    GTEST_FLAG_SET(death_test_style, DRLIB_DEATH_TEST_STYLE);
    NavState nav = moving_state();
    const double zero[4][3] = {};
    EXPECT_DEATH(dr_mech_stride(&nav, zero[0], zero[0], 1, 1e-6),
                 "Alg_DR/src/dr_mech:25: dr_mech_stride: Assertion `tl > 1e-6' failed");
    EXPECT_DEATH(dr_mech_stride_backward(&nav, zero[0], zero[0], 1, NAN),
                 "Alg_DR/src/dr_mech:289: dr_mech_stride_backward: Assertion `tl > 1e-6' failed");
}

}  // namespace
