// The engine from end to end on simulated sessions: the learned gyro bias
// as stored, and the mounting calibration (whole-session
// accuracy is the scenario tests' business).
#include <gtest/gtest.h>

#include <cmath>

#include "common_replay.h"
#include "dr_entry.h"
#include "dr_fusion_state.h"
#include "drlib_toolkit.h"
#include "imu_model.h"
#include "sim_replay.h"

namespace {

// DrlibDestroy in mode 3 hands back the main filter's bias, close to the
// simulated one. (How a stored code seeds the next main filter: the driver test.)
TEST(EndToEnd, LearnedBiasIsStored) {
    const drsim::SimOptions opt = simtest::scenario("survey", 3);
    const drsim::SimResult sim = drsim::simulate(opt);
    drtools::ReplayOptions ro;
    ro.use_cfg = true;
    ro.cfg = drlib::drcfg16470;
    ro.cfg.bias_store_mode = 3;
    const DrCfg stored = drtools::replay_log(sim.log, ro).cfg_after;
    ASSERT_EQ(s_FltState, FLT_STATE_MAIN);
    const drsim::Vec3 bias = drsim::ImuErrorModel(drsim::imu_grade(opt.imu_grade), 3).gyro_bias_rps();
    // Across the pole (body x, y) the tilting makes the bias observable; along
    // it only through the heading. Measured: 0.8e-5, 0.9e-5 and 4.1e-4 rad/s.
    const double tol[3] = {5e-5, 5e-5, 6e-4};
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(stored.gyro_bias_code[k] - (k + 1.0), bias[k], tol[k]) << k;
}

// Tip on the first point, mounting (0.5, -0.3, 0.4) deg. Measured on seed 1:
// roll 0.45 deg, pitch -0.13 deg, reported heading -0.02 deg (0.3 of the
// estimate); the estimate shares the main filter's attitude errors.
TEST(EndToEnd, CalibrationReportsTheMounting) {
    const drsim::SimResult sim = drsim::simulate(simtest::scenario("calibration", 1));
    drtools::ReplayOptions ro;
    ro.calibrate = true;
    for (int i = 0; i < 3; ++i) ro.calib_point_e[i] = sim.truth[0].tip_e[i];
    const drtools::ReplayOutput out = drtools::replay_log(sim.log, ro);
    ASSERT_GE(out.calib.size(), 100u);  // progress, in order (the calibration unit test), then the result
    const drtools::CalibEvent &last = out.calib.back();
    ASSERT_TRUE(out.calib[out.calib.size() - 2].percent == 99u && last.code == 0u);
    const double deg = M_PI / 180.0;
    EXPECT_NEAR(last.result[0], 0.5 * deg, 0.15 * deg);
    EXPECT_NEAR(last.result[1], -0.3 * deg, 0.3 * deg);
    EXPECT_LE(std::fabs(last.result[2]), 0.01884955592153876);
}

}  // namespace
