// Verdict on the heading bank.
//
// GNSS updates pull the hypotheses near the true heading onto it, so their
// attitudes collapse into one cluster while the others stay apart. The test
// looks for hypotheses that persistently agree with both ring neighbours and
// names the centre of the tightest neighbour triple; a second established
// cluster elsewhere means the bank cannot tell which is right.
#include "dr_fusion_state.h"
#include "drlib_toolkit.h"

namespace {

constexpr double kNeighbourAgreement_rad = 0.04363323129985824;  // 2.5 deg
constexpr double kClusterSeparation_rad = 0.1308996938995747;    // 7.5 deg
constexpr double kNoScore_rad = 100.0;  // above any sum of two rotation angles
constexpr uint8_t kConvergedCount = 4;   // a counter above this settles the bank
constexpr uint8_t kCompetitorCount = 2;  // a counter above this marks a rival cluster

constexpr int32_t kNotConverged = -1;
constexpr int32_t kAmbiguous = -2;

// Rotation angle between the attitudes of hypotheses a and b, rad.
double attitude_gap(int a, int b) {
    double relative[9];
    mtxt_mul_mtx(relative, NavGp[a].cbn, NavGp[b].cbn, 3, 3, 3);
    return dcm_theta(relative);
}

// Counters rise by one per call while both neighbours agree and decay by one
// otherwise, so one agreeing second cannot settle the bank and one outlier
// cannot undo a persistent agreement. An 8-bit counter wraps after 255 rises;
// the driver ends a bank long before (35 calls).
void count_agreement(uint8_t *count, double gap_lower, double gap_upper) {
    if (gap_lower < kNeighbourAgreement_rad && gap_upper < kNeighbourAgreement_rad) {
        ++*count;
    } else if (*count > 0u) {
        --*count;
    }
}

}  // namespace

extern "C" {

DRLIB_API int32_t CheckParelFltConv(void) {
    double gap_to_lower[kBankSize];  // rad, hypothesis i against (i + 17) mod 18
    for (int i = 0; i < kBankSize; ++i) gap_to_lower[i] = attitude_gap(i, (i + kBankSize - 1) % kBankSize);

    double best_score = kNoScore_rad;
    int best = 0;
    bool settled = false;
    for (int i = 0; i < kBankSize; ++i) {
        const int upper = (i + 1) % kBankSize;
        const double score = gap_to_lower[i] + gap_to_lower[upper];
        count_agreement(&toggleCnts[i], gap_to_lower[i], gap_to_lower[upper]);
        if (toggleCnts[i] > kConvergedCount) settled = true;
        if (score < best_score) {
            best_score = score;
            best = i;
        }
    }
    if (!settled) return kNotConverged;

    for (int i = 0; i < kBankSize; ++i) {
        if (i == best || toggleCnts[i] <= kCompetitorCount) continue;
        if (attitude_gap(i, best) > kClusterSeparation_rad) return kAmbiguous;
    }
    return static_cast<int32_t>(best);
}

}  // extern "C"
