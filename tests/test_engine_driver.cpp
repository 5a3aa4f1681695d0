// The driver's state machine on a quiet static session: when the heading
// bank starts, how long it may take, how it is given up, and how the winner
// becomes the main filter.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "dr_entry.h"
#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "drlib.h"
#include "engine_replay.h"

namespace {

using Record = std::vector<uint8_t>;

uint32_t Feed(const Record &r) { return DrlibUpdateFusion(reinterpret_cast<const DrInput *>(r.data())); }

int g_calls = 0;
TiltStat g_stat;
void OnTilt(const TiltStat *s) {
    ++g_calls;
    g_stat = *s;
}

double Lij(const KfFilter &f, int i, int j) { return f.L[gk_L_start[i] + j]; }

// P(i, j) of the leading n x n block of a packed factor.
double Pij(const KfFilter &f, int i, int j, int n) {
    double s = 0.0;
    for (int k = 0; k < n; ++k) {
        const double a = (k <= i) ? Lij(f, i, k) : 0.0;
        const double b = (k <= j) ? Lij(f, j, k) : 0.0;
        s += a * b;
    }
    return s;
}

// A static pole shows the bank no heading, so the bank's members keep their
// 20-degree spacing; tests make members agree by copying one onto others.
void CopyMember(int from, int to) {
    NavGp[to] = NavGp[from];
    FltGp[to] = FltGp[from];
}

class Driver : public ::testing::Test {
protected:
    static void SetUpTestSuite() { records_ = enginetest::SimRecords(enginetest::QuietStatic(40.0)); }
    void SetUp() override {
        DrlibInit(nullptr);
        DrlibRegisterCB(OnTilt);
    }
    void FeedRange(size_t from, size_t to) {
        for (size_t i = from; i < to; ++i) ASSERT_EQ(Feed(records_[i]), 0u) << i;
    }
    // Bank started at record 10; records up to 19 fed; every member a copy of
    // member 0 with its agreement counter at 4, so the check at record 20
    // (21 entries: no standstill detection yet) names member 0.
    void PrepareWinnerAtNextSecond() {
        FeedRange(0, 20);
        ASSERT_EQ(s_FltState, FLT_STATE_CONV);
        for (int i = 1; i < kBankSize; ++i) CopyMember(0, i);
        std::memset(toggleCnts, 4, sizeof toggleCnts);
    }
    static std::vector<Record> records_;
};
std::vector<Record> Driver::records_;

TEST_F(Driver, BankStartsAtTheFirstWholeSecondWithMoreThanTenEntries) {
    // records_[0] is at a whole second: record 10 is the 11th entry.
    FeedRange(0, 10);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
    s_updcnt = 999;
    FeedRange(10, 11);
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);
    EXPECT_EQ(s_updcnt, 0u);
    for (int i = 0; i < kBankSize; ++i) EXPECT_EQ(toggleCnts[i], 0);
    FeedRange(11, 14);
    EXPECT_EQ(s_updcnt, 3u);

    // Starting 100 ms later, the whole second comes with only 10 entries: the
    // bank waits for the next one.
    DrlibInit(nullptr);
    const size_t first = 1;
    for (size_t i = first; i < first + 10; ++i) ASSERT_EQ(Feed(records_[i]), 0u);
    ASSERT_EQ(GET_FUSION_IN(g_FusionInPos - 1u, 0u).header.tow_ms % 1000u, 0u);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
    for (size_t i = first + 10; i < first + 19; ++i) ASSERT_EQ(Feed(records_[i]), 0u);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
    ASSERT_EQ(Feed(records_[first + 19]), 0u);
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);
}

TEST_F(Driver, UndecidedBankIsGivenUpAfter350Cycles) {
    FeedRange(0, 360);  // bank since record 10: 349 cycles so far
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);
    EXPECT_EQ(s_updcnt, 349u);
    FeedRange(360, 361);  // whole second, cycle 350: still allowed
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);
    FeedRange(361, 369);
    s_updcnt = 350;  // so that the next whole second is cycle 351
    FeedRange(369, 370);
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);
    FeedRange(370, 371);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
    FeedRange(371, 380);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
    FeedRange(380, 381);  // restarted at the next whole second
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);
    EXPECT_EQ(s_updcnt, 0u);
}

TEST_F(Driver, AgreeingBankNeedsFiveWholeSecondChecks) {
    FeedRange(0, 11);
    ASSERT_EQ(s_FltState, FLT_STATE_CONV);
    for (int i = 1; i < kBankSize; ++i) CopyMember(0, i);
    FeedRange(11, 60);  // four checks (records 20, 30, 40, 50)
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);
    EXPECT_EQ(toggleCnts[0], 4);
    FeedRange(60, 61);
    EXPECT_EQ(s_FltState, FLT_STATE_MAIN);
    EXPECT_EQ(std::memcmp(NavMain.cbn, NavGp[0].cbn, sizeof NavMain.cbn), 0);
}

TEST_F(Driver, TwoSeparateClustersSendTheBankBackToIdle) {
    FeedRange(0, 11);
    // Cluster around member 0 and, half a turn away, around member 9.
    CopyMember(0, 17);
    CopyMember(0, 1);
    CopyMember(9, 8);
    CopyMember(9, 10);
    FeedRange(11, 60);
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);
    FeedRange(60, 61);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
}

TEST_F(Driver, PromotionInflatesTheBankFactorAndAddsBiasStates) {
    PrepareWinnerAtNextSecond();
    for (int c = 0; c < 3; ++c) FltZupt.bias_var[c] = 1.0e-6;
    const double zupt_bias[3] = {1e-4, -2e-4, 3e-4};
    std::memcpy(FltZupt.bias, zupt_bias, sizeof zupt_bias);
    FeedRange(20, 21);
    ASSERT_EQ(s_FltState, FLT_STATE_MAIN);
    const KfFilter &bank = FltGp[0];  // the winner as it stood when promoted
    EXPECT_EQ(FltMain.state_dim, 12);
    // P6 of the main filter = P6 of the winner + the hand-over noise.
    for (int i = 0; i < 6; ++i) {
        for (int j = 0; j <= i; ++j) {
            double q = 0.0;
            if (i == j) q = (i < 3) ? 0.05 * 0.05 : 0.05235987755982989 * 0.05235987755982989;
            EXPECT_NEAR(Pij(FltMain, i, j, 6), Pij(bank, i, j, 6) + q, 1e-15) << i << "," << j;
        }
    }
    const double sgn = FltMain.L[0] > 0.0 ? 1.0 : -1.0;
    for (int i = 6; i < 12; ++i) {
        for (int j = 0; j < i; ++j) EXPECT_EQ(Lij(FltMain, i, j), 0.0) << i << "," << j;
    }
    for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(Lij(FltMain, 6 + c, 6 + c), 0.15 * sgn);
        EXPECT_EQ(FltMain.acc_bias[c], 0.0);
        // The standstill estimate is good enough: it seeds the gyro bias.
        EXPECT_EQ(FltMain.gyro_bias[c], zupt_bias[c]);
        EXPECT_NEAR(Lij(FltMain, 9 + c, 9 + c), (0.001 + 0.00010471975511965978) * sgn, 1e-18);
    }
    // The main filter runs from the next record on.
    const uint32_t cycles = s_updcnt;
    FeedRange(21, 22);
    EXPECT_EQ(s_updcnt, cycles + 1u);
    EXPECT_EQ(s_FltState, FLT_STATE_MAIN);
    EXPECT_GE(g_stat.status, 1);
}

TEST_F(Driver, PromotionTakesTheConfiguredBiasWhenStandstillIsNotGoodEnough) {
    DrCfg cfg;
    std::memset(&cfg, 0, sizeof cfg);
    cfg.gyro_scale = 1.0058283805847168e-06;
    cfg.acc_scale = 1.862645149230957e-07;
    cfg.gyro_bias_code[0] = 1.001;
    cfg.gyro_bias_code[1] = 1.999;
    cfg.gyro_bias_code[2] = 3.0;
    DrlibInit(&cfg);
    DrlibRegisterCB(OnTilt);
    PrepareWinnerAtNextSecond();
    FltZupt.bias_var[0] = 1.0e-6;
    FltZupt.bias_var[1] = 2.0e-6;  // one axis not good enough spoils all three
    FltZupt.bias_var[2] = 1.0e-6;
    FltZupt.bias[0] = 0.5;
    FeedRange(20, 21);
    ASSERT_EQ(s_FltState, FLT_STATE_MAIN);
    const double sgn = FltMain.L[0] > 0.0 ? 1.0 : -1.0;
    EXPECT_EQ(FltMain.gyro_bias[0], 1.001 - 1.0);
    EXPECT_EQ(FltMain.gyro_bias[1], 1.999 - 2.0);
    EXPECT_EQ(FltMain.gyro_bias[2], 0.0);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(Lij(FltMain, 9 + c, 9 + c), 0.0011635528346628863 * sgn);
}

TEST_F(Driver, PromotionWithoutAnyBiasAndTheFactorSign) {
    int signs_seen = 0;
    for (double flip : {1.0, -1.0}) {
        DrlibInit(nullptr);
        PrepareWinnerAtNextSecond();
        // Negating column 0 leaves P unchanged and flips the sign the
        // triangularisation gives the first diagonal.
        for (int i = 0; i < kBankSize; ++i) {
            for (int r = 0; r < 6; ++r) FltGp[i].L[gk_L_start[r]] *= flip;
        }
        FeedRange(20, 21);
        ASSERT_EQ(s_FltState, FLT_STATE_MAIN);
        // FltGp[0] is the winner as promoted: a positive pivot gives a
        // negative first diagonal and vice versa.
        EXPECT_EQ(FltMain.L[0] > 0.0, !(FltGp[0].L[0] > 0.0));
        const double sgn = FltMain.L[0] > 0.0 ? 1.0 : -1.0;
        signs_seen += (sgn > 0.0) ? 1 : 10;
        for (int c = 0; c < 3; ++c) {
            EXPECT_EQ(FltMain.gyro_bias[c], 0.0);
            EXPECT_EQ(Lij(FltMain, 6 + c, 6 + c), 0.15 * sgn);
            EXPECT_EQ(Lij(FltMain, 9 + c, 9 + c), 0.003490658503988659 * sgn);
        }
    }
    EXPECT_EQ(signs_seen, 11);  // both signs were exercised
}

TEST_F(Driver, TooLargeTipVarianceEndsTheMainFilter) {
    PrepareWinnerAtNextSecond();
    FeedRange(20, 22);
    ASSERT_EQ(s_FltState, FLT_STATE_MAIN);
    // A tilt uncertainty of 0.2 rad on a 1.892 m pole.
    for (int r = 3; r < 6; ++r) {
        for (int j = 0; j <= r; ++j) FltMain.L[gk_L_start[r] + j] = (j == r) ? 0.2 : 0.0;
    }
    // (A cycle would shrink the tilt part again at once: compose directly.)
    TiltStat stat;
    ComposeTiltStat(&stat, drlib::hwcfg.lever);
    EXPECT_EQ(stat.status, 0);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
    EXPECT_NE(stat.att[0], 0.0);  // the record still carries the last solution
    EXPECT_GT(stat.tip_std[0], 0.35f);
    FeedRange(22, 30);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
    FeedRange(30, 31);  // the bank restarts at the next whole second
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);
}

}  // namespace
