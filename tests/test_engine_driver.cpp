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
#include "drlib_toolkit.h"
#include "sim_replay.h"

namespace {

double Lij(const KfFilter &f, int i, int j) { return f.L[gk_L_start[i] + j]; }
double Pij(const KfFilter &f, int i, int j) {  // of the leading 6 x 6 block
    double s = 0.0;
    for (int k = 0; k <= std::min(i, j); ++k) s += Lij(f, i, k) * Lij(f, j, k);
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
    static void SetUpTestSuite() { records_ = simtest::quiet_static_records(40.0); }
    void SetUp() override { DrlibInit(nullptr); }
    void FeedRange(size_t from, size_t to) {
        for (size_t i = from; i < to; ++i) ASSERT_EQ(simtest::feed(records_[i]), 0u) << i;
    }
    // Records [from, to), then the driver's state and, unless negative, its cycle count.
    void FeedAndExpect(size_t from, size_t to, uint8_t state, int cycles = -1) {
        FeedRange(from, to);
        EXPECT_EQ(s_FltState, state) << "after record " << to - 1;
        if (cycles >= 0) { EXPECT_EQ(s_updcnt, static_cast<uint32_t>(cycles)) << "after record " << to - 1; }
    }
    static std::vector<simtest::Record> records_;
};
std::vector<simtest::Record> Driver::records_;

// records_[0] is at a whole second: record 10 is the 11th entry. Starting
// 100 ms later, the whole second comes with only 10 entries: the bank waits
// for the next one. An undecided bank may run through the check at cycle 350
// and is given up at the first after it, then restarted at the next second.
TEST_F(Driver, BankStartsAfterTenEntriesAndIsGivenUpAfter350Cycles) {
    FeedAndExpect(0, 10, FLT_STATE_IDLE);
    FeedAndExpect(10, 11, FLT_STATE_CONV, 0);
    FeedAndExpect(11, 361, FLT_STATE_CONV, 350);
    FeedRange(361, 369);
    s_updcnt = 350;  // so that the next whole second is cycle 351
    FeedAndExpect(369, 370, FLT_STATE_CONV);
    FeedAndExpect(370, 371, FLT_STATE_IDLE);
    FeedAndExpect(371, 381, FLT_STATE_CONV, 0);
    DrlibInit(nullptr);
    FeedAndExpect(1, 20, FLT_STATE_IDLE);
    FeedAndExpect(20, 21, FLT_STATE_CONV);
}

// An agreeing bank is promoted at the fifth whole-second check; two separate
// clusters send it back to idle.
TEST_F(Driver, AgreeingBankIsPromotedAtTheFifthCheckAndRivalsAreRefused) {
    FeedRange(0, 11);
    for (int i = 1; i < kBankSize; ++i) CopyMember(0, i);
    FeedAndExpect(11, 60, FLT_STATE_CONV);  // four checks (records 20, 30, 40, 50)
    FeedAndExpect(60, 61, FLT_STATE_MAIN);
    EXPECT_EQ(std::memcmp(NavMain.cbn, NavGp[0].cbn, sizeof NavMain.cbn), 0);
    DrlibInit(nullptr);
    FeedRange(0, 11);
    for (int to : {17, 1}) CopyMember(0, to);  // a cluster around 0 and, half a turn away, around 9
    for (int to : {8, 10}) CopyMember(9, to);
    FeedAndExpect(11, 61, FLT_STATE_IDLE);
}

// The gyro-bias states come from the standstill estimate when every axis is
// good enough, else from the configured code, else zero; the factor keeps the
// sign the triangularisation gives its first diagonal (negating column 0 of
// the bank's factors leaves P alone and flips it).
TEST_F(Driver, PromotionInflatesTheFactorAndSeedsTheBiasStates) {
    const struct { bool cfg; double zupt_var_y, flip; double bias[3], bias_std; } cases[] = {
        {false, 1e-6, 1.0, {1e-4, -2e-4, 3e-4}, 0.001 + 0.00010471975511965978},
        {true, 2e-6, 1.0, {0.001, -0.001, 0.0}, 0.0011635528346628863},
        {false, 2e-6, -1.0, {0.0, 0.0, 0.0}, 0.003490658503988659},
        {false, 2e-6, 1.0, {0.0, 0.0, 0.0}, 0.003490658503988659},
    };
    for (const auto &c : cases) {
        DrCfg cfg = drlib::drcfg16470;
        const double code[3] = {1.001, 1.999, 3.0};
        std::memcpy(cfg.gyro_bias_code, code, sizeof code);
        DrlibInit(c.cfg ? &cfg : nullptr);
        // Bank started at record 10, records up to 19 fed, every member a copy of member 0
        // with its agreement counter at 4: the check at record 20 names member 0.
        FeedAndExpect(0, 20, FLT_STATE_CONV);
        for (int i = 1; i < kBankSize; ++i) CopyMember(0, i);
        std::memset(toggleCnts, 4, sizeof toggleCnts);
        for (int i = 0; i < kBankSize; ++i)
            for (int r = 0; r < 6; ++r) FltGp[i].L[gk_L_start[r]] *= c.flip;
        const double zupt_bias[3] = {1e-4, -2e-4, 3e-4};
        std::memcpy(FltZupt.bias, zupt_bias, sizeof zupt_bias);
        FltZupt.bias_var[0] = FltZupt.bias_var[2] = 1e-6;
        FltZupt.bias_var[1] = c.zupt_var_y;  // one axis not good enough spoils all three
        FeedAndExpect(20, 21, FLT_STATE_MAIN);
        const KfFilter &bank = FltGp[0];  // the winner as promoted
        EXPECT_EQ(FltMain.state_dim, 12);
        EXPECT_EQ(FltMain.L[0] > 0.0, !(bank.L[0] > 0.0));
        // P6 of the main filter = P6 of the winner + the hand-over noise.
        for (int i = 0; i < 6; ++i)
            for (int j = 0; j <= i; ++j) {
                const double q = i != j ? 0.0 : i < 3 ? 0.05 * 0.05 : 0.05235987755982989 * 0.05235987755982989;
                EXPECT_NEAR(Pij(FltMain, i, j), Pij(bank, i, j) + q, 1e-15) << i << "," << j;
            }
        const double sgn = FltMain.L[0] > 0.0 ? 1.0 : -1.0;
        for (int i = 6; i < 12; ++i)
            for (int j = 0; j < i; ++j) EXPECT_EQ(Lij(FltMain, i, j), 0.0) << i << "," << j;
        for (int k = 0; k < 3; ++k) {
            EXPECT_TRUE(Lij(FltMain, 6 + k, 6 + k) == 0.15 * sgn && FltMain.acc_bias[k] == 0.0) << k;
            EXPECT_NEAR(FltMain.gyro_bias[k], c.bias[k], 1e-15) << k;
            EXPECT_NEAR(Lij(FltMain, 9 + k, 9 + k), c.bias_std * sgn, 1e-18) << k;
        }
    }
}

}  // namespace
