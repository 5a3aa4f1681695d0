#include "common_replay.h"

#include <cstring>

#include "log_io.h"

namespace drtools {
namespace {

// The library's callbacks carry no user pointer: one replay runs at a time.
ReplayOutput *g_out = nullptr;
uint32_t g_current_tow_ms = 0;
EpochResult *g_current = nullptr;

void on_tilt(const TiltStat *stat) {
    if (g_current == nullptr) return;
    g_current->has_status = true;
    std::memcpy(&g_current->status, stat, sizeof *stat);
}

void on_calib(uint32_t code, const void *data, uint32_t len) {
    CalibEvent ev;
    ev.after_tow_ms = g_current_tow_ms;
    ev.code = code;
    if (code == 1 && data != nullptr && len == 4) std::memcpy(&ev.percent, data, 4);
    if (code == 0 && data != nullptr && len == 24) std::memcpy(ev.result, data, 24);
    g_out->calib.push_back(ev);
}

}  // namespace

ReplayOutput replay_log(const std::vector<uint8_t> &log, const ReplayOptions &opt) {
    ReplayOutput out;
    for (int k = 0; k < 3; ++k) out.pole_m[k] = opt.pole_m[k];
    drsim::LogCheck check;
    drsim::read_log(log.data(), log.size(), &check);
    const size_t usable = check.ok ? log.size() : check.record_offset;
    if (!check.ok) {
        out.log_error = drsim::log_fault_text(check);
        out.log_error_offset = check.byte_offset;
    }

    g_out = &out;
    DrlibInit(opt.use_cfg ? &opt.cfg : nullptr);
    DrlibRegisterCB(on_tilt);
    DrlibSetHwCfg(opt.pole_m);
    if (opt.calibrate) DrlibCalibStart(opt.calib_point_e, opt.calib_target, on_calib);

    // Records are copied into an aligned buffer, as a host's receive buffer would be.
    std::vector<uint64_t> buf(DRLIB_INPUT_SIZE(255) / sizeof(uint64_t) + 1);
    size_t pos = 0;
    while (pos + sizeof(DrInput) <= usable) {
        const size_t len = DRLIB_INPUT_SIZE(log[pos + offsetof(DrInput, nsamples)]);
        if (pos + len > usable) break;
        std::memcpy(buf.data(), log.data() + pos, len);
        const auto *rec = reinterpret_cast<const DrInput *>(buf.data());
        EpochResult ep;
        ep.offset = pos;
        ep.tow_ms = rec->tow_ms;
        g_current = &ep;
        g_current_tow_ms = rec->tow_ms;
        ep.result = DrlibUpdateFusion(rec);
        g_current = nullptr;
        if (ep.result != 0) ++out.rejected;
        out.epochs.push_back(ep);
        pos += len;
    }
    out.cfg_after = opt.use_cfg ? opt.cfg : DrCfg{};
    DrlibDestroy(&out.cfg_after);
    g_out = nullptr;
    return out;
}

}  // namespace drtools
