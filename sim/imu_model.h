// The IMU: exact increments from the truth, a MEMS error model, and the
// quantisation to the integer counts a host passes on.
#ifndef DRSIM_IMU_MODEL_H
#define DRSIM_IMU_MODEL_H

#include <cstdint>
#include <string>
#include <vector>

#include "attitude.h"
#include "random.h"
#include "truth.h"

namespace drsim {

// Error figures of one IMU grade, 1-sigma per axis. Constant terms are drawn
// once per run; the bias instability is a first-order Gauss-Markov process.
struct ImuGrade {
    std::string name;
    double gyro_bias_dps = 0.0;          // turn-on bias, deg/s
    double gyro_instability_dph = 0.0;   // in-run bias instability, deg/h
    double gyro_arw_dpsh = 0.0;          // angle random walk, deg/sqrt(h)
    double gyro_scale_ppm = 0.0;         // scale-factor error
    double gyro_misalign_mrad = 0.0;     // axis non-orthogonality
    double acc_bias_mg = 0.0;            // turn-on bias, milli-g
    double acc_instability_ug = 0.0;     // in-run bias instability, micro-g
    double acc_vrw_mpsh = 0.0;           // velocity random walk, m/s/sqrt(h)
    double acc_scale_ppm = 0.0;
    double acc_misalign_mrad = 0.0;
    double correlation_s = 300.0;        // bias-instability correlation time
};

// The named grades: ideal, tactical, industrial (the default), consumer.
const std::vector<ImuGrade> &imu_grades();
// Throws std::invalid_argument for an unknown name.
const ImuGrade &imu_grade(const std::string &name);

struct Increment {
    Vec3 dtheta;  // rad, body axes
    Vec3 dvel;    // m/s, body axes
};

// Integral of the sensed rate and specific force over [t_end - window_s, t_end]:
// Gauss-Legendre (3 nodes) over `substeps` equal parts.
Increment exact_increment(const Truth &truth, double t_end_s, double window_s, int substeps);

class ImuErrorModel {
public:
    ImuErrorModel(const ImuGrade &grade, uint64_t seed);
    // Corrupts one increment over dt_s and advances the error processes by dt_s.
    Increment apply(const Increment &exact, double dt_s);

    // The drawn constants, for reports and tests.
    Vec3 gyro_bias_rps() const { return gyro_bias_; }
    Vec3 acc_bias_mps2() const { return acc_bias_; }

private:
    ImuGrade g_;
    Random rng_;
    Vec3 gyro_bias_, acc_bias_;          // constant parts, rad/s and m/s^2
    Vec3 gyro_drift_, acc_drift_;        // Gauss-Markov parts
    Mat3 gyro_matrix_, acc_matrix_;      // I + scale factor + misalignment
};

// Integer counts per 0.01 s step; the rounding residue is carried to the next
// sample as an integrating sensor does, so the sum of the counts never drifts
// from the sum of the increments by more than half a count.
class Quantiser {
public:
    static constexpr double kGyroScaleDeg = 1.0058283805847168e-06;  // deg per count
    static constexpr double kAccScaleMps = 1.862645149230957e-07;    // m/s per count

    Quantiser(double gyro_scale_deg = kGyroScaleDeg, double acc_scale_mps = kAccScaleMps)
        : gyro_scale_deg_(gyro_scale_deg), acc_scale_mps_(acc_scale_mps) {}
    void quantise(const Increment &inc, int32_t gyro[3], int32_t acc[3]);

private:
    double gyro_scale_deg_, acc_scale_mps_;
    double gyro_carry_[3] = {0.0, 0.0, 0.0};  // counts
    double acc_carry_[3] = {0.0, 0.0, 0.0};
};

}  // namespace drsim

#endif
