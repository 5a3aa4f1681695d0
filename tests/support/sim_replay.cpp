#include "sim_replay.h"

#include <cstddef>
#include <cstring>

#include "dr_entry.h"
#include "dr_global_var.h"

namespace simtest {

std::vector<StagedEpoch> stage_records(const std::vector<drsim::LogRecord> &records) {
    drlib::LoadDrCfg(nullptr);
    drlib::ResetImuRing();
    drlib::ClearFusionInHistory();
    std::vector<StagedEpoch> out;
    std::vector<uint8_t> buf;
    for (const drsim::LogRecord &r : records) {
        buf.clear();
        drsim::append_record(buf, r.header, r.samples);
        const DrInput *rec = reinterpret_cast<const DrInput *>(buf.data());
        StagedEpoch e;
        e.header = r.header;
        e.valid = IsFusionDataValid(rec);
        e.staged = e.valid ? InputImuDataToBuf(rec) : 0;
        if (!e.valid || !e.staged) {
            out.push_back(e);
            break;
        }
        FusionIn &cur = drlib::CurrentFusionIn();
        std::memcpy(&cur.header, rec, sizeof(DrInput));
        FillDaDv2FusionIn(&cur);
        e.slots = cur.header.nsamples;
        if (g_FusionInNum != 0) {
            const FusionIn &prev = GET_FUSION_IN(g_FusionInPos - 1u, 0u);
            e.brk = IsFusionDataBreak(rec, &prev);
            std::memcpy(cur.dtheta[0], prev.dtheta[10], sizeof cur.dtheta[0]);
            std::memcpy(cur.dvel[0], prev.dvel[10], sizeof cur.dvel[0]);
        }
        drlib::CommitFusionIn();
        e.entry = cur;
        out.push_back(e);
        if (e.brk) break;
    }
    return out;
}

std::vector<std::vector<uint8_t>> split_records(const std::vector<uint8_t> &log) {
    std::vector<std::vector<uint8_t>> out;
    for (const drsim::LogRecord &r : drsim::read_log(log.data(), log.size())) {
        const auto from = log.begin() + static_cast<std::ptrdiff_t>(r.offset);
        out.emplace_back(from, from + static_cast<std::ptrdiff_t>(DRLIB_INPUT_SIZE(r.header.nsamples)));
    }
    return out;
}

std::vector<std::vector<uint8_t>> quiet_static_records(double duration_s) {
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
