// drlib-ext2log: converts the external fixed-tip pole session into an input
// log and a truth file, and prints the pole vector to replay it with.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "common_ext.h"
#include "log_io.h"

namespace {

const char kUsage[] =
    "usage: drlib-ext2log DATASET_DIR [--imu FILE] [--out LOG] [--truth CSV]\n"
    "Converts the external pole session (imu_100hz.csv, gnss_10hz.csv, truth_100hz.csv)\n"
    "into an input log and a truth CSV. --imu picks the IMU file inside the directory\n"
    "(default imu_100hz.csv; imu_true_100hz.csv for error-free increments). Prints the\n"
    "pole vector to pass to drlib-replay --pole.\n";

int fail(const std::string &msg) {
    std::fprintf(stderr, "drlib-ext2log: %s\n", msg.c_str());
    return 2;
}

}  // namespace

int main(int argc, char **argv) {
    std::string dir, imu_file = "imu_100hz.csv", out_path = "ext.log", truth_path = "ext-truth.csv";
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const bool has_value = i + 1 < argc;
        if (a == "-h" || a == "--help") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (a == "--imu" || a == "--out" || a == "--truth") {
            if (!has_value) return fail(a + " needs a value");
            (a == "--imu" ? imu_file : a == "--out" ? out_path : truth_path) = argv[++i];
        } else if (!a.empty() && a[0] == '-') {
            return fail("unknown option " + a + " (see --help)");
        } else if (dir.empty()) {
            dir = a;
        } else {
            return fail("more than one directory given");
        }
    }
    if (dir.empty()) return fail("no dataset directory given (see --help)");

    drtools::ExtSession s;
    std::string error;
    if (!drtools::convert_ext_session(dir, imu_file, s, error)) return fail(error);
    if (!drsim::write_file(out_path, s.log)) return fail("cannot write " + out_path + ": " + std::strerror(errno));
    const std::string csv = drsim::truth_csv(s.truth);
    if (!drsim::write_file(truth_path, std::vector<uint8_t>(csv.begin(), csv.end())))
        return fail("cannot write " + truth_path + ": " + std::strerror(errno));
    std::fprintf(stderr, "drlib-ext2log: %zu records -> %s, truth -> %s\n", s.truth.size(), out_path.c_str(),
                 truth_path.c_str());
    std::printf("%.5f,%.5f,%.5f\n", s.pole_m[0], s.pole_m[1], s.pole_m[2]);
    return 0;
}
