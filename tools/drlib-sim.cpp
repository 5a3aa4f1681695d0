// drlib-sim: writes a simulated survey-pole session as an input log (the
// records a host passes to DrlibUpdateFusion, concatenated) and a truth CSV.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include <unistd.h>

#include "imu_model.h"
#include "log_io.h"
#include "simulator.h"

namespace {

const char *const kUsage =
    "usage: drlib-sim [options]\n"
    "       drlib-sim --check LOG [--strict]\n"
    "\n"
    "Simulates a GNSS receiver with an IMU on a survey pole and writes its input\n"
    "log (DrInput records with their ImuSample records, as a host passes them to\n"
    "DrlibUpdateFusion) and a truth CSV with one row per GNSS epoch.\n"
    "\n"
    "Scenario:\n"
    "  --scenario NAME        static | survey | calibration (default survey)\n"
    "  --seed N               random seed (default 1)\n"
    "  --duration-scale X     stretch every phase by X (default 1)\n"
    "  --max-tilt DEG         largest tilt while tilting (default 30)\n"
    "  --pole-length M        tip to antenna (default 1.892)\n"
    "  --lat RAD --lon RAD --height M   the first survey point (default 0.52, 1.98, 30)\n"
    "  --mount R,P,H          IMU mounting roll, pitch, heading in degrees\n"
    "                         (default 0,0,0; calibration 0.5,-0.3,0.4)\n"
    "Sensors:\n"
    "  --imu-grade NAME       ideal | tactical | industrial | consumer (default industrial)\n"
    "  --imu-jitter US        IMU time-stamp jitter, +-US microseconds (default 1000, max 4000)\n"
    "  --gnss-noise on|off    RTK-like position and velocity errors (default on)\n"
    "  --gnss-jitter          time tags up to 1 ms off the 100 ms grid\n"
    "  --pos-type T --vel-type T   solution types written (default 0x32, 0x32)\n"
    "  --start-tow MS         time of week of the first epoch, multiple of 100 (default 345600000)\n"
    "  --week N               its GNSS week (default 2300)\n"
    "  --seq N                sequence number of the first record (default 1)\n"
    "Output:\n"
    "  --out FILE             input log (default <scenario>.log)\n"
    "  --truth FILE           truth CSV (default <scenario>.csv)\n"
    "  --quiet                nothing on standard error unless something fails (progress\n"
    "                         is shown only when standard error is a terminal)\n"
    "Checking:\n"
    "  --check LOG            walk a log and report the first malformed or truncated record;\n"
    "                         with --strict also validity, continuity and IMU spacing\n"
    "  --help                 this text\n";

struct Usage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

double parse_double(const std::string &opt, const char *text) {
    char *end = nullptr;
    const double v = std::strtod(text, &end);
    if (end == text || *end != '\0' || !std::isfinite(v)) throw Usage(opt + ": not a number: '" + text + "'");
    return v;
}

unsigned long long parse_unsigned(const std::string &opt, const char *text, unsigned long long max) {
    char *end = nullptr;
    if (*text == '-') throw Usage(opt + ": must not be negative: '" + text + "'");
    const unsigned long long v = std::strtoull(text, &end, 0);
    if (end == text || *end != '\0') throw Usage(opt + ": not an integer: '" + text + "'");
    if (v > max) throw Usage(opt + ": too large: '" + text + "'");
    return v;
}

int check_mode(const std::string &path, bool strict, bool quiet) {
    std::vector<uint8_t> bytes;
    if (!drsim::read_file(path, bytes)) {
        std::fprintf(stderr, "drlib-sim: cannot read '%s'\n", path.c_str());
        return 2;
    }
    const drsim::LogCheck c = drsim::check_log(bytes.data(), bytes.size(), strict);
    if (c.ok) {
        if (!quiet)
            std::fprintf(stderr, "drlib-sim: %s: %zu records, %zu bytes, well-formed%s\n", path.c_str(),
                         c.records, bytes.size(), strict ? " and continuous" : "");
        return 0;
    }
    std::fprintf(stderr, "drlib-sim: %s: %s\n", path.c_str(), drsim::log_fault_text(c).c_str());
    return 1;
}

int run(int argc, char **argv) {
    drsim::SimOptions opt;
    std::string out_path, truth_path, check_path;
    bool quiet = false, strict = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto arg = [&]() -> const char * {
            if (i + 1 >= argc) throw Usage(a + ": missing value");
            return argv[++i];
        };
        if (a == "--help" || a == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (a == "--scenario") opt.scenario.name = arg();
        else if (a == "--seed") opt.scenario.seed = parse_unsigned(a, arg(), ~0ULL);
        else if (a == "--duration-scale") opt.scenario.duration_scale = parse_double(a, arg());
        else if (a == "--max-tilt") opt.scenario.max_tilt_deg = parse_double(a, arg());
        else if (a == "--pole-length") opt.scenario.pole_length_m = parse_double(a, arg());
        else if (a == "--lat") opt.scenario.point.lat = parse_double(a, arg());
        else if (a == "--lon") opt.scenario.point.lon = parse_double(a, arg());
        else if (a == "--height") opt.scenario.point.h = parse_double(a, arg());
        else if (a == "--mount") {
            const std::string v = arg();
            double r, p, h;
            char tail;
            if (std::sscanf(v.c_str(), "%lf,%lf,%lf%c", &r, &p, &h, &tail) != 3)
                throw Usage(a + ": expected R,P,H in degrees, got '" + v + "'");
            opt.scenario.mount_given = true;
            opt.scenario.mount_rph_deg = {r, p, h};
        } else if (a == "--imu-grade") opt.imu_grade = arg();
        else if (a == "--imu-jitter") opt.imu_jitter_us = static_cast<int>(parse_unsigned(a, arg(), 1000000));
        else if (a == "--gnss-noise") {
            const std::string v = arg();
            if (v != "on" && v != "off") throw Usage(a + ": expected on or off, got '" + v + "'");
            opt.gnss.noise = v == "on";
        } else if (a == "--gnss-jitter") opt.gnss_tow_jitter = true;
        else if (a == "--pos-type") opt.gnss.pos_type = static_cast<uint8_t>(parse_unsigned(a, arg(), 255));
        else if (a == "--vel-type") opt.gnss.vel_type = static_cast<uint8_t>(parse_unsigned(a, arg(), 255));
        else if (a == "--start-tow") opt.start_tow_ms = static_cast<uint32_t>(parse_unsigned(a, arg(), 0xffffffffULL));
        else if (a == "--week") opt.week = static_cast<uint32_t>(parse_unsigned(a, arg(), 100000));
        else if (a == "--seq") opt.first_seq = static_cast<uint32_t>(parse_unsigned(a, arg(), 0xffffffffULL));
        else if (a == "--out") out_path = arg();
        else if (a == "--truth") truth_path = arg();
        else if (a == "--quiet") quiet = true;
        else if (a == "--check") check_path = arg();
        else if (a == "--strict") strict = true;
        else throw Usage("unknown option '" + a + "'");
    }
    if (!check_path.empty()) return check_mode(check_path, strict, quiet);
    drsim::imu_grade(opt.imu_grade);  // rejects an unknown grade before any work
    {
        const uint8_t p = opt.gnss.pos_type, v = opt.gnss.vel_type;
        const bool pos_ok = (p >= 0x10 && p <= 0x12) || (p >= 0x20 && p <= 0x22) || (p >= 0x30 && p <= 0x32);
        const bool vel_ok = v == 8 || v == 9 || (v >= 0x10 && v <= 0x12) || v == p;
        if (!pos_ok) throw Usage("--pos-type: not a valid position type (0x10..0x12, 0x20..0x22, 0x30..0x32)");
        if (!vel_ok) throw Usage("--vel-type: not a valid velocity type (8, 9, 0x10..0x12 or the position type)");
    }
    if (out_path.empty()) out_path = opt.scenario.name + ".log";
    if (truth_path.empty()) truth_path = opt.scenario.name + ".csv";

    const auto t0 = std::chrono::steady_clock::now();
    // Progress only for a person watching: never into a pipe or a log file.
    const bool progress = !quiet && isatty(STDERR_FILENO);
    const drsim::SimResult r = drsim::simulate(opt, [&](double f) {
        if (progress) std::fprintf(stderr, "\rdrlib-sim: %3d%%", static_cast<int>(std::lround(100.0 * f)));
    });
    if (progress) std::fputc('\n', stderr);
    if (!drsim::write_file(out_path, r.log)) {
        std::fprintf(stderr, "drlib-sim: cannot write '%s'\n", out_path.c_str());
        return 2;
    }
    const std::string csv = drsim::truth_csv(r.truth);
    if (!drsim::write_file(truth_path, std::vector<uint8_t>(csv.begin(), csv.end()))) {
        std::fprintf(stderr, "drlib-sim: cannot write '%s'\n", truth_path.c_str());
        return 2;
    }
    const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (!quiet)
        std::fprintf(stderr,
                     "drlib-sim: %s seed %llu, %s IMU: %zu records (%.1f s), %zu IMU samples, %zu bytes -> %s, "
                     "truth -> %s, %.2f s\n",
                     opt.scenario.name.c_str(), static_cast<unsigned long long>(opt.scenario.seed),
                     opt.imu_grade.c_str(), r.records, static_cast<double>(r.records) / 10.0, r.samples,
                     r.log.size(), out_path.c_str(), truth_path.c_str(), secs);
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const Usage &e) {
        std::fprintf(stderr, "drlib-sim: %s\nTry 'drlib-sim --help'.\n", e.what());
        return 2;
    } catch (const std::invalid_argument &e) {
        std::fprintf(stderr, "drlib-sim: %s\n", e.what());
        return 2;
    }
}
