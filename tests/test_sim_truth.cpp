// The simulator's Earth, attitude algebra and truth geometry against
// textbook values and physical invariants.
#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "earth.h"
#include "imu_model.h"
#include "scenario.h"
#include "truth.h"

namespace {

using namespace drsim;
constexpr double kPi = 3.14159265358979323846;
constexpr double kDeg = kPi / 180.0;

TEST(SimEarth, GeodeticConversionsAndNormalGravity) {
    const Vec3 eq = ecef_from_geodetic({0.0, 0.0, 0.0});
    EXPECT_DOUBLE_EQ(eq.x, 6378137.0);
    EXPECT_NEAR(ecef_from_geodetic({kPi / 2, 0.0, 0.0}).z, 6356752.314245179, 1e-8);
    for (double lat : {-1.4, -0.3, 0.52, 1.2})
        for (double h : {-100.0, 30.0, 9000.0}) {
            const Geodetic g = geodetic_from_ecef(ecef_from_geodetic({lat, 1.98, h}));
            EXPECT_NEAR(g.lat, lat, 1e-14);
            EXPECT_NEAR(g.lon, 1.98, 1e-15);
            EXPECT_NEAR(g.h, h, 1e-8);
        }
    // WGS-84 normal gravity: the defining values at the equator and the pole,
    // and the free-air gradient of about -3.086e-6 s^-2.
    EXPECT_NEAR(normal_gravity(0.0, 0.0), 9.7803253359, 1e-10);
    EXPECT_NEAR(normal_gravity(kPi / 2, 0.0), 9.8321849378, 1e-9);
    EXPECT_NEAR((normal_gravity(0.7, 100.0) - normal_gravity(0.7, 0.0)) / 100.0, -3.086e-6, 5e-9);
    // The down axis of the n frame is the inward ellipsoid normal.
    const Mat3 c_ne = dcm_ne(0.52, 1.98);
    const Vec3 p0 = ecef_from_geodetic({0.52, 1.98, 0.0}), p1 = ecef_from_geodetic({0.52, 1.98, -1.0});
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(c_ne(i, 2), p1[i] - p0[i], 1e-9);
}

TEST(SimAttitude, EulerConventionAndRoundTrips) {
    // Heading 90 degrees turns the body x axis to east; pitch 90 to up; roll 90 turns body y to down.
    const Vec3 x{1, 0, 0}, y{0, 1, 0};
    const Vec3 east = dcm_from_euler({0, 0, kPi / 2}) * x;
    EXPECT_NEAR(east.y, 1.0, 1e-15);
    EXPECT_NEAR((dcm_from_euler({0, kPi / 2, 0}) * x).z, -1.0, 1e-15);
    EXPECT_NEAR((dcm_from_euler({kPi / 2, 0, 0}) * y).z, 1.0, 1e-15);
    for (const Vec3 &rph : {Vec3{0.1, -0.2, 5.983185307179586}, Vec3{3.0, 0.4, 0.2}, Vec3{-2.5, -1.2, 3.3}}) {
        const Mat3 c = dcm_from_euler(rph);
        const Vec3 back = euler_from_dcm(c);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(back[i], rph[i], 1e-12);
        const Mat3 again = dcm_from_quat(quat_from_dcm(c));
        for (int i = 0; i < 9; ++i) EXPECT_NEAR(again.m[static_cast<size_t>(i)], c.m[static_cast<size_t>(i)], 1e-15);
        // The quaternion product composes as the matrices do.
        const Mat3 d = dcm_from_euler({0.3, 0.1, -0.7});
        const Mat3 cd = dcm_from_quat(quat_from_dcm(c) * quat_from_dcm(d));
        const Mat3 ref = c * d;
        for (int i = 0; i < 9; ++i) EXPECT_NEAR(cd.m[static_cast<size_t>(i)], ref.m[static_cast<size_t>(i)], 1e-15);
    }
    const Vec3 phi{0.3, -0.2, 0.1};
    const Quat q = quat_from_rotvec(phi);
    const Vec3 back = rotation_between(dcm_from_quat(q), Mat3::identity());
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(back[i], phi[i], 1e-15);
}

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

// A vertical pole at rest senses the Earth's rotation and normal gravity
// only; a vertical pole has roll 180 degrees (body z up).
TEST(SimTruth, PoleAtRestSensesEarthRateAndGravity) {
    ScenarioOptions so;
    so.name = "static";
    const Truth truth{Scenario(so)};
    const TruthState s = truth.state(10.0);
    const ImuRates r = truth.imu_rates(10.0);
    EXPECT_NEAR(std::fabs(s.rph.x), kPi, 1e-6);
    EXPECT_NEAR(s.tilt_rad, 0.0, 1e-12);
    EXPECT_NEAR(norm(r.w_ib_b), wgs84::kOmega, 1e-15);
    const Vec3 w_n = s.c_bn * r.w_ib_b, f_n = s.c_bn * r.f_b;
    EXPECT_NEAR(w_n.x, wgs84::kOmega * std::cos(s.imu_llh.lat), 1e-12);
    EXPECT_NEAR(w_n.z, -wgs84::kOmega * std::sin(s.imu_llh.lat), 1e-12);
    EXPECT_NEAR(f_n.z, -normal_gravity(s.imu_llh.lat, s.imu_llh.h), 1e-12);
    EXPECT_NEAR(std::hypot(f_n.x, f_n.y), 0.0, 1e-12);
    // Body z points up: the accelerometer's z axis reads +g.
    EXPECT_NEAR(r.f_b.z, normal_gravity(s.imu_llh.lat, s.imu_llh.h), 1e-6);
}

// Quantisation carries its residue: a long run of counts sums to the
// increments to within half a count, however small each increment is.
TEST(SimImu, QuantisationKeepsTheSumAndGradesDiffer) {
    Quantiser q;
    double sum_in = 0.0;
    long long sum_counts = 0;
    for (int i = 0; i < 10000; ++i) {
        Increment inc;
        inc.dtheta = {3.3e-9 * std::sin(0.01 * i), 0.0, 0.0};
        inc.dvel = {0.0, 0.0, 0.0980665};
        int32_t g[3], a[3];
        q.quantise(inc, g, a);
        sum_in += inc.dtheta.x / kDeg;
        sum_counts += g[0];
    }
    EXPECT_LE(std::fabs(sum_in / Quantiser::kGyroScaleDeg - static_cast<double>(sum_counts)), 0.5 + 1e-6);

    ImuErrorModel ideal(imu_grade("ideal"), 1);
    Increment exact;
    exact.dtheta = {1e-3, -2e-3, 3e-3};
    exact.dvel = {0.01, 0.02, 0.098};
    const Increment same = ideal.apply(exact, 0.01);
    EXPECT_EQ(same.dtheta.x, exact.dtheta.x);
    EXPECT_EQ(same.dvel.z, exact.dvel.z);
    ImuErrorModel industrial(imu_grade("industrial"), 1);
    EXPECT_GT(norm(industrial.gyro_bias_rps()), 1e-5);
    EXPECT_THROW(imu_grade("navigation"), std::invalid_argument);
    ScenarioOptions bad;
    bad.name = "dance";
    EXPECT_THROW(Scenario{bad}, std::invalid_argument);
    bad.name = "survey";
    bad.max_tilt_deg = 80.0;
    EXPECT_THROW(Scenario{bad}, std::invalid_argument);
}

}  // namespace
