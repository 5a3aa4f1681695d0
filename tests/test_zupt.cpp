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
#include "drlib_toolkit.h"

namespace {

constexpr double kBiasVarCap = 1.2184696791468344e-05;  // (0.2 deg/s)^2
constexpr double kVarFloor = 1.2184696791468344e-09;    // (0.002 deg/s)^2
constexpr double kRandomWalk = 1.5042835545022647e-09;  // per call

long double rms_about(const std::vector<double> &x, double centre) {
    long double sum = 0.0L;
    for (double v : x) sum += (static_cast<long double>(v) - centre) * (static_cast<long double>(v) - centre);
    return std::sqrt(sum / static_cast<long double>(x.size()));
}

// Odd counts take the middle value; even counts the middle value with the
// smaller RMS deviation, the upper one on a tie. Sorted in place.
TEST(Statistics, MedianAndDeviationAgainstIndependentRules) {
    std::vector<double> tie = {4, 3, 2, 1};
    EXPECT_EQ(median_dat(tie.data(), 4), 3.0);
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
            const double rms = static_cast<double>(rms_about(x, 0.5));
            EXPECT_NEAR(std_dat(x.data(), n, 0.5), rms, 1e-14 * rms) << n;
            EXPECT_EQ(median_dat(x.data(), n), expected) << n;
            EXPECT_EQ(x, sorted) << n;
        }
    }
}

// 300 samples as the detector sorts them: quantised rates with many repeats,
// infinities, and runs that hold NaN in different places. Any faster method
// must leave the order of a plain exchange sort, bit for bit, NaN included.
TEST(Statistics, MedianSortLeavesTheExchangeSortOrder) {
    std::mt19937 gen(11);
    std::uniform_int_distribution<int> level(-40, 40);
    const double nan = std::nan("");
    const double inf = HUGE_VAL;
    for (int trial = 0; trial < 12; ++trial) {
        std::vector<double> x(300);
        for (double &v : x) v = 1e-4 * (level(gen) + 0.5);  // no zeros: their sign is free
        if (trial % 3 == 1) { x[17] = inf; x[250] = -inf; }
        if (trial % 3 == 2) { x[static_cast<size_t>((trial - 2) * 20)] = nan; x[299] = nan; }
        std::vector<double> expected = x;
        for (size_t i = 0; i < 300; ++i)
            for (size_t j = i + 1; j < 300; ++j)
                if (expected[j] < expected[i]) std::swap(expected[i], expected[j]);
        median_dat(x.data(), 300);
        EXPECT_EQ(std::memcmp(x.data(), expected.data(), sizeof(double) * 300), 0) << trial;
    }
}

// Gaussian samples from the standard engine through Box-Muller, so that the
// numbers are the same with every standard library.
struct Noise {
    std::mt19937 gen;
    double gauss(double sigma) {
        const double u1 = (static_cast<double>(gen()) + 1.0) / 4294967297.0;
        const double u2 = static_cast<double>(gen()) / 4294967296.0;
        return sigma * std::sqrt(-2.0 * std::log(u1)) * std::cos(6.283185307179586 * u2);
    }
};

struct Motion {
    double vel_e[3] = {0.0, 0.0, 0.0};                // m/s
    double force_b[3] = {0.12, -0.25, -9.80};         // m/s^2
    double rate_b[3] = {0.002, -0.001, 0.0005};       // rad/s: what a still gyro reads
    double force_noise = 0.004, rate_noise = 0.0004;  // m/s^2 and rad/s, 1 sigma
};

class Standstill : public ::testing::Test {
protected:
    void SetUp() override {
        g_FusionInPos = 1000u;  // any position: the ring wraps
        g_FusionInNum = 0u;
        DrFusionReset();
    }
    // Appends history entries, as the update cycle does.
    void push(const Motion &m, int entries) {
        for (int k = 0; k < entries; ++k) {
            FusionIn &e = g_FusionInBuf[g_FusionInPos & 511u];
            std::memset(&e, 0, sizeof e);
            std::memcpy(e.header.vel, m.vel_e, sizeof m.vel_e);
            for (int slot = 1; slot <= 10; ++slot)
                for (int c = 0; c < 3; ++c) {
                    e.dvel[slot][c] = (m.force_b[c] + noise_.gauss(m.force_noise)) * 0.01;
                    e.dtheta[slot][c] = (m.rate_b[c] + noise_.gauss(m.rate_noise)) * 0.01;
                }
            ++g_FusionInPos;
            if (g_FusionInNum < 512u) ++g_FusionInNum;
        }
    }
    // Runs one call on a settled estimate; a refused call only ages it.
    bool update_accepted(int32_t hold = 1) {
        for (int axis = 0; axis < 3; ++axis) {
            FltZupt.bias[axis] = 1e-4 * (axis + 1);
            FltZupt.bias_var[axis] = 1e-7;
        }
        FltZupt.hold_cnt = hold;
        ZuptFltProc();
        if (FltZupt.hold_cnt == 3) return true;
        for (int axis = 0; axis < 3; ++axis) {
            EXPECT_EQ(FltZupt.bias[axis], 1e-4 * (axis + 1));
            EXPECT_EQ(FltZupt.bias_var[axis], 1e-7 + kRandomWalk);
        }
        EXPECT_EQ(FltZupt.hold_cnt, hold > 0 ? hold - 1 : 0);
        return false;
    }
    Noise noise_{std::mt19937(2024u)};
};

TEST_F(Standstill, LearnsTheGyroBiasOfAStillSensor) {
    Motion still;
    push(still, 30);
    for (int second = 0; second < 20; ++second) {
        ZuptFltProc();
        ASSERT_EQ(FltZupt.hold_cnt, 3) << second;
        push(still, 10);
    }
    // The median of 300 samples of 4e-4 rad/s noise scatters by 2.9e-5 rad/s,
    // and overlapping windows are inflated rather than averaged: measured
    // 2.5e-5 rad/s after 20 s.
    for (int axis = 0; axis < 3; ++axis) {
        EXPECT_NEAR(FltZupt.bias[axis], still.rate_b[axis], 5e-5);
        EXPECT_LT(FltZupt.bias_var[axis], 1.3538551990520382e-06);  // good enough for promotion
    }
}

TEST_F(Standstill, FirstUpdateOnAConstantRateTrustsItAlmostFully) {
    Motion still;
    still.force_noise = still.rate_noise = 0.0;
    push(still, 30);
    ZuptFltProc();
    // Variance at the cap, measurement variance at the floor: K = 1 / 1.0001.
    EXPECT_NEAR(FltZupt.bias[0], 0.002 / (1.0 + kVarFloor / kBiasVarCap), 1e-17);
    EXPECT_EQ(FltZupt.bias_var[0], kVarFloor);
}

TEST_F(Standstill, MovementInAnyOfTheLastThirtyEntriesRefusesTheUpdate) {
    Motion still, moving;
    moving.vel_e[1] = 0.031;
    push(still, 10);
    push(moving, 1);
    push(still, 30);
    EXPECT_TRUE(update_accepted());  // the moving entry lies 31 back
    push(moving, 1);
    push(still, 29);
    EXPECT_FALSE(update_accepted(2));
}

TEST_F(Standstill, VelocityAndSensorLimits) {
    const double a2 = 0.02 * 0.02 + 0.02 * 0.02;
    double fast = 0.028284271247461901, exact = fast;  // squared speed just above and exactly at 0.0016
    while (a2 + fast * fast <= 0.0016) fast = std::nextafter(fast, 1.0);
    while (a2 + exact * exact > 0.0016) exact = std::nextafter(exact, 0.0);
    ASSERT_EQ(a2 + exact * exact, 0.0016);
    const struct { double vel[3], force_noise, rate_noise, rate_x; bool accepted; } cases[] = {
        {{0.0, 0.0, -0.03}, 0.004, 0.0004, 0.002, true},
        {{0.0, std::nextafter(0.03, 1.0), 0.0}, 0.004, 0.0004, 0.002, false},
        {{0.02, 0.02, exact}, 0.004, 0.0004, 0.002, true},
        {{0.02, 0.02, fast}, 0.004, 0.0004, 0.002, false},
        {{0.0, 0.0, 0.0}, 0.03, 0.0004, 0.002, false},   // shaking pole: accelerometer scatter
        {{0.0, 0.0, 0.0}, 0.004, 0.0025, 0.002, false},  // rate scatter above 0.1 deg/s
        {{0.0, 0.0, 0.0}, 0.004, 0.0004, 0.006, false},  // median rate above 0.3 deg/s: a slow turn
        {{0.0, 0.0, 0.0}, 0.004, 0.0004, -0.006, false}, // the same turn the other way
    };
    for (const auto &c : cases) {
        SetUp();
        Motion m;
        std::memcpy(m.vel_e, c.vel, sizeof c.vel);
        m.force_noise = c.force_noise;
        m.rate_noise = c.rate_noise;
        m.rate_b[0] = c.rate_x;
        push(m, 30);
        EXPECT_EQ(update_accepted(), c.accepted) << &c - cases;
    }
}

TEST_F(Standstill, MainStateFreezesTheEstimateWhileItsVarianceGrowsToTheCap) {
    Motion still;
    push(still, 30);
    s_FltState = FLT_STATE_MAIN;
    EXPECT_FALSE(update_accepted(3));
    FltZupt.bias_var[0] = kBiasVarCap - 0.5 * kRandomWalk;
    ZuptFltProc();
    EXPECT_EQ(FltZupt.bias_var[0], kBiasVarCap);
    s_FltState = FLT_STATE_IDLE;
}

}  // namespace
