// drlib-replay: feeds an input log through the library as a receiver would and
// writes what the host receives: the tilt-status stream as CSV, the
// calibration notifications, the tip as NMEA sentences on request, and, given
// the simulator's truth, an accuracy report (table on stdout, JSON on request).
// Settings the library would ignore, or that cannot work for this log, are
// warned about on standard error before the replay.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "common_options.h"
#include "common_checks.h"
#include "common_nmea.h"
#include "common_pole.h"
#include "common_replay.h"
#include "common_report.h"
#include "drlib_toolkit.h"
#include "log_io.h"
#include "truth_csv.h"
#include "units.h"

namespace {

using drsim::kPi;
using drsim::kDeg;

const char kUsage[] =
    "usage: drlib-replay LOG [options]\n"
    "Replays an input log (concatenated DrInput records) through libdrlib.\n"
    "  --csv FILE          tilt-status stream as CSV (default: LOG.tilt.csv; '-' for stdout)\n"
    "  --events FILE       calibration notifications as CSV (default: LOG.calib.csv when calibrating)\n"
    "  --truth FILE        truth CSV of the simulator: print the accuracy report\n"
    "  --json FILE         also write the accuracy report as JSON\n"
    "  --nmea FILE         the tip as NMEA: GGA and GST per epoch with a tilt solution\n"
    "                      (ellipsoidal height; fix quality 4, 5, 2 for class 1, 2, 3)\n"
    "  --pole X,Y,Z | L    the pole vector: the antenna's position relative to the tip,\n"
    "                      IMU body axes, m (the tilt is this vector's angle from the\n"
    "                      vertical); L alone means (0,0,L), an IMU whose z axis points\n"
    "                      up the pole; default 1.892\n"
    "  --gyro-bias X,Y,Z   stored gyro bias, rad/s, body axes (passed offset-encoded)\n"
    "  --mount R,P,H       mounting roll, pitch, heading, degrees (used if each < 1.2)\n"
    "  --scales G,A        gyro scale (deg/count) and accelerometer scale (m/s/count)\n"
    "  --bias-store        ask the library for the learned gyro bias at the end; print it\n"
    "                      in deg/s and rad/s, and as the offset-encoded configuration field\n"
    "  --calib-point X,Y,Z start a mounting calibration on this known tip point, ECEF, m;\n"
    "                      the result is printed in degrees\n"
    "  --calib-target N    accepted updates that complete the calibration (min 1200); its\n"
    "                      time limit (N / 5 s) is wall-clock time, which a replay never\n"
    "                      reaches\n"
    "  --options NAMES     library options, comma-separated: aligned (GNSS velocity at the\n"
    "                      solution instant), screen (refuse implausible solutions), all, none\n"
    "  --compare           replay also without options and print both reports side by side\n"
    "                      (needs --truth; --options defaults to all; CSV and JSON: with options)\n"
    "  -q, --quiet         nothing on stderr unless something is wrong\n"
    "  -h, --help          this text\n";

[[noreturn]] void fail(const std::string &msg) {
    std::fprintf(stderr, "drlib-replay: %s\n", msg.c_str());
    std::exit(2);
}

std::vector<double> parse_list(const std::string &opt, const char *text, size_t want_min, size_t want_max) {
    std::vector<double> v;
    const char *p = text;
    while (*p) {
        char *end = nullptr;
        errno = 0;
        const double x = std::strtod(p, &end);
        if (end == p || errno != 0 || !std::isfinite(x)) fail(opt + ": not a number list: '" + text + "'");
        v.push_back(x);
        p = end;
        if (*p == ',') ++p;
        else if (*p) fail(opt + ": not a number list: '" + text + "'");
    }
    if (v.size() < want_min || v.size() > want_max) fail(opt + ": wrong number of values in '" + text + "'");
    return v;
}

std::FILE *open_out(const std::string &path) {
    if (path == "-") return stdout;
    std::FILE *f = std::fopen(path.c_str(), "w");
    if (!f) fail("cannot write " + path + ": " + std::strerror(errno));
    return f;
}

void write_status_csv(std::FILE *f, const drtools::ReplayOutput &out) {
    std::fprintf(f, "tow_ms,result,status,roll_deg,pitch_deg,heading_deg,tilt_deg,tilt_dir_deg,"
                    "tip_x_m,tip_y_m,tip_z_m,tip_lat_deg,tip_lon_deg,tip_h_m,"
                    "tip_std_n_m,tip_std_e_m,tip_std_d_m,total_std_n_m,total_std_e_m,total_std_d_m\n");
    for (const auto &ep : out.epochs) {
        if (!ep.has_status) {
            std::fprintf(f, "%u,%u,,,,,,,,,,,,,,,,,,\n", ep.tow_ms, ep.result);
            continue;
        }
        const TiltStat &s = ep.status;
        const double att[3] = {s.att[0], s.att[1], s.att[2]};
        const double tip[3] = {s.tip_pos[0], s.tip_pos[1], s.tip_pos[2]};
        double llh[3];
        ecef2llh(llh, tip);
        const drtools::PoleTilt pt = drtools::pole_tilt(att, out.pole_m);
        // %.17g: the stream is compared byte for byte between targets.
        std::fprintf(f, "%u,%u,%u,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,"
                        "%.9g,%.9g,%.9g,%.9g,%.9g,%.9g\n",
                     s.tow_ms, ep.result, s.status, att[0] / kDeg, att[1] / kDeg, att[2] / kDeg,
                     s.status ? pt.tilt_rad / kDeg : 0.0, s.status ? pt.direction_rad / kDeg : 0.0, tip[0],
                     tip[1], tip[2],
                     llh[0] / kDeg, llh[1] / kDeg, llh[2], static_cast<double>(s.tip_std[0]),
                     static_cast<double>(s.tip_std[1]), static_cast<double>(s.tip_std[2]),
                     static_cast<double>(s.tip_std_total[0]), static_cast<double>(s.tip_std_total[1]),
                     static_cast<double>(s.tip_std_total[2]));
    }
}

void write_events_csv(std::FILE *f, const drtools::ReplayOutput &out) {
    std::fprintf(f, "tow_ms,code,percent,roll_rad,pitch_rad,heading_share_rad\n");
    for (const auto &ev : out.calib) {
        if (ev.code == 0)
            std::fprintf(f, "%u,0,,%.17g,%.17g,%.17g\n", ev.after_tow_ms, ev.result[0], ev.result[1], ev.result[2]);
        else if (ev.code == 1)
            std::fprintf(f, "%u,1,%u,,,\n", ev.after_tow_ms, ev.percent);
        else
            std::fprintf(f, "%u,%u,,,,\n", ev.after_tow_ms, ev.code);
    }
}

void write_nmea(std::FILE *f, const drtools::ReplayOutput &out) {
    for (const auto &ep : out.epochs)
        if (ep.has_status) std::fputs(drtools::nmea_sentences(ep.status).c_str(), f);
}

void warn(const std::string &msg) { std::fprintf(stderr, "drlib-replay: warning: %s\n", msg.c_str()); }

}  // namespace

int main(int argc, char **argv) {
    std::string log_path, csv_path, events_path, truth_path, json_path, nmea_path;
    bool quiet = false, bias_store = false, compare = false, options_given = false;
    drtools::SettingsGiven given;
    drtools::ReplayOptions opt;
    opt.cfg = DrCfg{0u, 4u, 1.52587890625e-06, 1.9073486328125e-05, 1.0058283805847168e-06,
                    1.862645149230957e-07, {0.0, 0.0, 0.0}, {0.0, 0.0, 0.0}};
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&]() -> const char * {
            if (i + 1 >= argc) fail(a + " needs a value");
            return argv[++i];
        };
        if (a == "-h" || a == "--help") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (a == "--csv") csv_path = value();
        else if (a == "--events") events_path = value();
        else if (a == "--truth") truth_path = value();
        else if (a == "--json") json_path = value();
        else if (a == "--nmea") nmea_path = value();
        else if (a == "--pole") {
            const auto v = parse_list(a, value(), 1, 3);
            if (v.size() == 2) fail("--pole takes one length or three components");
            if (v.size() == 1) { opt.pole_m[0] = 0.0; opt.pole_m[1] = 0.0; opt.pole_m[2] = v[0]; }
            else for (int k = 0; k < 3; ++k) opt.pole_m[k] = v[static_cast<size_t>(k)];
        } else if (a == "--gyro-bias") {
            const auto v = parse_list(a, value(), 3, 3);
            for (int k = 0; k < 3; ++k) opt.cfg.gyro_bias_code[k] = (k + 1.0) + v[static_cast<size_t>(k)];
            opt.use_cfg = given.gyro_bias = true;
        } else if (a == "--mount") {
            const auto v = parse_list(a, value(), 3, 3);
            for (int k = 0; k < 3; ++k) opt.cfg.mount_rph[k] = v[static_cast<size_t>(k)] * kDeg;
            opt.use_cfg = given.mount = true;
        } else if (a == "--scales") {
            const auto v = parse_list(a, value(), 2, 2);
            if (!(v[0] > 0.0 && v[1] > 0.0)) fail("--scales must be positive");
            opt.cfg.gyro_scale = v[0];
            opt.cfg.acc_scale = v[1];
            opt.use_cfg = given.scales = true;
        } else if (a == "--bias-store") {
            bias_store = true;
            opt.cfg.bias_store_mode = 3u;
            opt.use_cfg = true;
        } else if (a == "--calib-point") {
            const auto v = parse_list(a, value(), 3, 3);
            for (int k = 0; k < 3; ++k) opt.calib_point_e[k] = v[static_cast<size_t>(k)];
            opt.calibrate = true;
        } else if (a == "--calib-target") {
            const auto v = parse_list(a, value(), 1, 1);
            if (!(v[0] >= 1.0 && v[0] <= 4e9)) fail("--calib-target out of range");
            opt.calib_target = static_cast<uint32_t>(v[0]);
            given.calib_target = true;
        } else if (a == "--options") {
            std::string error;
            if (!drtools::parse_options_word(value(), opt.cfg.options, error)) fail("--options: " + error);
            opt.use_cfg = options_given = true;
        } else if (a == "--compare") compare = true;
        else if (a == "-q" || a == "--quiet") quiet = true;
        else if (!a.empty() && a[0] == '-') fail("unknown option " + a + " (see --help)");
        else if (log_path.empty()) log_path = a;
        else fail("more than one log given");
    }
    if (log_path.empty()) fail("no log given (see --help)");
    if (compare && truth_path.empty()) fail("--compare needs --truth");
    if (compare && !options_given) {
        opt.cfg.options = DRLIB_OPTIONS_MARKER | DRLIB_OPT_ALIGNED_VELOCITY | DRLIB_OPT_SCREEN_SOLUTIONS;
        opt.use_cfg = true;
    }

    std::vector<uint8_t> log;
    if (!drsim::read_file(log_path, log)) fail("cannot read " + log_path + ": " + std::strerror(errno));
    if (log.empty()) fail(log_path + ": empty log");

    std::vector<drsim::TruthRow> truth;
    if (!truth_path.empty()) {
        std::vector<uint8_t> bytes;
        if (!drsim::read_file(truth_path, bytes)) fail("cannot read " + truth_path + ": " + std::strerror(errno));
        std::string error;
        if (!drsim::parse_truth_csv(std::string(bytes.begin(), bytes.end()), truth, error))
            fail(truth_path + ": " + error);
        const std::string mismatch = drtools::truth_mismatch(log, truth);
        if (!mismatch.empty()) fail(truth_path + " does not belong to " + log_path + ": " + mismatch);
    }
    const drtools::ImuGlance imu = drtools::glance_imu(log, opt.cfg.gyro_scale, opt.cfg.acc_scale);
    for (const std::string &w : drtools::check_settings(opt, imu, given)) warn(w);

    const drtools::ReplayOutput out = drtools::replay_log(log, opt);

    if (csv_path.empty()) csv_path = log_path + ".tilt.csv";
    std::FILE *csv = open_out(csv_path);
    write_status_csv(csv, out);
    if (csv != stdout) std::fclose(csv);
    if (opt.calibrate || !events_path.empty()) {
        if (events_path.empty()) events_path = log_path + ".calib.csv";
        std::FILE *ev = open_out(events_path);
        write_events_csv(ev, out);
        if (ev != stdout) std::fclose(ev);
    }
    if (!nmea_path.empty()) {
        std::FILE *nm = open_out(nmea_path);
        write_nmea(nm, out);
        if (nm != stdout) std::fclose(nm);
    }
    const std::string calib_problem = drtools::calibration_problem(opt, out);
    if (!calib_problem.empty()) warn(calib_problem);
    drtools::print_calibration(stdout, opt, out);

    if (!truth.empty()) {
        const drtools::Report rep = compare ? drtools::compare_with_default_mode(stdout, log, opt, out, truth)
                                            : drtools::make_report(out, truth);
        if (!compare) drtools::print_report(stdout, rep);
        if (!json_path.empty()) {
            std::FILE *j = open_out(json_path);
            std::fputs(drtools::report_json(rep).c_str(), j);
            if (j != stdout) std::fclose(j);
        }
    }
    if (bias_store) drtools::print_bias_store(stdout, out.cfg_after);
    if (!quiet) {
        size_t with_fix = 0;
        for (const auto &ep : out.epochs) with_fix += ep.has_status && ep.status.status != 0;
        std::fprintf(stderr, "drlib-replay: %zu records, %zu rejected, %zu with a tilt solution, %zu calibration events\n",
                     out.epochs.size(), out.rejected, with_fix, out.calib.size());
    }
    if (!out.log_error.empty()) {
        std::fprintf(stderr, "drlib-replay: %s: %s; replayed the %zu records before it\n", log_path.c_str(),
                     out.log_error.c_str(), out.epochs.size());
        return 1;
    }
    return 0;
}
