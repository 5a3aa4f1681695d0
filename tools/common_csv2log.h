// Input logs from generic CSV files: a GNSS solution CSV (time of week,
// position, velocity and their deviations, ECEF or geodetic) and an IMU CSV
// (time, angle and velocity increments or rates, in SI units, degrees or raw
// counts), with the time base, the axis convention and the point the GNSS
// solution refers to as options. Columns: docs/csv-input.md.
#ifndef DRTOOLS_COMMON_CSV2LOG_H
#define DRTOOLS_COMMON_CSV2LOG_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "attitude.h"

namespace drtools {

enum class GnssFrame { ecef, geodetic };   // geodetic: lat, lon (deg), h (m), velocity north-east-down
enum class StdFrame { ecef, ned };         // how the deviations are resolved
enum class ImuKind { increments, rates };
enum class ImuUnits { si, deg, counts };   // deg: gyro in degrees; counts: raw, per 0.01 s step

// A signed permutation: body axis i = sign[i] * input axis from[i].
struct AxisMap {
    int from[3] = {0, 1, 2};
    double sign[3] = {1.0, 1.0, 1.0};
    drsim::Vec3 apply(const drsim::Vec3 &in) const;
};
// Parses "x,y,z", "-y,x,z", "forward-right-down" ... false when not a proper
// rotation (a repeated axis or a mirror).
bool parse_axes(const std::string &text, AxisMap &out, std::string &error);

struct CsvLogOptions {
    GnssFrame gnss_frame = GnssFrame::ecef;
    StdFrame gnss_std = StdFrame::ecef;
    double gnss_time_to_ms = 1.0;          // GNSS time column to ms (1: tow_ms, 1000: tow_s)
    double imu_time_to_us = 1.0;           // IMU time column to us
    double imu_time_base_ms = 0.0;         // time of week at IMU time 0
    ImuKind imu_kind = ImuKind::increments;
    ImuUnits imu_units = ImuUnits::si;
    AxisMap axes;
    bool gnss_at_imu = false;              // the solution is the IMU point's, not the antenna's
    drsim::Vec3 pole_in;                   // the antenna relative to the tip, input axes
    drsim::Vec3 lever_in;                  // gnss_at_imu: the antenna relative to the IMU point, input axes
    uint8_t pos_type = 0x32, vel_type = 0x32;
    double gyro_scale_deg = 1.0058283805847168e-06;  // counts of the default configuration
    double acc_scale_mps = 1.862645149230957e-07;
};

// Moves a solution of the IMU point to the antenna the library assumes at
// its fixed offset from the IMU (needs the attitude at tow_ms). False: unknown.
using AntennaPlacer = std::function<bool(uint32_t tow_ms, const drsim::Vec3 &imu_e, const drsim::Vec3 &imu_v_e,
                                         drsim::Vec3 &ant_e, drsim::Vec3 &ant_v_e)>;

struct CsvLog {
    std::vector<uint8_t> log;
    std::vector<uint32_t> tow_ms;          // of each record written
    size_t skipped_epochs = 0;             // epochs with fewer than 8 or more than 12 samples
    double pole_m[3] = {0.0, 0.0, 0.0};    // the pole vector to replay with, body axes
};

// Rows of numbers of a CSV; lines starting with '#' and a header line whose
// first cell is not a number are skipped. Throws std::runtime_error.
std::vector<std::vector<double>> read_numeric_csv(const std::string &path, size_t columns);

// Columns i, i+1, i+2 of a row as a vector.
inline drsim::Vec3 row_vec3(const std::vector<double> &row, size_t i) { return {row[i], row[i + 1], row[i + 2]}; }

// Throws std::runtime_error with the reason.
CsvLog csv_to_log(const std::vector<std::vector<double>> &gnss, const std::vector<std::vector<double>> &imu,
                  const CsvLogOptions &opt, const AntennaPlacer &placer = nullptr);

// The library's fixed position of the IMU relative to the antenna, body axes, m.
extern const drsim::Vec3 kImuFromAntenna_b;

}  // namespace drtools

#endif
