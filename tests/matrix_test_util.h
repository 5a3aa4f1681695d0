// Dense reference arithmetic for the packed-matrix tests: plain row-major
// matrices in std::vector, expanded from and compared with packed storage.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "drlib.h"

namespace mtest {

using Mat = std::vector<double>;  // row-major, dimensions carried by the caller

inline int32_t tri(int32_t n) { return n * (n + 1) / 2; }

inline Mat random_dense(std::mt19937 &rng, int32_t rows, int32_t cols) {
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    Mat m(static_cast<size_t>(rows * cols));
    for (double &x : m) x = u(rng);
    return m;
}

// Packed lower triangle with diagonal magnitudes in [1, 2] and random signs:
// well conditioned, and the negative diagonals of the LQ sign rule occur.
inline Mat random_factor(std::mt19937 &rng, int32_t n) {
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    Mat L(static_cast<size_t>(tri(n)));
    for (int32_t i = 0; i < n; ++i) {
        for (int32_t j = 0; j < i; ++j) L[static_cast<size_t>(tri(i) + j)] = 0.5 * u(rng);
        const double d = 1.5 + 0.5 * u(rng);
        L[static_cast<size_t>(tri(i) + i)] = u(rng) < 0.0 ? -d : d;
    }
    return L;
}

// Dense n x n from a packed triangle (zeros above) or a packed symmetric matrix.
inline Mat unpack_lower(const Mat &P, int32_t n) {
    Mat D(static_cast<size_t>(n * n), 0.0);
    for (int32_t i = 0; i < n; ++i)
        for (int32_t j = 0; j <= i; ++j) D[static_cast<size_t>(i * n + j)] = P[static_cast<size_t>(tri(i) + j)];
    return D;
}

inline Mat unpack_sym(const Mat &P, int32_t n) {
    Mat D = unpack_lower(P, n);
    for (int32_t i = 0; i < n; ++i)
        for (int32_t j = i + 1; j < n; ++j) D[static_cast<size_t>(i * n + j)] = D[static_cast<size_t>(j * n + i)];
    return D;
}

inline Mat pack_lower(const Mat &D, int32_t n) {
    Mat P(static_cast<size_t>(tri(n)));
    for (int32_t i = 0; i < n; ++i)
        for (int32_t j = 0; j <= i; ++j) P[static_cast<size_t>(tri(i) + j)] = D[static_cast<size_t>(i * n + j)];
    return P;
}

inline Mat mul(const Mat &A, const Mat &B, int32_t m, int32_t n, int32_t p) {
    Mat C(static_cast<size_t>(m * p), 0.0);
    for (int32_t i = 0; i < m; ++i)
        for (int32_t j = 0; j < p; ++j) {
            double s = 0.0;
            for (int32_t k = 0; k < n; ++k) s += A[static_cast<size_t>(i * n + k)] * B[static_cast<size_t>(k * p + j)];
            C[static_cast<size_t>(i * p + j)] = s;
        }
    return C;
}

inline Mat transpose(const Mat &A, int32_t rows, int32_t cols) {
    Mat T(static_cast<size_t>(rows * cols));
    for (int32_t i = 0; i < rows; ++i)
        for (int32_t j = 0; j < cols; ++j) T[static_cast<size_t>(j * rows + i)] = A[static_cast<size_t>(i * cols + j)];
    return T;
}

inline Mat identity(int32_t n) {
    Mat I(static_cast<size_t>(n * n), 0.0);
    for (int32_t i = 0; i < n; ++i) I[static_cast<size_t>(i * n + i)] = 1.0;
    return I;
}

// Gauss-Jordan inverse with partial pivoting (reference only).
inline Mat inverse(Mat A, int32_t n) {
    Mat X = identity(n);
    for (int32_t c = 0; c < n; ++c) {
        int32_t piv = c;
        for (int32_t r = c + 1; r < n; ++r)
            if (std::fabs(A[static_cast<size_t>(r * n + c)]) > std::fabs(A[static_cast<size_t>(piv * n + c)])) piv = r;
        for (int32_t j = 0; j < n; ++j) {
            std::swap(A[static_cast<size_t>(c * n + j)], A[static_cast<size_t>(piv * n + j)]);
            std::swap(X[static_cast<size_t>(c * n + j)], X[static_cast<size_t>(piv * n + j)]);
        }
        const double d = A[static_cast<size_t>(c * n + c)];
        for (int32_t j = 0; j < n; ++j) {
            A[static_cast<size_t>(c * n + j)] /= d;
            X[static_cast<size_t>(c * n + j)] /= d;
        }
        for (int32_t r = 0; r < n; ++r) {
            if (r == c) continue;
            const double f = A[static_cast<size_t>(r * n + c)];
            for (int32_t j = 0; j < n; ++j) {
                A[static_cast<size_t>(r * n + j)] -= f * A[static_cast<size_t>(c * n + j)];
                X[static_cast<size_t>(r * n + j)] -= f * X[static_cast<size_t>(c * n + j)];
            }
        }
    }
    return X;
}

inline ::testing::AssertionResult all_near(const Mat &got, const Mat &want, double tol) {
    if (got.size() != want.size()) return ::testing::AssertionFailure() << "size " << got.size() << " vs " << want.size();
    for (size_t i = 0; i < got.size(); ++i) {
        if (!(std::fabs(got[i] - want[i]) <= tol))
            return ::testing::AssertionFailure() << "element " << i << ": " << got[i] << " vs " << want[i];
    }
    return ::testing::AssertionSuccess();
}

}  // namespace mtest
