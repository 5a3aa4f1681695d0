#include "gnss_model.h"

#include <cmath>

#include "earth.h"

namespace drsim {

GnssModel::GnssModel(const GnssOptions &opt, uint64_t seed) : opt_(opt), rng_(seed ^ 0x85ebca6bULL) {
    const double k = opt.correlated_share;
    slow_n_ = {k * opt.pos_sigma_h_m * rng_.normal(), k * opt.pos_sigma_h_m * rng_.normal(),
               k * opt.pos_sigma_v_m * rng_.normal()};
}

GnssFix GnssModel::observe(const Vec3 &ant_e, const Vec3 &ant_v_e, double dt_s) {
    GnssFix fix;
    fix.pos_e = ant_e;
    fix.vel_e = ant_v_e;
    const double sig_p[3] = {opt_.pos_sigma_h_m, opt_.pos_sigma_h_m, opt_.pos_sigma_v_m};
    const double sig_v[3] = {opt_.vel_sigma_h_mps, opt_.vel_sigma_h_mps, opt_.vel_sigma_v_mps};
    for (int i = 0; i < 3; ++i) {
        fix.pos_std[i] = static_cast<float>(sig_p[i]);
        fix.vel_std[i] = static_cast<float>(sig_v[i]);
    }
    if (!opt_.noise) return fix;
    // The ambiguity-fixed carrier solution wanders slowly (multipath,
    // atmosphere); a small white part rides on top of it.
    const double k = opt_.correlated_share;
    const double white = std::sqrt(std::fmax(0.0, 1.0 - k * k));
    const double phi = std::exp(-dt_s / opt_.correlation_s);
    const double drive = std::sqrt(1.0 - phi * phi);
    Vec3 err_n, verr_n;
    for (int i = 0; i < 3; ++i) {
        slow_n_[i] = phi * slow_n_[i] + drive * k * sig_p[i] * rng_.normal();
        err_n[i] = slow_n_[i] + white * sig_p[i] * rng_.normal();
        verr_n[i] = sig_v[i] * rng_.normal();
    }
    const Geodetic g = geodetic_from_ecef(ant_e);
    const Mat3 c_ne = dcm_ne(g.lat, g.lon);
    fix.pos_e = ant_e + c_ne * err_n;
    fix.vel_e = ant_v_e + c_ne * verr_n;
    return fix;
}

}  // namespace drsim
