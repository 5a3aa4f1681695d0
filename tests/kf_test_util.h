// Dense reference algebra and navigation-state builders for the filter tests.
// Everything here is deliberately naive (full matrices, Gauss-Jordan) so that
// it shares nothing with the factored code under test.
#pragma once

#include <math.h>
#include <stdint.h>
#include <string.h>

#include <random>
#include <vector>

#include "drlib.h"

namespace kftest {

struct Mat {
    int rows = 0, cols = 0;
    std::vector<double> a;
    Mat(int r, int c) : rows(r), cols(c), a(static_cast<size_t>(r * c), 0.0) {}
    double &operator()(int i, int j) { return a[static_cast<size_t>(i * cols + j)]; }
    double operator()(int i, int j) const { return a[static_cast<size_t>(i * cols + j)]; }
    double *data() { return a.data(); }
};

inline Mat mul(const Mat &x, const Mat &y) {
    Mat out(x.rows, y.cols);
    for (int i = 0; i < x.rows; ++i)
        for (int j = 0; j < y.cols; ++j) {
            double s = 0.0;
            for (int k = 0; k < x.cols; ++k) s += x(i, k) * y(k, j);
            out(i, j) = s;
        }
    return out;
}

inline Mat transpose(const Mat &x) {
    Mat out(x.cols, x.rows);
    for (int i = 0; i < x.rows; ++i)
        for (int j = 0; j < x.cols; ++j) out(j, i) = x(i, j);
    return out;
}

inline Mat add(const Mat &x, const Mat &y, double sy = 1.0) {
    Mat out = x;
    for (size_t k = 0; k < out.a.size(); ++k) out.a[k] += sy * y.a[k];
    return out;
}

inline Mat identity(int n) {
    Mat out(n, n);
    for (int i = 0; i < n; ++i) out(i, i) = 1.0;
    return out;
}

// Gauss-Jordan inverse with partial pivoting.
inline Mat inverse(Mat x) {
    const int n = x.rows;
    Mat inv = identity(n);
    for (int c = 0; c < n; ++c) {
        int p = c;
        for (int r = c + 1; r < n; ++r)
            if (fabs(x(r, c)) > fabs(x(p, c))) p = r;
        for (int j = 0; j < n; ++j) {
            std::swap(x(c, j), x(p, j));
            std::swap(inv(c, j), inv(p, j));
        }
        const double d = x(c, c);
        for (int j = 0; j < n; ++j) {
            x(c, j) /= d;
            inv(c, j) /= d;
        }
        for (int r = 0; r < n; ++r) {
            if (r == c) continue;
            const double f = x(r, c);
            for (int j = 0; j < n; ++j) {
                x(r, j) -= f * x(c, j);
                inv(r, j) -= f * inv(c, j);
            }
        }
    }
    return inv;
}

inline double max_abs_diff(const Mat &x, const Mat &y) {
    double m = 0.0;
    for (size_t k = 0; k < x.a.size(); ++k) m = fmax(m, fabs(x.a[k] - y.a[k]));
    return m;
}

inline double max_abs(const Mat &x) {
    double m = 0.0;
    for (double v : x.a) m = fmax(m, fabs(v));
    return m;
}

// Packed row-major lower triangle to a dense matrix.
inline Mat unpack(const double *L, int n) {
    Mat out(n, n);
    int k = 0;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j <= i; ++j) out(i, j) = L[k++];
    return out;
}

inline Mat covariance(const double *L, int n) {
    const Mat l = unpack(L, n);
    return mul(l, transpose(l));
}

// Skew matrix [v x] written into a 3x3 block of m at (r0, c0), times s.
inline void put_skew(Mat &m, int r0, int c0, const double *v, double s = 1.0) {
    m(r0 + 0, c0 + 1) += -v[2] * s;
    m(r0 + 0, c0 + 2) += v[1] * s;
    m(r0 + 1, c0 + 0) += v[2] * s;
    m(r0 + 1, c0 + 2) += -v[0] * s;
    m(r0 + 2, c0 + 0) += -v[1] * s;
    m(r0 + 2, c0 + 1) += v[0] * s;
}

inline void put_block(Mat &m, int r0, int c0, const double *b3x3, double s = 1.0) {
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) m(r0 + r, c0 + c) += b3x3[3 * r + c] * s;
}

// cbn = Rz(heading) Ry(pitch) Rx(roll), written out from the elementary rotations.
inline void euler_to_cbn(double *c, double roll, double pitch, double heading) {
    const double cr = cos(roll), sr = sin(roll), cp = cos(pitch), sp = sin(pitch);
    const double ch = cos(heading), sh = sin(heading);
    const double m[9] = {ch * cp, ch * sp * sr - sh * cr, ch * sp * cr + sh * sr,
                         sh * cp, sh * sp * sr + ch * cr, sh * sp * cr - ch * sr,
                         -sp,     cp * sr,                cp * cr};
    memcpy(c, m, sizeof m);
}

inline void mat3_vec(double *out, const double *m, const double *v) {
    for (int r = 0; r < 3; ++r) out[r] = m[3 * r] * v[0] + m[3 * r + 1] * v[1] + m[3 * r + 2] * v[2];
}

inline void mat3t_vec(double *out, const double *m, const double *v) {
    for (int c = 0; c < 3; ++c) out[c] = m[c] * v[0] + m[3 + c] * v[1] + m[6 + c] * v[2];
}

inline void cross3(double *out, const double *a, const double *b) {
    out[0] = a[1] * b[2] - a[2] * b[1];
    out[1] = a[2] * b[0] - a[0] * b[2];
    out[2] = a[0] * b[1] - a[1] * b[0];
}

// A random packed factor with diagonals of either sign; row k scaled by scale[k].
inline void random_factor(double *L, int n, const double *scale, std::mt19937_64 &rng) {
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    int k = 0;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j <= i; ++j) {
            double v = u(rng);
            if (j == i) v = (v < 0.0 ? -1.0 : 1.0) * (0.3 + fabs(v));
            L[k++] = v * scale[i] * (j == i ? 1.0 : 0.5);
        }
}

// Typical magnitudes of the error states: m/s, rad, m/s^2, rad/s.
inline const double *state_scales() {
    static const double s[12] = {0.1, 0.1, 0.1, 0.05, 0.05, 0.5, 0.02, 0.02, 0.02, 1e-3, 1e-3, 1e-3};
    return s;
}

// A navigation state whose redundant fields agree, built with the library's
// own conversions the way the bank start does.
inline NavState make_nav(double lat, double lon, double h, const double *v_n, const double *rph) {
    NavState nav;
    memset(&nav, 0, sizeof nav);
    nav.llh[0] = lat;
    nav.llh[1] = lon;
    nav.llh[2] = h;
    llh2qne(nav.qne, nav.llh);
    quat2dcm(nav.cne, nav.qne);
    nav.cos_lat = nav.cne[6];
    nav.sin_lat = -nav.cne[8];
    nav.cos_lon = nav.cne[4];
    nav.sin_lon = -nav.cne[1];
    calc_radius(&nav.rm, &nav.rn, nav.sin_lat);
    calc_wie_n(nav.wie_n, lat);
    memcpy(nav.v_n, v_n, sizeof nav.v_n);
    nav.wen_n[0] = v_n[1] / (nav.rn + h);
    nav.wen_n[1] = -v_n[0] / (nav.rm + h);
    nav.wen_n[2] = -v_n[1] * nav.sin_lat / (nav.cos_lat * (nav.rn + h));
    rph2qbn(nav.qbn, rph);
    quat2dcm(nav.cbn, nav.qbn);
    cbn2rph(nav.rph, nav.cbn);
    return nav;
}

}  // namespace kftest
