// Bank start on synthetic histories of a body with known attitude, position,
// velocity and rotation; truths from textbook formulas written here.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "drlib.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDeg = kPi / 180.0;
constexpr double kLever_m[3] = {-0.03404, -0.05097, -0.01432};
constexpr uint32_t kEntries = 20;

struct Mat3 {
    double m[9];
};

Mat3 mul(const Mat3 &a, const Mat3 &b) {
    Mat3 r{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k) r.m[3 * i + j] += a.m[3 * i + k] * b.m[3 * k + j];
    return r;
}
void apply(double *out, const double *m, const double *v) {
    for (int i = 0; i < 3; ++i) out[i] = m[3 * i] * v[0] + m[3 * i + 1] * v[1] + m[3 * i + 2] * v[2];
}
void apply_t(double *out, const double *m, const double *v) {
    for (int i = 0; i < 3; ++i) out[i] = m[i] * v[0] + m[3 + i] * v[1] + m[6 + i] * v[2];
}
Mat3 rot_x(double a) { return {{1, 0, 0, 0, std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a)}}; }
Mat3 rot_y(double a) { return {{std::cos(a), 0, std::sin(a), 0, 1, 0, -std::sin(a), 0, std::cos(a)}}; }
Mat3 rot_z(double a) { return {{std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a), 0, 0, 0, 1}}; }
Mat3 body_to_nav(double roll, double pitch, double heading) {
    return mul(rot_z(heading), mul(rot_y(pitch), rot_x(roll)));
}
// Rodrigues: rotation by angle about the unit axis k.
Mat3 axis_angle(const double *k, double angle) {
    const double c = std::cos(angle), s = std::sin(angle), v = 1.0 - c;
    return {{c + k[0] * k[0] * v, k[0] * k[1] * v - k[2] * s, k[0] * k[2] * v + k[1] * s,
             k[1] * k[0] * v + k[2] * s, c + k[1] * k[1] * v, k[1] * k[2] * v - k[0] * s,
             k[2] * k[0] * v - k[1] * s, k[2] * k[1] * v + k[0] * s, c + k[2] * k[2] * v}};
}
// North, east, down axes in ECEF as the columns.
Mat3 nav_to_ecef(double lat, double lon) {
    const double sl = std::sin(lat), cl = std::cos(lat), so = std::sin(lon), co = std::cos(lon);
    return {{-sl * co, -so, -cl * co, -sl * so, co, -cl * so, cl, 0, -sl}};
}
void geodetic_to_ecef(double *r, double lat, double lon, double h) {
    const double a = 6378137.0, e2 = 0.00669437999014;
    const double n = a / std::sqrt(1.0 - e2 * std::sin(lat) * std::sin(lat));
    r[0] = (n + h) * std::cos(lat) * std::cos(lon);
    r[1] = (n + h) * std::cos(lat) * std::sin(lon);
    r[2] = (n * (1.0 - e2) + h) * std::sin(lat);
}
double wrap_pi(double a) {
    while (a > kPi) a -= 2.0 * kPi;
    while (a <= -kPi) a += 2.0 * kPi;
    return a;
}
double angle_between(const double *a, const double *b) {
    const double dot = a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
    const double c[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
    return std::atan2(std::sqrt(c[0] * c[0] + c[1] * c[1] + c[2] * c[2]), dot);
}

// A body at a fixed place; the antenna velocity of the newest entry and the
// one 0.5 s before set the GNSS acceleration, f_b and w_ib the IMU increments.
struct Scene {
    double lat = 0.7, lon = 0.3, h = 120.0;
    double pos_e[3]{};
    double vel_newest_e[3]{};
    double vel_older_e[3]{};
    double f_b[3]{};   // m/s^2
    double w_ib[3]{};  // rad/s
    Mat3 cbn{};
};

double gravity_at(const Scene &s) { return local_gravity_v2(std::sin(s.lat), s.h); }

// Specific force of a body at rest with attitude cbn: gravity held up.
void rest_force(Scene *s) {
    const double f_n[3] = {0.0, 0.0, -gravity_at(*s)};
    apply_t(s->f_b, s->cbn.m, f_n);
}

void write_history(const Scene &s) {
    std::memset(g_FusionInBuf, 0, sizeof g_FusionInBuf);
    for (uint32_t k = 0; k < kEntries; ++k) {
        FusionIn &e = g_FusionInBuf[k];
        e.header.tow_ms = 1000u + 100u * k;
        e.pos_index = k;
        std::memcpy(e.header.pos, s.pos_e, sizeof s.pos_e);
        const double *vel = k == kEntries - 1 ? s.vel_newest_e : s.vel_older_e;
        std::memcpy(e.header.vel, vel, sizeof e.header.vel);
        for (int slot = 0; slot < 11; ++slot)
            for (int c = 0; c < 3; ++c) {
                e.dvel[slot][c] = s.f_b[c] * 0.01;
                e.dtheta[slot][c] = s.w_ib[c] * 0.01;
            }
    }
    g_FusionInPos = kEntries;
    g_FusionInNum = kEntries;
}

class BankStart : public ::testing::Test {
protected:
    void SetUp() override {
        std::memcpy(g_level_arm_b, kLever_m, sizeof kLever_m);
        s_FltState = FLT_STATE_IDLE;
        s_updcnt = 99u;
        std::memset(toggleCnts, 7, sizeof toggleCnts);
        std::memset(NavGp, 0x5a, sizeof NavGp);
        std::memset(FltGp, 0x5a, sizeof FltGp);
        geodetic_to_ecef(scene.pos_e, scene.lat, scene.lon, scene.h);
    }
    void start(const Scene &s) {
        write_history(s);
        InitParelFilter(kEntries - 1);
    }
    void expect_started() {
        EXPECT_EQ(s_FltState, FLT_STATE_CONV);
        EXPECT_EQ(s_updcnt, 0u);
        for (int i = 0; i < kBankSize; ++i) EXPECT_EQ(toggleCnts[i], 0u);
    }
    // Every hypothesis must take the measured force onto the GNSS one.
    void expect_levelled(const double *f_n, double tol_rad) {
        for (int i = 0; i < kBankSize; ++i) {
            double mapped[3];
            apply(mapped, NavGp[i].cbn, scene.f_b);
            EXPECT_LT(angle_between(mapped, f_n), tol_rad) << "hypothesis " << i;
        }
    }
    // The turns are about the specific force, which points up: each step of
    // +20 degrees about it is -20 degrees of heading.
    void expect_headings_20_deg_apart(double tol_rad) {
        for (int i = 1; i < kBankSize; ++i) {
            const double step = wrap_pi(NavGp[i].rph[2] - NavGp[0].rph[2] + 20.0 * kDeg * i);
            EXPECT_LT(std::fabs(step), tol_rad) << "hypothesis " << i;
        }
    }
    Scene scene;
};

TEST_F(BankStart, AtRestLevelsRollAndPitchAndSpreadsHeadings) {
    scene.cbn = body_to_nav(3.0 * kDeg, -2.0 * kDeg, 40.0 * kDeg);
    rest_force(&scene);
    start(scene);
    expect_started();

    const double f_n[3] = {0.0, 0.0, -gravity_at(scene)};
    expect_levelled(f_n, 1e-9);
    for (int i = 0; i < kBankSize; ++i) {
        EXPECT_NEAR(NavGp[i].rph[0], 3.0 * kDeg, 1e-9) << i;
        EXPECT_NEAR(NavGp[i].rph[1], -2.0 * kDeg, 1e-9) << i;
    }
    // The turns below a half-turn come from a truncated series: measured up
    // to 6.7e-4 rad off the exact steps (hypothesis 8, 160 degrees).
    expect_headings_20_deg_apart(1e-3);

    // Hypothesis 0 is the levelling alone: the shortest turn from f_b to f_n.
    double axis[3] = {scene.f_b[1] * f_n[2] - scene.f_b[2] * f_n[1],
                      scene.f_b[2] * f_n[0] - scene.f_b[0] * f_n[2],
                      scene.f_b[0] * f_n[1] - scene.f_b[1] * f_n[0]};
    const double len = std::sqrt(axis[0] * axis[0] + axis[1] * axis[1] + axis[2] * axis[2]);
    for (double &a : axis) a /= len;
    const Mat3 shortest = axis_angle(axis, angle_between(scene.f_b, f_n));
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(NavGp[0].cbn[k], shortest.m[k], 1e-12) << k;
}

// Level attitude also makes the lever's down component a pure height offset.
TEST_F(BankStart, LevelStartSeedsSixStateFiltersAndRaisesTheImuByTheLever) {
    scene.cbn = body_to_nav(0.0, 0.0, 0.0);
    rest_force(&scene);
    start(scene);
    const double expected_var[6] = {0.01, 0.01, 0.01, 0.2741556778080377, 0.2741556778080377,
                                    0.2741556778080377};
    for (int i = 0; i < kBankSize; ++i) {
        const KfFilter &f = FltGp[i];
        EXPECT_EQ(f.state_dim, 6u);
        EXPECT_EQ(f.pos_index, kEntries - 1);
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(f.acc_bias[k], 0.0);
            EXPECT_EQ(f.gyro_bias[k], 0.0);
        }
        for (int s = 0; s < 6; ++s) EXPECT_NEAR(get_kf_state_variance(f.L, s), expected_var[s], 1e-16);
        int nonzero = 0;
        for (double v : f.L) nonzero += v != 0.0;
        EXPECT_EQ(nonzero, 6) << "only the six diagonal entries";
        EXPECT_NEAR(NavGp[i].llh[2], scene.h + 0.01432, 1e-8) << i;
    }
}

TEST_F(BankStart, PositionIsTheAntennaDisplacedByTheTurnedLeverArm) {
    scene.cbn = body_to_nav(5.0 * kDeg, 4.0 * kDeg, 200.0 * kDeg);
    rest_force(&scene);
    start(scene);
    const Mat3 c_en = nav_to_ecef(scene.lat, scene.lon);
    for (int i = 0; i < kBankSize; ++i) {
        double lever_n[3], lever_e[3], imu_e[3];
        apply(lever_n, NavGp[i].cbn, kLever_m);
        apply(lever_e, c_en.m, lever_n);
        geodetic_to_ecef(imu_e, NavGp[i].llh[0], NavGp[i].llh[1], NavGp[i].llh[2]);
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(imu_e[c], scene.pos_e[c] + lever_e[c], 1e-6) << i;
        const Mat3 c_en_imu = nav_to_ecef(NavGp[i].llh[0], NavGp[i].llh[1]);
        for (int k = 0; k < 9; ++k) EXPECT_NEAR(NavGp[i].cne[k], c_en_imu.m[k], 1e-12);
    }
}

TEST_F(BankStart, VelocityCarriesTheAntennaVelocityThroughTheRotatingLever) {
    scene.cbn = body_to_nav(2.0 * kDeg, 1.0 * kDeg, 10.0 * kDeg);
    rest_force(&scene);
    const double v_n[3] = {0.01, -0.02, 0.005};  // steady: no GNSS acceleration
    const Mat3 c_en = nav_to_ecef(scene.lat, scene.lon);
    apply(scene.vel_newest_e, c_en.m, v_n);
    std::memcpy(scene.vel_older_e, scene.vel_newest_e, sizeof scene.vel_older_e);
    const double w_b[3] = {0.3, -0.2, 0.5};  // rad/s
    std::memcpy(scene.w_ib, w_b, sizeof w_b);
    start(scene);
    expect_started();

    for (int i = 0; i < kBankSize; ++i) {
        // Exact inverse of the update's velocity innovation.
        double z[3];
        DifImuVelWithGnss(z, &NavGp[i], scene.vel_newest_e, w_b);
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(z[c], 0.0, 1e-15) << i;

        // Physics: the lever end moves at d(cbn l)/dt; central difference over
        // +-1 ms of the body turning at w_b (Earth and transport rates, ~1e-4
        // rad/s on a 6 cm lever, stay below 1e-5 m/s).
        const double dt = 1e-3;
        const double len = std::sqrt(w_b[0] * w_b[0] + w_b[1] * w_b[1] + w_b[2] * w_b[2]);
        const double axis[3] = {w_b[0] / len, w_b[1] / len, w_b[2] / len};
        Mat3 cbn{};
        std::memcpy(cbn.m, NavGp[i].cbn, sizeof cbn.m);
        const Mat3 ahead = mul(cbn, axis_angle(axis, len * dt));
        const Mat3 behind = mul(cbn, axis_angle(axis, -len * dt));
        double l_ahead[3], l_behind[3];
        apply(l_ahead, ahead.m, kLever_m);
        apply(l_behind, behind.m, kLever_m);
        for (int c = 0; c < 3; ++c) {
            const double lever_rate = (l_ahead[c] - l_behind[c]) / (2.0 * dt);
            EXPECT_NEAR(NavGp[i].v_n[c], v_n[c] + lever_rate, 1e-5) << i;
        }
        // The state's transport rate belongs to its own velocity.
        EXPECT_NEAR(NavGp[i].wen_n[1], -NavGp[i].v_n[0] / (NavGp[i].rm + NavGp[i].llh[2]), 1e-20);
    }
}

TEST_F(BankStart, TurnAboveNinetyDegreesTakesTheObtuseBranch) {
    // GNSS sees free fall and a sideways push the IMU axes report 120 degrees
    // away from it (IMU z axis 120 deg from up).
    scene.cbn = body_to_nav(120.0 * kDeg, 0.0, 0.0);
    rest_force(&scene);
    start(scene);
    expect_started();
    const double f_n[3] = {0.0, 0.0, -gravity_at(scene)};
    // Truncated series of the 120-degree turn: measured 5.7e-5 rad.
    expect_levelled(f_n, 1e-4);
    for (int i = 0; i < kBankSize; ++i) {
        double body_down[3];
        const double down[3] = {0, 0, 1};
        apply_t(body_down, NavGp[i].cbn, down);
        double true_down[3];
        apply_t(true_down, scene.cbn.m, down);
        EXPECT_LT(angle_between(body_down, true_down), 1e-4) << i;
    }
}

// IMU z along a vertical pole: the measured force points along +z body and
// the GNSS one along -z (up) in n, exactly opposed.
TEST_F(BankStart, VerticalPoleWithImuZUpIsAHalfTurn) {
    scene.cbn = body_to_nav(kPi, 0.0, 0.0);
    scene.f_b[0] = scene.f_b[1] = 0.0;
    scene.f_b[2] = gravity_at(scene);
    start(scene);
    expect_started();
    const double f_n[3] = {0.0, 0.0, -gravity_at(scene)};
    expect_levelled(f_n, 1e-14);
    for (int i = 0; i < kBankSize; ++i) {
        for (double v : NavGp[i].qbn) EXPECT_TRUE(std::isfinite(v));
        EXPECT_NEAR(NavGp[i].cbn[8], -1.0, 1e-7) << i;  // scale of the once-renormalised turn
        EXPECT_NEAR(NavGp[i].rph[1], 0.0, 1e-15) << i;
        EXPECT_NEAR(std::fabs(NavGp[i].rph[0]), kPi, 1e-15) << i;
    }
    // Half-turn about the x axis: hypothesis 0 keeps body x on north.
    EXPECT_NEAR(NavGp[0].cbn[0], 1.0, 1e-15);
    expect_headings_20_deg_apart(1e-3);
}

TEST_F(BankStart, NearlyVerticalPoleLevelsTheTiltAtEveryScale) {
    const double f_n[3] = {0.0, 0.0, -gravity_at(scene)};
    const double down[3] = {0, 0, 1};
    struct Case {
        double tilt_rad, tol_rad;
    };
    // Below 1e-8 rad the opposed case is built exactly; above it the turn
    // of almost pi goes through the truncated series, which leaves 1.79e-3
    // rad (measured) of tilt for the bank filters to remove.
    const Case cases[] = {{1e-15, 1e-14}, {3e-12, 1e-14}, {5e-9, 1e-14},
                          {2e-8, 2e-3},   {1e-5, 2e-3},   {0.02, 2e-3}};
    for (const Case &c : cases) {
        SetUp();
        scene.cbn = body_to_nav(kPi + c.tilt_rad * 0.6, c.tilt_rad * 0.8, 77.0 * kDeg);
        rest_force(&scene);
        start(scene);
        ASSERT_EQ(s_FltState, FLT_STATE_CONV) << c.tilt_rad;
        double true_down[3];
        apply_t(true_down, scene.cbn.m, down);
        for (int i = 0; i < kBankSize; ++i) {
            double body_down[3];
            apply_t(body_down, NavGp[i].cbn, down);
            EXPECT_LT(angle_between(body_down, true_down), c.tol_rad) << c.tilt_rad << " " << i;
        }
        expect_levelled(f_n, c.tol_rad);
        expect_headings_20_deg_apart(1e-3);
    }
}

// Opposed forces off the coordinate axes (a small horizontal GNSS
// acceleration): f_b x f_n then cancels to rounding noise, whose direction
// must not decide the levelling.
TEST_F(BankStart, NearlyOpposedForcesOffTheAxesLevelExactly) {
    const double a_n[3] = {0.3, -0.2, 0.0};
    const Mat3 c_en = nav_to_ecef(scene.lat, scene.lon);
    double a_e[3];
    apply(a_e, c_en.m, a_n);
    for (int c = 0; c < 3; ++c) scene.vel_newest_e[c] = 0.5 * a_e[c];
    const double f_n[3] = {0.3, -0.2, -gravity_at(scene)};
    const double axis[3] = {0.48, 0.6, 0.64};  // unit, generic
    for (double offset_rad : {0.0, 1e-15, 1e-13, 4e-9}) {
        SetUp();
        const Mat3 nudge = axis_angle(axis, offset_rad);
        const double reversed[3] = {-f_n[0], -f_n[1], -f_n[2]};
        apply(scene.f_b, nudge.m, reversed);
        start(scene);
        ASSERT_EQ(s_FltState, FLT_STATE_CONV) << offset_rad;
        expect_levelled(f_n, 1e-12);
    }
}

// GNSS acceleration straight down (a_d, m/s^2) leaves an upward specific
// force of g - a_d; the IMU reports magnitude imu_force on its own axes.
struct GateCase {
    double gnss_force, imu_force;
    bool starts;
};

TEST_F(BankStart, PlausibilityGateOnSpecificForce) {
    const GateCase cases[] = {
        {5.9, 5.9, false},  {6.1, 6.1, true},   {14.1, 14.1, false}, {13.9, 13.9, true},
        {9.8, 10.05, false}, {9.8, 9.55, false}, {9.8, 9.95, true},   {9.8, 9.65, true},
    };
    for (const GateCase &gc : cases) {
        SetUp();
        scene.cbn = body_to_nav(0.1, -0.05, 1.0);
        const double a_n[3] = {0.0, 0.0, gravity_at(scene) - gc.gnss_force};
        const Mat3 c_en = nav_to_ecef(scene.lat, scene.lon);
        double a_e[3];
        apply(a_e, c_en.m, a_n);
        for (int c = 0; c < 3; ++c) scene.vel_newest_e[c] = 0.5 * a_e[c];
        const double f_n[3] = {0.0, 0.0, -gc.imu_force};
        apply_t(scene.f_b, scene.cbn.m, f_n);

        write_history(scene);
        NavState nav_before[kBankSize];
        KfFilter flt_before[kBankSize];
        std::memcpy(nav_before, NavGp, sizeof NavGp);
        std::memcpy(flt_before, FltGp, sizeof FltGp);
        InitParelFilter(kEntries - 1);

        // The GNSS acceleration is kept whatever the verdict.
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(NavGp[0].acc_n[c], a_n[c], 1e-9) << gc.gnss_force;
        if (gc.starts) {
            EXPECT_EQ(s_FltState, FLT_STATE_CONV) << gc.gnss_force << " " << gc.imu_force;
            continue;
        }
        EXPECT_EQ(s_FltState, FLT_STATE_IDLE) << gc.gnss_force << " " << gc.imu_force;
        EXPECT_EQ(s_updcnt, 99u);
        EXPECT_EQ(toggleCnts[5], 7u);
        std::memcpy(nav_before[0].acc_n, NavGp[0].acc_n, sizeof nav_before[0].acc_n);
        EXPECT_EQ(std::memcmp(nav_before, NavGp, sizeof NavGp), 0);
        EXPECT_EQ(std::memcmp(flt_before, FltGp, sizeof FltGp), 0);
    }
}

}  // namespace
