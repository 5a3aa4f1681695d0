#include "common_checks.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

#include "log_io.h"
#include "units.h"

namespace drtools {
namespace {

using drsim::kPi;
using drsim::kDeg;
constexpr double kMaxMount_deg = 1.2;          // the library ignores a mounting beyond this
constexpr double kGravity_mps2 = 9.8;
constexpr double kMaxPlausibleRate_deg_s = 2000.0;
constexpr double kCalibTipStd_m = 0.025;       // the calibration's acceptance of an epoch
constexpr double kCalibTipOffset_m = 0.06;
constexpr double kTruthAntennaMatch_m = 0.5;
constexpr double kMaxStoredBias_deg_s = 0.2;    // the library ignores a stored bias beyond this
constexpr uint32_t kMinCalibTarget = 1200;

std::string fmt(const char *format, double a, double b = 0.0, double c = 0.0, double d = 0.0) {
    char buf[400];
    std::snprintf(buf, sizeof buf, format, a, b, c, d);
    return buf;
}

}  // namespace

std::vector<std::string> check_settings(const ReplayOptions &opt, const ImuGlance &imu, const SettingsGiven &given) {
    std::vector<std::string> w;
    const bool mount_given = given.mount, scales_given = given.scales;
    if (given.gyro_bias) {
        const double b[3] = {opt.cfg.gyro_bias_code[0] - 1.0, opt.cfg.gyro_bias_code[1] - 2.0,
                             opt.cfg.gyro_bias_code[2] - 3.0};
        if (std::max({std::fabs(b[0]), std::fabs(b[1]), std::fabs(b[2])}) >= kMaxStoredBias_deg_s * kDeg)
            w.push_back(fmt("--gyro-bias %g,%g,%g: the library ignores a stored bias with any component of "
                            "0.2 deg/s (0.00349 rad/s) or more; the values are rad/s",
                            b[0], b[1], b[2]));
    }
    if (given.calib_target && opt.calib_target < kMinCalibTarget)
        w.push_back(fmt("--calib-target %.0f: the library raises it to %.0f", opt.calib_target,
                        static_cast<double>(kMinCalibTarget)));
    if (mount_given) {
        const double *m = opt.cfg.mount_rph;
        if (std::max({std::fabs(m[0]), std::fabs(m[1]), std::fabs(m[2])}) >= kMaxMount_deg * kDeg)
            w.push_back(fmt("--mount %g,%g,%g: the library ignores a mounting with any angle of 1.2 deg or more "
                            "and uses none",
                            m[0] / kDeg, m[1] / kDeg, m[2] / kDeg));
    }
    if (imu.valid) {
        const double f = std::sqrt(imu.f_b[0] * imu.f_b[0] + imu.f_b[1] * imu.f_b[1] + imu.f_b[2] * imu.f_b[2]);
        const char *which = scales_given ? "--scales" : "the default scales";
        if (f < 0.5 * kGravity_mps2 || f > 1.5 * kGravity_mps2)
            w.push_back(std::string(which) + fmt(": the accelerometer counts of the first second mean a specific "
                                                 "force of %.4g m/s^2, not gravity (9.8): no tilt solution can "
                                                 "follow (acc scale %g m/s per count)",
                                                 f, opt.cfg.acc_scale));
        if (imu.max_rate_deg_s > kMaxPlausibleRate_deg_s)
            w.push_back(std::string(which) + fmt(": the gyro counts mean rates up to %.4g deg/s, beyond any "
                                                 "pole's motion (gyro scale %g deg per count)",
                                                 imu.max_rate_deg_s, opt.cfg.gyro_scale));
    }
    const std::string pole = pole_problem(opt.pole_m, imu);
    if (!pole.empty())
        w.push_back(fmt("--pole %g,%g,%g: ", opt.pole_m[0], opt.pole_m[1], opt.pole_m[2]) + pole);
    return w;
}

std::string calibration_problem(const ReplayOptions &opt, const ReplayOutput &out) {
    if (!opt.calibrate) return "";
    for (const CalibEvent &ev : out.calib)
        if (ev.code == 0) return "";
    // Count the epochs the calibration could take, as the library judges them.
    // (The misclosure is judged per ECEF axis, the deviations are the totals.)
    const drsim::Vec3 point{opt.calib_point_e[0], opt.calib_point_e[1], opt.calib_point_e[2]};
    size_t solutions = 0, near = 0, usable = 0;
    double nearest = std::numeric_limits<double>::infinity();
    for (const EpochResult &ep : out.epochs) {
        if (!ep.has_status || ep.status.status == 0) continue;
        ++solutions;
        const drsim::Vec3 d{ep.status.tip_pos[0] - point.x, ep.status.tip_pos[1] - point.y,
                            ep.status.tip_pos[2] - point.z};
        const double worst = std::max({std::fabs(d.x), std::fabs(d.y), std::fabs(d.z)});
        nearest = std::min(nearest, worst);
        if (worst > kCalibTipOffset_m) continue;
        ++near;
        const float s[3] = {ep.status.tip_std_total[0], ep.status.tip_std_total[1], ep.status.tip_std_total[2]};
        if (static_cast<double>(std::max({s[0], s[1], s[2]})) <= kCalibTipStd_m) ++usable;
    }
    uint32_t best_percent = 0;
    for (const CalibEvent &ev : out.calib)
        if (ev.code == 1) best_percent = std::max(best_percent, ev.percent);
    const std::string head = fmt("--calib-point %.3f,%.3f,%.3f: no calibration result", point.x, point.y, point.z);
    if (solutions == 0) return head + ": the replay has no tilt solution, and the calibration needs one per update";
    if (near == 0)
        return head + fmt(": the tip never came within %.2f m of the point on every ECEF axis (nearest: %.3f m); "
                          "is it the point the tip stood on (ECEF, m)?",
                          kCalibTipOffset_m, nearest);
    const double target = std::max<double>(opt.calib_target, kMinCalibTarget);
    return head + fmt(": %.0f tilt solutions had the tip within %.2f m of the point, %.0f of them with tip "
                      "deviations within 0.025 m; %.0f are needed",
                      static_cast<double>(near), kCalibTipOffset_m, static_cast<double>(usable), target) +
           fmt(" in one run (progress reached %.0f%%)", best_percent);
}

std::string truth_mismatch(const std::vector<uint8_t> &log, const std::vector<drsim::TruthRow> &truth) {
    std::map<uint32_t, const drsim::TruthRow *> by_tow;
    for (const auto &row : truth) by_tow[row.tow_ms] = &row;
    const auto records = drsim::read_log(log.data(), log.size());
    if (records.empty()) return "";
    std::vector<double> dist;
    for (const auto &rec : records) {
        const auto it = by_tow.find(rec.header.tow_ms);
        if (it == by_tow.end()) continue;
        const drsim::Vec3 &a = it->second->ant_e;
        const double d = std::sqrt(std::pow(rec.header.pos[0] - a.x, 2) + std::pow(rec.header.pos[1] - a.y, 2) +
                                   std::pow(rec.header.pos[2] - a.z, 2));
        dist.push_back(std::isnan(d) ? std::numeric_limits<double>::infinity() : d);
    }
    const double n = static_cast<double>(records.size());
    if (dist.size() < records.size() / 2)
        return fmt("only %.0f of the log's %.0f time tags are in it: the truth of another session?",
                   static_cast<double>(dist.size()), n);
    std::nth_element(dist.begin(), dist.begin() + static_cast<long>(dist.size() / 2), dist.end());
    const double median = dist[dist.size() / 2];
    if (median > kTruthAntennaMatch_m)
        return fmt("its antenna lies a median %.3g m from the log's positions at the same time tags: the truth "
                   "of another session?",
                   median);
    return "";
}

void print_calibration(std::FILE *f, const ReplayOptions &opt, const ReplayOutput &out) {
    if (!opt.calibrate) return;
    const double target = std::max<double>(opt.calib_target, kMinCalibTarget);
    for (const CalibEvent &ev : out.calib) {
        if (ev.code == 2) std::fprintf(f, "calibration: time limit reached (after tow_ms %u)\n", ev.after_tow_ms);
        if (ev.code != 0) continue;
        std::fprintf(f,
                     "calibration result (after tow_ms %u): mounting roll %.4f deg, pitch %.4f deg; heading "
                     "share %.4f deg (0.3 x the estimated mounting heading %.4f deg); each limited to +-1.08 deg. "
                     "Hand them on as DrCfg.mount_rph (in rad), or as drlib-replay --mount %.4f,%.4f,%.4f\n",
                     ev.after_tow_ms, ev.result[0] / kDeg, ev.result[1] / kDeg, ev.result[2] / kDeg,
                     ev.result[2] / kDeg / 0.3, ev.result[0] / kDeg, ev.result[1] / kDeg, ev.result[2] / kDeg);
    }
    std::fprintf(f,
                 "calibration: time limit %.0f s of wall-clock time from the start (target %.0f / 5); a replay "
                 "runs faster than real time, so it never expires here\n",
                 target / 5.0, target);
}

void print_bias_store(std::FILE *f, const DrCfg &after) {
    const double *c = after.gyro_bias_code;
    if (c[0] == 0.0 && c[1] == 0.0 && c[2] == 0.0) {
        std::fprintf(f, "stored gyro bias: none (the library handed back zeros: nothing learned or configured)\n");
        return;
    }
    const double b[3] = {c[0] - 1.0, c[1] - 2.0, c[2] - 3.0};
    std::fprintf(f, "stored gyro bias, body x, y, z: %.6g %.6g %.6g deg/s = %.9g %.9g %.9g rad/s "
                    "(encoded as 1+bx, 2+by, 3+bz: %.17g %.17g %.17g)\n",
                 b[0] / kDeg, b[1] / kDeg, b[2] / kDeg, b[0], b[1], b[2], c[0], c[1], c[2]);
}

}  // namespace drtools
