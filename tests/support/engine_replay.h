// Replays a simulated session through the public interface and compares the
// tilt status with the simulator's truth.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "drlib.h"
#include "simulator.h"

namespace enginetest {

struct ReplayEpoch {
    uint32_t result = 0;   // DrlibUpdateFusion's result
    bool has_stat = false; // a tilt status was delivered
    TiltStat stat{};
    uint8_t state = 0;     // driver state after the call
};

struct Replay {
    drsim::SimResult sim;
    std::vector<ReplayEpoch> epochs;  // one per record, in log order
};

// Called after each record with its index; may call Drlib functions.
using EpochHook = std::function<void(size_t index, const ReplayEpoch &epoch)>;

// DrlibInit(cfg), pole lever (0, 0, pole length), then every record of the
// simulated log. The library stays initialised afterwards.
Replay ReplaySession(const drsim::SimOptions &opt, const DrCfg *cfg, const EpochHook &hook = {});

// Errors of the main-state epochs (status 1..3) against the truth.
struct ErrorStats {
    size_t epochs = 0;
    double first_class_time_s = -1.0;  // scenario time of the first status 1..3
    double att_rms_deg[3] = {0, 0, 0};  // roll, pitch, heading
    double att_max_deg[3] = {0, 0, 0};
    double tip_h_rms_m = 0, tip_h_max_m = 0;
    double tip_v_rms_m = 0, tip_v_max_m = 0;
};
// skip_s: main-state epochs within this many seconds of the first are left
// out (the filter settles first).
ErrorStats MainStateErrors(const Replay &replay, double skip_s);

// A short quiet session: the static scenario with an ideal IMU on the 10 ms
// grid and noise-free GNSS, about duration_s long.
drsim::SimOptions QuietStatic(double duration_s);

// The records of a simulated log, each in its own buffer (so a test can
// alter one), with the simulation (truth included) in *sim if given.
std::vector<std::vector<uint8_t>> SimRecords(const drsim::SimOptions &opt,
                                             drsim::SimResult *sim = nullptr);

// Wraps an angle difference into (-pi, pi].
double WrapPi(double a);

}  // namespace enginetest
