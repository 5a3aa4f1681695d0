// Accuracy report of a replay against the simulator's truth: how soon the
// first tilt solution comes, how often each status class is reported, how
// far attitude and pole tip are from the truth, and whether the reported
// deviations are honest.
#ifndef DRTOOLS_COMMON_REPORT_H
#define DRTOOLS_COMMON_REPORT_H

#include <cstdio>
#include <string>
#include <vector>

#include "common_replay.h"
#include "truth_csv.h"

namespace drtools {

// Absolute-error statistics of one quantity.
struct ErrorStats {
    size_t n = 0;
    double rms = 0.0, p95 = 0.0, max = 0.0;
};

// Tip errors of one group of epochs, metres.
struct TipGroup {
    std::string name;
    ErrorStats horizontal, vertical;
};

struct Report {
    size_t epochs = 0;                  // records replayed
    size_t rejected = 0;                // records the library refused
    size_t matched = 0;                 // accepted epochs with a truth row
    double class_share[4] = {0, 0, 0, 0};  // of accepted epochs
    double motion_start_s = 0.0;        // scenario time the pole starts to move
    double first_fix_s = -1.0;          // scenario time of the first class 1..3 status (-1: none)
    double time_to_first_fix_s = -1.0;  // from the motion start (-1: none)
    ErrorStats roll_deg, pitch_deg, heading_deg;   // attitude errors with a tilt solution
    ErrorStats tilt_deg;                // tilt of the pole vector against the true tilt
    std::vector<TipGroup> tip;          // "all", "class 1..3", "tilt 0-10" ...
    double within_1sigma = 0.0;         // share of tip error components within the reported 1 sigma
    double within_3sigma = 0.0;         // ... and 3 sigma (total deviations, tip plus GNSS)
};

Report make_report(const ReplayOutput &replay, const std::vector<drsim::TruthRow> &truth);

// Looks up the tip group by name (nullptr when absent).
const TipGroup *find_group(const Report &r, const std::string &name);

void print_report(std::FILE *f, const Report &r);
std::string report_json(const Report &r);

}  // namespace drtools

#endif
