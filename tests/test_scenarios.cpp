// Whole sessions through the public interface, judged against truth: the
// simulator's built-in scenarios with fixed seeds (accuracy, the mounting
// calibration, the learned gyro bias as stored), and the external fixed-tip
// session made outside this project. Thresholds are about 1.5 times the worst
// figure measured over five seeds (the external session: its one recording),
// so that a real regression in accuracy, start-up time or the honesty of the
// reported deviations fails here.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "common_ext.h"
#include "common_replay.h"
#include "common_report.h"
#include "dr_entry.h"
#include "dr_fusion_state.h"
#include "imu_model.h"
#include "sim_replay.h"

namespace {

constexpr double kAny = 1e9;  // no limit on this figure

// Upper limits, except the shares within 1 and 3 sigma (lower limits).
struct Limits {
    double first_fix_s, idle_share, h_rms_m, h_max_m, v_rms_m, v_max_m, in_1sigma, in_3sigma, tilt_deg, heading_deg;
};

void expect_within(const drtools::Report &r, const Limits &l) {
    EXPECT_EQ(r.rejected, 0u);
    EXPECT_GE(r.time_to_first_fix_s, 0.0);
    EXPECT_LT(r.time_to_first_fix_s, l.first_fix_s);
    EXPECT_LT(r.class_share[0], l.idle_share);
    const drtools::TipGroup *all = drtools::find_group(r, "all");
    ASSERT_NE(all, nullptr) << "no tilt solution at all";
    EXPECT_LT(all->horizontal.rms, l.h_rms_m);
    EXPECT_LT(all->horizontal.max, l.h_max_m);
    EXPECT_LT(all->vertical.rms, l.v_rms_m);
    EXPECT_LT(all->vertical.max, l.v_max_m);
    EXPECT_GT(r.within_1sigma, l.in_1sigma);
    EXPECT_GT(r.within_3sigma, l.in_3sigma);
    EXPECT_LT(std::max(r.roll_deg.rms, r.pitch_deg.rms), l.tilt_deg);
    EXPECT_LT(r.heading_deg.rms, l.heading_deg);
}

// A 1.892 m pole, the library's defaults; the calibration session calibrates on its tip.
drtools::ReplayOutput run_scenario(const char *name, bool error_free, drsim::SimResult &sim) {
    sim = drsim::simulate(simtest::scenario(name, 1, 1.0, error_free));
    drtools::ReplayOptions ro;
    ro.calibrate = std::string(name) == "calibration";
    for (int i = 0; i < 3; ++i) ro.calib_point_e[i] = sim.truth[0].tip_e[i];
    return drtools::replay_log(sim.log, ro);
}

TEST(Scenario, StaticPoleNeverClaimsATiltSolution) {
    // A vertical pole at rest leaves the heading unobservable: the bank cannot
    // decide, and the host must never see a tilt solution it cannot trust.
    drsim::SimResult sim;
    const drtools::ReplayOutput out = run_scenario("static", false, sim);
    const drtools::Report r = drtools::make_report(out, sim.truth);
    EXPECT_EQ(r.rejected, 0u);
    EXPECT_EQ(r.epochs, out.epochs.size());
    EXPECT_DOUBLE_EQ(r.class_share[0], 1.0);
    for (const auto &ep : out.epochs) ASSERT_TRUE(ep.has_status && ep.status.version == 2u) << ep.tow_ms;
}

// Measured (first fix; tip RMS (max) horizontal, vertical; within 1 and 3 sigma):
// survey 4.2-4.3 s; 18-28 (48-93), 13-18 (33-42) mm; 60-78 %, 95-100 %.
// Error-free sensors leave the estimator's own error, mainly the slowly settling
// heading (seeds 1-3): roll, pitch 0.07-0.11 deg, heading 1.8-2.1; 16-23 (75), 0.9 mm.
// Calibration, its (0.5, -0.3, 0.4) deg mounting unconfigured and biasing the
// tip: 5.1-8.1 s; 26-30 (75-98), 12-21 (33-47) mm; the calibration on seed 1
// reports roll 0.45 deg, pitch -0.13 deg, heading -0.02 deg (0.3 of the
// estimate): it shares the main filter's attitude errors.
TEST(Scenario, SimulatedSessionsReachCentimetreTipAccuracyAndCalibrate) {
    const struct { const char *name; bool error_free, calib; Limits lim; } cases[] = {
        {"survey", false, false, {6.5, 0.25, 0.043, 0.140, 0.027, 0.063, 0.45, 0.90, 0.3, 3.5}},
        {"survey", true, false, {6.5, 1.0, 0.030, 0.090, 0.002, 0.010, 0.0, 0.0, 0.15, 2.6}},
        {"calibration", false, true, {12.0, 0.08, 0.045, 0.147, 0.031, 0.071, 0.0, 0.85, kAny, kAny}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.name) + (c.error_free ? " error-free" : ""));
        drsim::SimResult sim;
        const drtools::ReplayOutput out = run_scenario(c.name, c.error_free, sim);
        expect_within(drtools::make_report(out, sim.truth), c.lim);
        if (!c.calib) continue;
        ASSERT_GE(out.calib.size(), 100u);  // progress, in order (the calibration unit test), then the result
        const drtools::CalibEvent &last = out.calib.back();
        ASSERT_TRUE(out.calib[out.calib.size() - 2].percent == 99u && last.code == 0u);
        const double deg = M_PI / 180.0;
        EXPECT_NEAR(last.result[0], 0.5 * deg, 0.15 * deg);
        EXPECT_NEAR(last.result[1], -0.3 * deg, 0.3 * deg);
        EXPECT_LE(std::fabs(last.result[2]), 0.01884955592153876);
    }
}

// DrlibDestroy in mode 3 hands back the main filter's bias, close to the
// simulated one. (How a stored code seeds the next main filter: the driver test.)
TEST(Scenario, LearnedBiasIsStored) {
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

// Measured: error-free IMU 4.8 s; 30 (92), 15 (46) mm; heading 2.6 deg; 74 %, 99.9 %.
// Noisy IMU: a solution from the first tilt on; 25 (64), 15 (46) mm; 79 %, 100 %.
TEST(ExternalSession, AgreesWithOurOwnSimulations) {
    const char *shared = std::getenv("DRLIB_SHARED_DIR");
    const std::string dir = std::string(shared != nullptr ? shared : DRLIB_SHARED_DIR) +
                            "/datasets/pole-tilt-ext";
    if (!std::filesystem::is_directory(dir))
        GTEST_SKIP() << dir << " is absent (it lies beside the checkout, in ../shared)";
    const struct { const char *imu_file; Limits lim; } cases[] = {
        {"imu_true_100hz.csv", {7.5, 1.0, 0.045, 0.140, 0.022, 0.070, 0.5, 0.95, kAny, kAny}},
        {"imu_100hz.csv", {7.5, 1.0, 0.037, 0.096, 0.022, 0.070, 0.5, 0.95, kAny, kAny}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.imu_file);
        drtools::ExtSession s;
        std::string error;
        ASSERT_TRUE(drtools::convert_ext_session(dir, c.imu_file, s, error)) << error;
        drtools::ReplayOptions ro;
        for (int i = 0; i < 3; ++i) ro.pole_m[i] = s.pole_m[i];
        expect_within(drtools::make_report(drtools::replay_log(s.log, ro), s.truth), c.lim);
    }
}

}  // namespace
