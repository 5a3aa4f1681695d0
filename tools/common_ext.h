// The external fixed-tip pole session (CSV files of IMU increments at 100 Hz,
// GNSS fixes of the IMU point at 10 Hz and a 100 Hz truth), converted into an
// input log and a truth table of this project's formats: one use of the
// generic CSV conversion (common_csv2log.h) plus the session's truth.
//
// The session's GNSS positions are those of the IMU point, while the library
// expects an antenna at its fixed offset from the IMU (kImuFromAntenna_b). A
// virtual antenna is placed where that offset holds, using the true attitude:
// antenna = IMU - C_en C_bn l_b, its velocity minus the rotation of the
// offset. The session's body z axis points down the pole (the IMU sits at
// (0, 0, -1.8) from the tip), so the pole vector is (0, 0, -1.8) - l_b.
#ifndef DRTOOLS_COMMON_EXT_H
#define DRTOOLS_COMMON_EXT_H

#include <cstdint>
#include <string>
#include <vector>

#include "common_csv2log.h"
#include "truth_csv.h"

namespace drtools {

struct ExtSession {
    std::vector<uint8_t> log;               // input records, as a host passes them
    std::vector<drsim::TruthRow> truth;     // one row per record
    double pole_m[3] = {0.0, 0.0, 0.0};     // vector to pass to DrlibSetHwCfg, body axes, m
};

// The generic options that describe the session's files.
CsvLogOptions ext_session_options();

// Reads DIR/imu_file (imu_100hz.csv or imu_true_100hz.csv), DIR/gnss_10hz.csv
// and DIR/truth_100hz.csv. False, with a reason, on an unreadable or malformed file.
bool convert_ext_session(const std::string &dir, const std::string &imu_file, ExtSession &out,
                         std::string &error);

}  // namespace drtools

#endif
