// The GNSS receiver: RTK-like errors on the antenna's position and velocity,
// and the standard deviations it reports with them.
#ifndef DRSIM_GNSS_MODEL_H
#define DRSIM_GNSS_MODEL_H

#include <cstdint>

#include "attitude.h"
#include "random.h"

namespace drsim {

struct GnssOptions {
    bool noise = true;
    double pos_sigma_h_m = 0.008;     // horizontal position error, per axis
    double pos_sigma_v_m = 0.015;     // vertical position error
    double vel_sigma_h_mps = 0.012;   // horizontal velocity error, per axis
    double vel_sigma_v_mps = 0.020;   // vertical velocity error
    double correlation_s = 20.0;      // correlation time of the slow position error
    double correlated_share = 0.9;    // share of the position sigma that is slow (the rest is white)
    uint8_t pos_type = 0x32;
    uint8_t vel_type = 0x32;
};

struct GnssFix {
    Vec3 pos_e;        // m
    Vec3 vel_e;        // m/s
    float pos_std[3];  // north, east, down, m
    float vel_std[3];  // north, east, down, m/s
};

class GnssModel {
public:
    GnssModel(const GnssOptions &opt, uint64_t seed);
    // One epoch dt_s after the previous one: the true antenna position and
    // velocity (ECEF) plus the receiver's errors.
    GnssFix observe(const Vec3 &ant_e, const Vec3 &ant_v_e, double dt_s);

private:
    GnssOptions opt_;
    Random rng_;
    Vec3 slow_n_;  // Gauss-Markov position error, north-east-down, m
};

}  // namespace drsim

#endif
