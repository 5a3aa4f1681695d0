// Bank start on synthetic histories of a body with known attitude, position,
// velocity and rotation (truths from textbook formulas written here), and the
// bank verdict on hand-built level hypotheses that differ only in heading, so
// every attitude gap is the heading difference.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "drlib_toolkit.h"
#include "rotation_truth.h"

namespace {

constexpr double kDeg = M_PI / 180.0;
constexpr double kLever_m[3] = {-0.03404, -0.05097, -0.01432};
constexpr uint32_t kEntries = 20;

double angle_between(const double *a, const double *b) {
    double c[3];
    cross_prod(c, a, b);
    return std::atan2(absvect3d(c), dotvect3d(a, b));
}

// A body at a fixed place; the antenna velocity of the newest entry and the
// one 0.5 s before set the GNSS acceleration, f_b (m/s^2) and w_ib (rad/s)
// the IMU increments.
struct Scene {
    double llh[3] = {0.7, 0.3, 120.0};
    double pos_e[3]{}, vel_newest_e[3]{}, vel_older_e[3]{}, f_b[3]{}, w_ib[3]{}, cne[9]{};
    rot::Mat3 cbn{};
};

double gravity_at(const Scene &s) { return local_gravity_v2(std::sin(s.llh[0]), s.llh[2]); }

class BankStart : public ::testing::Test {
protected:
    void SetUp() override {
        std::memcpy(g_level_arm_b, kLever_m, sizeof kLever_m);
        s_FltState = FLT_STATE_IDLE;
        s_updcnt = 99u;
        std::memset(toggleCnts, 7, sizeof toggleCnts);
        scene = Scene{};
        llh2ecef(scene.pos_e, scene.llh);
        llh2cne(scene.cne, scene.llh);
    }
    // A body at rest with attitude cbn: its accelerometers hold gravity up.
    void at_rest(const rot::Mat3 &cbn) {
        scene.cbn = cbn;
        const double f_n[3] = {0.0, 0.0, -gravity_at(scene)};
        mtxt_mul_vect_3d(scene.f_b, cbn.m, f_n);
    }
    void start() {
        std::memset(g_FusionInBuf, 0, sizeof g_FusionInBuf);
        for (uint32_t k = 0; k < kEntries; ++k) {
            FusionIn &e = g_FusionInBuf[k];
            e.header.tow_ms = 1000u + 100u * k;
            e.pos_index = k;
            std::memcpy(e.header.pos, scene.pos_e, sizeof scene.pos_e);
            // The velocity steps 0.5 s before the newest entry: E-5 holds the older one.
            std::memcpy(e.header.vel, k + 5 >= kEntries ? scene.vel_newest_e : scene.vel_older_e, sizeof e.header.vel);
            for (int slot = 0; slot < 11; ++slot)
                for (int c = 0; c < 3; ++c) {
                    e.dvel[slot][c] = scene.f_b[c] * 0.01;
                    e.dtheta[slot][c] = scene.w_ib[c] * 0.01;
                }
        }
        g_FusionInPos = g_FusionInNum = kEntries;
        InitParelFilter(kEntries - 1);
    }
    // Every hypothesis takes the measured force onto the GNSS one; the turns
    // between them are about that force, so where it points up each step of
    // +20 degrees about it is -20 degrees of heading.
    void expect_levelled(const double *f_n, double tol_rad, bool vertical = true) {
        for (int i = 0; i < kBankSize; ++i) {
            double mapped[3];
            mtx_mul_vect_3d(mapped, NavGp[i].cbn, scene.f_b);
            EXPECT_LT(angle_between(mapped, f_n), tol_rad) << "hypothesis " << i;
            const double step = std::remainder(NavGp[i].rph[2] - NavGp[0].rph[2] + 20.0 * kDeg * i, 2.0 * M_PI);
            // The turns come from a truncated series: measured up to 6.7e-4 rad off.
            EXPECT_TRUE(!vertical || std::fabs(step) < 1e-3) << "hypothesis " << i << ": " << step;
        }
    }
    Scene scene;
};

// A tilted pole, its antenna moving steadily (no GNSS acceleration) and the
// body turning at w_b: every hypothesis carries the roll and pitch, the
// six-state seed, the IMU at the antenna displaced by the turned lever arm,
// and a velocity that the GNSS innovation inverts exactly (the lever-arm rate
// itself is checked against its formula with the GNSS update).
TEST_F(BankStart, LevelsAndSeedsEveryHypothesisFromTheAntenna) {
    at_rest(rot::euler(3.0 * kDeg, -2.0 * kDeg, 40.0 * kDeg));
    const double v_n[3] = {0.01, -0.02, 0.005}, w_b[3] = {0.3, -0.2, 0.5};
    mtx_mul_vect_3d(scene.vel_newest_e, scene.cne, v_n);
    std::memcpy(scene.vel_older_e, scene.vel_newest_e, sizeof scene.vel_older_e);
    std::memcpy(scene.w_ib, w_b, sizeof w_b);
    start();
    EXPECT_TRUE(s_FltState == FLT_STATE_CONV && s_updcnt == 0u);
    const double f_n[3] = {0.0, 0.0, -gravity_at(scene)};
    expect_levelled(f_n, 1e-9);
    for (int i = 0; i < kBankSize; ++i) {
        EXPECT_TRUE(std::fabs(NavGp[i].rph[0] - 3.0 * kDeg) < 1e-9 && std::fabs(NavGp[i].rph[1] + 2.0 * kDeg) < 1e-9);
        EXPECT_TRUE(FltGp[i].state_dim == 6u && FltGp[i].pos_index == kEntries - 1 && toggleCnts[i] == 0u) << i;
        for (int s = 0; s < 6; ++s)
            EXPECT_NEAR(get_kf_state_variance(FltGp[i].L, s), s < 3 ? 0.01 : 0.2741556778080377, 1e-16);
        double lever_n[3], lever_e[3], imu_e[3], z[3];
        mtx_mul_vect_3d(lever_n, NavGp[i].cbn, kLever_m);
        mtx_mul_vect_3d(lever_e, scene.cne, lever_n);
        llh2ecef(imu_e, NavGp[i].llh);
        DifImuVelWithGnss(z, &NavGp[i], scene.vel_newest_e, scene.w_ib);
        for (int c = 0; c < 3; ++c) {
            EXPECT_NEAR(imu_e[c], scene.pos_e[c] + lever_e[c], 1e-6) << i;
            EXPECT_NEAR(z[c], 0.0, 1e-12) << i;
        }
    }
    // Hypothesis 0 is the levelling alone: the shortest turn from f_b to f_n.
    double axis[3];
    cross_prod(axis, scene.f_b, f_n);
    const double axis_len = absvect3d(axis), unit[3] = {axis[0] / axis_len, axis[1] / axis_len, axis[2] / axis_len};
    const rot::Mat3 shortest = rot::axis_angle(unit, angle_between(scene.f_b, f_n));
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(NavGp[0].cbn[k], shortest.m[k], 1e-12) << k;
}

// Turns of every size from the levelling: 120 degrees (the obtuse branch);
// forces exactly opposed (IMU z axis up a vertical pole), where f_b x f_n = 0
// gives no axis and a roll of pi levels exactly; and forces nearly opposed,
// sines of 1e-9 and 2e-8, where the turn is the usual one about f_b x f_n by
// pi - asin(|f_b x f_n| / (|f_b| |f_n|)) however small the cross product.
TEST_F(BankStart, LevelsTheTiltForEveryTurn) {
    const double f_n[3] = {0.0, 0.0, -gravity_at(scene)};
    for (double sine : {-1.0, 0.0, 1e-9, 2e-8}) {  // -1: a turn of 120 degrees; 0: exactly opposed
        SetUp();
        at_rest(sine == 0.0 ? rot::Mat3{{1, 0, 0, 0, -1, 0, 0, 0, -1}}
                            : sine < 0.0 ? rot::euler(120.0 * kDeg, 0.0, 77.0 * kDeg)
                                         : rot::euler(M_PI + sine * 0.6, sine * 0.8, 0.0));
        start();
        ASSERT_EQ(s_FltState, FLT_STATE_CONV);
        if (sine <= 0.0) expect_levelled(f_n, sine == 0.0 ? 1e-14 : 1e-4, false);
        if (sine == 0.0) {
            for (int k = 0; k < 9; ++k) EXPECT_EQ(NavGp[0].cbn[k], scene.cbn.m[k]) << k;
            continue;
        }
        double f_b[3] = {0.0, 0.0, 0.0}, c[3], q[4], cbn[9];  // f_b: twice the sum over 0.5 s
        for (int e = kEntries - 5; e < static_cast<int>(kEntries); ++e)
            for (int slot = 1; slot <= 10; ++slot)
                for (int k = 0; k < 3; ++k) f_b[k] += 2.0 * g_FusionInBuf[e].dvel[slot][k];
        cross_prod(c, f_b, f_n);
        const double len = absvect3d(c), angle = M_PI - std::asin(len / (absvect3d(f_b) * absvect3d(f_n)));
        const double rotvec[3] = {c[0] * angle / len, c[1] * angle / len, c[2] * angle / len};
        rotvec2quat(q, rotvec);
        quat_norm(q);
        quat2dcm(cbn, q);
        for (int k = 0; k < 9; ++k) EXPECT_NEAR(NavGp[0].cbn[k], cbn[k], 1e-15) << sine << " " << k;
    }
}

// GNSS acceleration straight down leaves an upward specific force of
// gnss_force; the IMU reports imu_force on its own axes.
TEST_F(BankStart, PlausibilityGateOnSpecificForce) {
    const struct { double gnss_force, imu_force; bool starts; } cases[] = {
        {5.9, 5.9, false},   {6.1, 6.1, true},   {14.1, 14.1, false}, {13.9, 13.9, true},
        {9.8, 10.05, false}, {9.8, 9.55, false}, {9.8, 9.95, true},   {9.8, 9.65, true}};
    for (const auto &c : cases) {
        SetUp();
        scene.cbn = rot::euler(0.1, -0.05, 1.0);
        const double a_n[3] = {0.0, 0.0, gravity_at(scene) - c.gnss_force}, f_n[3] = {0.0, 0.0, -c.imu_force};
        double a_e[3];
        mtx_mul_vect_3d(a_e, scene.cne, a_n);
        for (int k = 0; k < 3; ++k) scene.vel_newest_e[k] = 0.5 * a_e[k];
        mtxt_mul_vect_3d(scene.f_b, scene.cbn.m, f_n);
        start();
        EXPECT_EQ(s_FltState, c.starts ? FLT_STATE_CONV : FLT_STATE_IDLE) << c.gnss_force << " " << c.imu_force;
        EXPECT_EQ(s_updcnt, c.starts ? 0u : 99u);
        EXPECT_NEAR(NavGp[0].acc_n[2], a_n[2], 1e-9);  // the GNSS acceleration is kept whatever the verdict
    }
}

void set_heading(int i, double heading_deg) {
    const double c = std::cos(heading_deg * kDeg), s = std::sin(heading_deg * kDeg);
    const double cbn[9] = {c, -s, 0.0, s, c, 0.0, 0.0, 0.0, 1.0};
    std::memcpy(NavGp[i].cbn, cbn, sizeof cbn);
}

struct Heading {
    int member;
    double deg;
};

// From a fresh bank (member i at i x 20 degrees) with the given members
// moved, the verdicts of five checks at one-second intervals.
std::vector<int32_t> verdicts(std::initializer_list<Heading> moved) {
    std::memset(toggleCnts, 0, sizeof toggleCnts);
    for (int i = 0; i < kBankSize; ++i) set_heading(i, 20.0 * i);
    for (const Heading &h : moved) set_heading(h.member, h.deg);
    std::vector<int32_t> out;
    for (int k = 0; k < 5; ++k) out.push_back(CheckParelFltConv());
    return out;
}

const double kAgree = 2.5, kSeparate = 7.5;  // deg: neighbour agreement, rival separation

TEST(BankVerdict, ClustersOfThreeDecideAtTheFifthCheckWithinTheLimits) {
    const std::vector<int32_t> undecided(5, -1);
    auto decided = [](int32_t v) { return std::vector<int32_t>{-1, -1, -1, -1, v}; };
    EXPECT_EQ(verdicts({}), undecided);
    EXPECT_EQ(verdicts({{6, 121}, {7, 122}, {8, 123}}), decided(7));
    for (int i = 0; i < kBankSize; ++i) EXPECT_EQ(toggleCnts[i], i == 7 ? 5u : 0u) << i;
    EXPECT_EQ(verdicts({{17, -1}, {0, 0}, {1, 1}}), decided(0));  // across the end of the ring
    // Two clusters half a turn apart are ambiguous, and the counters run on.
    EXPECT_EQ(verdicts({{6, 121}, {7, 122}, {8, 123}, {15, 301}, {16, 302}, {17, 303}}), decided(-2));
    EXPECT_EQ(CheckParelFltConv(), -2);
    EXPECT_EQ(toggleCnts[16], 6u);
    // The tightest triple wins even where no counter rose: 12 and 13 share
    // 7's attitude, 11 is 2.6 degrees off (no agreement), and their summed
    // gap beats the cluster's 2 x 2.4 degrees.
    EXPECT_EQ(verdicts({{6, 117.6}, {7, 120}, {8, 122.4}, {11, 122.6}, {12, 120}, {13, 120}}), decided(12));
    EXPECT_EQ(toggleCnts[12], 0u);
    // The counters are 8 bits wide and wrap: 255 agreeing checks and one more give 0.
    std::memset(toggleCnts, 255, sizeof toggleCnts);
    for (int i = 0; i < kBankSize; ++i) set_heading(i, 0.0);
    EXPECT_EQ(CheckParelFltConv(), -1);
    EXPECT_EQ(toggleCnts[0], 0u);
    // Agreement strictly below 2.5 degrees; a second established cluster is
    // ambiguous beyond 7.5 degrees only.
    const double eps = 1e-9 / kDeg;
    for (double gap : {kAgree - eps, kAgree + eps}) {
        EXPECT_EQ(verdicts({{6, 120 - gap}, {7, 120}, {8, 120.5}}).back(), gap < kAgree ? 7 : -1) << gap;
    }
    for (double gap : {kSeparate - eps, kSeparate + eps}) {
        const double rival = 120.0 + gap;
        const int32_t v = verdicts({{6, 119.8}, {7, 120}, {8, 120.2}, {14, rival - 0.5}, {15, rival}, {16, rival - 0.3}})
                              .back();
        EXPECT_EQ(v, gap > kSeparate ? -2 : 7) << gap;
    }
}

// Rival cluster 15..17 agrees from the second check on; whether it still
// counts as a competitor at the fifth depends on one second of disagreement.
TEST(BankVerdict, OneSecondOfDisagreementDemotesACompetitor) {
    for (bool rival_breaks_up : {true, false}) {
        verdicts({});
        for (int k = 0; k < 3; ++k) set_heading(6 + k, 121.0 + k);
        std::memset(toggleCnts, 0, sizeof toggleCnts);
        std::vector<int32_t> results;
        for (int call = 1; call <= 5; ++call) {
            const bool rival_tight = call >= 2 && (call <= 4 || !rival_breaks_up);
            for (int k = 0; k < 3; ++k) set_heading(15 + k, rival_tight ? 301.0 + k : 300.0 + 20.0 * k);
            results.push_back(CheckParelFltConv());
        }
        EXPECT_EQ(toggleCnts[16], rival_breaks_up ? 2u : 4u);
        EXPECT_EQ(results, (std::vector<int32_t>{-1, -1, -1, -1, rival_breaks_up ? 7 : -2}));
    }
}

}  // namespace
