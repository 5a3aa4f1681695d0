// Checks of the settings a replay is run with, against what the library does
// with them: settings it ignores or that cannot work get a warning, a truth
// file of another session is refused. And the readable forms of what the
// library hands back (calibration result, stored gyro bias).
#ifndef DRTOOLS_COMMON_CHECKS_H
#define DRTOOLS_COMMON_CHECKS_H

#include <cstdio>
#include <string>
#include <vector>

#include "common_pole.h"
#include "common_replay.h"
#include "truth_csv.h"

namespace drtools {

// Which settings the user gave (the others are the library's defaults).
struct SettingsGiven {
    bool mount = false, scales = false, gyro_bias = false, calib_target = false;
};

// Warnings about the configuration and the pole before the replay (empty
// when all is plausible).
std::vector<std::string> check_settings(const ReplayOptions &opt, const ImuGlance &imu, const SettingsGiven &given);

// Why a calibration produced no result (empty if it did).
std::string calibration_problem(const ReplayOptions &opt, const ReplayOutput &out);

// Why `truth` does not describe the session of `log` (empty if it does): too
// few of the log's time tags in it, or antenna positions far from the log's.
std::string truth_mismatch(const std::vector<uint8_t> &log, const std::vector<drsim::TruthRow> &truth);

// The calibration results in degrees, and the stored gyro bias decoded and encoded.
void print_calibration(std::FILE *f, const ReplayOptions &opt, const ReplayOutput &out);
void print_bias_store(std::FILE *f, const DrCfg &after);

}  // namespace drtools

#endif
