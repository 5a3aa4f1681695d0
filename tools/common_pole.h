// The pole as the host describes it to the library, and the tilt that
// follows from it.
//
// The pole vector is the position of the GNSS antenna relative to the pole
// tip, in IMU body axes, metres: the vector passed to DrlibSetHwCfg and given
// to the tools as --pole. (0, 0, 1.892) is an antenna 1.892 m up the pole from
// the tip with the IMU's z axis pointing up the pole; an IMU whose z axis
// points down the pole has a negative z component.
#ifndef DRTOOLS_COMMON_POLE_H
#define DRTOOLS_COMMON_POLE_H

#include <string>
#include <vector>

#include "drlib.h"

namespace drtools {

struct PoleTilt {
    double tilt_rad = 0.0;       // pole (tip to antenna) from the local vertical
    double direction_rad = 0.0;  // azimuth the antenna leans towards from the tip, [0, 2 pi)
};

// Tilt of the pole vector pole_b (body axes) under the attitude att (roll,
// pitch, heading, rad, n = north-east-down).
PoleTilt pole_tilt(const double att[3], const double pole_b[3]);

// What the first second of a log's IMU data says about the configuration:
// the mean specific force (body axes, m/s^2, through acc_scale) and the
// largest rate any sample implies (deg/s, through gyro_scale).
struct ImuGlance {
    bool valid = false;
    double f_b[3] = {0.0, 0.0, 0.0};
    double max_rate_deg_s = 0.0;
};
ImuGlance glance_imu(const std::vector<uint8_t> &log, double gyro_scale_deg, double acc_scale_mps);

// A description of what is wrong with the pole vector for this log (empty if
// nothing): a length no survey pole has, or an antenna below the tip while
// the IMU senses gravity at the start.
std::string pole_problem(const double pole_b[3], const ImuGlance &imu);

}  // namespace drtools

#endif
