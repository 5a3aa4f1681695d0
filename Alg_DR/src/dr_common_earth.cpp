// Earth model: the WGS-84 ellipsoid, geodetic <-> ECEF conversions, the
// orientation of the local north-east-down frame (cne, qne), radii of
// curvature, Earth rate in n, and three gravity models.
#include <math.h>

#include "dr_consts.h"
#include "drlib_toolkit.h"

namespace {

constexpr double kSemiMajor_m = 6378137.0;
using drlib::kSemiMinor_m;
constexpr double kEcc2 = 0.006694379990141317;
constexpr double kOneMinusEcc2 = 0.9933056200098587;
constexpr double kMeridianNumerator_m = 6335439.3272928195;  // a (1 - e^2)
constexpr double kEcc2TimesA_m = 42697.67270717997;          // e^2 a
constexpr double kEcc2PrimeTimesB_m = 42841.31151331357;     // e'^2 b
constexpr double kEarthRate_rad_s = 7.2921151467e-5;
constexpr double kEarthRate2_rad2_s2 = 5.3174943312731555e-09;
constexpr double kMinAxisDistance_m = 1e-10;
constexpr double kQuarterPi = 0.7853981633974483;

// Zonal-harmonic model through J3, defined in feet: mu = 0.3048^3 * 1.40763573e16,
// a = 0.3048 * 20925604.0.
constexpr double kMu1971_m3_s2 = 398598050238279.4;
constexpr double kSemiMajor1971_m = 6378124.0992;
constexpr double kJ2 = 0.001082627;
constexpr double kJ3 = -2.5327e-6;

}  // namespace

extern "C" {

DRLIB_API void ecef2llh(double *llh, const double *r_e) {
    const double x = r_e[0], y = r_e[1], z = r_e[2];
    const double p = sqrt(x * x + y * y);
    // On the polar axis the longitude is undefined: leave the caller's value.
    if (p < kMinAxisDistance_m) return;
    // Bowring: one step from the parametric latitude is exact to ~1e-14 rad
    // for terrestrial heights, so no iteration.
    const double theta = atan(z * kSemiMajor_m / (p * kSemiMinor_m));
    const double st = sin(theta), ct = cos(theta);
    const double lat =
        atan((z + kEcc2PrimeTimesB_m * (st * st * st)) / (p - kEcc2TimesA_m * (ct * ct * ct)));
    const double slat = sin(lat);
    const double rn = kSemiMajor_m / sqrt(1.0 - kEcc2 * (slat * slat));
    llh[0] = lat;
    llh[1] = atan2(y, x);
    llh[2] = p / cos(lat) - rn;
}

DRLIB_API void llh2ecef(double *r_e, const double *llh) {
    const double slat = sin(llh[0]), clat = cos(llh[0]);
    const double slon = sin(llh[1]), clon = cos(llh[1]);
    const double rn = kSemiMajor_m / sqrt(1.0 - kEcc2 * (slat * slat));
    r_e[0] = (rn + llh[2]) * clat * clon;
    r_e[1] = (rn + llh[2]) * clat * slon;
    r_e[2] = (rn * kOneMinusEcc2 + llh[2]) * slat;
}

DRLIB_API void llh2qne(double *qne, const double *llh) {
    // Rotation about the z axis by the longitude, then about the new y axis
    // by -(pi/2 + latitude): north-east-down in Earth-fixed axes.
    const double alpha = -kQuarterPi - llh[0] / 2.0;
    const double c_lon = cos(llh[1] / 2.0), s_lon = sin(llh[1] / 2.0);
    const double c_a = cos(alpha), s_a = sin(alpha);
    qne[0] = c_lon * c_a;
    qne[1] = -s_lon * s_a;
    qne[2] = c_lon * s_a;
    qne[3] = s_lon * c_a;
}

DRLIB_API void llh2cne(double *cne, const double *llh) {
    const double slat = sin(llh[0]), clat = cos(llh[0]);
    const double slon = sin(llh[1]), clon = cos(llh[1]);
    // Columns: north, east and down unit vectors in e.
    cne[0] = -slat * clon;
    cne[1] = -slon;
    cne[2] = -clat * clon;
    cne[3] = -slat * slon;
    cne[4] = clon;
    cne[5] = -clat * slon;
    cne[6] = clat;
    cne[7] = 0.0;
    cne[8] = -slat;
}

DRLIB_API void cne2llh(double *llh, const double *cne) {
    // A cne rebuilt from a first-order normalised qne may overshoot unit
    // length by rounding at the poles; keep the arc sine defined there.
    double minus_slat = cne[8];
    if (minus_slat > 1.0) minus_slat = 1.0;
    if (minus_slat < -1.0) minus_slat = -1.0;
    llh[0] = -asin(minus_slat);
    llh[1] = atan2(-cne[5], -cne[2]);
}

DRLIB_API void calc_radius(double *rm, double *rn, double sin_lat) {
    const double w = 1.0 - kEcc2 * sin_lat * sin_lat;
    const double sqrt_w = sqrt(w);
    *rm = kMeridianNumerator_m / (w * sqrt_w);
    *rn = kSemiMajor_m / sqrt_w;
}

DRLIB_API void calc_wie_n(double *wie_n, double lat) {
    wie_n[0] = kEarthRate_rad_s * cos(lat);
    wie_n[1] = 0.0;
    wie_n[2] = -kEarthRate_rad_s * sin(lat);
}

DRLIB_API double local_gravity_v1(double sin_lat, double height) {
    const double s2 = sin_lat * sin_lat;
    const double s4 = s2 * s2;
    return 9.7803267715 * (1.0 + 0.0052790414 * s2 + 2.32718e-5 * s4) +
           (-3.087691089e-6 + 4.397731e-9 * s2) * height + 7.21e-13 * height * height;
}

DRLIB_API double local_gravity_v2(double sin_lat, double height) {
    const double s2 = sin_lat * sin_lat;
    const double g0 = 9.7803267714 * (1.0 + 0.00193185138639 * s2) / sqrt(1.0 - 0.00669437999013 * s2);
    // 1.00680259680669 = 1 + f + m, 0.00670562132948 = 2 f.
    return g0 * (1.0 - 2.0 * height * (1.00680259680669 - 0.00670562132948 * s2) / 6378137.0);
}

DRLIB_API void gravity_model_1971(double *g_n, const double *r_e, const double *cne, double rn,
                                  double height) {
    const double r = absvect3d(r_e);
    const double s = r_e[2] / r;  // sine of the geocentric latitude
    const double s2 = s * s;
    const double rho = kSemiMajor1971_m / r;
    const double rho2 = rho * rho;
    const double a = 1.5 * kJ2 * rho2 * (3.0 * s2 - 1.0);
    const double b = 2.0 * kJ3 * rho * rho2 * s * (5.0 * s2 - 3.0);
    const double d = kJ2 * s + 0.5 * kJ3 * rho * (5.0 * s2 - 1.0);
    const double mu_r2 = kMu1971_m3_s2 / (r * r);
    const double g_radial = -mu_r2 * (1.0 - a - b);
    const double g_polar = 3.0 * d * mu_r2 * rho2;

    // t = (k x u) x u = s u - k: the polar axis less its radial part.
    const double u[3] = {r_e[0] / r, r_e[1] / r, r_e[2] / r};
    const double k[3] = {0.0, 0.0, 1.0};
    double k_cross_u[3];
    double t[3];
    cross_prod(k_cross_u, k, u);
    cross_prod(t, k_cross_u, u);

    double g_e[3];
    for (int i = 0; i < 3; ++i) g_e[i] = g_radial * u[i] + g_polar * t[i];
    mtxt_mul_vect_3d(g_n, cne, g_e);

    // Centrifugal acceleration of the Earth-fixed point, resolved in n.
    const double cos_lat = cne[6];
    const double sin_lat = -cne[8];
    const double dist_m = rn + height;
    g_n[0] -= dist_m * kEarthRate2_rad2_s2 * cos_lat * sin_lat;
    g_n[2] -= dist_m * kEarthRate2_rad2_s2 * cos_lat * cos_lat;
}

}  // extern "C"
