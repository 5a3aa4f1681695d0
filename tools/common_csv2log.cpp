#include "common_csv2log.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "drlib.h"
#include "earth.h"
#include "log_io.h"
#include "units.h"

namespace drtools {

const drsim::Vec3 kImuFromAntenna_b{-0.03404, -0.05097, -0.01432};

namespace {

using drsim::kPi;
using drsim::kDeg;
constexpr double kStep_s = 0.01;               // each sample is the increment of one 0.01 s step
constexpr long long kStampWrap_us = 4000000000LL;

[[noreturn]] void fail(const std::string &msg) { throw std::runtime_error(msg); }


// Standard deviations north, east, down of a diagonal ECEF covariance.
drsim::Vec3 ned_sigmas(const drsim::Mat3 &cne, const drsim::Vec3 &sig_e) {
    drsim::Vec3 out;
    for (int r = 0; r < 3; ++r) {
        double var = 0.0;
        for (int c = 0; c < 3; ++c) var += cne(c, r) * cne(c, r) * sig_e[c] * sig_e[c];
        out[r] = std::sqrt(var);
    }
    return out;
}

}  // namespace

drsim::Vec3 AxisMap::apply(const drsim::Vec3 &in) const {
    return {sign[0] * in[from[0]], sign[1] * in[from[1]], sign[2] * in[from[2]]};
}

bool parse_axes(const std::string &text, AxisMap &out, std::string &error) {
    const std::string t = text == "forward-right-down" || text == "frd" ? "x,y,z" : text;
    std::vector<std::string> cells;
    std::stringstream ss(t);
    for (std::string cell; std::getline(ss, cell, ',');) cells.push_back(cell);
    int used = 0;
    bool ok = cells.size() == 3;
    for (size_t n = 0; ok && n < 3; ++n) {
        std::string cell = cells[n];
        double sign = 1.0;
        if (!cell.empty() && (cell[0] == '-' || cell[0] == '+')) {
            sign = cell[0] == '-' ? -1.0 : 1.0;
            cell = cell.substr(1);
        }
        const int axis = cell.size() == 1 ? cell[0] - 'x' : -1;
        ok = axis >= 0 && axis <= 2 && !(used & (1 << axis));
        if (!ok) break;
        used |= 1 << axis;
        out.from[n] = axis;
        out.sign[n] = sign;
    }
    if (!ok) {
        error = "--axes: expected a signed permutation such as x,y,z or -y,x,z, got '" + text + "'";
        return false;
    }
    // A mirror would turn every rotation the gyros see the wrong way.
    const drsim::Vec3 ex = out.apply({1, 0, 0}), ey = out.apply({0, 1, 0}), ez = out.apply({0, 0, 1});
    if (drsim::dot(drsim::cross(ex, ey), ez) < 0.0) {
        error = "--axes " + text + " mirrors the axes (left-handed); flip the sign of one axis";
        return false;
    }
    return true;
}

std::vector<std::vector<double>> read_numeric_csv(const std::string &path, size_t columns) {
    std::ifstream in(path);
    if (!in) fail("cannot read " + path + ": " + std::strerror(errno));
    std::vector<std::vector<double>> rows;
    std::string line;
    size_t line_no = 0;
    while (std::getline(in, line)) {
        ++line_no;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == '#') continue;
        std::vector<double> row;
        std::stringstream ss(line);
        std::string cell;
        bool numeric = true;
        while (std::getline(ss, cell, ',')) {
            char *end = nullptr;
            const double v = std::strtod(cell.c_str(), &end);
            if (end == cell.c_str()) numeric = false;
            row.push_back(v);
        }
        if (!numeric && rows.empty() && line_no == 1) continue;  // a header line of names
        if (!numeric) fail(path + ":" + std::to_string(line_no) + ": not a row of numbers");
        if (row.size() != columns)
            fail(path + ":" + std::to_string(line_no) + ": expected " + std::to_string(columns) + " columns, found " +
                 std::to_string(row.size()));
        rows.push_back(row);
    }
    if (rows.empty()) fail(path + ": no data rows");
    return rows;
}

CsvLog csv_to_log(const std::vector<std::vector<double>> &gnss, const std::vector<std::vector<double>> &imu,
                  const CsvLogOptions &opt, const AntennaPlacer &placer) {
    CsvLog out;
    // The point the solutions are placed at, relative to the tip: the antenna; the
    // IMU point standing in for it; or a virtual antenna at the library's offset from the IMU.
    const drsim::Vec3 gnss_point_b = opt.axes.apply(opt.gnss_at_imu ? opt.pole_in - opt.lever_in : opt.pole_in);
    const drsim::Vec3 pole = opt.gnss_at_imu && placer ? gnss_point_b - kImuFromAntenna_b : gnss_point_b;
    for (int k = 0; k < 3; ++k) out.pole_m[k] = pole[k];

    // One count's worth in the CSV's unit (per 0.01 s step for rates); counts pass through.
    const double step = opt.imu_kind == ImuKind::rates ? kStep_s : 1.0;
    double gyro_unit = 1.0, acc_unit = 1.0;
    if (opt.imu_units != ImuUnits::counts) {
        gyro_unit = opt.gyro_scale_deg * (opt.imu_units == ImuUnits::deg ? 1.0 : kDeg);
        acc_unit = opt.acc_scale_mps;
    }
    double carry_g[3] = {0, 0, 0}, carry_a[3] = {0, 0, 0};  // quantisation residue, as an integrating sensor keeps it
    size_t next_imu = 0;
    uint32_t seq = 1;
    for (const auto &g : gnss) {
        const uint32_t tow_ms = static_cast<uint32_t>(std::llround(g[0] * opt.gnss_time_to_ms));
        const long long tag_us = static_cast<long long>(tow_ms) * 1000;
        // The samples a receiver has gathered by this epoch.
        std::vector<ImuSample> samples;
        while (next_imu < imu.size()) {
            const auto &r = imu[next_imu];
            const long long stamp_us = std::llround(opt.imu_time_base_ms * 1000.0 + r[0] * opt.imu_time_to_us);
            if (stamp_us > tag_us) break;
            ++next_imu;
            const drsim::Vec3 gyro = opt.axes.apply(row_vec3(r, 1)), acc = opt.axes.apply(row_vec3(r, 4));
            ImuSample s{};
            s.time_us = static_cast<uint32_t>(((stamp_us % kStampWrap_us) + kStampWrap_us) % kStampWrap_us);
            for (int c = 0; c < 3; ++c) {
                const double gc = gyro[c] * step / gyro_unit + carry_g[c];
                const double ac = acc[c] * step / acc_unit + carry_a[c];
                s.gyro[c] = static_cast<int32_t>(std::llround(gc));
                s.acc[c] = static_cast<int32_t>(std::llround(ac));
                carry_g[c] = gc - s.gyro[c];
                carry_a[c] = ac - s.acc[c];
            }
            samples.push_back(s);
        }
        if (samples.size() < 8 || samples.size() > 12) {  // the first epoch has none yet
            ++out.skipped_epochs;
            continue;
        }

        drsim::Vec3 pos = row_vec3(g, 1), vel = row_vec3(g, 7);
        const drsim::Vec3 pos_std = row_vec3(g, 4), vel_std = row_vec3(g, 10);
        drsim::Geodetic geo;
        if (opt.gnss_frame == GnssFrame::geodetic) {
            geo = {pos[0] * kDeg, pos[1] * kDeg, pos[2]};
            pos = drsim::ecef_from_geodetic(geo);
        } else {
            geo = drsim::geodetic_from_ecef(pos);
        }
        const drsim::Mat3 cne = drsim::dcm_ne(geo.lat, geo.lon);
        if (opt.gnss_frame == GnssFrame::geodetic) vel = cne * vel;
        if (opt.gnss_at_imu && placer) {
            drsim::Vec3 ant, ant_v;
            if (!placer(tow_ms, pos, vel, ant, ant_v)) fail("no attitude at tow_ms " + std::to_string(tow_ms));
            pos = ant;
            vel = ant_v;
        }
        const bool ned = opt.gnss_std == StdFrame::ned;
        const drsim::Vec3 ps = ned ? pos_std : ned_sigmas(cne, pos_std);
        const drsim::Vec3 vs = ned ? vel_std : ned_sigmas(cne, vel_std);
        DrInput h{};
        h.version = 4;
        h.pos_type = opt.pos_type;
        h.vel_type = opt.vel_type;
        h.seq = seq++;
        h.tow_ms = tow_ms;
        for (int c = 0; c < 3; ++c) {
            h.pos[c] = pos[c];
            h.vel[c] = vel[c];
            h.pos_std[c] = static_cast<float>(ps[c]);
            h.vel_std[c] = static_cast<float>(vs[c]);
        }
        drsim::append_record(out.log, h, samples);
        out.tow_ms.push_back(tow_ms);
    }
    if (out.log.empty()) fail("no epoch has 8 to 12 IMU samples: check the time base (--imu-time-base, units)");
    return out;
}

}  // namespace drtools
