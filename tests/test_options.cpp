// The options word of DrCfg: ignored without its marker, the aligned GNSS
// velocity judged against truth, the screen of implausible solutions, and
// the antimeridian (always on) judged against the same session elsewhere.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>

#include "common_replay.h"
#include "common_report.h"
#include "dr_entry.h"
#include "dr_global_var.h"
#include "earth.h"
#include "sim_replay.h"

namespace {

constexpr uint32_t kAligned = DRLIB_OPTIONS_MARKER | DRLIB_OPT_ALIGNED_VELOCITY;
constexpr uint32_t kScreen = DRLIB_OPTIONS_MARKER | DRLIB_OPT_SCREEN_SOLUTIONS;

DrCfg DefaultCfgWith(uint32_t options) {
    DrCfg cfg = drlib::drcfg16470;
    cfg.options = options;
    return cfg;
}

drsim::SimResult Survey(bool error_free, double lon_rad = 1.98) {
    drsim::SimOptions opt = simtest::scenario("survey", 1, 1.0, error_free);
    opt.scenario.point.lon = lon_rad;
    return drsim::simulate(opt);
}

// options null: DrlibInit(null), the library's own defaults.
drtools::ReplayOutput Replay(const drsim::SimResult &sim, const uint32_t *options) {
    drtools::ReplayOptions ro;
    ro.use_cfg = options != nullptr;
    if (options != nullptr) ro.cfg = DefaultCfgWith(*options);
    return drtools::replay_log(sim.log, ro);
}

drtools::Report ReportOf(const drsim::SimResult &sim, const uint32_t *options) {
    return drtools::make_report(Replay(sim, options), sim.truth);
}

// Horizontal tip errors of all epochs with a tilt solution.
drtools::ErrorStats TipH(const drtools::Report &r) {
    const drtools::TipGroup *g = drtools::find_group(r, "all");
    EXPECT_NE(g, nullptr) << "no tilt solution";
    return g != nullptr ? g->horizontal : drtools::ErrorStats{};
}

// What the host sees, as bytes: every result and every status record.
std::string Stream(const drtools::ReplayOutput &out) {
    std::string s;
    for (const auto &ep : out.epochs) {
        s += static_cast<char>(ep.result);
        if (ep.has_status) s.append(reinterpret_cast<const char *>(&ep.status), sizeof ep.status);
    }
    return s;
}

TEST(OptionsWord, IgnoredWithoutTheMarkerAndScreenPassesAValidLog) {
    const drsim::SimResult sim = Survey(false);
    const std::string reference = Stream(Replay(sim, nullptr));
    // No marker, stray values, one marker bit wrong, the marker with reserved
    // bits only, and the screen on a log without outliers.
    const uint32_t words[] = {0u, 0x3u, 0xFFFFFFFFu, 0xD7C10003u, 0x57C00003u, 0xD7C0FFFCu, kScreen};
    for (uint32_t w : words) {
        SCOPED_TRACE(w);
        EXPECT_EQ(Stream(Replay(sim, &w)), reference);
    }
    EXPECT_NE(Stream(Replay(sim, &kAligned)), reference);
}

// Measured, survey seed 1 (default -> aligned): industrial IMU heading RMS
// 2.24 -> 0.32 deg, tip H RMS 28.4 -> 11.1 mm, within 1 sigma 60 -> 76 %;
// ideal IMU, noise-free GNSS: 2.08 -> 0.038 deg, 23.1 -> 1.4 mm (95 %: 3.9).
TEST(AlignedVelocity, HoldsTheStateAtTheSolutionInstant) {
    const struct { bool error_free; double heading_deg, h_rms_m, h_p95_m, ratio, in_1sigma; } cases[] = {
        {true, 0.06, 0.002, 0.006, 0.05, 0.9},
        {false, 0.5, 0.015, 0.032, 0.6, 0.7},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.error_free ? "error-free" : "industrial");
        const drsim::SimResult sim = Survey(c.error_free);
        const drtools::Report plain = ReportOf(sim, nullptr), aligned = ReportOf(sim, &kAligned);
        EXPECT_LT(aligned.heading_deg.rms, std::min(c.heading_deg, c.ratio * plain.heading_deg.rms));
        EXPECT_LT(TipH(aligned).rms, std::min(c.h_rms_m, 0.6 * TipH(plain).rms));
        EXPECT_LT(TipH(aligned).p95, c.h_p95_m);
        EXPECT_LE(aligned.time_to_first_fix_s, plain.time_to_first_fix_s);
        // The unchanged tip variance is conservative now, never optimistic.
        EXPECT_GT(aligned.within_1sigma, c.in_1sigma);
        EXPECT_GT(aligned.within_3sigma, 0.99);
    }
}

TEST(Screening, RefusesEachKindOfOutlierLikeAnInvalidRecord) {
    const std::vector<simtest::Record> base = simtest::quiet_static_records(20.0);
    constexpr size_t kMid = 100;
    const double nan = std::nan(""), inf = INFINITY;
    auto set_height = [](simtest::Record &r, double h_m) {
        double *pos = simtest::header(r).pos;
        drsim::Geodetic g = drsim::geodetic_from_ecef({pos[0], pos[1], pos[2]});
        g.h = h_m;
        const drsim::Vec3 p = drsim::ecef_from_geodetic(g);
        pos[0] = p.x, pos[1] = p.y, pos[2] = p.z;
    };
    // From record kMid on, the receiver moves 30 m/s along x (positions from the mean velocities).
    auto start_moving = [](std::vector<simtest::Record> &recs, bool with_velocity) {
        for (size_t i = kMid; i < recs.size(); ++i) {
            simtest::header(recs[i]).pos[0] += 30.0 * 0.1 * (static_cast<double>(i - kMid) + 0.5);
            if (with_velocity) simtest::header(recs[i]).vel[0] += 30.0;
        }
    };
    const struct {
        const char *what;
        size_t at;  // record 0 has no predecessor: only the checks of the record itself apply
        std::function<void(std::vector<simtest::Record> &)> alter;
        bool refused;
    } cases[] = {
        {"NaN position", kMid, [&](auto &v) { simtest::header(v[kMid]).pos[1] = nan; }, true},
        {"infinite velocity", kMid, [&](auto &v) { simtest::header(v[kMid]).vel[2] = -inf; }, true},
        {"1001 m below the ellipsoid", 0, [&](auto &v) { set_height(v[0], -1001.0); }, true},
        {"999 m below", 0, [&](auto &v) { set_height(v[0], -999.0); }, false},
        {"10001 m above", 0, [&](auto &v) { set_height(v[0], 10001.0); }, true},
        {"9999 m above", 0, [&](auto &v) { set_height(v[0], 9999.0); }, false},
        {"101 m/s", 0, [](auto &v) { simtest::header(v[0]).vel[1] = 101.0; }, true},
        {"99 m/s", 0, [](auto &v) { simtest::header(v[0]).vel[1] = 99.0; }, false},
        {"1.2 m jump", kMid, [](auto &v) { simtest::header(v[kMid]).pos[2] += 1.2; }, true},
        {"0.8 m jump", kMid, [](auto &v) { simtest::header(v[kMid]).pos[2] += 0.8; }, false},
        {"1.5 m steps, velocity unchanged", kMid, [&](auto &v) { start_moving(v, false); }, true},
        {"1.5 m steps the velocities explain", kMid, [&](auto &v) { start_moving(v, true); }, false},
    };
    const DrCfg cfg = DefaultCfgWith(kScreen);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<simtest::Record> recs = base;
        c.alter(recs);
        simtest::start_engine();
        DrlibUpdateCfg(&cfg);
        for (size_t i = 0; i < c.at; ++i) ASSERT_EQ(simtest::feed(recs[i]), 0u) << i;
        const int calls = simtest::g_tilt_calls;
        EXPECT_EQ(simtest::feed(recs[c.at]), c.refused ? 1u : 0u);
        EXPECT_EQ(simtest::g_tilt_calls, calls + (c.refused ? 0 : 1));
        if (c.refused) { EXPECT_EQ(g_FusionInNum, 0u); }  // the run starts afresh
        // A moving receiver whose positions fit its velocities stays accepted.
        for (size_t i = c.at + 1; !c.refused && c.at == kMid && i < recs.size(); ++i)
            ASSERT_EQ(simtest::feed(recs[i]), 0u) << i;
    }
}

// A session starting a few centimetres west of the 180 degree meridian and
// one 30 cm east of it (the tilting antenna crosses it in both) match the
// same session at 3 rad east: a turn about the Earth's axis changes nothing
// but rounding, in the simulator, its truth, the library and the report.
TEST(Antimeridian, BothSidesAsAccurateAsElsewhere) {
    const double r_lat_m = 6378137.0 * std::cos(0.52);
    const drtools::Report ref = ReportOf(Survey(false, 3.0), nullptr);
    for (double lon : {M_PI - 0.05 / r_lat_m, -M_PI + 0.3 / r_lat_m}) {
        SCOPED_TRACE(lon);
        const drsim::SimResult sim = Survey(false, lon);
        size_t west = 0;  // truth rows west of the meridian
        for (const auto &row : sim.truth) {
            west += row.imu_llh.lon > 0.0;
            ASSERT_LT(std::fabs(std::remainder(row.imu_llh.lon - lon, 2.0 * M_PI)), 3e-6);  // 16 m
        }
        EXPECT_TRUE(west > 0 && west < sim.truth.size()) << "the pole should cross the meridian";
        const drtools::Report r = ReportOf(sim, nullptr);
        EXPECT_EQ(r.rejected, 0u);
        EXPECT_NEAR(r.class_share[0], ref.class_share[0], 0.01);
        EXPECT_NEAR(r.heading_deg.rms, ref.heading_deg.rms, 0.05 * ref.heading_deg.rms);
        EXPECT_NEAR(r.roll_deg.rms, ref.roll_deg.rms, 0.05 * ref.roll_deg.rms);
        EXPECT_NEAR(TipH(r).rms, TipH(ref).rms, 0.05 * TipH(ref).rms);
    }
}

}  // namespace
