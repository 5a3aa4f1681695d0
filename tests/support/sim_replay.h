// Simulated sessions for the tests: records staged through the library's own
// input path (validity, IMU ring, resampler, continuity) as the update cycle
// stages them, and records as separate buffers a test may alter.
#pragma once

#include <cstdint>
#include <vector>

#include "drlib.h"
#include "log_io.h"
#include "simulator.h"

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

// The records of a simulated log, each in its own buffer.
std::vector<std::vector<uint8_t>> split_records(const std::vector<uint8_t> &log);

// A quiet static session about duration_s long: ideal IMU on the 10 ms grid,
// noise-free GNSS.
std::vector<std::vector<uint8_t>> quiet_static_records(double duration_s);

// One record in its own buffer, to alter and feed.
using Record = std::vector<uint8_t>;
inline DrInput &header(Record &r) { return *reinterpret_cast<DrInput *>(r.data()); }
inline ImuSample *samples(Record &r) { return reinterpret_cast<ImuSample *>(r.data() + sizeof(DrInput)); }
inline uint32_t feed(const Record &r) { return DrlibUpdateFusion(reinterpret_cast<const DrInput *>(r.data())); }

// The newest tilt status delivered and the number of deliveries since start_engine.
extern TiltStat g_tilt;
extern int g_tilt_calls;
// DrlibInit without a configuration, the standard 1.892 m pole, and a
// callback that keeps g_tilt.
void start_engine();

}  // namespace simtest
