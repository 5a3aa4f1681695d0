// Scalar helpers against libm, brute-force references and dense sweeps.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "drlib_toolkit.h"

TEST(ScaleAndClassify, MatchLibm) {
    std::mt19937 rng(71);
    for (int i = 0; i < 2000; ++i) {
        const uint32_t u = rng(), k = rng() % 100U;
        const int32_t v = static_cast<int32_t>(u);
        EXPECT_EQ(ScaleDouble(v, k), std::ldexp(static_cast<double>(v), -static_cast<int>(k)));
        EXPECT_EQ(ScaleDoubleU(u, k), std::ldexp(static_cast<double>(u), -static_cast<int>(k)));
        EXPECT_EQ(ScaleFloat(v, k), std::ldexp(static_cast<float>(v), -static_cast<int>(k)));
        EXPECT_EQ(ScaleFloatU(u, k), std::ldexp(static_cast<float>(u), -static_cast<int>(k)));
    }
    using lim = std::numeric_limits<double>;
    for (double x : {0.0, -0.0, 1.0, -1e308, lim::denorm_min(), lim::max(), lim::infinity(), -lim::infinity(),
                     lim::quiet_NaN(), -lim::quiet_NaN(), lim::signaling_NaN()}) {
        EXPECT_EQ(isNaN(x), std::isnan(x) ? 1U : 0U) << x;
        EXPECT_EQ(isInf(x), std::isinf(x) ? (x > 0 ? 1 : -1) : 0) << x;
    }
}

// Integer square root at every square and its neighbours;
// IntLog (1000 log10) within rounding everywhere; JPLapprox within 4 %.
TEST(IntegerHelpers, DenseSweepsAndBounds) {
    for (uint32_t k = 0; k <= 65535U; ++k) {  // every square and both neighbours
        ASSERT_EQ(IntSqrt(k * k), k);
        ASSERT_EQ(IntSqrt(k * k + 2U * k), k);  // (k + 1)^2 - 1, up to 2^32 - 1
        ASSERT_EQ(IntSqrt(k * k - (k > 0 ? 1U : 0U)), k > 0 ? k - 1U : 0U) << k;
    }
    for (auto [x, want] : {std::pair<uint32_t, int32_t>{1U, 0}, {2U, 301}, {10U, 1000}, {100U, 2000},
                           {65535U, 4817}, {4294967295U, 9633}})
        EXPECT_EQ(IntLog(x), want) << x;
    auto within3 = [](uint32_t x) { return std::fabs(IntLog(x) - 1000.0 * std::log10(double(x))) <= 3.5; };
    for (uint32_t x = 2; x < 1000000U; ++x) ASSERT_TRUE(within3(x)) << x;
    for (double x = 1e6; x < 4294967295.0; x *= 1.0001) ASSERT_TRUE(within3(static_cast<uint32_t>(x))) << x;
    EXPECT_EQ(JPLapprox(-4, 3), 4U);
    std::mt19937 rng(73);
    std::uniform_int_distribution<int32_t> u(-1000000, 1000000);
    for (int i = 0; i < 100000; ++i) {
        const int32_t a = u(rng), b = u(rng);
        const double exact = std::hypot(double(a), double(b));
        ASSERT_NEAR(double(JPLapprox(a, b)), exact, 0.04 * exact + 1.0) << a << "," << b;
    }
}

TEST(GetChi2InvNorm, LookupRulesAndTableRows) {
    // Zero and one event, log2 rounding up from 1.5 * 2^k, the last table row.
    EXPECT_TRUE(GetChi2InvNorm(0U, 3U) == 255U && GetChi2InvNorm(1U, 3U) == 0U);
    EXPECT_TRUE(GetChi2InvNorm(6U, 1U) == 33U && GetChi2InvNorm(1024U, 50U) == 29U);
    for (uint32_t k = 1; k <= 16; ++k) {
        // Two degrees of freedom: the threshold is 2 k ln 2 in closed form.
        EXPECT_EQ(GetChi2InvNorm(1U << k, 1U), uint32_t(std::lround(16.0 * k * std::log(2.0)))) << k;
    }
    // Rarer events need higher thresholds; more degrees of freedom pull the
    // normalised threshold down towards 16.
    for (uint32_t dof = 1; dof <= 20; ++dof)
        for (uint32_t k = 2; k <= 16; ++k) {
            EXPECT_GE(GetChi2InvNorm(1U << k, dof), GetChi2InvNorm(1U << (k - 1), dof)) << dof << "," << k;
            EXPECT_LE(GetChi2InvNorm(1U << k, dof + 1), GetChi2InvNorm(1U << k, dof)) << dof << "," << k;
        }
}
