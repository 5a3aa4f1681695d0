// Standstill detector: the statistics against independent computation, and
// the gyro-bias estimator on synthetic still and moving histories.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "drlib.h"

namespace {

constexpr double kBiasVarCap = 1.2184696791468344e-05;  // (0.2 deg/s)^2
constexpr double kVarFloor = 1.2184696791468344e-09;    // (0.002 deg/s)^2
constexpr double kRandomWalk = 1.5042835545022647e-09;  // per call
constexpr double kPromotionVar = 1.3538551990520382e-06;

// ---------------------------------------------------------------- statistics

long double rms_about(const std::vector<double> &x, double centre) {
    long double sum = 0.0L;
    for (double v : x) sum += (static_cast<long double>(v) - centre) * (static_cast<long double>(v) - centre);
    return std::sqrt(sum / static_cast<long double>(x.size()));
}

TEST(MedianDat, EvenCountsPickTheMiddleValueWithTheSmallerDeviation) {
    struct Case {
        std::vector<double> x;
        double median;
    };
    const Case cases[] = {
        {{10, 3, 1, 2}, 3},  // sqrt(13.5) about 3 beats sqrt(16.5) about 2
        {{9, 1, 10, 8}, 8},  // the mirror image
        {{4, 3, 2, 1}, 3},   // a tie goes to the upper middle value
        {{5, 1, 4}, 4},
        {{-2.5}, -2.5},
    };
    for (Case c : cases) {
        std::vector<double> sorted = c.x;
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(median_dat(c.x.data(), static_cast<int32_t>(c.x.size())), c.median);
        EXPECT_EQ(c.x, sorted) << "sorted in place";
    }
}

TEST(MedianDat, MatchesIndependentRuleOnRandomSamples) {
    std::mt19937 gen(7);
    std::uniform_real_distribution<double> uni(-3.0, 5.0);
    for (int n = 1; n <= 41; ++n) {
        for (int trial = 0; trial < 5; ++trial) {
            std::vector<double> x(static_cast<size_t>(n));
            for (double &v : x) v = uni(gen);
            std::vector<double> sorted = x;
            std::sort(sorted.begin(), sorted.end());
            const size_t mid = static_cast<size_t>(n / 2);
            double expected = sorted[mid];
            if (n % 2 == 0 && rms_about(sorted, sorted[mid - 1]) < rms_about(sorted, sorted[mid])) {
                expected = sorted[mid - 1];
            }
            EXPECT_EQ(median_dat(x.data(), n), expected) << n;
            EXPECT_EQ(x, sorted) << n;
        }
    }
}

TEST(StdDat, RootMeanSquareDeviationWithDivisorN) {
    const double pair[2] = {1.0, 3.0};
    EXPECT_EQ(std_dat(pair, 2, 2.0), 1.0);
    EXPECT_EQ(std_dat(pair, 2, 0.0), std::sqrt(5.0));

    std::mt19937 gen(11);
    std::uniform_real_distribution<double> uni(-1e-3, 2e-3);
    std::vector<double> x(300);
    for (double &v : x) v = uni(gen);
    for (double centre : {0.0, 5e-4, -1.0}) {
        const double expected = static_cast<double>(rms_about(x, centre));
        EXPECT_NEAR(std_dat(x.data(), 300, centre), expected, 1e-14 * expected) << centre;
    }
}

// ------------------------------------------------------------ bias estimator

// Gaussian samples from the standard engine through Box-Muller, so that the
// numbers are the same with every standard library.
class Noise {
public:
    explicit Noise(uint32_t seed) : gen_(seed) {}
    double gauss(double sigma) {
        const double u1 = (static_cast<double>(gen_()) + 1.0) / 4294967297.0;
        const double u2 = static_cast<double>(gen_()) / 4294967296.0;
        return sigma * std::sqrt(-2.0 * std::log(u1)) * std::cos(6.283185307179586 * u2);
    }

private:
    std::mt19937 gen_;
};

struct Motion {
    double vel_e[3] = {0.0, 0.0, 0.0};          // m/s
    double force_b[3] = {0.12, -0.25, -9.80};  // m/s^2
    double rate_b[3] = {0.002, -0.001, 0.0005};  // rad/s: what a still gyro reads
    double force_noise = 0.004;                 // m/s^2, 1 sigma
    double rate_noise = 0.0004;                 // rad/s, 1 sigma
};

// Appends one history entry, as the update cycle does.
void push_entry(const Motion &m, Noise *noise) {
    FusionIn &e = g_FusionInBuf[g_FusionInPos & 511u];
    std::memset(&e, 0, sizeof e);
    e.pos_index = g_FusionInPos;
    std::memcpy(e.header.vel, m.vel_e, sizeof m.vel_e);
    for (int slot = 1; slot <= 10; ++slot) {
        for (int c = 0; c < 3; ++c) {
            e.dvel[slot][c] = (m.force_b[c] + noise->gauss(m.force_noise)) * 0.01;
            e.dtheta[slot][c] = (m.rate_b[c] + noise->gauss(m.rate_noise)) * 0.01;
        }
    }
    ++g_FusionInPos;
    if (g_FusionInNum < 512u) ++g_FusionInNum;
}

void push_seconds(const Motion &m, int seconds, Noise *noise) {
    for (int k = 0; k < 10 * seconds; ++k) push_entry(m, noise);
}

class Standstill : public ::testing::Test {
protected:
    void SetUp() override {
        g_FusionInPos = 1000u;  // any position: the ring wraps
        g_FusionInNum = 0u;
        DrFusionReset();
    }
    // A settled estimate that a refused call must leave alone.
    void settle(double bias_var, int32_t hold) {
        for (int axis = 0; axis < 3; ++axis) {
            FltZupt.bias[axis] = 1e-4 * (axis + 1);
            FltZupt.bias_var[axis] = bias_var;
        }
        FltZupt.hold_cnt = hold;
    }
    void expect_refused(double bias_var_before, int32_t hold_before) {
        for (int axis = 0; axis < 3; ++axis) {
            EXPECT_EQ(FltZupt.bias[axis], 1e-4 * (axis + 1));
            EXPECT_EQ(FltZupt.bias_var[axis], bias_var_before + kRandomWalk);
        }
        EXPECT_EQ(FltZupt.hold_cnt, hold_before > 0 ? hold_before - 1 : 0);
    }
    bool updated() const { return FltZupt.hold_cnt == 3; }
    Noise noise{2024u};
};

TEST_F(Standstill, LearnsTheGyroBiasOfAStillSensor) {
    Motion still;
    push_seconds(still, 3, &noise);
    double worst = 0.0;
    for (int second = 0; second < 20; ++second) {
        ZuptFltProc();
        ASSERT_TRUE(updated()) << second;
        push_seconds(still, 1, &noise);
    }
    for (int axis = 0; axis < 3; ++axis) {
        worst = std::max(worst, std::fabs(FltZupt.bias[axis] - still.rate_b[axis]));
        EXPECT_LT(FltZupt.bias_var[axis], kPromotionVar);
    }
    // The median of 300 samples of 4e-4 rad/s noise scatters by 2.9e-5 rad/s,
    // and overlapping windows are inflated rather than averaged: measured
    // 2.5e-5 rad/s after 20 s; bound 5e-5 rad/s (0.003 deg/s).
    EXPECT_LT(worst, 5e-5);
}

TEST_F(Standstill, FirstUpdateOnAConstantRateTrustsItAlmostFully) {
    Motion still;
    still.force_noise = 0.0;
    still.rate_noise = 0.0;
    still.rate_b[0] = 0.001;
    push_seconds(still, 3, &noise);
    ZuptFltProc();
    // Variance at the cap, measurement variance at the floor: K = 1 / 1.0001.
    EXPECT_NEAR(FltZupt.bias[0], 0.001 / 1.0001, 1e-17);
    EXPECT_EQ(FltZupt.bias_var[0], kVarFloor);
    EXPECT_EQ(FltZupt.hold_cnt, 3);

    // One second later the shared samples weigh (2 + 1)^2 times less.
    still.rate_b[0] = 0.002;
    push_seconds(still, 3, &noise);
    const double prior_var = kVarFloor + kRandomWalk;
    const double meas_var = kVarFloor * 9.0;
    const double gain = prior_var / (prior_var + meas_var);
    const double expected = 0.001 / 1.0001 + gain * (0.002 - 0.001 / 1.0001);
    ZuptFltProc();
    EXPECT_NEAR(FltZupt.bias[0], expected, 1e-17);
    EXPECT_NEAR(FltZupt.bias_var[0], std::max(gain * meas_var, kVarFloor), 1e-24);
}

TEST_F(Standstill, MovementInAnyOfTheLastThirtyEntriesRefusesTheUpdate) {
    Motion still;
    Motion moving;
    moving.vel_e[1] = 0.031;
    // The moving entry lies 30 back (outside the window): update.
    push_seconds(still, 1, &noise);
    push_entry(moving, &noise);
    for (int k = 0; k < 30; ++k) push_entry(still, &noise);
    ZuptFltProc();
    EXPECT_TRUE(updated());

    // 29 back: refused, the estimate only ages.
    push_entry(moving, &noise);
    for (int k = 0; k < 29; ++k) push_entry(still, &noise);
    settle(1e-7, 2);
    ZuptFltProc();
    expect_refused(1e-7, 2);
}

TEST_F(Standstill, VelocityLimitsAreInclusive) {
    double just_fast = 0.028284271247461901;  // three components, squared sum close to 0.0016
    while (0.02 * 0.02 + 0.02 * 0.02 + just_fast * just_fast <= 0.0016) just_fast = std::nextafter(just_fast, 1.0);
    double exact_speed = just_fast;
    while (0.02 * 0.02 + 0.02 * 0.02 + exact_speed * exact_speed > 0.0016) exact_speed = std::nextafter(exact_speed, 0.0);
    ASSERT_EQ(0.02 * 0.02 + 0.02 * 0.02 + exact_speed * exact_speed, 0.0016);
    struct Case {
        double vel[3];
        bool accepted;
    };
    const Case cases[] = {
        {{0.0, 0.0, -0.03}, true},
        {{0.0, std::nextafter(0.03, 1.0), 0.0}, false},
        {{0.02, 0.02, exact_speed}, true},
        {{0.02, 0.02, just_fast}, false},
    };
    for (const Case &c : cases) {
        SetUp();
        Motion m;
        std::memcpy(m.vel_e, c.vel, sizeof c.vel);
        push_seconds(m, 3, &noise);
        settle(1e-7, 0);
        ZuptFltProc();
        EXPECT_EQ(updated(), c.accepted) << c.vel[0] << " " << c.vel[1] << " " << c.vel[2];
    }
}

TEST_F(Standstill, RestlessSensorsAreRefused) {
    struct Case {
        double force_noise, rate_noise, rate_x;
        bool accepted;
    };
    const Case cases[] = {
        {0.004, 0.0004, 0.002, true},   // quiet
        {0.03, 0.0004, 0.002, false},   // shaking pole: accelerometer scatter
        {0.004, 0.0025, 0.002, false},  // rate scatter above 0.1 deg/s
        {0.004, 0.0004, 0.0060, false}, // median rate above 0.3 deg/s: a slow turn, not a bias
    };
    for (const Case &c : cases) {
        SetUp();
        Motion m;
        m.force_noise = c.force_noise;
        m.rate_noise = c.rate_noise;
        m.rate_b[0] = c.rate_x;
        push_seconds(m, 3, &noise);
        settle(1e-7, 1);
        ZuptFltProc();
        EXPECT_EQ(updated(), c.accepted) << c.force_noise << " " << c.rate_noise << " " << c.rate_x;
        if (!c.accepted) expect_refused(1e-7, 1);
    }
}

TEST_F(Standstill, MainStateFreezesTheEstimateWhileItsVarianceGrowsToTheCap) {
    Motion still;
    push_seconds(still, 3, &noise);
    s_FltState = FLT_STATE_MAIN;
    settle(1e-7, 3);
    ZuptFltProc();
    expect_refused(1e-7, 3);

    settle(kBiasVarCap - 0.5 * kRandomWalk, 0);
    ZuptFltProc();
    for (int axis = 0; axis < 3; ++axis) EXPECT_EQ(FltZupt.bias_var[axis], kBiasVarCap);
    EXPECT_EQ(FltZupt.hold_cnt, 0);
    s_FltState = FLT_STATE_IDLE;
}

}  // namespace
