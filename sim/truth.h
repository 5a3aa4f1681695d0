// The truth of a simulated session: positions, velocities and attitude of
// the tip, the antenna and the IMU at any instant, and the angular rate and
// specific force the IMU senses, all derived exactly from a scenario.
//
// Geometry: the antenna sits at (0, 0, L) from the tip in pole axes; the
// IMU body axes are the pole axes turned by the mounting rotation c_pb; the
// IMU reference point sits at `imu_from_antenna_b` (body axes) from the
// antenna phase centre.
#ifndef DRSIM_TRUTH_H
#define DRSIM_TRUTH_H

#include "attitude.h"
#include "earth.h"
#include "scenario.h"

namespace drsim {

struct TruthState {
    double t_s = 0.0;       // scenario time
    Vec3 tip_e, ant_e, ant_v_e, imu_e, imu_v_e;  // ECEF, m and m/s
    Geodetic imu_llh;
    Vec3 imu_v_n;           // IMU velocity north, east, down, m/s
    Mat3 c_bn;              // IMU body to n at the IMU position
    Vec3 rph;               // roll, pitch, heading of c_bn, rad
    double tilt_rad = 0.0;  // pole axis from the local vertical at the tip
};

struct ImuRates {
    Vec3 w_ib_b;  // angular rate relative to inertial space, body axes, rad/s
    Vec3 f_b;     // specific force, body axes, m/s^2
};

class Truth {
public:
    explicit Truth(const Scenario &scenario);

    TruthState state(double t_s) const;
    ImuRates imu_rates(double t_s) const;

    const Scenario &scenario() const { return scenario_; }
    const Vec3 &point_e() const { return point_e_; }  // the first survey point, ECEF
    Mat3 c_pb() const { return dcm_from_quat(q_pb_); }
    // The IMU reference point relative to the antenna, body axes, m.
    static constexpr double kImuFromAntennaB[3] = {-0.03404, -0.05097, -0.01432};

private:
    template <typename T>
    struct Points;
    template <typename T>
    Points<T> points(const T &t) const;

    Scenario scenario_;
    Vec3 point_e_;
    Mat3 c_te_;   // tangent frame (north-east-down at the first point) to e
    Quat q_pb_;   // pole axes to body axes
};

}  // namespace drsim

#endif
