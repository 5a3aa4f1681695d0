// Constants shared by several units of the engine: pi, and the time grid of
// a fusion-input entry.
#pragma once

#include <stdint.h>

namespace drlib {

constexpr double kPi = 3.141592653589793;
constexpr double kTwoPi = 6.283185307179586;
static_assert(kTwoPi == 2.0 * kPi, "two pi");

// A history entry spans one 10 Hz epoch in increments over 0.01 s: elements
// 1..10 of its dtheta and dvel are the epoch's own, element 0 repeats the
// previous entry's element 10.
constexpr int32_t kEntryIncrements = 10;
constexpr int32_t kEntryElements = kEntryIncrements + 1;
// Increments per second: turns an increment over 0.01 s into a rate.
constexpr double kIncrementsPerSecond = 100.0;

// The navigation solution of a cycle refers to 60 ms before the newest time
// tag (the resampling grid ends there), 40 % of the way back to the previous
// 100 ms epoch: a record's value at that instant is 0.4 x newest + 0.6 x previous.
constexpr double kSolutionWeightNewest = 0.4;
constexpr double kSolutionWeightPrevious = 0.6;

// WGS-84 semi-minor axis, m.
constexpr double kSemiMinor_m = 6356752.314245179;

}  // namespace drlib
