// Record validity, IMU staging and continuity between records; configuration load.
#include <gtest/gtest.h>
#include <math.h>
#include <stddef.h>
#include <string.h>

#include "dr_entry.h"
#include "dr_global_var.h"

using namespace drlib;

namespace {

struct Record {
    DrInput h;
    ImuSample s[12];
};
static_assert(offsetof(Record, s) == sizeof(DrInput), "samples follow the header");

Record ValidRecord() {
    Record r{};
    r.h.version = 4;
    r.h.nsamples = 10;
    r.h.pos_type = 0x10;
    r.h.vel_type = 0x10;
    r.h.seq = 7;
    r.h.tow_ms = 1200;
    for (float &v : r.h.pos_std) v = 0.01f;
    for (float &v : r.h.vel_std) v = 0.01f;
    return r;
}

class Staging : public ::testing::Test {
protected:
    void SetUp() override {
        ResetImuRing();
        ClearFusionInHistory();
    }
};

TEST(RecordValidity, EachLimitOnBothSides) {
    struct Case {
        const char *what;
        void (*edit)(DrInput &);
        uint32_t valid;
    };
    const Case cases[] = {
        {"version 3", [](DrInput &h) { h.version = 3; }, 0},
        {"tow at one week plus 1 s", [](DrInput &h) { h.tow_ms = 604801000u; }, 1},
        {"tow 1 ms beyond", [](DrInput &h) { h.tow_ms = 604801001u; }, 0},
        {"tow 1 ms late", [](DrInput &h) { h.tow_ms = 1201; }, 1},
        {"tow 1 ms early", [](DrInput &h) { h.tow_ms = 1199; }, 1},
        {"tow 2 ms late", [](DrInput &h) { h.tow_ms = 1202; }, 0},
        {"tow 2 ms early", [](DrInput &h) { h.tow_ms = 1198; }, 0},
        {"tow 0", [](DrInput &h) { h.tow_ms = 0; }, 1},
        {"pos type 0x32", [](DrInput &h) { h.pos_type = h.vel_type = 0x32; }, 1},
        {"pos type 0x13", [](DrInput &h) { h.pos_type = h.vel_type = 0x13; }, 0},
        {"pos type 0x40", [](DrInput &h) { h.pos_type = h.vel_type = 0x40; }, 0},
        {"pos type 0x02", [](DrInput &h) { h.pos_type = h.vel_type = 0x02; }, 0},
        {"vel type 8", [](DrInput &h) { h.vel_type = 8; }, 1},
        {"vel type 0x12 under 0x30", [](DrInput &h) { h.pos_type = 0x30; h.vel_type = 0x12; }, 1},
        {"vel type 0x21 under 0x21", [](DrInput &h) { h.pos_type = 0x21; h.vel_type = 0x21; }, 1},
        {"vel type 0x21 under 0x20", [](DrInput &h) { h.pos_type = 0x20; h.vel_type = 0x21; }, 0},
        {"vel type 10", [](DrInput &h) { h.vel_type = 10; }, 0},
        {"pos sigma exactly 10 m", [](DrInput &h) { h.pos_std[0] = 10.0f; h.pos_std[1] = h.pos_std[2] = 0.0f; }, 1},
        {"pos sigma above 10 m", [](DrInput &h) { h.pos_std[0] = 10.0f; h.pos_std[1] = 0.01f; h.pos_std[2] = 0.0f; }, 0},
        {"pos sigma NaN", [](DrInput &h) { h.pos_std[1] = nanf(""); }, 1},
        {"vel sigma NaN", [](DrInput &h) { h.vel_std[2] = nanf(""); }, 1},
        {"vel sigma 0.7 m/s", [](DrInput &h) { h.vel_std[0] = 0.7f; h.vel_std[1] = h.vel_std[2] = 0.0f; }, 1},
        // The float sum here is 0.49f itself, one ulp above the limit.
        {"vel sigma 0.49f", [](DrInput &h) { h.vel_std[0] = 0.7f; h.vel_std[1] = 1.7e-4f; h.vel_std[2] = 0.0f; }, 0},
        {"7 samples", [](DrInput &h) { h.nsamples = 7; }, 0},
        {"8 samples", [](DrInput &h) { h.nsamples = 8; }, 1},
        {"12 samples", [](DrInput &h) { h.nsamples = 12; }, 1},
        {"13 samples", [](DrInput &h) { h.nsamples = 13; }, 0},
    };
    for (const Case &c : cases) {
        Record r = ValidRecord();
        c.edit(r.h);
        EXPECT_EQ(IsFusionDataValid(&r.h), c.valid) << c.what;
    }
    // The velocity case above must hit the value between the limit and 0.49f.
    const volatile float v0 = 0.7f, v1 = 1.7e-4f;
    const float sum = v0 * v0 + v1 * v1;
    uint32_t bits;
    memcpy(&bits, &sum, sizeof bits);
    EXPECT_EQ(bits, 0x3EFAE148u);
}

// One record of n samples 10 ms apart from first_us, the gap after sample `at` replaced by gap_us.
Record SampledRecord(uint32_t first_us, uint8_t n, uint32_t at = 99, uint32_t gap_us = 10000) {
    Record r = ValidRecord();
    r.h.nsamples = n;
    uint32_t t = first_us;
    for (uint32_t i = 0; i < n; ++i) {
        r.s[i].time_us = t;
        r.s[i].gyro[0] = static_cast<int32_t>(i);
        t += (i == at) ? gap_us : 10000u;
    }
    return r;
}

TEST_F(Staging, SampleSpacingLimitsAreInclusive) {
    const struct {
        uint32_t gap_us;
        int32_t staged;
    } cases[] = {{2000, 1}, {1999, 0}, {18000, 1}, {18001, 0}, {0, 0}, {1000000, 0}};
    for (const auto &c : cases) {
        ResetImuRing();
        const Record r = SampledRecord(400000, 10, 4, c.gap_us);
        EXPECT_EQ(InputImuDataToBuf(&r.h), c.staged) << c.gap_us;
        // A rejected record stops at the offending sample.
        EXPECT_EQ(ImuDataWPos, c.staged ? 10u : 5u) << c.gap_us;
    }
}

TEST_F(Staging, SpacingFoldsAcrossTheSecond) {
    Record r = SampledRecord(3960000, 8);
    r.s[4].time_us = 3999995;  // 5005 us before the next stamp, which wraps into the next second
    r.s[5].time_us = 4005000;
    EXPECT_EQ(InputImuDataToBuf(&r.h), 1);
}

TEST_F(Staging, FirstSampleComparedOnlyWhenAPreviousRecordExists) {
    ImuDataBuf[IMU_DATA_INDEX_MASK].time_us = 123456;  // stale slot "before" an empty ring
    const Record r = SampledRecord(400000, 10);
    EXPECT_EQ(InputImuDataToBuf(&r.h), 1);

    g_FusionInNum = 1;
    const Record overlap = SampledRecord(480000, 10);  // starts before the last staged stamp
    EXPECT_EQ(InputImuDataToBuf(&overlap.h), 0);
    EXPECT_EQ(ImuDataWPos, 10u);
    const Record next = SampledRecord(500000, 10);
    EXPECT_EQ(InputImuDataToBuf(&next.h), 1);
    EXPECT_EQ(ImuDataWPos, 20u);
}

TEST_F(Staging, FullRingRejectsTheRecordWithoutWriting) {
    for (ImuSample &s : ImuDataBuf) s.reserved = 0xABCDu;
    for (uint8_t n : {8, 10, 12}) {
        ImuDataRPos = 1000u;
        ImuDataWPos = ImuDataRPos + (64u - n);
        Record r = SampledRecord(0, n);
        EXPECT_EQ(InputImuDataToBuf(&r.h), 0) << int(n);
        EXPECT_EQ(ImuDataWPos - ImuDataRPos, 64u - n);
        for (const ImuSample &s : ImuDataBuf) ASSERT_EQ(s.reserved, 0xABCDu);

        ImuDataWPos = ImuDataRPos + (63u - n);  // one more free slot: fits, filling 63 of 64
        EXPECT_EQ(InputImuDataToBuf(&r.h), 1) << int(n);
        EXPECT_EQ(ImuDataWPos - ImuDataRPos, 63u);
        for (ImuSample &s : ImuDataBuf) s.reserved = 0xABCDu;
    }
    // A count the ring could never hold is refused even when it is empty.
    ResetImuRing();
    Record r = SampledRecord(0, 12);
    r.h.nsamples = 100;
    EXPECT_EQ(InputImuDataToBuf(&r.h), 0);
    EXPECT_EQ(ImuDataWPos, 0u);
}

TEST(RecordContinuity, SequenceAndEpochSpacing) {
    FusionIn prev{};
    prev.header.seq = 7;
    prev.header.tow_ms = 604799950u;
    Record cur = ValidRecord();
    const struct {
        uint32_t seq, tow_ms, brk;
    } cases[] = {
        {8, 50, 0},           // 100 ms across the week rollover
        {8, 49, 0},  {8, 51, 0}, {8, 48, 1}, {8, 52, 1},
        {8, 604800049u, 0},   // same week: 99 ms
        {8, 604800050u, 0},
        {8, 604800052u, 1},
        {8, 604799950u, 1},   // repeated epoch
        {7, 50, 1},  {9, 50, 1},
    };
    for (const auto &c : cases) {
        cur.h.seq = c.seq;
        cur.h.tow_ms = c.tow_ms;
        EXPECT_EQ(IsFusionDataBreak(&cur.h, &prev), c.brk) << c.seq << " " << c.tow_ms;
    }
    prev.header.seq = 0xFFFFFFFFu;
    prev.header.tow_ms = 1000;
    cur.h.seq = 0;
    cur.h.tow_ms = 1100;
    EXPECT_EQ(IsFusionDataBreak(&cur.h, &prev), 0u);
}

TEST(Configuration, GyroBiasCodePresence) {
    const struct {
        double code[3];
        bool present;
    } cases[] = {
        {{0.0, 0.0, 0.0}, false},       {{1.001, 2.0, 3.0}, true},    {{1.0035, 2.0, 3.0}, false},
        {{1.0, 2.0, 3.0 - 0.0034}, true}, {{1.0, 2.0035, 3.0}, false}, {{1.0, 2.0, 3.0}, true},
    };
    for (const auto &c : cases) {
        DrCfg cfg = drcfg16470;
        memcpy(cfg.gyro_bias_code, c.code, sizeof c.code);
        LoadDrCfg(&cfg);
        EXPECT_EQ(g_BgFromCfg != nullptr, c.present) << c.code[0] << " " << c.code[1] << " " << c.code[2];
        if (c.present) {
            EXPECT_EQ(g_BgFromCfg, drcfg.gyro_bias_code);  // the library's copy, not the caller's
            EXPECT_NEAR(g_BgFromCfg[0] - 1.0, c.code[0] - 1.0, 1e-15);
        }
    }
    LoadDrCfg(nullptr);
    EXPECT_EQ(g_BgFromCfg, nullptr);
    EXPECT_EQ(memcmp(&drcfg, &drcfg16470, sizeof drcfg), 0);
    EXPECT_EQ(drcfg.bias_store_mode, 4u);
    EXPECT_EQ(hwcfg.lever[2], -1.892);
}

}  // namespace
