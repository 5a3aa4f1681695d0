// Vectors, rotation matrices, quaternions and Euler angles for the
// simulator. Conventions (those of the fusion library's interface, written
// here independently so that a shared mistake cannot hide):
//   - names read from-to: c_xy and q_xy map frame-x vectors into frame y
//     (c_bn: body to north-east-down), so c_xz = c_yz c_xy and q_xz = q_yz * q_xy;
//   - quaternions scalar first, Hamilton product (i j = k);
//   - matrices row-major;
//   - Euler angles (roll, pitch, heading) with c_bn = Rz(heading) Ry(pitch) Rx(roll).
// Vector and quaternion types are templates so that the truth trajectory
// can be evaluated on Jets (jet.h) as well as on doubles.
#ifndef DRSIM_ATTITUDE_H
#define DRSIM_ATTITUDE_H

#include <array>
#include <cmath>

namespace drsim {

template <typename T>
struct Vec3T {
    T x{}, y{}, z{};
    T &operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
    const T &operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
};
using Vec3 = Vec3T<double>;

template <typename T>
Vec3T<T> operator+(const Vec3T<T> &a, const Vec3T<T> &b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
template <typename T>
Vec3T<T> operator-(const Vec3T<T> &a, const Vec3T<T> &b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
template <typename T>
Vec3T<T> operator*(const T &s, const Vec3T<T> &a) { return {s * a.x, s * a.y, s * a.z}; }
template <typename T>
T dot(const Vec3T<T> &a, const Vec3T<T> &b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
template <typename T>
Vec3T<T> cross(const Vec3T<T> &a, const Vec3T<T> &b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline Vec3 operator*(double s, const Vec3 &a) { return {s * a.x, s * a.y, s * a.z}; }
inline double norm(const Vec3 &a) { return std::sqrt(dot(a, a)); }

// Row-major 3x3 matrix of doubles.
struct Mat3 {
    std::array<double, 9> m{};
    double &operator()(int r, int c) { return m[static_cast<size_t>(3 * r + c)]; }
    double operator()(int r, int c) const { return m[static_cast<size_t>(3 * r + c)]; }
    static Mat3 identity() { Mat3 a; a.m = {1, 0, 0, 0, 1, 0, 0, 0, 1}; return a; }
};

// M v, with M constant and v of any scalar type.
template <typename T>
Vec3T<T> operator*(const Mat3 &a, const Vec3T<T> &v) {
    return {a(0, 0) * v.x + a(0, 1) * v.y + a(0, 2) * v.z,
            a(1, 0) * v.x + a(1, 1) * v.y + a(1, 2) * v.z,
            a(2, 0) * v.x + a(2, 1) * v.y + a(2, 2) * v.z};
}
Mat3 operator*(const Mat3 &a, const Mat3 &b);
Mat3 transpose(const Mat3 &a);

template <typename T>
struct QuatT {
    T w{1.0}, x{}, y{}, z{};
    Vec3T<T> vec() const { return {x, y, z}; }
};
using Quat = QuatT<double>;

template <typename T>
QuatT<T> operator*(const QuatT<T> &p, const QuatT<T> &q) {
    return {p.w * q.w - p.x * q.x - p.y * q.y - p.z * q.z,
            p.w * q.x + p.x * q.w + p.y * q.z - p.z * q.y,
            p.w * q.y - p.x * q.z + p.y * q.w + p.z * q.x,
            p.w * q.z + p.x * q.y - p.y * q.x + p.z * q.w};
}
template <typename T>
QuatT<T> conj(const QuatT<T> &q) { return {q.w, -q.x, -q.y, -q.z}; }

// v' = q v q*: for q_xy, a frame-x vector resolved in frame y.
template <typename T>
Vec3T<T> rotate(const QuatT<T> &q, const Vec3T<T> &v) {
    const QuatT<T> p{T(0.0), v.x, v.y, v.z};
    return (q * p * conj(q)).vec();
}

// Quaternion of the rotation vector phi, valid for any scalar type and
// smooth through phi = 0: cos(|phi|/2) and sin(|phi|/2)/|phi| are summed as
// series in |phi|^2 (enough terms for rotations up to about 2 rad).
template <typename T>
QuatT<T> quat_from_rotvec(const Vec3T<T> &phi) {
    const T x = T(0.25) * dot(phi, phi);   // (|phi|/2)^2
    T c = T(1.0), s = T(0.5), term_c = T(1.0), term_s = T(0.5);
    for (int k = 1; k <= 12; ++k) {
        term_c = term_c * x * T(-1.0 / ((2.0 * k - 1.0) * (2.0 * k)));
        term_s = term_s * x * T(-1.0 / ((2.0 * k) * (2.0 * k + 1.0)));
        c += term_c;
        s += term_s;
    }
    return {c, s * phi.x, s * phi.y, s * phi.z};
}

// Quaternion of a rotation by angle about the unit axis 0, 1 or 2.
template <typename T>
QuatT<T> quat_axis(int axis, const T &angle) {
    using std::cos;
    using std::sin;
    const T c = cos(T(0.5) * angle), s = sin(T(0.5) * angle);
    QuatT<T> q{c, T(0.0), T(0.0), T(0.0)};
    if (axis == 0) q.x = s;
    else if (axis == 1) q.y = s;
    else q.z = s;
    return q;
}

inline Quat quat_value(const QuatT<double> &q) { return q; }
template <typename T>
Quat quat_value(const QuatT<T> &q) { return {q.w.v, q.x.v, q.y.v, q.z.v}; }
inline Vec3 vec_value(const Vec3T<double> &v) { return v; }
template <typename T>
Vec3 vec_value(const Vec3T<T> &v) { return {v.x.v, v.y.v, v.z.v}; }

Quat normalized(const Quat &q);
Mat3 dcm_from_quat(const Quat &q);
Quat quat_from_dcm(const Mat3 &c);
// C = Rz(heading) Ry(pitch) Rx(roll).
Mat3 dcm_from_euler(const Vec3 &rph);
// Roll in (-pi, pi], pitch in [-pi/2, pi/2], heading in [0, 2 pi).
Vec3 euler_from_dcm(const Mat3 &c);
// Rotation angle of C, rad, in [0, pi].
double rotation_angle(const Mat3 &c);
// Rotation vector phi of ca cb^T (the rotation that turns cb into ca), |phi| <= pi.
Vec3 rotation_between(const Mat3 &ca, const Mat3 &cb);
// Angle a - b wrapped into (-pi, pi].
double wrap_angle(double a);

}  // namespace drsim

#endif
