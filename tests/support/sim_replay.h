// Simulated sessions for the tests: records as separate buffers a test may
// alter and feed through the public interface.
#pragma once

#include <cstdint>
#include <vector>

#include "drlib.h"
#include "simulator.h"

namespace simtest {

// One record in its own buffer, to alter and feed.
using Record = std::vector<uint8_t>;
inline DrInput &header(Record &r) { return *reinterpret_cast<DrInput *>(r.data()); }
inline ImuSample *samples(Record &r) { return reinterpret_cast<ImuSample *>(r.data() + sizeof(DrInput)); }
inline uint32_t feed(const Record &r) { return DrlibUpdateFusion(reinterpret_cast<const DrInput *>(r.data())); }

std::vector<Record> split_records(const std::vector<uint8_t> &log);

// A quiet static session about duration_s long: ideal IMU on the 10 ms grid,
// noise-free GNSS.
std::vector<Record> quiet_static_records(double duration_s);

// The newest tilt status delivered and the number of deliveries since start_engine.
extern TiltStat g_tilt;
extern int g_tilt_calls;
// DrlibInit without a configuration, the standard 1.892 m pole, and a
// callback that keeps g_tilt.
void start_engine();

// A built-in scenario (industrial IMU); error_free: ideal IMU and noise-free GNSS.
inline drsim::SimOptions scenario(const char *name, uint64_t seed = 1, double scale = 1.0, bool error_free = false) {
    drsim::SimOptions opt;
    opt.scenario.name = name, opt.scenario.seed = seed, opt.scenario.duration_scale = scale;
    if (error_free) opt.imu_grade = "ideal", opt.gnss.noise = false;
    return opt;
}

}  // namespace simtest
