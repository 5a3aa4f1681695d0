// The simulator's truth geometry against physical invariants (its Earth and
// attitude algebra and its sensed rates are checked through the tracking by
// dr_mech).
#include <gtest/gtest.h>

#include <cmath>

#include "earth.h"
#include "scenario.h"
#include "truth.h"

namespace {

using namespace drsim;
constexpr double kPi = 3.14159265358979323846;
constexpr double kDeg = kPi / 180.0;

// The tip stays on its point while the pole tilts, and the truth's antenna,
// IMU and attitude fit the pole geometry the fusion library assumes: tip =
// antenna + c_be c_pb (0, 0, -L), IMU = antenna + c_be lever_b.
TEST(SimTruth, TipStaysOnThePointAndTheGeometryCloses) {
    ScenarioOptions so;
    so.name = "calibration";
    so.seed = 5;
    const Scenario scenario(so);
    const Truth truth(scenario);
    const Mat3 c_pb = truth.c_pb();
    double max_tilt = 0.0;
    for (double t = 0.0; t < 200.0; t += 0.37) {
        const TruthState s = truth.state(t);
        max_tilt = std::fmax(max_tilt, s.tilt_rad);
        EXPECT_LT(norm(s.tip_e - truth.point_e()), 1e-8);
        const Mat3 c_be = dcm_ne(s.imu_llh.lat, s.imu_llh.lon) * dcm_from_euler(s.rph);
        const Vec3 tip = s.ant_e + c_be * (c_pb * Vec3{0.0, 0.0, -so.pole_length_m});
        EXPECT_LT(norm(tip - s.tip_e), 1e-8);
        const Vec3 lever{Truth::kImuFromAntennaB[0], Truth::kImuFromAntennaB[1], Truth::kImuFromAntennaB[2]};
        EXPECT_LT(norm(s.ant_e + c_be * lever - s.imu_e), 1e-8);
        EXPECT_LT(norm(s.ant_v_e), 1.5);
    }
    EXPECT_GT(max_tilt, 25.0 * kDeg);
    EXPECT_LT(max_tilt, 30.15 * kDeg);  // a tenth of a degree of hand tremor on top
    // The calibration scenario's mounting rotation.
    const Vec3 m = euler_from_dcm(c_pb);
    EXPECT_NEAR(m.x, 0.5 * kDeg, 1e-12);
    EXPECT_NEAR(m.y, -0.3 * kDeg, 1e-12);
    EXPECT_NEAR(m.z, 0.4 * kDeg, 1e-12);
}

}  // namespace
