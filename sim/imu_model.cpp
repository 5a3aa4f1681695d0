#include "imu_model.h"
#include "units.h"

#include <cmath>
#include <limits>
#include <stdexcept>

namespace drsim {

namespace {

constexpr double kG = 9.80665;  // standard gravity, for milli-g and micro-g

Vec3 normal3(Random &rng, double sigma) { return {sigma * rng.normal(), sigma * rng.normal(), sigma * rng.normal()}; }

// I + diag(scale errors) + off-diagonal misalignments.
Mat3 error_matrix(Random &rng, double scale_ppm, double misalign_mrad) {
    Mat3 m = Mat3::identity();
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            m(i, j) += (i == j) ? 1e-6 * scale_ppm * rng.normal() : 1e-3 * misalign_mrad * rng.normal();
    return m;
}

int32_t to_count(double value, double scale, double &carry) {
    const double exact = value / scale + carry;
    const double limit = static_cast<double>(std::numeric_limits<int32_t>::max());
    const double rounded = std::fmax(-limit, std::fmin(limit, std::nearbyint(exact)));
    carry = exact - rounded;
    return static_cast<int32_t>(rounded);
}

}  // namespace

const std::vector<ImuGrade> &imu_grades() {
    static const std::vector<ImuGrade> grades = {
        {"ideal", 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 300.0},
        {"tactical", 3e-4, 0.5, 0.05, 100, 0.1, 0.3, 10, 0.02, 100, 0.1, 300.0},
        {"industrial", 0.02, 5.0, 0.2, 500, 0.5, 2.0, 30, 0.04, 500, 0.5, 300.0},
        {"consumer", 0.1, 15.0, 0.5, 2000, 2.0, 15.0, 100, 0.1, 2000, 2.0, 300.0},
    };
    return grades;
}

const ImuGrade &imu_grade(const std::string &name) {
    for (const ImuGrade &g : imu_grades())
        if (g.name == name) return g;
    throw std::invalid_argument("unknown IMU grade '" + name + "' (known: ideal, tactical, industrial, consumer)");
}

Increment exact_increment(const Truth &truth, double t_end_s, double window_s, int substeps) {
    static const double node[3] = {-0.7745966692414834, 0.0, 0.7745966692414834};  // sqrt(3/5)
    static const double weight[3] = {5.0 / 9.0, 8.0 / 9.0, 5.0 / 9.0};
    const double h = window_s / substeps;
    Increment inc;
    for (int s = 0; s < substeps; ++s) {
        const double mid = t_end_s - window_s + (s + 0.5) * h;
        for (int k = 0; k < 3; ++k) {
            const ImuRates r = truth.imu_rates(mid + 0.5 * h * node[k]);
            const double w = 0.5 * h * weight[k];
            inc.dtheta = inc.dtheta + w * r.w_ib_b;
            inc.dvel = inc.dvel + w * r.f_b;
        }
    }
    return inc;
}

ImuErrorModel::ImuErrorModel(const ImuGrade &grade, uint64_t seed) : g_(grade), rng_(seed ^ 0x1b873593ULL) {
    gyro_bias_ = normal3(rng_, grade.gyro_bias_dps * kDeg);
    acc_bias_ = normal3(rng_, grade.acc_bias_mg * 1e-3 * kG);
    gyro_drift_ = normal3(rng_, grade.gyro_instability_dph * kDeg / 3600.0);
    acc_drift_ = normal3(rng_, grade.acc_instability_ug * 1e-6 * kG);
    gyro_matrix_ = error_matrix(rng_, grade.gyro_scale_ppm, grade.gyro_misalign_mrad);
    acc_matrix_ = error_matrix(rng_, grade.acc_scale_ppm, grade.acc_misalign_mrad);
}

Increment ImuErrorModel::apply(const Increment &exact, double dt_s) {
    // White rate noise integrates to a random walk: sigma sqrt(dt) per increment.
    const double arw = g_.gyro_arw_dpsh * kDeg / 60.0;   // rad/sqrt(s)
    const double vrw = g_.acc_vrw_mpsh / 60.0;           // m/s/sqrt(s)
    Increment out;
    out.dtheta = gyro_matrix_ * exact.dtheta + dt_s * (gyro_bias_ + gyro_drift_) + normal3(rng_, arw * std::sqrt(dt_s));
    out.dvel = acc_matrix_ * exact.dvel + dt_s * (acc_bias_ + acc_drift_) + normal3(rng_, vrw * std::sqrt(dt_s));
    const double phi = std::exp(-dt_s / g_.correlation_s);
    const double drive = std::sqrt(1.0 - phi * phi);
    gyro_drift_ = phi * gyro_drift_ + normal3(rng_, drive * g_.gyro_instability_dph * kDeg / 3600.0);
    acc_drift_ = phi * acc_drift_ + normal3(rng_, drive * g_.acc_instability_ug * 1e-6 * kG);
    return out;
}

void Quantiser::quantise(const Increment &inc, int32_t gyro[3], int32_t acc[3]) {
    for (int i = 0; i < 3; ++i) {
        gyro[i] = to_count(inc.dtheta[i] / kDeg, gyro_scale_deg_, gyro_carry_[i]);
        acc[i] = to_count(inc.dvel[i], acc_scale_mps_, acc_carry_[i]);
    }
}

}  // namespace drsim
