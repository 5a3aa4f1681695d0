// A whole simulated session: the scenario's truth turned into the input log
// a host would pass to the fusion library, and the truth file beside it.
#ifndef DRSIM_SIMULATOR_H
#define DRSIM_SIMULATOR_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "gnss_model.h"
#include "scenario.h"
#include "truth_csv.h"

namespace drsim {

struct SimOptions {
    ScenarioOptions scenario;                // its seed seeds everything
    std::string imu_grade = "industrial";
    int imu_jitter_us = 1000;                // uniform time-stamp jitter, +-us (0..4000)
    int quad_substeps = 2;                   // quadrature parts per 10 ms increment
    GnssOptions gnss;
    bool gnss_tow_jitter = false;            // time tags up to 1 ms off the 100 ms grid
    uint32_t start_tow_ms = 345600000U;      // tag of the first epoch, a multiple of 100
    uint32_t week = 2300;                    // its GNSS week
    uint32_t first_seq = 1;
};

struct SimResult {
    std::vector<uint8_t> log;
    std::vector<TruthRow> truth;
    size_t records = 0;
    size_t samples = 0;
};

// Throws std::invalid_argument on bad options. `progress` (optional) is
// called with the finished fraction now and then.
SimResult simulate(const SimOptions &opt, const std::function<void(double)> &progress = {});

// Scenario time (s) of an IMU or GNSS instant given as microseconds after the first epoch.
inline double scenario_time_s(int64_t us_after_first_epoch) {
    return static_cast<double>(us_after_first_epoch) * 1e-6;
}

}  // namespace drsim

#endif
