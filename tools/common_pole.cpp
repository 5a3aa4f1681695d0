#include "common_pole.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "log_io.h"
#include "units.h"

namespace drtools {
namespace {

using drsim::kPi;
constexpr double kStep_s = 0.01;          // the scale factors are per 0.01 s step
constexpr size_t kGlanceSamples = 100;    // the first second at 100 Hz
constexpr double kMinPole_m = 0.3, kMaxPole_m = 5.0;

}  // namespace

PoleTilt pole_tilt(const double att[3], const double pole_b[3]) {
    const double len = std::sqrt(pole_b[0] * pole_b[0] + pole_b[1] * pole_b[1] + pole_b[2] * pole_b[2]);
    PoleTilt t;
    if (!(len > 0.0)) return t;
    const double u[3] = {pole_b[0] / len, pole_b[1] / len, pole_b[2] / len};
    const double sr = std::sin(att[0]), cr = std::cos(att[0]);
    const double sp = std::sin(att[1]), cp = std::cos(att[1]);
    const double sh = std::sin(att[2]), ch = std::cos(att[2]);
    // Rows of c_bn = Rz(heading) Ry(pitch) Rx(roll), body to north-east-down.
    const double north = cp * ch * u[0] + (sr * sp * ch - cr * sh) * u[1] + (cr * sp * ch + sr * sh) * u[2];
    const double east = cp * sh * u[0] + (sr * sp * sh + cr * ch) * u[1] + (cr * sp * sh - sr * ch) * u[2];
    const double down = -sp * u[0] + sr * cp * u[1] + cr * cp * u[2];
    t.tilt_rad = std::acos(std::fmax(-1.0, std::fmin(1.0, -down)));
    double dir = std::atan2(east, north);
    if (dir < 0.0) dir += 2.0 * kPi;
    t.direction_rad = dir;
    return t;
}

ImuGlance glance_imu(const std::vector<uint8_t> &log, double gyro_scale_deg, double acc_scale_mps) {
    ImuGlance g;
    size_t n = 0;
    double sum[3] = {0.0, 0.0, 0.0};
    for (const drsim::LogRecord &rec : drsim::read_log(log.data(), log.size())) {
        for (const ImuSample &s : rec.samples) {
            for (int k = 0; k < 3; ++k) {
                const double rate = std::fabs(s.gyro[k] * gyro_scale_deg / kStep_s);
                if (rate > g.max_rate_deg_s) g.max_rate_deg_s = rate;
                if (n < kGlanceSamples) sum[k] += s.acc[k] * acc_scale_mps / kStep_s;
            }
            ++n;
        }
    }
    const size_t used = n < kGlanceSamples ? n : kGlanceSamples;
    if (used == 0) return g;
    g.valid = true;
    for (int k = 0; k < 3; ++k) g.f_b[k] = sum[k] / static_cast<double>(used);
    return g;
}

std::string pole_problem(const double pole_b[3], const ImuGlance &imu) {
    const double len = std::sqrt(pole_b[0] * pole_b[0] + pole_b[1] * pole_b[1] + pole_b[2] * pole_b[2]);
    char buf[320];
    if (!(len >= kMinPole_m && len <= kMaxPole_m)) {
        std::snprintf(buf, sizeof buf, "the pole vector is %.3f m long; survey poles are %.1f to %.1f m", len,
                      kMinPole_m, kMaxPole_m);
        return buf;
    }
    const double f = std::sqrt(imu.f_b[0] * imu.f_b[0] + imu.f_b[1] * imu.f_b[1] + imu.f_b[2] * imu.f_b[2]);
    if (!imu.valid || !(f > 0.0)) return "";
    // At rest the specific force points up, as the antenna does from the tip.
    const double cos_up = (pole_b[0] * imu.f_b[0] + pole_b[1] * imu.f_b[1] + pole_b[2] * imu.f_b[2]) / (len * f);
    if (cos_up < 0.0) {
        std::snprintf(buf, sizeof buf,
                      "with this pole vector the antenna starts %.0f deg from straight above the tip (below it): "
                      "the vector points from the tip to the antenna; is its sign reversed?",
                      std::acos(std::fmax(-1.0, cos_up)) * 180.0 / kPi);
        return buf;
    }
    return "";
}

}  // namespace drtools
