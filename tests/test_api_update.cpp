// The per-epoch update through the public interface: what an accepted record
// delivers, and every path that throws the history away.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "dr_entry.h"
#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "drlib.h"
#include "engine_replay.h"

namespace {

using Record = std::vector<uint8_t>;

int g_calls = 0;
TiltStat g_stat;
void OnTilt(const TiltStat *s) {
    ++g_calls;
    g_stat = *s;
}

DrInput &Header(Record &r) { return *reinterpret_cast<DrInput *>(r.data()); }
ImuSample *Samples(Record &r) { return reinterpret_cast<ImuSample *>(r.data() + sizeof(DrInput)); }
uint32_t Feed(const Record &r) { return DrlibUpdateFusion(reinterpret_cast<const DrInput *>(r.data())); }

class UpdateCycle : public ::testing::Test {
protected:
    static void SetUpTestSuite() { records_ = enginetest::SimRecords(enginetest::QuietStatic(6.0)); }
    void SetUp() override {
        DrlibInit(nullptr);
        DrlibRegisterCB(OnTilt);
        g_calls = 0;
    }
    void FeedFirst(size_t n) {
        for (size_t i = 0; i < n; ++i) ASSERT_EQ(Feed(records_[i]), 0u) << i;
    }
    // Feeds a bad record after 20 good ones (bank running, calibration on)
    // and checks that the run of entries, the ring and the engine are gone.
    void ExpectResetPath(Record bad) {
        FeedFirst(20);
        ASSERT_EQ(s_FltState, FLT_STATE_CONV);
        const double ref[3] = {1.0, 2.0, 3.0};
        DrlibCalibStart(ref, 1200, nullptr);
        const uint32_t pos = g_FusionInPos;
        const int calls = g_calls;
        EXPECT_EQ(Feed(bad), 1u);
        EXPECT_EQ(g_calls, calls);
        EXPECT_EQ(g_FusionInPos, pos + 1u);
        EXPECT_EQ(g_FusionInNum, 0u);
        EXPECT_EQ(drlib::ImuDataWPos, 0u);
        EXPECT_EQ(drlib::ImuDataRPos, 0u);
        EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
        EXPECT_EQ(FltCub.running, 0u);
        // The next record starts a new run.
        EXPECT_EQ(Feed(records_[21]), 0u);
        EXPECT_EQ(g_FusionInNum, 1u);
    }
    static std::vector<Record> records_;
};
std::vector<Record> UpdateCycle::records_;

TEST_F(UpdateCycle, FirstRecordIsDeliveredInTheIdleForm) {
    Record r = records_[0];
    EXPECT_EQ(Feed(r), 0u);
    EXPECT_EQ(g_FusionInNum, 1u);
    EXPECT_EQ(g_FusionInPos, 1u);
    ASSERT_EQ(g_calls, 1);
    const DrInput &h = Header(r);
    EXPECT_EQ(g_stat.version, 2);
    EXPECT_EQ(g_stat.status, 0);
    EXPECT_EQ(g_stat.pos_type, h.pos_type);
    EXPECT_EQ(g_stat.vel_type, h.vel_type);
    EXPECT_EQ(g_stat.tow_ms, h.tow_ms);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(g_stat.att[i], 0.0);
        EXPECT_EQ(g_stat.tip_pos[i], h.pos[i]);
        EXPECT_EQ(g_stat.vel[i], h.vel[i]);
        EXPECT_EQ(g_stat.tip_std[i], 1.5f);
        EXPECT_EQ(g_stat.tip_std_total[i], h.pos_std[i]);
        EXPECT_EQ(g_stat.vel_std[i], h.vel_std[i]);
    }
}

TEST_F(UpdateCycle, InvalidRecordTakesTheResetPath) {
    Record bad = records_[20];
    Header(bad).version = 3;
    ExpectResetPath(bad);
}

TEST_F(UpdateCycle, BadSampleSpacingTakesTheResetPath) {
    Record bad = records_[20];
    Samples(bad)[3].time_us = Samples(bad)[2].time_us;  // a repeated stamp
    ExpectResetPath(bad);
}

TEST_F(UpdateCycle, RepeatedSequenceNumberTakesTheResetPath) {
    Record bad = records_[20];
    Header(bad).seq -= 1;  // a repeated sequence number
    ExpectResetPath(bad);
}

TEST_F(UpdateCycle, TimeGapTakesTheResetPath) {
    Record bad = records_[20];
    Header(bad).tow_ms += 100;  // an epoch missing in between
    ExpectResetPath(bad);
}

// Eight samples 2 ms apart right after the previous record's last one: valid
// spacing, but the epoch's grid is not covered.
Record ShortOfTheGrid(const Record &prev, const Record &cur) {
    Record r(cur.begin(), cur.begin() + static_cast<long>(DRLIB_INPUT_SIZE(8)));
    Header(r).nsamples = 8;
    const DrInput &ph = *reinterpret_cast<const DrInput *>(prev.data());
    const ImuSample *last = reinterpret_cast<const ImuSample *>(prev.data() + sizeof(DrInput)) + (ph.nsamples - 1);
    for (uint32_t i = 0; i < 8; ++i) {
        Samples(r)[i] = *last;
        Samples(r)[i].time_us = last->time_us + 2000u * (i + 1u);
    }
    return r;
}

TEST_F(UpdateCycle, IncompleteResamplingTakesTheResetPath) {
    ExpectResetPath(ShortOfTheGrid(records_[19], records_[20]));
}

TEST_F(UpdateCycle, IncompleteResamplingIsToleratedInTheFirstEntries) {
    FeedFirst(1);
    EXPECT_LT(GET_FUSION_IN(g_FusionInPos - 1u, 0u).header.nsamples, 10);  // the first entry is short anyway
    EXPECT_EQ(Feed(ShortOfTheGrid(records_[0], records_[1])), 0u);
    EXPECT_EQ(g_FusionInNum, 2u);
    EXPECT_LT(GET_FUSION_IN(g_FusionInPos - 1u, 0u).header.nsamples, 10);
}

TEST_F(UpdateCycle, NullRecordIsRefusedWithoutTouchingTheHistory) {
    FeedFirst(5);
    EXPECT_EQ(DrlibUpdateFusion(nullptr), 1u);
    EXPECT_EQ(g_FusionInNum, 5u);
    EXPECT_EQ(g_FusionInPos, 5u);
}

TEST_F(UpdateCycle, ResetRequestKeepsTheHistoryCount) {
    FeedFirst(10);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
    ASSERT_EQ(Feed(records_[10]), 0u);  // 11 entries at a whole second: the bank starts
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);
    for (size_t i = 11; i < 25; ++i) ASSERT_EQ(Feed(records_[i]), 0u);
    DrlibReset();
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);  // only a request
    const int calls = g_calls;
    EXPECT_EQ(Feed(records_[25]), 0u);
    EXPECT_EQ(g_calls, calls + 1);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
    EXPECT_EQ(g_FusionInNum, 26u);
    for (size_t i = 26; i < 30; ++i) ASSERT_EQ(Feed(records_[i]), 0u);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
    ASSERT_EQ(Feed(records_[30]), 0u);  // the very next whole second, no 11 new entries needed
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);
}

}  // namespace
