#include "sim_replay.h"

#include <cstddef>

#include "log_io.h"

namespace simtest {

std::vector<Record> split_records(const std::vector<uint8_t> &log) {
    std::vector<Record> out;
    for (const drsim::LogRecord &r : drsim::read_log(log.data(), log.size())) {
        const auto from = log.begin() + static_cast<std::ptrdiff_t>(r.offset);
        out.emplace_back(from, from + static_cast<std::ptrdiff_t>(DRLIB_INPUT_SIZE(r.header.nsamples)));
    }
    return out;
}

std::vector<Record> quiet_static_records(double duration_s) {
    drsim::SimOptions opt;
    opt.scenario.name = "static";
    opt.scenario.duration_scale = duration_s / 120.0;
    opt.imu_grade = "ideal";
    opt.imu_jitter_us = 0;
    opt.gnss.noise = false;
    return split_records(drsim::simulate(opt).log);
}

TiltStat g_tilt;
int g_tilt_calls = 0;

void start_engine() {
    DrlibInit(nullptr);
    DrlibRegisterCB([](const TiltStat *s) {
        g_tilt = *s;
        ++g_tilt_calls;
    });
    const double pole_m[3] = {0.0, 0.0, 1.892};
    DrlibSetHwCfg(pole_m);
    g_tilt_calls = 0;
}

}  // namespace simtest
