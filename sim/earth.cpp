#include "earth.h"

#include <cmath>

namespace drsim {

Vec3 ecef_from_geodetic(const Geodetic &g) {
    const double s = std::sin(g.lat), c = std::cos(g.lat);
    const double n = wgs84::kA / std::sqrt(1.0 - wgs84::kE2 * s * s);
    return {(n + g.h) * c * std::cos(g.lon), (n + g.h) * c * std::sin(g.lon),
            (n * (1.0 - wgs84::kE2) + g.h) * s};
}

Geodetic geodetic_from_ecef(const Vec3 &r_e) {
    const double p = std::hypot(r_e.x, r_e.y);
    Geodetic g;
    g.lon = std::atan2(r_e.y, r_e.x);
    double lat = std::atan2(r_e.z, p * (1.0 - wgs84::kE2));
    for (int i = 0; i < 8; ++i) {
        const double s = std::sin(lat);
        const double n = wgs84::kA / std::sqrt(1.0 - wgs84::kE2 * s * s);
        const double next = std::atan2(r_e.z + wgs84::kE2 * n * s, p);
        const bool done = std::fabs(next - lat) < 1e-15;
        lat = next;
        if (done) break;
    }
    const double s = std::sin(lat), c = std::cos(lat);
    g.lat = lat;
    // Stable at every latitude, unlike p / cos(lat) - N.
    g.h = p * c + r_e.z * s - wgs84::kA * std::sqrt(1.0 - wgs84::kE2 * s * s);
    return g;
}

Mat3 dcm_ne(double lat, double lon) {
    const double sl = std::sin(lat), cl = std::cos(lat);
    const double so = std::sin(lon), co = std::cos(lon);
    Mat3 c;
    c.m = {-sl * co, -so, -cl * co,
           -sl * so, co, -cl * so,
           cl, 0.0, -sl};
    return c;
}

double normal_gravity(double lat, double h) {
    using namespace wgs84;
    const double s2 = std::sin(lat) * std::sin(lat);
    const double k = (kB * kGammaP) / (kA * kGammaE) - 1.0;
    const double gamma0 = kGammaE * (1.0 + k * s2) / std::sqrt(1.0 - kE2 * s2);
    const double m = kOmega * kOmega * kA * kA * kB / kGM;
    return gamma0 * (1.0 - 2.0 / kA * (1.0 + kF + m - 2.0 * kF * s2) * h + 3.0 / (kA * kA) * h * h);
}

Vec3 gravity_ecef(const Vec3 &r_e) {
    const Geodetic g = geodetic_from_ecef(r_e);
    const Vec3 down_n{0.0, 0.0, normal_gravity(g.lat, g.h)};
    return dcm_ne(g.lat, g.lon) * down_n;
}

}  // namespace drsim
