// Record validity, IMU staging and continuity between records; configuration
// load; resampling onto the 0.01 s grid and the fusion-input history ring.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <random>

#include "dr_entry.h"
#include "dr_global_var.h"

using namespace drlib;

namespace {

struct Record {
    DrInput h;
    ImuSample s[12];  // directly after the 88-byte header
};

// n samples 10 ms apart from first_us; the gap after sample `at` is gap_us.
Record MakeRecord(uint32_t first_us = 400000, uint8_t n = 10, uint32_t at = 99, uint32_t gap_us = 0) {
    Record r{};
    r.h = DrInput{4, {}, n, 0x10, 0x10, 7, 1200, {}, {}, {0.01f, 0.01f, 0.01f}, {0.01f, 0.01f, 0.01f}};
    for (uint32_t i = 0, t = first_us; i < n; t += (i == at ? gap_us : 10000u), ++i) r.s[i].time_us = t;
    return r;
}

TEST(RecordValidity, EachLimitOnBothSides) {
    const struct { const char *what; void (*edit)(DrInput &); uint32_t valid; } cases[] = {
        {"version 3", [](DrInput &h) { h.version = 3; }, 0},
        {"tow one week + 1 s", [](DrInput &h) { h.tow_ms = 604801000u; }, 1},
        {"tow 1 ms beyond", [](DrInput &h) { h.tow_ms = 604801001u; }, 0},
        {"tow +1 ms", [](DrInput &h) { h.tow_ms = 1201; }, 1},
        {"tow -1 ms", [](DrInput &h) { h.tow_ms = 1199; }, 1},
        {"tow +2 ms", [](DrInput &h) { h.tow_ms = 1202; }, 0},
        {"tow -2 ms", [](DrInput &h) { h.tow_ms = 1198; }, 0},
        {"pos 0x32", [](DrInput &h) { h.pos_type = h.vel_type = 0x32; }, 1},
        {"pos 0x13", [](DrInput &h) { h.pos_type = h.vel_type = 0x13; }, 0},
        {"pos 0x40", [](DrInput &h) { h.pos_type = h.vel_type = 0x40; }, 0},
        {"vel 9", [](DrInput &h) { h.vel_type = 9; }, 1},
        {"vel 0x21 under 0x21", [](DrInput &h) { h.pos_type = 0x21; h.vel_type = 0x21; }, 1},
        {"vel 0x21 under 0x20", [](DrInput &h) { h.pos_type = 0x20; h.vel_type = 0x21; }, 0},
        {"vel 10", [](DrInput &h) { h.vel_type = 10; }, 0},
        {"pos sigma 10 m", [](DrInput &h) { h.pos_std[0] = 10.0f; h.pos_std[1] = h.pos_std[2] = 0.0f; }, 1},
        {"pos sigma > 10 m", [](DrInput &h) { h.pos_std[0] = 10.0f; h.pos_std[1] = 0.01f; h.pos_std[2] = 0.0f; }, 0},
        {"pos sigma NaN", [](DrInput &h) { h.pos_std[1] = nanf(""); }, 1},
        // 0.7f squared rounds to the limit 0x3EFAE147 itself; adding 1.7e-4 squared
        // gives 0x3EFAE148, which is 0.49f and one ulp too much.
        {"vel sigma 0.7", [](DrInput &h) { h.vel_std[0] = 0.7f; h.vel_std[1] = h.vel_std[2] = 0.0f; }, 1},
        {"vel sigma 0.49f", [](DrInput &h) { h.vel_std[0] = 0.7f; h.vel_std[1] = 1.7e-4f; h.vel_std[2] = 0.0f; }, 0},
        {"7 samples", [](DrInput &h) { h.nsamples = 7; }, 0},
        {"8 samples", [](DrInput &h) { h.nsamples = 8; }, 1},
        {"12 samples", [](DrInput &h) { h.nsamples = 12; }, 1},
        {"13 samples", [](DrInput &h) { h.nsamples = 13; }, 0},
    };
    for (const auto &c : cases) {
        Record r = MakeRecord();
        c.edit(r.h);
        EXPECT_EQ(IsFusionDataValid(&r.h), c.valid) << c.what;
    }
}

class Staging : public ::testing::Test {
protected:
    void SetUp() override {
        ResetImuRing();
        ClearFusionInHistory();
        drcfg = drcfg16470;
        drcfg.gyro_scale = drcfg.acc_scale = 1.0;  // counts read back directly when resampled
    }
    void TearDown() override { drcfg = drcfg16470; }
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

// Spacing limits 2 and 18 ms inclusive, staging stopping at the offending
// sample, also across the second; the first sample of a record is compared
// with the last staged one only when a previous record exists.
TEST_F(Staging, SampleSpacingLimitsAndTheFirstSample) {
    const struct { uint32_t gap_us; int32_t staged; } cases[] = {{2000, 1}, {1999, 0}, {18000, 1}, {18001, 0}};
    for (const auto &c : cases) {
        ResetImuRing();
        const Record r = MakeRecord(400000, 10, 4, c.gap_us);
        EXPECT_EQ(InputImuDataToBuf(&r.h), c.staged) << c.gap_us;
        EXPECT_EQ(ImuDataWPos, c.staged ? 10u : 5u) << c.gap_us;
    }
    ResetImuRing();
    const Record wrap = MakeRecord(3969995, 8, 3, 5005);  // 3999995 then 4005000 across the second
    EXPECT_EQ(InputImuDataToBuf(&wrap.h), 1);
    ResetImuRing();
    ImuDataBuf[IMU_DATA_INDEX_MASK].time_us = 123456;  // stale slot "before" the empty ring
    const Record r = MakeRecord(400000), overlap = MakeRecord(480000), next = MakeRecord(500000);
    EXPECT_EQ(InputImuDataToBuf(&r.h), 1);
    g_FusionInNum = 1;
    EXPECT_EQ(InputImuDataToBuf(&overlap.h), 0);  // starts before the last staged stamp
    EXPECT_EQ(InputImuDataToBuf(&next.h), 1);
    EXPECT_EQ(ImuDataWPos, 20u);
}

// A record that does not fit is refused before any sample is written; one
// slot more is enough (63 of 64 filled); a count the ring could never hold is
// refused even when it is empty.
TEST_F(Staging, FullRingRejectsTheRecordWithoutWriting) {
    for (uint8_t n : {8, 12}) {
        for (ImuSample &s : ImuDataBuf) s.reserved = 0xABCDu;
        ImuDataRPos = 1000u;
        ImuDataWPos = ImuDataRPos + (64u - n);
        const Record r = MakeRecord(0, n);
        EXPECT_EQ(InputImuDataToBuf(&r.h), 0) << int(n);
        EXPECT_EQ(ImuDataWPos - ImuDataRPos, 64u - n);
        for (const ImuSample &s : ImuDataBuf) ASSERT_EQ(s.reserved, 0xABCDu);
        ImuDataWPos = ImuDataRPos + (63u - n);
        EXPECT_EQ(InputImuDataToBuf(&r.h), 1) << int(n);
    }
    ResetImuRing();
    Record r = MakeRecord(0, 12);
    r.h.nsamples = 100;
    EXPECT_TRUE(InputImuDataToBuf(&r.h) == 0 && ImuDataWPos == 0u);
}

TEST(RecordContinuity, SequenceAndEpochSpacing) {
    FusionIn prev{};
    prev.header.seq = 7;
    prev.header.tow_ms = 604799950u;
    const struct { uint32_t seq, tow_ms, brk; } cases[] = {
        {8, 49, 0}, {8, 51, 0}, {8, 48, 1}, {8, 52, 1},  // across the week rollover
        {8, 604800049u, 0}, {8, 604800052u, 1}, {7, 50, 1}, {9, 50, 1}};
    Record cur = MakeRecord();
    for (const auto &c : cases) {
        cur.h.seq = c.seq;
        cur.h.tow_ms = c.tow_ms;
        EXPECT_EQ(IsFusionDataBreak(&cur.h, &prev), c.brk) << c.seq << " " << c.tow_ms;
    }
    // The sequence number's wrap: the simulated-log test runs across it.
}

TEST(Configuration, GyroBiasCodePresence) {
    const struct { double code[3]; bool present; } cases[] = {
        {{0, 0, 0}, false}, {{1.001, 2, 3}, true}, {{1.0035, 2, 3}, false}, {{1, 2, 3 - 0.0034}, true},
        {{1, 2.0035, 3}, false}};
    for (const auto &c : cases) {
        DrCfg cfg = drcfg16470;
        memcpy(cfg.gyro_bias_code, c.code, sizeof c.code);
        LoadDrCfg(&cfg);
        // Points at the library's copy, not at the caller's record.
        EXPECT_EQ(g_BgFromCfg, c.present ? drcfg.gyro_bias_code : nullptr) << c.code[0] << " " << c.code[1];
    }
    LoadDrCfg(nullptr);
    EXPECT_TRUE(g_BgFromCfg == nullptr && memcmp(&drcfg, &drcfg16470, sizeof drcfg) == 0);
}

constexpr double kDegToRad = M_PI / 180.0;

using Resampler = Staging;

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
