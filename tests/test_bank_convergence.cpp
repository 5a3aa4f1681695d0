// Bank verdict on hand-built attitudes: level hypotheses that differ only in
// heading, so every attitude gap is the heading difference.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "dr_fusion_state.h"
#include "drlib.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDeg = kPi / 180.0;

void set_heading(int i, double heading_rad) {
    const double c = std::cos(heading_rad), s = std::sin(heading_rad);
    const double cbn[9] = {c, -s, 0.0, s, c, 0.0, 0.0, 0.0, 1.0};
    std::memcpy(NavGp[i].cbn, cbn, sizeof cbn);
}

// Hypothesis i at i x 20 degrees, the ring spread of a fresh bank.
void spread_bank() {
    for (int i = 0; i < kBankSize; ++i) set_heading(i, 20.0 * kDeg * i);
}

std::vector<int32_t> run_calls(int calls) {
    std::vector<int32_t> results;
    for (int k = 0; k < calls; ++k) results.push_back(CheckParelFltConv());
    return results;
}

class BankVerdict : public ::testing::Test {
protected:
    void SetUp() override {
        std::memset(toggleCnts, 0, sizeof toggleCnts);
        spread_bank();
    }
};

TEST_F(BankVerdict, IdenticalAttitudesSettleOnHypothesisZeroAtTheFifthCall) {
    for (int i = 0; i < kBankSize; ++i) set_heading(i, 33.0 * kDeg);
    EXPECT_EQ(run_calls(5), (std::vector<int32_t>{-1, -1, -1, -1, 0}));
    for (int i = 0; i < kBankSize; ++i) EXPECT_EQ(toggleCnts[i], 5u);
}

TEST_F(BankVerdict, OneTightTripleNamesItsCentre) {
    set_heading(6, 121.0 * kDeg);
    set_heading(7, 122.0 * kDeg);
    set_heading(8, 123.0 * kDeg);
    EXPECT_EQ(run_calls(5), (std::vector<int32_t>{-1, -1, -1, -1, 7}));
    for (int i = 0; i < kBankSize; ++i) EXPECT_EQ(toggleCnts[i], i == 7 ? 5u : 0u) << i;
}

TEST_F(BankVerdict, TripleAcrossTheEndOfTheRing) {
    set_heading(17, -1.0 * kDeg);
    set_heading(0, 0.0);
    set_heading(1, 1.0 * kDeg);
    EXPECT_EQ(run_calls(5), (std::vector<int32_t>{-1, -1, -1, -1, 0}));
}

TEST_F(BankVerdict, NoClusterStaysUndecided) {
    EXPECT_EQ(run_calls(8), std::vector<int32_t>(8, -1));
    for (int i = 0; i < kBankSize; ++i) EXPECT_EQ(toggleCnts[i], 0u);
}

TEST_F(BankVerdict, TwoClustersHalfATurnApartAreAmbiguous) {
    for (int k = 0; k < 3; ++k) {
        set_heading(6 + k, (121.0 + k) * kDeg);
        set_heading(15 + k, (301.0 + k) * kDeg);
    }
    EXPECT_EQ(run_calls(5), (std::vector<int32_t>{-1, -1, -1, -1, -2}));
    // The verdict leaves the counters running.
    EXPECT_EQ(CheckParelFltConv(), -2);
    EXPECT_EQ(toggleCnts[7], 6u);
    EXPECT_EQ(toggleCnts[16], 6u);
}

// The tightest triple wins even where no counter rose: hypotheses 12 and 13
// share the cluster's attitude, 11 is 2.6 degrees off (no agreement), and
// their summed gap beats the cluster's 2 x 2.4 degrees.
TEST_F(BankVerdict, WinnerIsTheTightestTripleNotTheCounterThatPassed) {
    set_heading(6, 117.6 * kDeg);
    set_heading(7, 120.0 * kDeg);
    set_heading(8, 122.4 * kDeg);
    set_heading(11, 122.6 * kDeg);
    set_heading(12, 120.0 * kDeg);
    set_heading(13, 120.0 * kDeg);
    EXPECT_EQ(run_calls(5), (std::vector<int32_t>{-1, -1, -1, -1, 12}));
    EXPECT_EQ(toggleCnts[12], 0u);
    EXPECT_EQ(toggleCnts[7], 5u);
}

TEST_F(BankVerdict, NeighbourAgreementEndsAtTwoAndAHalfDegrees) {
    const double limit = 0.04363323129985824;
    for (double gap : {limit - 1e-9, limit + 1e-9}) {
        SetUp();
        set_heading(6, 120.0 * kDeg - gap);
        set_heading(7, 120.0 * kDeg);
        set_heading(8, 120.0 * kDeg + 0.5 * kDeg);
        const int32_t expected = gap < limit ? 7 : -1;
        EXPECT_EQ(run_calls(5).back(), expected) << gap;
    }
}

// A second established cluster (counter above 2) decides ambiguity by its
// distance from the winner: beyond 7.5 degrees only.
TEST_F(BankVerdict, CompetitorBeyondSevenAndAHalfDegreesIsAmbiguous) {
    const double separation = 0.1308996938995747;
    for (double gap : {separation - 1e-9, separation + 1e-9}) {
        SetUp();
        set_heading(6, 119.8 * kDeg);
        set_heading(7, 120.0 * kDeg);
        set_heading(8, 120.2 * kDeg);
        const double rival = 120.0 * kDeg + gap;
        set_heading(14, rival - 0.5 * kDeg);
        set_heading(15, rival);
        set_heading(16, rival - 0.3 * kDeg);
        const int32_t expected = gap > separation ? -2 : 7;
        EXPECT_EQ(run_calls(5).back(), expected) << gap;
    }
}

// Rival cluster 15..17 agrees from the second call on; whether it still
// counts as a competitor at the fifth depends on one second of disagreement.
TEST_F(BankVerdict, OneSecondOfDisagreementDemotesACompetitor) {
    for (bool rival_breaks_up : {true, false}) {
        SetUp();
        for (int k = 0; k < 3; ++k) set_heading(6 + k, (121.0 + k) * kDeg);
        std::vector<int32_t> results;
        for (int call = 1; call <= 5; ++call) {
            const bool rival_tight = call >= 2 && (call <= 4 || !rival_breaks_up);
            for (int k = 0; k < 3; ++k) {
                set_heading(15 + k, (rival_tight ? 301.0 + k : 300.0 + 20.0 * k) * kDeg);
            }
            results.push_back(CheckParelFltConv());
        }
        EXPECT_EQ(toggleCnts[16], rival_breaks_up ? 2u : 4u);
        EXPECT_EQ(results, (std::vector<int32_t>{-1, -1, -1, -1, rival_breaks_up ? 7 : -2}));
    }
}

}  // namespace
