// Bank verdict on hand-built attitudes: level hypotheses that differ only in
// heading, so every attitude gap is the heading difference.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "dr_fusion_state.h"
#include "drlib.h"

namespace {

constexpr double kDeg = 3.14159265358979323846 / 180.0;

void set_heading(int i, double heading_deg) {
    const double c = std::cos(heading_deg * kDeg), s = std::sin(heading_deg * kDeg);
    const double cbn[9] = {c, -s, 0.0, s, c, 0.0, 0.0, 0.0, 1.0};
    std::memcpy(NavGp[i].cbn, cbn, sizeof cbn);
}

struct Heading {
    int member;
    double deg;
};

// From a fresh bank (member i at i x 20 degrees) with the given members
// moved, the verdicts of five checks at one-second intervals.
std::vector<int32_t> verdicts(std::initializer_list<Heading> moved) {
    std::memset(toggleCnts, 0, sizeof toggleCnts);
    for (int i = 0; i < kBankSize; ++i) set_heading(i, 20.0 * i);
    for (const Heading &h : moved) set_heading(h.member, h.deg);
    std::vector<int32_t> out;
    for (int k = 0; k < 5; ++k) out.push_back(CheckParelFltConv());
    return out;
}

const double kAgree = 2.5, kSeparate = 7.5;  // deg: neighbour agreement, rival separation

TEST(BankVerdict, ClustersOfThreeDecideAtTheFifthCheck) {
    const std::vector<int32_t> undecided(5, -1);
    auto decided = [](int32_t v) { return std::vector<int32_t>{-1, -1, -1, -1, v}; };
    EXPECT_EQ(verdicts({}), undecided);
    EXPECT_EQ(verdicts({{6, 121}, {7, 122}, {8, 123}}), decided(7));
    for (int i = 0; i < kBankSize; ++i) EXPECT_EQ(toggleCnts[i], i == 7 ? 5u : 0u) << i;
    EXPECT_EQ(verdicts({{17, -1}, {0, 0}, {1, 1}}), decided(0));  // across the end of the ring
    // Two clusters half a turn apart are ambiguous, and the counters run on.
    EXPECT_EQ(verdicts({{6, 121}, {7, 122}, {8, 123}, {15, 301}, {16, 302}, {17, 303}}), decided(-2));
    EXPECT_EQ(CheckParelFltConv(), -2);
    EXPECT_EQ(toggleCnts[16], 6u);
    // The tightest triple wins even where no counter rose: 12 and 13 share
    // 7's attitude, 11 is 2.6 degrees off (no agreement), and their summed
    // gap beats the cluster's 2 x 2.4 degrees.
    EXPECT_EQ(verdicts({{6, 117.6}, {7, 120}, {8, 122.4}, {11, 122.6}, {12, 120}, {13, 120}}), decided(12));
    EXPECT_EQ(toggleCnts[12], 0u);
}

TEST(BankVerdict, AgreementAndSeparationLimits) {
    const double eps = 1e-9 / kDeg;
    for (double gap : {kAgree - eps, kAgree + eps}) {
        EXPECT_EQ(verdicts({{6, 120 - gap}, {7, 120}, {8, 120.5}}).back(), gap < kAgree ? 7 : -1) << gap;
    }
    // A second established cluster makes the bank ambiguous beyond 7.5 degrees only.
    for (double gap : {kSeparate - eps, kSeparate + eps}) {
        const double rival = 120.0 + gap;
        const int32_t v = verdicts({{6, 119.8}, {7, 120}, {8, 120.2}, {14, rival - 0.5}, {15, rival}, {16, rival - 0.3}})
                              .back();
        EXPECT_EQ(v, gap > kSeparate ? -2 : 7) << gap;
    }
}

// Rival cluster 15..17 agrees from the second check on; whether it still
// counts as a competitor at the fifth depends on one second of disagreement.
TEST(BankVerdict, OneSecondOfDisagreementDemotesACompetitor) {
    for (bool rival_breaks_up : {true, false}) {
        verdicts({});
        for (int k = 0; k < 3; ++k) set_heading(6 + k, 121.0 + k);
        std::memset(toggleCnts, 0, sizeof toggleCnts);
        std::vector<int32_t> results;
        for (int call = 1; call <= 5; ++call) {
            const bool rival_tight = call >= 2 && (call <= 4 || !rival_breaks_up);
            for (int k = 0; k < 3; ++k) set_heading(15 + k, rival_tight ? 301.0 + k : 300.0 + 20.0 * k);
            results.push_back(CheckParelFltConv());
        }
        EXPECT_EQ(toggleCnts[16], rival_breaks_up ? 2u : 4u);
        EXPECT_EQ(results, (std::vector<int32_t>{-1, -1, -1, -1, rival_breaks_up ? 7 : -2}));
    }
}

}  // namespace
