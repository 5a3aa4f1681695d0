// Rotation matrices from textbook formulas, an attitude truth that shares
// nothing with the library's own conversions.
#pragma once

#include <cmath>

namespace rot {

struct Mat3 { double m[9]; };  // row-major

inline Mat3 mul(const Mat3 &a, const Mat3 &b) {
    Mat3 r{};
    for (int i = 0; i < 9; ++i)
        for (int k = 0; k < 3; ++k) r.m[i] += a.m[i / 3 * 3 + k] * b.m[3 * k + i % 3];
    return r;
}

// Rodrigues: rotation by angle about the unit axis k.
inline Mat3 axis_angle(const double *k, double angle) {
    const double c = std::cos(angle), s = std::sin(angle), v = 1.0 - c;
    return {{c + k[0] * k[0] * v, k[0] * k[1] * v - k[2] * s, k[0] * k[2] * v + k[1] * s,
             k[1] * k[0] * v + k[2] * s, c + k[1] * k[1] * v, k[1] * k[2] * v - k[0] * s,
             k[2] * k[0] * v - k[1] * s, k[2] * k[1] * v + k[0] * s, c + k[2] * k[2] * v}};
}

// cbn = Rz(heading) Ry(pitch) Rx(roll), right-handed elementary rotations.
inline Mat3 euler(double roll, double pitch, double heading) {
    const double x[3] = {1, 0, 0}, y[3] = {0, 1, 0}, z[3] = {0, 0, 1};
    return mul(axis_angle(z, heading), mul(axis_angle(y, pitch), axis_angle(x, roll)));
}

}  // namespace rot
