// The truth file: CSV, one header line, one row per GNSS epoch.
#ifndef DRSIM_TRUTH_CSV_H
#define DRSIM_TRUTH_CSV_H

#include <cstdint>
#include <string>
#include <vector>

#include "attitude.h"
#include "earth.h"

namespace drsim {

struct TruthRow {
    uint32_t tow_ms = 0;       // the record's time tag
    uint32_t week = 0;         // GNSS week of the tag
    double t_s = 0.0;          // scenario time of the tag
    Vec3 ant_e, ant_v_e;       // true antenna position and velocity at the tag, ECEF
    uint32_t sol_tow_ms = 0;   // the solution instant: 60 ms before the tag
    Vec3 rph;                  // IMU roll, pitch, heading at the solution instant, rad
    double tilt_rad = 0.0;     // pole tilt from the vertical at the solution instant
    Vec3 tip_e;                // tip position at the solution instant, ECEF
    Geodetic imu_llh;          // IMU reference point at the solution instant
    Vec3 imu_v_n;              // its velocity north, east, down, m/s
};

extern const char *const kTruthCsvHeader;

std::string truth_csv(const std::vector<TruthRow> &rows);
// Parses what truth_csv writes; false (with a reason) on a malformed file.
bool parse_truth_csv(const std::string &text, std::vector<TruthRow> &rows, std::string &error);

}  // namespace drsim

#endif
