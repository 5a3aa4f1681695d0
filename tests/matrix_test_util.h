// Dense reference algebra for the packed-matrix and filter tests: naive
// full-matrix formulas that share nothing with the factored code under test,
// and navigation and filter records built consistently.
#pragma once

#include <gtest/gtest.h>

#include <math.h>
#include <string.h>
#include <random>
#include <vector>

#include "drlib_toolkit.h"

namespace mtest {

using Mat = std::vector<double>;  // row-major; dimensions travel with the caller

inline int tri(int n) { return n * (n + 1) / 2; }

inline Mat random_dense(std::mt19937 &rng, int rows, int cols) {
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    Mat m(rows * cols);
    for (double &x : m) x = u(rng);
    return m;
}

// Packed factor with diagonal magnitudes in [1, 2] and random signs.
inline Mat random_factor(std::mt19937 &rng, int n) {
    Mat L = random_dense(rng, 1, tri(n));
    for (int i = 0; i < n; ++i) L[tri(i) + i] = L[tri(i) + i] < 0 ? L[tri(i) + i] - 1.0 : L[tri(i) + i] + 1.0;
    return L;
}

inline Mat unpack(const Mat &P, int n, bool symmetric) {
    Mat D(n * n, 0.0);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j <= i; ++j) {
            D[i * n + j] = P[tri(i) + j];
            if (symmetric) D[j * n + i] = D[i * n + j];
        }
    return D;
}
inline Mat unpack_lower(const Mat &P, int n) { return unpack(P, n, false); }
inline Mat unpack_sym(const Mat &P, int n) { return unpack(P, n, true); }

inline Mat pack_lower(const Mat &D, int n) {
    Mat P(tri(n));
    for (int i = 0; i < n; ++i)
        for (int j = 0; j <= i; ++j) P[tri(i) + j] = D[i * n + j];
    return P;
}

inline Mat mul(const Mat &A, const Mat &B, int m, int n, int p) {
    Mat C(m * p, 0.0);
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < p; ++j)
            for (int k = 0; k < n; ++k) C[i * p + j] += A[i * n + k] * B[k * p + j];
    return C;
}

inline Mat transpose(const Mat &A, int rows, int cols) {
    Mat T(rows * cols);
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) T[j * rows + i] = A[i * cols + j];
    return T;
}

inline Mat diag(const Mat &d) {
    const int n = static_cast<int>(d.size());
    Mat D(n * n, 0.0);
    for (int i = 0; i < n; ++i) D[i * n + i] = d[i];
    return D;
}
inline Mat identity(int n) { return diag(Mat(n, 1.0)); }

// A A^T of a dense rows x cols matrix.
inline Mat gram(const Mat &A, int rows, int cols) { return mul(A, transpose(A, rows, cols), rows, cols, rows); }

inline ::testing::AssertionResult all_near(const Mat &got, const Mat &want, double tol) {
    if (got.size() != want.size()) return ::testing::AssertionFailure() << "size " << got.size();
    for (size_t i = 0; i < got.size(); ++i)
        if (!(std::fabs(got[i] - want[i]) <= tol))
            return ::testing::AssertionFailure() << "element " << i << ": " << got[i] << " vs " << want[i];
    return ::testing::AssertionSuccess();
}

}  // namespace mtest

namespace kftest {

// A dense matrix that carries its dimensions.
struct Mat {
    int rows, cols;
    std::vector<double> a;
    Mat(int r, int c) : rows(r), cols(c), a(static_cast<size_t>(r * c), 0.0) {}
    double &operator()(int i, int j) { return a[static_cast<size_t>(i * cols + j)]; }
    double operator()(int i, int j) const { return a[static_cast<size_t>(i * cols + j)]; }
};

inline Mat mul(const Mat &x, const Mat &y, bool y_transposed = false) {
    Mat out(x.rows, y_transposed ? y.rows : y.cols);
    out.a = mtest::mul(x.a, y_transposed ? mtest::transpose(y.a, y.rows, y.cols) : y.a, x.rows, x.cols, out.cols);
    return out;
}

inline Mat add(Mat x, const Mat &y, double sy = 1.0) {
    for (size_t k = 0; k < x.a.size(); ++k) x.a[k] += sy * y.a[k];
    return x;
}

// Largest element difference relative to the largest element of want.
inline double rel_err(const Mat &got, const Mat &want) {
    double d = 0.0, m = 0.0;
    for (size_t k = 0; k < want.a.size(); ++k) d = fmax(d, fabs(got.a[k] - want.a[k])), m = fmax(m, fabs(want.a[k]));
    return d / m;
}

// L L^T of a packed row-major lower triangle.
inline Mat covariance(const double *L, int n) {
    Mat p(n, n);
    p.a = mtest::gram(mtest::unpack_lower(mtest::Mat(L, L + mtest::tri(n)), n), n, n);
    return p;
}

// Adds s [v x] to the 3x3 block of m at (r0, c0).
inline void put_skew(Mat &m, int r0, int c0, const double *v, double s) {
    m(r0, c0 + 1) -= v[2] * s, m(r0, c0 + 2) += v[1] * s;
    m(r0 + 1, c0) += v[2] * s, m(r0 + 1, c0 + 2) -= v[0] * s;
    m(r0 + 2, c0) -= v[1] * s, m(r0 + 2, c0 + 1) += v[0] * s;
}

// Textbook update with a diagonal R, one measurement at a time (the same as
// the batch K = P H^T (H P H^T + R)^-1): dx += K z, returns P - K H P.
inline Mat textbook_update(Mat P, const Mat &H, const double *z, const double *r, Mat *dx) {
    const int n = P.rows;
    Mat d(n, 1);
    for (int i = 0; i < H.rows; ++i) {
        Mat h(1, n), pht = mul(P, H, true), k(n, 1);
        double s = r[i] * r[i], innovation = z[i];
        for (int j = 0; j < n; ++j) h(0, j) = H(i, j), s += H(i, j) * pht(j, i), innovation -= H(i, j) * d(j, 0);
        for (int j = 0; j < n; ++j) k(j, 0) = pht(j, i) / s, d(j, 0) += k(j, 0) * innovation;
        P = add(P, mul(k, mul(h, P)), -1.0);
    }
    if (dx) *dx = add(*dx, d);
    return P;
}

// A random packed factor, diagonals of either sign, row k of size scale[k].
inline void random_factor(double *L, int n, std::mt19937_64 &rng) {
    static const double scale[12] = {0.1, 0.1, 0.1, 0.05, 0.05, 0.5, 0.02, 0.02, 0.02, 1e-3, 1e-3, 1e-3};
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (int i = 0, k = 0; i < n; ++i)
        for (int j = 0; j <= i; ++j, ++k) {
            const double v = u(rng);
            L[k] = scale[i] * (j == i ? copysign(0.3 + fabs(v), v) : 0.5 * v);
        }
}

inline void transport_rate(double *w, const NavState &nav, const double *v) {
    const double h = nav.llh[2];
    w[0] = v[1] / (nav.rn + h);
    w[1] = -v[0] / (nav.rm + h);
    w[2] = -v[1] * nav.sin_lat / (nav.cos_lat * (nav.rn + h));
}

// A navigation state whose redundant fields agree.
inline NavState make_nav(double lat, double lon, double h, const double *v_n, const double *rph) {
    NavState nav;
    memset(&nav, 0, sizeof nav);
    nav.llh[0] = lat, nav.llh[1] = lon, nav.llh[2] = h;
    llh2qne(nav.qne, nav.llh);
    quat2dcm(nav.cne, nav.qne);
    nav.cos_lat = nav.cne[6], nav.sin_lat = -nav.cne[8];
    nav.cos_lon = nav.cne[4], nav.sin_lon = -nav.cne[1];
    calc_radius(&nav.rm, &nav.rn, nav.sin_lat);
    calc_wie_n(nav.wie_n, lat);
    memcpy(nav.v_n, v_n, sizeof nav.v_n);
    transport_rate(nav.wen_n, nav, v_n);
    rph2qbn(nav.qbn, rph);
    quat2dcm(nav.cbn, nav.qbn);
    cbn2rph(nav.rph, nav.cbn);
    return nav;
}

inline KfFilter make_filter(int n, const double *diag) {
    KfFilter flt;
    memset(&flt, 0, sizeof flt);
    flt.state_dim = static_cast<uint8_t>(n);
    for (int i = 0; i < n; ++i) flt.L[i * (i + 3) / 2] = diag ? diag[i] : 0.0;
    return flt;
}

}  // namespace kftest
