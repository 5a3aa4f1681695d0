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
// smaller RMS deviation, the upper one on a tie. Runs of every size up to 41
// and of the detector's 300, of spread or quantised values (many repeats),
// with infinities, a NaN, or zeros of both signs: the array is left as a plain
// exchange sort leaves it and the median is its value, bit for bit.
TEST(Statistics, MedianAndDeviationAgainstTheExchangeSortAndTheRule) {
    std::vector<double> tie = {4, 3, 2, 1};
    EXPECT_EQ(median_dat(tie.data(), 4), 3.0);
    std::mt19937 gen(11);
    std::uniform_real_distribution<double> uni(-3.0, 5.0);
    std::uniform_int_distribution<int> level(-40, 40);
    for (int trial = 0; trial < 240; ++trial) {
        const size_t n = trial < 205 ? 1 + trial % 41 : 300;
        std::vector<double> x(n);
        for (double &v : x) v = trial % 2 ? uni(gen) : 1e-4 * (level(gen) + 0.5);
        if (trial % 5 == 1) x[n / 3] = HUGE_VAL, x[n - 1] = -HUGE_VAL;
        if (trial % 5 == 2) x[n / 2] = std::nan("");
        if (trial % 5 == 3)
            for (size_t i = 0; i < n; i += 2) x[i] = level(gen) < 0 ? -0.0 : 0.0;
        std::vector<double> sorted = x;
        for (size_t i = 0; i < n; ++i)
            for (size_t j = i + 1; j < n; ++j)
                if (sorted[j] < sorted[i]) std::swap(sorted[i], sorted[j]);
        double expected = sorted[n / 2];
        if (n % 2 == 0 && rms_about(sorted, sorted[n / 2 - 1]) < rms_about(sorted, sorted[n / 2]))
            expected = sorted[n / 2 - 1];
        if (trial % 5 == 0) {
            const double rms = static_cast<double>(rms_about(x, 0.5));
            EXPECT_NEAR(std_dat(x.data(), static_cast<int32_t>(n), 0.5), rms, 1e-14 * rms) << n;
        }
        const double median = median_dat(x.data(), static_cast<int32_t>(n));
        EXPECT_EQ(std::memcmp(x.data(), sorted.data(), sizeof(double) * n), 0) << trial;
        EXPECT_EQ(std::memcmp(&median, &expected, sizeof median), 0) << trial;
    }
}

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
                    e.dvel[slot][c] = (m.force_b[c] + noise(m.force_noise)) * 0.01;
                    e.dtheta[slot][c] = (m.rate_b[c] + noise(m.rate_noise)) * 0.01;
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
        for (int axis = 0; axis < 3; ++axis)
            EXPECT_TRUE(FltZupt.bias[axis] == 1e-4 * (axis + 1) && FltZupt.bias_var[axis] == 1e-7 + kRandomWalk);
        EXPECT_EQ(FltZupt.hold_cnt, hold > 0 ? hold - 1 : 0);
        return false;
    }
    // Uniform noise of the given standard deviation, straight from the engine
    // so that the numbers are the same with every standard library.
    double noise(double sigma) { return sigma * 3.4641016151377544 * (static_cast<double>(gen_()) / 4294967296.0 - 0.5); }
    std::mt19937 gen_{2024u};
};

TEST_F(Standstill, LearnsTheGyroBiasOfAStillSensor) {
    Motion still;
    push(still, 30);
    for (int second = 0; second < 20; ++second) {
        ZuptFltProc();
        ASSERT_EQ(FltZupt.hold_cnt, 3) << second;
        push(still, 10);
    }
    // The median of 300 samples of 4e-4 rad/s noise scatters by about 3e-5
    // rad/s, and overlapping windows are inflated rather than averaged.
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
    const double first = 0.002 / (1.0 + kVarFloor / kBiasVarCap);
    EXPECT_NEAR(FltZupt.bias[0], first, 1e-17);
    EXPECT_EQ(FltZupt.bias_var[0], kVarFloor);
    // One second later the measurement variance is inflated by (2 + 1)^2.
    push(still, 10);
    ZuptFltProc();
    const double var = kVarFloor + kRandomWalk;
    EXPECT_NEAR(FltZupt.bias[0], first + var / (var + 9.0 * kVarFloor) * (0.002 - first), 1e-17);
}

// In the main state nothing is examined and the variance still grows, up to its cap.
TEST_F(Standstill, TheMainStateRefusesTheUpdate) {
    Motion still;
    push(still, 30);
    s_FltState = FLT_STATE_MAIN;
    EXPECT_FALSE(update_accepted(3));
    FltZupt.bias_var[0] = kBiasVarCap - 0.5 * kRandomWalk;
    ZuptFltProc();
    EXPECT_EQ(FltZupt.bias_var[0], kBiasVarCap);
    s_FltState = FLT_STATE_IDLE;
}

TEST_F(Standstill, VelocityAndSensorLimits) {
    const double a2 = 0.02 * 0.02 + 0.02 * 0.02;
    double fast = 0.028284271247461901, exact = fast;  // squared speed just above and exactly at 0.0016
    while (a2 + fast * fast <= 0.0016) fast = std::nextafter(fast, 1.0);
    while (a2 + exact * exact > 0.0016) exact = std::nextafter(exact, 0.0);
    ASSERT_EQ(a2 + exact * exact, 0.0016);
    // depth: only the entry that far back moves (0: all of them); the last 30 count.
    const struct { double vel[3], force_noise, rate_noise, rate_x; bool accepted; int depth = 0; } cases[] = {
        {{0.0, 0.031, 0.0}, 0.004, 0.0004, 0.002, true, 31},
        {{0.0, 0.031, 0.0}, 0.004, 0.0004, 0.002, false, 30},
        {{0.0, 0.0, -0.03}, 0.004, 0.0004, 0.002, true},
        {{0.0, std::nextafter(0.03, 1.0), 0.0}, 0.004, 0.0004, 0.002, false},
        {{0.02, 0.02, exact}, 0.004, 0.0004, 0.002, true},
        {{0.02, 0.02, fast}, 0.004, 0.0004, 0.002, false},
        {{0.0, 0.0, std::nan("")}, 0.004, 0.0004, 0.002, true},  // a NaN fails neither limit
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
        const Motion still;
        push(m, c.depth ? 1 : 30);
        push(still, c.depth ? c.depth - 1 : 0);
        EXPECT_EQ(update_accepted(c.depth ? 2 : 1), c.accepted) << &c - cases;
    }
}

}  // namespace
