// Replaying an input log through the library's public interface, the way a
// receiver's firmware drives it, and collecting what the host would see.
#ifndef DRTOOLS_COMMON_REPLAY_H
#define DRTOOLS_COMMON_REPLAY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "drlib.h"

namespace drtools {

struct ReplayOptions {
    double pole_m[3] = {0.0, 0.0, 1.892};  // the pole vector (common_pole.h), body axes, m
    bool use_cfg = false;                   // else the library's defaults (null record)
    DrCfg cfg{};
    bool calibrate = false;                 // run a mounting calibration on a known point
    double calib_point_e[3] = {0.0, 0.0, 0.0};  // ECEF, m
    uint32_t calib_target = 1200;
};

// One DrlibUpdateFusion call: the result code and, when accepted, the status.
struct EpochResult {
    size_t offset = 0;          // byte offset of the record in the log
    uint32_t tow_ms = 0;        // the record's time tag
    uint32_t result = 0;        // 0 processed, 1 rejected
    bool has_status = false;
    TiltStat status{};
};

struct CalibEvent {
    uint32_t after_tow_ms = 0;  // time tag of the record whose cycle raised it
    uint32_t code = 0;          // 0 result, 1 progress, 2 time-out
    uint32_t percent = 0;       // code 1
    double result[3] = {0.0, 0.0, 0.0};  // code 0: roll, pitch, 0.3 x heading, rad
};

struct ReplayOutput {
    std::vector<EpochResult> epochs;
    std::vector<CalibEvent> calib;
    size_t rejected = 0;
    double pole_m[3] = {0.0, 0.0, 0.0};  // the pole vector the replay ran with
    DrCfg cfg_after{};          // the configuration record after DrlibDestroy (bias store)
    std::string log_error;      // non-empty: the log is malformed from `log_error_offset` on (log_fault_text)
    size_t log_error_offset = 0;
};

// Replays the whole well-formed part of `log`; a structural fault ends the
// replay there and is described in `log_error`.
ReplayOutput replay_log(const std::vector<uint8_t> &log, const ReplayOptions &opt);

}  // namespace drtools

#endif
