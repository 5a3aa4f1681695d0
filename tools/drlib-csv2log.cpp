// drlib-csv2log: turns a GNSS solution CSV and an IMU CSV into an input log
// (the records a host passes to DrlibUpdateFusion) and prints the pole vector
// to replay it with. --ext DIR converts the external pole session, with its
// truth. Columns and options: docs/csv-input.md.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "common_csv2log.h"
#include "common_ext.h"
#include "log_io.h"

namespace {

const char kUsage[] =
    "usage: drlib-csv2log --gnss GNSS.csv --imu IMU.csv [options]\n"
    "       drlib-csv2log --ext DIR [--imu-file FILE] [--out LOG] [--truth CSV]\n"
    "Writes an input log and prints the pole vector to pass to drlib-replay --pole.\n"
    "GNSS CSV: time, position (3), position deviations (3), velocity (3), velocity deviations (3).\n"
    "IMU CSV:  time, gyro x, y, z, accelerometer x, y, z (each row: the 10 ms ending at its time).\n"
    "  --out LOG              input log (default out.log)\n"
    "  --gnss-frame F         ecef (x, y, z m; velocity ECEF) | geodetic (lat, lon deg, h m\n"
    "                         above the ellipsoid; velocity north, east, down); default ecef\n"
    "  --gnss-std F           deviations resolved in ecef | ned (default: ecef for ecef, else ned)\n"
    "  --gnss-time U          ms | s: the GNSS time is time of week in U (default ms)\n"
    "  --imu-time U           us | ms | s (default us)\n"
    "  --imu-time-base MS     time of week, ms, at IMU time 0 (default 0: IMU time is time of week)\n"
    "  --imu-kind K           increments (rad, m/s per row) | rates (rad/s, m/s^2); default increments\n"
    "  --imu-units U          si | deg (gyro in deg or deg/s) | counts (raw counts per 0.01 s of\n"
    "                         the default configuration); default si\n"
    "  --axes MAP             the body axes in the CSV's axes, a signed permutation: x,y,z (default,\n"
    "                         the CSV is already in the body axes, e.g. forward-right-down) or,\n"
    "                         e.g., y,x,-z for a CSV in right-forward-up axes\n"
    "  --gnss-at P            antenna | imu: the point the GNSS solution refers to (default antenna)\n"
    "  --pole X,Y,Z           the pole vector: the antenna relative to the pole tip, CSV axes, m\n"
    "                         (default 0,0,1.892)\n"
    "  --lever X,Y,Z          with --gnss-at imu: the antenna relative to the IMU point, CSV axes,\n"
    "                         m (default 0,0,0); the IMU point then stands in for the antenna\n"
    "  --pos-type T --vel-type T   solution types written (default 0x32, 0x32)\n"
    "  --ext DIR              the external session (gnss_10hz.csv, imu_100hz.csv, truth_100hz.csv);\n"
    "                         --imu-file picks imu_true_100hz.csv, --truth its truth CSV (ext-truth.csv)\n"
    "  -q, --quiet            no summary on stderr\n";

struct Usage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

template <typename T>
T choose(const std::string &opt, const std::string &v, std::initializer_list<std::pair<const char *, T>> table) {
    for (const auto &e : table)
        if (v == e.first) return e.second;
    throw Usage(opt + ": unknown value '" + v + "'");
}

double number(const std::string &opt, const std::string &v) {
    char *end = nullptr;
    const double x = std::strtod(v.c_str(), &end);
    if (end == v.c_str() || *end != '\0' || !std::isfinite(x)) throw Usage(opt + ": not a number: '" + v + "'");
    return x;
}

int run(int argc, char **argv) {
    drtools::CsvLogOptions opt;
    opt.pole_in = {0.0, 0.0, 1.892};
    std::string gnss_path, imu_path, ext_dir, imu_file = "imu_100hz.csv", out_path = "out.log", truth_path;
    bool std_given = false, quiet = false, lever_given = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) throw Usage(a + " needs a value");
            return argv[++i];
        };
        if (a == "-h" || a == "--help") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (a == "--gnss") gnss_path = value();
        else if (a == "--imu") imu_path = value();
        else if (a == "--ext") ext_dir = value();
        else if (a == "--imu-file") imu_file = value();
        else if (a == "--out") out_path = value();
        else if (a == "--truth") truth_path = value();
        else if (a == "--gnss-frame")
            opt.gnss_frame = choose<drtools::GnssFrame>(a, value(), {{"ecef", drtools::GnssFrame::ecef},
                                                                    {"geodetic", drtools::GnssFrame::geodetic}});
        else if (a == "--gnss-std") {
            opt.gnss_std = choose<drtools::StdFrame>(a, value(), {{"ecef", drtools::StdFrame::ecef},
                                                                 {"ned", drtools::StdFrame::ned}});
            std_given = true;
        } else if (a == "--gnss-time") opt.gnss_time_to_ms = choose<double>(a, value(), {{"ms", 1.0}, {"s", 1e3}});
        else if (a == "--imu-time")
            opt.imu_time_to_us = choose<double>(a, value(), {{"us", 1.0}, {"ms", 1e3}, {"s", 1e6}});
        else if (a == "--imu-time-base") opt.imu_time_base_ms = number(a, value());
        else if (a == "--imu-kind")
            opt.imu_kind = choose<drtools::ImuKind>(a, value(), {{"increments", drtools::ImuKind::increments},
                                                                {"rates", drtools::ImuKind::rates}});
        else if (a == "--imu-units")
            opt.imu_units = choose<drtools::ImuUnits>(a, value(), {{"si", drtools::ImuUnits::si},
                                                                  {"deg", drtools::ImuUnits::deg},
                                                                  {"counts", drtools::ImuUnits::counts}});
        else if (a == "--axes") {
            std::string error;
            if (!drtools::parse_axes(value(), opt.axes, error)) throw Usage(error);
        } else if (a == "--gnss-at")
            opt.gnss_at_imu = choose<bool>(a, value(), {{"antenna", false}, {"imu", true}});
        else if (a == "--pole" || a == "--lever") {
            double v[3];
            char tail;
            const std::string s = value();
            if (std::sscanf(s.c_str(), "%lf,%lf,%lf%c", &v[0], &v[1], &v[2], &tail) != 3)
                throw Usage(a + ": expected X,Y,Z in metres, got '" + s + "'");
            (a == "--pole" ? opt.pole_in : opt.lever_in) = {v[0], v[1], v[2]};
            lever_given |= a == "--lever";
        } else if (a == "--pos-type" || a == "--vel-type") {
            const double t = number(a, value());
            if (!(t >= 0 && t <= 255)) throw Usage(a + ": out of range");
            (a == "--pos-type" ? opt.pos_type : opt.vel_type) = static_cast<uint8_t>(t);
        } else if (a == "-q" || a == "--quiet") quiet = true;
        else throw Usage("unknown option '" + a + "'");
    }
    if (lever_given && !opt.gnss_at_imu) throw Usage("--lever goes with --gnss-at imu");
    if (!std_given && opt.gnss_frame == drtools::GnssFrame::geodetic) opt.gnss_std = drtools::StdFrame::ned;

    std::vector<uint8_t> log;
    double pole[3];
    size_t records = 0, skipped = 0;
    if (!ext_dir.empty()) {
        drtools::ExtSession s;
        std::string error;
        if (!drtools::convert_ext_session(ext_dir, imu_file, s, error)) throw std::runtime_error(error);
        if (truth_path.empty()) truth_path = "ext-truth.csv";
        const std::string csv = drsim::truth_csv(s.truth);
        if (!drsim::write_file(truth_path, std::vector<uint8_t>(csv.begin(), csv.end())))
            throw std::runtime_error("cannot write " + truth_path + ": " + std::strerror(errno));
        log = s.log;
        for (int k = 0; k < 3; ++k) pole[k] = s.pole_m[k];
        records = s.truth.size();
    } else {
        if (gnss_path.empty() || imu_path.empty()) throw Usage("--gnss and --imu are both needed (or --ext)");
        if (!truth_path.empty()) throw Usage("--truth goes with --ext only");
        const drtools::CsvLog c = drtools::csv_to_log(drtools::read_numeric_csv(gnss_path, 13),
                                                      drtools::read_numeric_csv(imu_path, 7), opt);
        log = c.log;
        for (int k = 0; k < 3; ++k) pole[k] = c.pole_m[k];
        records = c.tow_ms.size();
        skipped = c.skipped_epochs;
    }
    if (!drsim::write_file(out_path, log))
        throw std::runtime_error("cannot write " + out_path + ": " + std::strerror(errno));
    if (!quiet)
        std::fprintf(stderr, "drlib-csv2log: %zu records -> %s%s%s (%zu GNSS epochs without 8 to 12 IMU samples)\n",
                     records, out_path.c_str(), truth_path.empty() ? "" : ", truth -> ", truth_path.c_str(), skipped);
    std::printf("%.9g,%.9g,%.9g\n", pole[0] + 0.0, pole[1] + 0.0, pole[2] + 0.0);  // no "-0"
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const Usage &e) {
        std::fprintf(stderr, "drlib-csv2log: %s\nTry 'drlib-csv2log --help'.\n", e.what());
        return 2;
    } catch (const std::runtime_error &e) {
        std::fprintf(stderr, "drlib-csv2log: %s\n", e.what());
        return 2;
    }
}
