#include "common_ext.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include "attitude.h"
#include "earth.h"
#include "log_io.h"

namespace drtools {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDeg = kPi / 180.0;
constexpr uint32_t kTowBase_ms = 345600000u;      // time of week at t_us = 0
constexpr uint32_t kWeek = 2300u;
constexpr double kGyroScale_deg = 1.0058283805847168e-06;  // default configuration
constexpr double kAccScale_mps = 1.862645149230957e-07;
constexpr double kImuToTip_m = 1.8;               // along body z (down the pole)
const drsim::Vec3 kLeverArm_b{-0.03404, -0.05097, -0.01432};  // IMU relative to antenna

struct ConversionError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

[[noreturn]] void fail(const std::string &msg) { throw ConversionError(msg); }

// Rows of numbers of a CSV whose header lines start with '#'.
std::vector<std::vector<double>> read_numeric_csv(const std::string &path, size_t columns) {
    std::ifstream in(path);
    if (!in) fail("cannot read " + path + ": " + std::strerror(errno));
    std::vector<std::vector<double>> rows;
    std::string line;
    size_t line_no = 0;
    while (std::getline(in, line)) {
        ++line_no;
        if (line.empty() || line[0] == '#') continue;
        std::vector<double> row;
        std::stringstream ss(line);
        std::string cell;
        while (std::getline(ss, cell, ',')) {
            char *end = nullptr;
            const double v = std::strtod(cell.c_str(), &end);
            if (end == cell.c_str()) fail(path + ":" + std::to_string(line_no) + ": not a number: '" + cell + "'");
            row.push_back(v);
        }
        if (row.size() != columns)
            fail(path + ":" + std::to_string(line_no) + ": expected " + std::to_string(columns) + " columns");
        rows.push_back(row);
    }
    if (rows.empty()) fail(path + ": no data rows");
    return rows;
}

struct TruthSample {
    drsim::Vec3 imu_e, tip_e, imu_v_e;
    drsim::Mat3 cbn;       // body to NED at the tip
    drsim::Vec3 rph;       // roll, pitch, heading, rad
    double tilt_rad = 0.0;
};

drsim::Vec3 vec(const std::vector<double> &r, size_t i) { return {r[i], r[i + 1], r[i + 2]}; }

// Standard deviations north, east, down of a diagonal ECEF covariance.
void ned_sigmas(const drsim::Mat3 &cne, const drsim::Vec3 &sig_e, float out[3]) {
    for (int r = 0; r < 3; ++r) {
        double var = 0.0;
        for (int c = 0; c < 3; ++c) var += cne(c, r) * cne(c, r) * sig_e[c] * sig_e[c];
        out[r] = static_cast<float>(std::sqrt(var));
    }
}

}  // namespace


bool convert_ext_session(const std::string &dir, const std::string &imu_file, ExtSession &out,
                         std::string &error) {
    out = ExtSession{};
    try {
        const auto imu = read_numeric_csv(dir + "/" + imu_file, 7);
        const auto gnss = read_numeric_csv(dir + "/gnss_10hz.csv", 13);
        const auto truth_rows = read_numeric_csv(dir + "/truth_100hz.csv", 18);

        std::map<long long, TruthSample> truth;  // by t_us
        for (const auto &r : truth_rows) {
            TruthSample s;
            s.imu_e = vec(r, 1);
            s.tip_e = vec(r, 4);
            const drsim::Quat q = drsim::normalized({r[11], r[12], r[13], r[14]});
            s.cbn = drsim::dcm_from_quat(q);
            s.rph = drsim::euler_from_dcm(s.cbn);
            s.tilt_rad = r[10] * kDeg;
            s.imu_v_e = vec(r, 15);
            truth[static_cast<long long>(std::llround(r[0]))] = s;
        }
        std::map<long long, drsim::Vec3> rate_b;  // body rate over the 10 ms ending at t_us
        for (const auto &r : imu) rate_b[static_cast<long long>(std::llround(r[0]))] = (1.0 / 0.01) * vec(r, 1);

        // Antenna position and velocity from the IMU point's, through the true attitude.
        auto antenna = [&](long long t_us, const drsim::Vec3 &imu_e, const drsim::Vec3 &imu_v_e,
                           drsim::Vec3 &ant_e, drsim::Vec3 &ant_v_e, drsim::Mat3 &cne) {
            const auto it = truth.find(t_us);
            if (it == truth.end()) fail("no truth row at t_us " + std::to_string(t_us));
            const drsim::Geodetic g = drsim::geodetic_from_ecef(imu_e);
            cne = drsim::dcm_ne(g.lat, g.lon);
            const drsim::Mat3 cbe = cne * it->second.cbn;
            const auto r = rate_b.find(t_us);
            const drsim::Vec3 w = r == rate_b.end() ? drsim::Vec3{} : r->second;
            ant_e = imu_e - cbe * kLeverArm_b;
            ant_v_e = imu_v_e - cbe * drsim::cross(w, kLeverArm_b);
        };

        std::vector<uint8_t> &log = out.log;
        std::vector<drsim::TruthRow> &out_truth = out.truth;
        double carry_g[3] = {0, 0, 0}, carry_a[3] = {0, 0, 0};  // quantisation residue
        size_t next_imu = 0;
        uint32_t seq = 1;
        for (const auto &g : gnss) {
            const uint32_t tow_ms = static_cast<uint32_t>(std::llround(g[0]));
            const long long t_us = static_cast<long long>(tow_ms - kTowBase_ms) * 1000;
            // The samples a receiver has gathered by this epoch.
            std::vector<ImuSample> samples;
            while (next_imu < imu.size() && std::llround(imu[next_imu][0]) <= t_us) {
                const auto &r = imu[next_imu++];
                ImuSample s{};
                const long long stamp_us = static_cast<long long>(kTowBase_ms) * 1000 + std::llround(r[0]);
                s.time_us = static_cast<uint32_t>(stamp_us % 4000000000LL);  // keeps the microsecond of the second
                for (int c = 0; c < 3; ++c) {
                    const double gc = r[1 + static_cast<size_t>(c)] / (kGyroScale_deg * kDeg) + carry_g[c];
                    const double ac = r[4 + static_cast<size_t>(c)] / kAccScale_mps + carry_a[c];
                    s.gyro[c] = static_cast<int32_t>(std::llround(gc));
                    s.acc[c] = static_cast<int32_t>(std::llround(ac));
                    carry_g[c] = gc - s.gyro[c];
                    carry_a[c] = ac - s.acc[c];
                }
                samples.push_back(s);
            }
            if (samples.size() < 8 || samples.size() > 12) continue;  // the first epoch has none yet

            DrInput h{};
            h.version = 4;
            h.pos_type = 0x32;
            h.vel_type = 0x32;
            h.seq = seq++;
            h.tow_ms = tow_ms;
            drsim::Vec3 ant_e, ant_v_e;
            drsim::Mat3 cne;
            antenna(t_us, vec(g, 1), vec(g, 7), ant_e, ant_v_e, cne);
            for (int c = 0; c < 3; ++c) {
                h.pos[c] = ant_e[c];
                h.vel[c] = ant_v_e[c];
            }
            ned_sigmas(cne, vec(g, 4), h.pos_std);
            ned_sigmas(cne, vec(g, 10), h.vel_std);
            drsim::append_record(log, h, samples);

            // Truth at the epoch's tag and at the solution instant, 60 ms before it.
            drsim::TruthRow row;
            row.tow_ms = tow_ms;
            row.week = kWeek;
            row.t_s = static_cast<double>(t_us) * 1e-6;
            const auto &at_tag = truth.at(t_us);
            drsim::Mat3 cne_tag;
            antenna(t_us, at_tag.imu_e, at_tag.imu_v_e, row.ant_e, row.ant_v_e, cne_tag);
            const long long sol_us = t_us - 60000;
            const auto sol = truth.find(sol_us);
            if (sol == truth.end()) continue;
            row.sol_tow_ms = tow_ms - 60u;
            row.rph = sol->second.rph;
            row.tilt_rad = sol->second.tilt_rad;
            row.tip_e = sol->second.tip_e;
            row.imu_llh = drsim::geodetic_from_ecef(sol->second.imu_e);
            row.imu_v_n = drsim::transpose(drsim::dcm_ne(row.imu_llh.lat, row.imu_llh.lon)) * sol->second.imu_v_e;
            out_truth.push_back(row);
        }

    } catch (const ConversionError &e) {
        error = e.what();
        return false;
    }
    out.pole_m[0] = -kLeverArm_b.x;
    out.pole_m[1] = -kLeverArm_b.y;
    out.pole_m[2] = -(kImuToTip_m + kLeverArm_b.z);
    return true;
}

}  // namespace drtools
