#include "engine_replay.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "earth.h"
#include "log_io.h"

namespace enginetest {

namespace {

TiltStat g_last_stat;
bool g_got_stat = false;

void OnTilt(const TiltStat *stat) {
    g_last_stat = *stat;
    g_got_stat = true;
}

}  // namespace

extern "C" uint8_t s_FltState;

Replay ReplaySession(const drsim::SimOptions &opt, const DrCfg *cfg, const EpochHook &hook) {
    Replay out;
    out.sim = drsim::simulate(opt);
    DrlibInit(cfg);
    DrlibRegisterCB(OnTilt);
    const double pole[3] = {0.0, 0.0, opt.scenario.pole_length_m};
    DrlibSetHwCfg(pole);
    const std::vector<drsim::LogRecord> recs = drsim::read_log(out.sim.log.data(), out.sim.log.size());
    out.epochs.reserve(recs.size());
    for (const drsim::LogRecord &r : recs) {
        g_got_stat = false;
        ReplayEpoch e;
        e.result = DrlibUpdateFusion(reinterpret_cast<const DrInput *>(out.sim.log.data() + r.offset));
        e.has_stat = g_got_stat;
        if (g_got_stat) e.stat = g_last_stat;
        e.state = s_FltState;
        out.epochs.push_back(e);
        if (hook) hook(out.epochs.size() - 1, out.epochs.back());
    }
    return out;
}

drsim::SimOptions QuietStatic(double duration_s) {
    drsim::SimOptions opt;
    opt.scenario.name = "static";
    opt.scenario.duration_scale = duration_s / 120.0;
    opt.imu_grade = "ideal";
    opt.imu_jitter_us = 0;
    opt.gnss.noise = false;
    return opt;
}

std::vector<std::vector<uint8_t>> SimRecords(const drsim::SimOptions &opt, drsim::SimResult *sim) {
    drsim::SimResult r = drsim::simulate(opt);
    std::vector<std::vector<uint8_t>> out;
    for (const drsim::LogRecord &rec : drsim::read_log(r.log.data(), r.log.size())) {
        const size_t size = DRLIB_INPUT_SIZE(rec.header.nsamples);
        out.emplace_back(r.log.begin() + static_cast<std::ptrdiff_t>(rec.offset),
                         r.log.begin() + static_cast<std::ptrdiff_t>(rec.offset + size));
    }
    if (sim != nullptr) *sim = std::move(r);
    return out;
}

double WrapPi(double a) {
    while (a > M_PI) a -= 2.0 * M_PI;
    while (a <= -M_PI) a += 2.0 * M_PI;
    return a;
}

ErrorStats MainStateErrors(const Replay &replay, double skip_s) {
    ErrorStats s;
    double sum_att[3] = {0, 0, 0};
    double sum_h = 0, sum_v = 0;
    double first_t = -1.0;
    const size_t n = std::min(replay.epochs.size(), replay.sim.truth.size());
    for (size_t i = 0; i < n; ++i) {
        const ReplayEpoch &e = replay.epochs[i];
        if (!e.has_stat || e.stat.status == 0) continue;
        const drsim::TruthRow &t = replay.sim.truth[i];
        if (first_t < 0.0) {
            first_t = t.t_s;
            s.first_class_time_s = t.t_s;
        }
        if (t.t_s < first_t + skip_s) continue;
        ++s.epochs;
        for (int k = 0; k < 3; ++k) {
            const double d = std::fabs(WrapPi(e.stat.att[k] - t.rph[k])) * 180.0 / M_PI;
            sum_att[k] += d * d;
            s.att_max_deg[k] = std::max(s.att_max_deg[k], d);
        }
        const drsim::Geodetic g = drsim::geodetic_from_ecef(t.tip_e);
        const drsim::Mat3 c_ne = drsim::dcm_ne(g.lat, g.lon);
        drsim::Vec3 d_e{e.stat.tip_pos[0] - t.tip_e[0], e.stat.tip_pos[1] - t.tip_e[1],
                        e.stat.tip_pos[2] - t.tip_e[2]};
        double d_n[3];
        for (int r = 0; r < 3; ++r) {
            // c_ne maps n to e; its transpose takes e back to n.
            d_n[r] = c_ne(0, r) * d_e[0] + c_ne(1, r) * d_e[1] + c_ne(2, r) * d_e[2];
        }
        const double h = std::hypot(d_n[0], d_n[1]);
        const double v = std::fabs(d_n[2]);
        sum_h += h * h;
        sum_v += v * v;
        s.tip_h_max_m = std::max(s.tip_h_max_m, h);
        s.tip_v_max_m = std::max(s.tip_v_max_m, v);
    }
    if (s.epochs > 0) {
        const double n_ep = static_cast<double>(s.epochs);
        for (int k = 0; k < 3; ++k) s.att_rms_deg[k] = std::sqrt(sum_att[k] / n_ep);
        s.tip_h_rms_m = std::sqrt(sum_h / n_ep);
        s.tip_v_rms_m = std::sqrt(sum_v / n_ep);
    }
    return s;
}

}  // namespace enginetest
