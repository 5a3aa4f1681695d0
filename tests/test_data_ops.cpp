// Scalar helpers against libm, brute-force references and dense sweeps.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include "drlib.h"

TEST(Scale, PowerOfTwoScalingMatchesLdexp) {
    EXPECT_EQ(ScaleDouble(3, 2), 0.75);
    EXPECT_EQ(ScaleDouble(-1, 10), -0.0009765625);
    EXPECT_EQ(ScaleDouble(0, 5), 0.0);
    EXPECT_EQ(ScaleFloatU(4294967295U, 0), 4294967296.0F);
    EXPECT_EQ(ScaleFloat(0, 7), 0.0F);
    std::mt19937 rng(71);
    for (int i = 0; i < 10000; ++i) {
        const int32_t v = static_cast<int32_t>(rng());
        const uint32_t u = static_cast<uint32_t>(rng());
        const uint32_t k = rng() % 100U;
        const int ki = -static_cast<int>(k);
        EXPECT_EQ(ScaleDouble(v, k), std::ldexp(static_cast<double>(v), ki));
        EXPECT_EQ(ScaleDoubleU(u, k), std::ldexp(static_cast<double>(u), ki));
        EXPECT_EQ(ScaleFloat(v, k), std::ldexp(static_cast<float>(v), ki));
        EXPECT_EQ(ScaleFloatU(u, k), std::ldexp(static_cast<float>(u), ki));
    }
}

TEST(Classify, NaNAndInfinity) {
    const double inf = std::numeric_limits<double>::infinity();
    const double qnan = std::numeric_limits<double>::quiet_NaN();
    const double values[] = {0.0, -0.0, 1.0, -1e308, std::numeric_limits<double>::denorm_min(),
                             std::numeric_limits<double>::max(), inf, -inf, qnan, -qnan,
                             std::numeric_limits<double>::signaling_NaN()};
    for (double x : values) {
        EXPECT_EQ(isNaN(x), std::isnan(x) ? 1U : 0U) << x;
        EXPECT_EQ(isInf(x), std::isinf(x) ? (x > 0 ? 1 : -1) : 0) << x;
    }
}

TEST(BitOps, ReverseAndPopulationCount) {
    EXPECT_EQ(revertBits(1U), 0x80000000U);
    EXPECT_EQ(CountOnes(0xffffffffU), 32U);
    EXPECT_EQ(CountOnes(0U), 0U);
    std::mt19937 rng(72);
    for (int i = 0; i < 100000; ++i) {
        const uint32_t x = static_cast<uint32_t>(rng());
        uint32_t rev = 0, ones = 0;
        for (uint32_t b = 0; b < 32U; ++b) {
            rev |= ((x >> b) & 1U) << (31U - b);
            ones += (x >> b) & 1U;
        }
        ASSERT_EQ(revertBits(x), rev) << x;
        ASSERT_EQ(CountOnes(x), ones) << x;
    }
}

TEST(IntSqrt, FloorOfSquareRootOverDenseSweep) {
    EXPECT_EQ(IntSqrt(4294967295U), 65535U);
    EXPECT_EQ(IntSqrt(0U), 0U);
    // Every perfect square and both of its neighbours.
    for (uint32_t k = 0; k <= 65535U; ++k) {
        const uint32_t sq = k * k;
        ASSERT_EQ(IntSqrt(sq), k);
        if (k > 0) {
            ASSERT_EQ(IntSqrt(sq - 1U), k - 1U);
        }
        ASSERT_EQ(IntSqrt(sq + 2U * k), k);  // (k + 1)^2 - 1, wraps to 2^32 - 1 for the last k
    }
    std::mt19937 rng(73);
    for (int i = 0; i < 200000; ++i) {
        const uint32_t x = static_cast<uint32_t>(rng());
        const uint64_t r = IntSqrt(x);
        ASSERT_LE(r * r, x);
        ASSERT_GT((r + 1) * (r + 1), x);
    }
}

TEST(IntLog, WithinThreeOfThousandLog10) {
    EXPECT_EQ(IntLog(0U), 0);
    EXPECT_EQ(IntLog(1U), 0);
    EXPECT_EQ(IntLog(2U), 301);
    EXPECT_EQ(IntLog(10U), 1000);
    EXPECT_EQ(IntLog(100U), 2000);
    EXPECT_EQ(IntLog(65535U), 4817);
    EXPECT_EQ(IntLog(4294967295U), 9633);
    auto check = [](uint32_t x) {
        const double want = 1000.0 * std::log10(static_cast<double>(x));
        return std::fabs(static_cast<double>(IntLog(x)) - want) <= 3.5;
    };
    for (uint32_t x = 2; x < 1000000U; ++x) ASSERT_TRUE(check(x)) << x;
    for (double x = 1e6; x < 4294967295.0; x *= 1.0001) ASSERT_TRUE(check(static_cast<uint32_t>(x))) << x;
}

TEST(JPLapprox, ExamplesAndErrorBound) {
    EXPECT_EQ(JPLapprox(3, 4), 4U);
    EXPECT_EQ(JPLapprox(10, 1), 10U);
    EXPECT_EQ(JPLapprox(-4, 3), JPLapprox(3, 4));
    EXPECT_EQ(JPLapprox(0, -7), 7U);
    std::mt19937 rng(74);
    std::uniform_int_distribution<int32_t> u(-1000000, 1000000);
    for (int i = 0; i < 100000; ++i) {
        const int32_t a = u(rng), b = u(rng);
        const double exact = std::hypot(static_cast<double>(a), static_cast<double>(b));
        ASSERT_NEAR(static_cast<double>(JPLapprox(a, b)), exact, 0.04 * exact + 1.0) << a << "," << b;
    }
}

TEST(GetChi2InvNorm, LookupRulesAndTableRows) {
    EXPECT_EQ(GetChi2InvNorm(0U, 3U), 255U);
    EXPECT_EQ(GetChi2InvNorm(1U, 3U), 0U);
    EXPECT_EQ(GetChi2InvNorm(2U, 1U), 11U);
    EXPECT_EQ(GetChi2InvNorm(3U, 1U), 22U);
    EXPECT_EQ(GetChi2InvNorm(5U, 1U), 22U);
    EXPECT_EQ(GetChi2InvNorm(6U, 1U), 33U);
    EXPECT_EQ(GetChi2InvNorm(100000U, 0U), 177U);
    EXPECT_EQ(GetChi2InvNorm(1024U, 50U), 29U);

    const uint32_t row1[16] = {11, 22, 33, 44, 55, 67, 78, 89, 100, 111, 122, 133, 144, 155, 166, 177};
    const uint32_t row2[16] = {13, 22, 29, 36, 42, 49, 55, 62, 68, 74, 80, 86, 92, 98, 104, 110};
    const uint32_t row20[16] = {16, 18, 20, 22, 23, 25, 26, 27, 28, 29, 30, 32, 33, 34, 35, 35};
    for (uint32_t k = 1; k <= 16; ++k) {
        const uint32_t n = 1U << k;
        EXPECT_EQ(GetChi2InvNorm(n, 1U), row1[k - 1]) << k;
        EXPECT_EQ(GetChi2InvNorm(n, 2U), row2[k - 1]) << k;
        EXPECT_EQ(GetChi2InvNorm(n, 20U), row20[k - 1]) << k;
        // Two degrees of freedom have the closed form x = 2 k ln 2.
        EXPECT_EQ(GetChi2InvNorm(n, 1U), static_cast<uint32_t>(std::lround(16.0 * k * std::log(2.0)))) << k;
    }
    // A rarer event needs a higher threshold; more degrees of freedom
    // concentrate the normalised threshold towards 16.
    for (uint32_t dof = 1; dof <= 20; ++dof) {
        for (uint32_t k = 2; k <= 16; ++k) {
            EXPECT_GE(GetChi2InvNorm(1U << k, dof), GetChi2InvNorm(1U << (k - 1), dof)) << dof << "," << k;
            if (dof > 1) {
                EXPECT_LE(GetChi2InvNorm(1U << k, dof), GetChi2InvNorm(1U << k, dof - 1)) << dof;
            }
            EXPECT_GE(GetChi2InvNorm(1U << k, dof), 16U);
        }
    }
}
