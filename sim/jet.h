// Second-order Taylor numbers: a value with its first and second time
// derivatives, carried exactly through arithmetic. The truth trajectory is
// written once as a function of time and evaluated either on plain doubles
// or on Jets; the Jets give the velocities, accelerations and body rates
// the IMU senses without any numerical differentiation.
#ifndef DRSIM_JET_H
#define DRSIM_JET_H

#include <cmath>

namespace drsim {

struct Jet {
    double v = 0.0;   // value
    double d1 = 0.0;  // first derivative
    double d2 = 0.0;  // second derivative

    Jet() = default;
    Jet(double value) : v(value) {}  // NOLINT: constants mix freely with Jets
    Jet(double value, double first, double second) : v(value), d1(first), d2(second) {}

    static Jet time(double t) { return Jet(t, 1.0, 0.0); }
};

inline Jet operator+(const Jet &a, const Jet &b) { return {a.v + b.v, a.d1 + b.d1, a.d2 + b.d2}; }
inline Jet operator-(const Jet &a, const Jet &b) { return {a.v - b.v, a.d1 - b.d1, a.d2 - b.d2}; }
inline Jet operator-(const Jet &a) { return {-a.v, -a.d1, -a.d2}; }
inline Jet operator*(const Jet &a, const Jet &b) {
    return {a.v * b.v, a.d1 * b.v + a.v * b.d1, a.d2 * b.v + 2.0 * a.d1 * b.d1 + a.v * b.d2};
}
inline Jet operator/(const Jet &a, const Jet &b) {
    const double q = a.v / b.v;
    const double q1 = (a.d1 - q * b.d1) / b.v;
    const double q2 = (a.d2 - 2.0 * q1 * b.d1 - q * b.d2) / b.v;
    return {q, q1, q2};
}
inline Jet &operator+=(Jet &a, const Jet &b) { return a = a + b; }
inline Jet &operator-=(Jet &a, const Jet &b) { return a = a - b; }
inline Jet &operator*=(Jet &a, const Jet &b) { return a = a * b; }

// Chain rule for a scalar function f with f(x), f'(x), f''(x) known.
inline Jet chain(const Jet &x, double f, double df, double ddf) {
    return {f, df * x.d1, ddf * x.d1 * x.d1 + df * x.d2};
}
inline Jet sin(const Jet &x) {
    const double s = std::sin(x.v), c = std::cos(x.v);
    return chain(x, s, c, -s);
}
inline Jet cos(const Jet &x) {
    const double s = std::sin(x.v), c = std::cos(x.v);
    return chain(x, c, -s, -c);
}
inline Jet sqrt(const Jet &x) {
    const double r = std::sqrt(x.v);
    return chain(x, r, 0.5 / r, -0.25 / (r * x.v));
}

inline double value(double x) { return x; }
inline double value(const Jet &x) { return x.v; }

}  // namespace drsim

#endif
