#include "attitude.h"
#include "units.h"

#include <algorithm>

namespace drsim {

namespace {
}

Mat3 operator*(const Mat3 &a, const Mat3 &b) {
    Mat3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r(i, j) = a(i, 0) * b(0, j) + a(i, 1) * b(1, j) + a(i, 2) * b(2, j);
    return r;
}

Mat3 transpose(const Mat3 &a) {
    Mat3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r(i, j) = a(j, i);
    return r;
}

Quat normalized(const Quat &q) {
    const double n = std::sqrt(q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z);
    return {q.w / n, q.x / n, q.y / n, q.z / n};
}

Mat3 dcm_from_quat(const Quat &q) {
    const double w = q.w, x = q.x, y = q.y, z = q.z;
    Mat3 c;
    c.m = {1.0 - 2.0 * (y * y + z * z), 2.0 * (x * y - w * z), 2.0 * (x * z + w * y),
           2.0 * (x * y + w * z), 1.0 - 2.0 * (x * x + z * z), 2.0 * (y * z - w * x),
           2.0 * (x * z - w * y), 2.0 * (y * z + w * x), 1.0 - 2.0 * (x * x + y * y)};
    return c;
}

// Shepperd's method: take the largest of the four squared components to keep
// the square root well away from zero.
Quat quat_from_dcm(const Mat3 &c) {
    const double tr = c(0, 0) + c(1, 1) + c(2, 2);
    const double cand[4] = {1.0 + tr, 1.0 + 2.0 * c(0, 0) - tr, 1.0 + 2.0 * c(1, 1) - tr,
                            1.0 + 2.0 * c(2, 2) - tr};
    const int k = static_cast<int>(std::max_element(cand, cand + 4) - cand);
    const double s = 0.5 * std::sqrt(cand[k]);
    const double f = 0.25 / s;
    Quat q;
    switch (k) {
    case 0: q = {s, (c(2, 1) - c(1, 2)) * f, (c(0, 2) - c(2, 0)) * f, (c(1, 0) - c(0, 1)) * f}; break;
    case 1: q = {(c(2, 1) - c(1, 2)) * f, s, (c(0, 1) + c(1, 0)) * f, (c(0, 2) + c(2, 0)) * f}; break;
    case 2: q = {(c(0, 2) - c(2, 0)) * f, (c(0, 1) + c(1, 0)) * f, s, (c(1, 2) + c(2, 1)) * f}; break;
    default: q = {(c(1, 0) - c(0, 1)) * f, (c(0, 2) + c(2, 0)) * f, (c(1, 2) + c(2, 1)) * f, s}; break;
    }
    if (q.w < 0.0) q = {-q.w, -q.x, -q.y, -q.z};
    return q;
}

Mat3 dcm_from_euler(const Vec3 &rph) {
    const double cr = std::cos(rph.x), sr = std::sin(rph.x);
    const double cp = std::cos(rph.y), sp = std::sin(rph.y);
    const double ch = std::cos(rph.z), sh = std::sin(rph.z);
    Mat3 rx, ry, rz;
    rx.m = {1, 0, 0, 0, cr, -sr, 0, sr, cr};
    ry.m = {cp, 0, sp, 0, 1, 0, -sp, 0, cp};
    rz.m = {ch, -sh, 0, sh, ch, 0, 0, 0, 1};
    return rz * ry * rx;
}

Vec3 euler_from_dcm(const Mat3 &c) {
    const double pitch = std::atan2(-c(2, 0), std::hypot(c(2, 1), c(2, 2)));
    const double roll = std::atan2(c(2, 1), c(2, 2));
    double heading = std::atan2(c(1, 0), c(0, 0));
    if (heading < 0.0) heading += 2.0 * kPi;
    if (heading >= 2.0 * kPi) heading -= 2.0 * kPi;
    return {roll, pitch, heading};
}

double rotation_angle(const Mat3 &c) {
    const Quat q = quat_from_dcm(c);
    const double s = std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z);
    return 2.0 * std::atan2(s, std::fabs(q.w));
}

Vec3 rotation_between(const Mat3 &ca, const Mat3 &cb) {
    const Quat q = quat_from_dcm(ca * transpose(cb));
    const double s = std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z);
    if (s < 1e-300) return {0.0, 0.0, 0.0};
    const double angle = 2.0 * std::atan2(s, q.w);
    return (angle / s) * q.vec();
}

double wrap_angle(double a) {
    a = std::fmod(a, 2.0 * kPi);
    if (a > kPi) a -= 2.0 * kPi;
    if (a <= -kPi) a += 2.0 * kPi;
    return a;
}

}  // namespace drsim
