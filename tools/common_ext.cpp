#include "common_ext.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <map>
#include <stdexcept>

#include "attitude.h"
#include "earth.h"
#include "log_io.h"
#include "units.h"

namespace drtools {
namespace {

using drsim::kDeg;
constexpr long long kTowBase_ms = 345600000;      // time of week at t_us = 0
constexpr uint32_t kWeek = 2300u;
constexpr double kImuToTip_m = 1.8;               // along body z (down the pole)
constexpr long long kSolutionDelay_us = 60000;    // the library's solution refers to 60 ms before the tag

struct TruthSample {
    drsim::Vec3 imu_e, tip_e, imu_v_e;
    drsim::Mat3 cbn;       // body to NED at the tip
    drsim::Vec3 rph;       // roll, pitch, heading, rad
    double tilt_rad = 0.0;
};

}  // namespace

CsvLogOptions ext_session_options() {
    CsvLogOptions o;                    // ECEF, deviations in ECEF, tow_ms; SI increments, body FRD
    o.imu_time_base_ms = static_cast<double>(kTowBase_ms);   // t_us from the start of the session
    o.gnss_at_imu = true;
    o.pole_in = {0.0, 0.0, -kImuToTip_m};  // no antenna but the IMU point: lever 0
    return o;
}

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
            s.imu_e = row_vec3(r, 1);
            s.tip_e = row_vec3(r, 4);
            const drsim::Quat q = drsim::normalized({r[11], r[12], r[13], r[14]});
            s.cbn = drsim::dcm_from_quat(q);
            s.rph = drsim::euler_from_dcm(s.cbn);
            s.tilt_rad = r[10] * kDeg;
            s.imu_v_e = row_vec3(r, 15);
            truth[static_cast<long long>(std::llround(r[0]))] = s;
        }
        std::map<long long, drsim::Vec3> rate_b;  // body rate over the 10 ms ending at t_us
        for (const auto &r : imu) rate_b[static_cast<long long>(std::llround(r[0]))] = (1.0 / 0.01) * row_vec3(r, 1);
        auto t_us_of = [](uint32_t tow_ms) { return (static_cast<long long>(tow_ms) - kTowBase_ms) * 1000; };

        // Antenna position and velocity from the IMU point's, through the true attitude.
        const AntennaPlacer placer = [&](uint32_t tow_ms, const drsim::Vec3 &imu_e, const drsim::Vec3 &imu_v_e,
                                         drsim::Vec3 &ant_e, drsim::Vec3 &ant_v_e) {
            const auto it = truth.find(t_us_of(tow_ms));
            if (it == truth.end()) return false;
            const drsim::Geodetic g = drsim::geodetic_from_ecef(imu_e);
            const drsim::Mat3 cbe = drsim::dcm_ne(g.lat, g.lon) * it->second.cbn;
            const auto r = rate_b.find(t_us_of(tow_ms));
            const drsim::Vec3 w = r == rate_b.end() ? drsim::Vec3{} : r->second;
            ant_e = imu_e - cbe * kImuFromAntenna_b;
            ant_v_e = imu_v_e - cbe * drsim::cross(w, kImuFromAntenna_b);
            return true;
        };
        const CsvLog converted = csv_to_log(gnss, imu, ext_session_options(), placer);
        out.log = converted.log;
        for (int k = 0; k < 3; ++k) out.pole_m[k] = converted.pole_m[k];

        // Truth at each record's tag and at the solution instant before it.
        for (const uint32_t tow_ms : converted.tow_ms) {
            const long long t_us = t_us_of(tow_ms);
            drsim::TruthRow row;
            row.tow_ms = tow_ms;
            row.week = kWeek;
            row.t_s = static_cast<double>(t_us) * 1e-6;
            const auto at_tag = truth.find(t_us);
            const auto sol = truth.find(t_us - kSolutionDelay_us);
            if (at_tag == truth.end() || sol == truth.end()) continue;
            placer(tow_ms, at_tag->second.imu_e, at_tag->second.imu_v_e, row.ant_e, row.ant_v_e);
            row.sol_tow_ms = tow_ms - 60u;
            row.rph = sol->second.rph;
            row.tilt_rad = sol->second.tilt_rad;
            row.tip_e = sol->second.tip_e;
            row.imu_llh = drsim::geodetic_from_ecef(sol->second.imu_e);
            row.imu_v_n = drsim::transpose(drsim::dcm_ne(row.imu_llh.lat, row.imu_llh.lon)) * sol->second.imu_v_e;
            out.truth.push_back(row);
        }
    } catch (const std::runtime_error &e) {
        error = e.what();
        return false;
    }
    return true;
}

}  // namespace drtools
