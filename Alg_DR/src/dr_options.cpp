// The options word: decoding it, the aligned GNSS velocity and the
// plausibility screen of the input records.
#include "dr_options.h"

#include <math.h>

#include "dr_consts.h"
#include "dr_entry.h"
#include "dr_global_var.h"

namespace drlib {

namespace {

constexpr uint32_t kMarkerMask = 0xFFFF0000u;

// What a survey pole carried by a person can plausibly do.
constexpr double kMinHeight_m = -1000.0;
constexpr double kMaxHeight_m = 10000.0;
constexpr double kMaxSpeed_mps = 100.0;
constexpr double kMaxUnexplainedJump_m = 1.0;

bool IsFinite3(const double *v) { return isfinite(v[0]) && isfinite(v[1]) && isfinite(v[2]); }

bool IsPlausibleInItself(const DrInput *rec) {
    if (!IsFinite3(rec->pos) || !IsFinite3(rec->vel)) return false;
    if (dotvect3d(rec->vel, rec->vel) > kMaxSpeed_mps * kMaxSpeed_mps) return false;
    // On the polar axis ecef2llh leaves the height alone: start from the one it has there.
    double llh[3] = {0.0, 0.0, fabs(rec->pos[2]) - kSemiMinor_m};
    ecef2llh(llh, rec->pos);
    return llh[2] >= kMinHeight_m && llh[2] <= kMaxHeight_m;
}

// The position step from the newest entry, less the mean of the two
// velocities over the interval, must stay within 1 m. A record that does
// not continue the entry in time is refused by the continuity check anyway.
bool ContinuesNewestEntry(const DrInput *rec) {
    if (g_FusionInNum == 0u) return true;  // first record of a run
    const DrInput &prev = GET_FUSION_IN(g_FusionInPos - 1u, 0u).header;
    const double dt_s = static_cast<double>(TowStepMs(rec->tow_ms, prev.tow_ms)) * 0.001;
    double unexplained_m[3];
    for (int c = 0; c < 3; ++c) {
        const double mean_vel = 0.5 * (rec->vel[c] + prev.vel[c]);
        unexplained_m[c] = rec->pos[c] - prev.pos[c] - mean_vel * dt_s;
    }
    // Written so that a non-finite entry refuses too.
    return dotvect3d(unexplained_m, unexplained_m) <= kMaxUnexplainedJump_m * kMaxUnexplainedJump_m;
}

}  // namespace

uint32_t ActiveOptions() {
    const uint32_t word = drcfg.options;
    return (word & kMarkerMask) == DRLIB_OPTIONS_MARKER ? word & ~kMarkerMask : 0u;
}

const double *GnssVelocityForState(uint32_t entry_pos, double aligned[3]) {
    const FusionIn &cur = GET_FUSION_IN(entry_pos, 0u);
    if ((ActiveOptions() & DRLIB_OPT_ALIGNED_VELOCITY) == 0u) return cur.header.vel;
    const FusionIn &prev = GET_FUSION_IN(entry_pos, ~0u);
    for (int c = 0; c < 3; ++c) {
        aligned[c] = kSolutionWeightNewest * cur.header.vel[c] + kSolutionWeightPrevious * prev.header.vel[c];
    }
    return aligned;
}

bool IsSolutionPlausible(const DrInput *rec) {
    if ((ActiveOptions() & DRLIB_OPT_SCREEN_SOLUTIONS) == 0u) return true;
    return IsPlausibleInItself(rec) && ContinuesNewestEntry(rec);
}

}  // namespace drlib
