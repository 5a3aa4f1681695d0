// The simulator's own Earth: the WGS-84 ellipsoid, its rotation, normal
// gravity and the frames the data are expressed in. e = Earth-centred
// Earth-fixed; n = north-east-down at a geodetic position.
#ifndef DRSIM_EARTH_H
#define DRSIM_EARTH_H

#include "attitude.h"

namespace drsim {

namespace wgs84 {
constexpr double kA = 6378137.0;                  // semi-major axis, m
constexpr double kF = 1.0 / 298.257223563;       // flattening
constexpr double kB = kA * (1.0 - kF);           // semi-minor axis, m
constexpr double kE2 = kF * (2.0 - kF);          // first eccentricity squared
constexpr double kOmega = 7.292115e-5;           // Earth rotation rate, rad/s
constexpr double kGM = 3.986004418e14;           // m^3/s^2
constexpr double kGammaE = 9.7803253359;         // normal gravity at the equator, m/s^2
constexpr double kGammaP = 9.8321849378;         // normal gravity at the poles, m/s^2
}  // namespace wgs84

struct Geodetic {
    double lat = 0.0;  // rad
    double lon = 0.0;  // rad, east positive
    double h = 0.0;    // m above the ellipsoid
};

Vec3 ecef_from_geodetic(const Geodetic &g);
// Iterated to full double precision; valid everywhere except the exact poles' axis.
Geodetic geodetic_from_ecef(const Vec3 &r_e);
// C_ne: columns are the north, east and down unit vectors in e.
Mat3 dcm_ne(double lat, double lon);
// Normal gravity (attraction plus centrifugal) at a geodetic point: Somigliana
// on the ellipsoid with the second-order height expansion above it, along the
// ellipsoid normal (down).
double normal_gravity(double lat, double h);
// The normal gravity vector resolved in e at an ECEF point.
Vec3 gravity_ecef(const Vec3 &r_e);
// Earth rotation vector in e, rad/s.
inline Vec3 earth_rate_ecef() { return {0.0, 0.0, wgs84::kOmega}; }

}  // namespace drsim

#endif
