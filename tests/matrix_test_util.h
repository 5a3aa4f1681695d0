// Dense reference arithmetic for the packed-matrix tests.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "drlib.h"

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
        for (int j = 0; j <= i; ++j) D[i * n + j] = P[tri(i) + j];
    if (symmetric)
        for (int i = 0; i < n; ++i)
            for (int j = i + 1; j < n; ++j) D[i * n + j] = D[j * n + i];
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
