// Resampling onto the 0.01 s grid and the fusion-input history ring.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <random>

#include "dr_entry.h"
#include "dr_global_var.h"

using namespace drlib;

namespace {

constexpr double kDegToRad = M_PI / 180.0;

class Resampler : public ::testing::Test {
protected:
    void SetUp() override {
        ResetImuRing();
        drcfg = drcfg16470;
        drcfg.gyro_scale = 1.0;  // counts read back directly
        drcfg.acc_scale = 1.0;
    }
    static void Stage(uint32_t time_us, int32_t count) {
        ImuDataBuf[ImuDataWPos++ & IMU_DATA_INDEX_MASK] = ImuSample{0, time_us, {count, 0, 0}, {count, 0, -count}};
    }
    static FusionIn Resample(uint32_t tow_ms) {
        FusionIn e{};
        e.header.tow_ms = tow_ms;
        FillDaDv2FusionIn(&e);
        return e;
    }
};

// Samples on the 10 ms grid carrying their own stamp in ms: each slot must read
// the time of its own instant, tow - 150 ms + (k - 1) * 10 ms.
TEST_F(Resampler, SlotsStandAtTheirInstants) {
    const struct {
        uint32_t tow_ms, first_us, kept;
    } cases[] = {{1000, 5840000, 3}, {100, 7940000, 3}, {1001, 5840000, 2}};
    for (const auto &c : cases) {
        SetUp();
        for (uint32_t t = c.first_us; t < c.first_us + 120000u; t += 10000u)
            Stage(t, static_cast<int32_t>((t % 1000000u) / 1000u));
        const FusionIn e = Resample(c.tow_ms);
        EXPECT_EQ(e.header.nsamples, 10) << c.tow_ms;
        for (uint32_t k = 1; k <= 10; ++k) {
            const double want_ms = double((c.tow_ms + 1850u + 10u * (k - 1u)) % 1000u);
            EXPECT_NEAR(e.dvel[k][0], want_ms, 1e-9) << c.tow_ms << " slot " << k;
            EXPECT_NEAR(e.dvel[k][2], -want_ms, 1e-9);
            EXPECT_NEAR(e.dtheta[k][0], want_ms * kDegToRad, 1e-12);
        }
        // The read counter stops on the sample before the last target, even
        // when the next sample lies exactly on it.
        EXPECT_EQ(ImuDataWPos - ImuDataRPos, c.kept) << c.tow_ms;
    }
}

// Unfilled slots keep their old values; the newest staged sample exactly on a
// target still serves it; samples that start after the first targets leave
// those slots out.
TEST_F(Resampler, SkippedSlotsAndSamplesOnTheTarget) {
    Stage(840000, 600);
    Stage(850000, 1200);
    FusionIn e{};
    e.header.tow_ms = 1000;
    e.dvel[2][0] = 77.0;
    FillDaDv2FusionIn(&e);
    EXPECT_TRUE(e.header.nsamples == 1 && e.dvel[1][0] == 1200.0 && e.dvel[2][0] == 77.0);
    SetUp();
    for (uint32_t t = 875000; t < 960000u; t += 10000u) Stage(t, 1);
    EXPECT_EQ(Resample(1000).header.nsamples, 7);
}

// A smooth rate profile sampled at 100 Hz with jittered stamps, staged record by
// record: every slot must match the profile at its instant within the linear-
// interpolation error max|f''| h^2 / 8 plus the rounding to integer counts.
TEST_F(Resampler, JitteredSamplesFollowASmoothProfile) {
    const double amp = 1.0e6, offset = 2.0e5, omega = 2.0 * M_PI * 0.7;  // counts, rad/s
    auto profile = [&](double t_s) { return offset + amp * sin(omega * t_s); };
    const double h_max = 0.016;  // 10 ms nominal spacing stretched by up to 2 x 3 ms of jitter
    const double bound = amp * omega * omega * h_max * h_max / 8.0 + 0.5;
    std::mt19937 rng(20240611u);
    std::uniform_int_distribution<int> jitter_us(-3000, 3000);
    ClearFusionInHistory();
    for (uint32_t n = 0; n < 60; ++n) {
        const uint32_t tow_ms = 100300u + 100u * n;  // runs across several whole seconds
        struct { DrInput h; ImuSample s[10]; } rec{};
        rec.h.nsamples = 10;
        for (uint32_t i = 0; i < 10; ++i) {
            const int64_t t_us = int64_t(tow_ms) * 1000 - 95000 + 10000 * int64_t(i) + jitter_us(rng);
            const auto count = static_cast<int32_t>(lround(profile(double(t_us) * 1e-6)));
            rec.s[i] = ImuSample{0, static_cast<uint32_t>(t_us), {0, count, 0}, {0, count, 0}};
        }
        ASSERT_EQ(InputImuDataToBuf(&rec.h), 1) << n;
        g_FusionInNum = 1;
        const FusionIn e = Resample(tow_ms);
        ASSERT_LT(ImuDataWPos - ImuDataRPos, IMU_DATA_BUF_LEN - 12u);  // the ring drains
        if (n == 0) continue;  // the first record starts after its early slots
        ASSERT_EQ(e.header.nsamples, 10) << n;
        for (int k = 1; k <= 10; ++k) {
            const double truth = profile((double(tow_ms) - 150.0 + 10.0 * (k - 1)) * 1e-3);
            EXPECT_NEAR(e.dvel[k][1], truth, bound) << "epoch " << n << " slot " << k;
            EXPECT_NEAR(e.dtheta[k][1], truth * kDegToRad, bound * kDegToRad);
        }
    }
    ClearFusionInHistory();
}

// Ring index wrap-around in both directions, the whole-second test within
// 1 ms, and the run count: saturating at 512, restarted by a break, the
// position wrapping after 2^32 entries.
TEST(FusionHistory, IndexWrapsSecondAlignmentAndRunCount) {
    EXPECT_EQ(&GET_FUSION_IN(0, -1), &g_FusionInBuf[511]);
    EXPECT_EQ(&GET_FUSION_IN(511, 1), &g_FusionInBuf[0]);
    EXPECT_EQ(&GET_FUSION_IN(3u, ~0u), &g_FusionInBuf[2]);
    const uint32_t k = 5;
    EXPECT_EQ(&GET_FUSION_IN(1030u, -k), &g_FusionInBuf[1]);
    for (uint32_t t : {0u, 4999u, 5000u, 5001u, 4998u, 5002u, 5100u}) EXPECT_EQ(IS_SECOND_ALIGNED(t), t % 1000u < 2u || t % 1000u == 999u ? 1u : 0u) << t;
    ClearFusionInHistory();
    for (uint32_t i = 0; i < 600; ++i) CommitFusionIn();
    EXPECT_TRUE(g_FusionInNum == 512u && g_FusionInPos == 600u);
    EXPECT_EQ(GET_FUSION_IN(g_FusionInPos - 1u, -511).pos_index, 88u);
    BreakFusionIn();
    EXPECT_TRUE(g_FusionInNum == 0u && g_FusionInPos == 601u);
    g_FusionInPos = 0xFFFFFFFFu;
    CommitFusionIn();
    EXPECT_TRUE(g_FusionInPos == 0u && g_FusionInBuf[511].pos_index == 0xFFFFFFFFu);
    ClearFusionInHistory();
}

}  // namespace
