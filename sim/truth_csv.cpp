#include "truth_csv.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace drsim {

const char *const kTruthCsvHeader =
    "tow_ms,week,t_s,ant_x_m,ant_y_m,ant_z_m,ant_vx_mps,ant_vy_mps,ant_vz_mps,"
    "sol_tow_ms,roll_rad,pitch_rad,heading_rad,tilt_rad,tip_x_m,tip_y_m,tip_z_m,"
    "imu_lat_rad,imu_lon_rad,imu_h_m,imu_vn_mps,imu_ve_mps,imu_vd_mps";

namespace {
constexpr int kColumns = 23;
}

std::string truth_csv(const std::vector<TruthRow> &rows) {
    std::string out = kTruthCsvHeader;
    out += '\n';
    char line[1024];
    for (const TruthRow &r : rows) {
        // 17 significant digits: every double reads back to the same bits.
        std::snprintf(line, sizeof line,
                      "%u,%u,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%u,%.17g,%.17g,%.17g,%.17g,"
                      "%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g\n",
                      r.tow_ms, r.week, r.t_s, r.ant_e.x, r.ant_e.y, r.ant_e.z, r.ant_v_e.x, r.ant_v_e.y,
                      r.ant_v_e.z, r.sol_tow_ms, r.rph.x, r.rph.y, r.rph.z, r.tilt_rad, r.tip_e.x, r.tip_e.y,
                      r.tip_e.z, r.imu_llh.lat, r.imu_llh.lon, r.imu_llh.h, r.imu_v_n.x, r.imu_v_n.y,
                      r.imu_v_n.z);
        out += line;
    }
    return out;
}

bool parse_truth_csv(const std::string &text, std::vector<TruthRow> &rows, std::string &error) {
    std::istringstream in(text);
    std::string line;
    rows.clear();
    if (!std::getline(in, line) || line != kTruthCsvHeader) {
        error = "missing or unexpected header line";
        return false;
    }
    int number = 1;
    while (std::getline(in, line)) {
        ++number;
        if (line.empty()) continue;
        double v[kColumns];
        const char *p = line.c_str();
        for (int i = 0; i < kColumns; ++i) {
            char *end = nullptr;
            v[i] = std::strtod(p, &end);
            const char expect = (i + 1 < kColumns) ? ',' : '\0';
            if (end == p || *end != expect) {
                error = "line " + std::to_string(number) + ": bad column " + std::to_string(i + 1);
                return false;
            }
            p = end + (expect ? 1 : 0);
        }
        TruthRow r;
        r.tow_ms = static_cast<uint32_t>(v[0]);
        r.week = static_cast<uint32_t>(v[1]);
        r.t_s = v[2];
        r.ant_e = {v[3], v[4], v[5]};
        r.ant_v_e = {v[6], v[7], v[8]};
        r.sol_tow_ms = static_cast<uint32_t>(v[9]);
        r.rph = {v[10], v[11], v[12]};
        r.tilt_rad = v[13];
        r.tip_e = {v[14], v[15], v[16]};
        r.imu_llh = {v[17], v[18], v[19]};
        r.imu_v_n = {v[20], v[21], v[22]};
        rows.push_back(r);
    }
    return true;
}

}  // namespace drsim
