// The options word of the configuration (DrCfg.options): which of the
// accuracy options beyond the classic behaviour are in force, and the two
// places they act, the GNSS velocity the filters are held against and the
// plausibility screen of the input records.
#pragma once

#include <stdint.h>

#include "drlib.h"

namespace drlib {

// Option bits in force: the low bits of drcfg.options when its upper 16 bits
// carry DRLIB_OPTIONS_MARKER, else none.
uint32_t ActiveOptions();

// The GNSS velocity (ECEF, m/s) to hold a navigation state against after the
// cycle of the history entry at `entry_pos`: that entry's velocity, or with
// DRLIB_OPT_ALIGNED_VELOCITY the velocity interpolated to the instant the
// navigation solution refers to, written into `aligned` and returned.
// The entry before `entry_pos` must belong to the same run.
const double *GnssVelocityForState(uint32_t entry_pos, double aligned[3]);

// False when DRLIB_OPT_SCREEN_SOLUTIONS is in force and the record's solution
// is implausible in itself or against the newest history entry of the run.
bool IsSolutionPlausible(const DrInput *rec);

}  // namespace drlib
