// Feeds simulated input records through the library's own input staging
// (validity, IMU ring, resampler, continuity), the way the update cycle does,
// so that tests see exactly the increments the fusion engine would see.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "drlib.h"
#include "log_io.h"

namespace simtest {

struct StagedEpoch {
    DrInput header;            // as recorded
    uint32_t valid = 0;        // IsFusionDataValid
    int32_t staged = 0;        // InputImuDataToBuf
    uint32_t brk = 0;          // IsFusionDataBreak against the previous entry (0 for the first)
    uint32_t slots = 0;        // slots 1..10 filled by the resampler
    FusionIn entry;            // slot 0 copied from the previous entry as the update cycle does
};

// Resets the staging state to the built-in configuration and stages every
// record in order; stops at the first record the staging rejects.
std::vector<StagedEpoch> stage_records(const std::vector<drsim::LogRecord> &records);

}  // namespace simtest
