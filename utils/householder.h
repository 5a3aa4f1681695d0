// Householder triangularisation by rows, the step behind every update of a
// square-root covariance factor.
//
// Row lengths come either as a run-time count or as a compile-time constant
// (std::integral_constant). The short rows of the filter time updates are
// known when the library is built; with the constant the compiler unrolls
// them completely, which removes most of the loop overhead of a 12-state
// update. Both forms perform the same operations in the same order, so they
// give the same bits.
#pragma once

#include <math.h>
#include <stddef.h>
#include <stdint.h>

#include <type_traits>
#include <utility>

#include "drlib_toolkit.h"
#include "matrix_packed.h"

namespace drlib {
namespace householder {

template <int32_t K>
using Fixed = std::integral_constant<int32_t, K>;

// Sum of x[j] * y[j], even and odd j in separate partial sums.
template <typename Len>
inline double dot(const double *__restrict x, const double *__restrict y, Len len) {
    f64x2 acc = splat2(0.0);
    const int32_t pairs_end = len & ~1;
    for (int32_t j = 0; j < pairs_end; j += 2) acc += load2(x + j) * load2(y + j);
    double s = acc[0] + acc[1];
    if (pairs_end < len) s += x[pairs_end] * y[pairs_end];
    return s;
}

// Applies I - 2 w w^T (w unit, len entries) to R rows spaced m apart, all
// in one pass, so that each pair of w is loaded once for all of them.
template <size_t R, typename Len>
inline void reflect_block(double *first, int32_t m, const double *__restrict w, Len len) {
    double *row[R];
    f64x2 acc[R];
#pragma GCC unroll 4
    for (size_t r = 0; r < R; ++r) {
        row[r] = first + static_cast<int32_t>(r) * m;
        acc[r] = splat2(0.0);
    }
    const int32_t pairs_end = len & ~1;
    for (int32_t j = 0; j < pairs_end; j += 2) {
        const f64x2 wj = load2(w + j);
#pragma GCC unroll 4
        for (size_t r = 0; r < R; ++r) acc[r] += load2(row[r] + j) * wj;
    }
    double t[R];
    f64x2 t2[R];
#pragma GCC unroll 4
    for (size_t r = 0; r < R; ++r) {
        double s = acc[r][0] + acc[r][1];
        if (pairs_end < len) s += row[r][pairs_end] * w[pairs_end];
        t[r] = s + s;
        t2[r] = splat2(t[r]);
    }
    for (int32_t j = 0; j < pairs_end; j += 2) {
        const f64x2 wj = load2(w + j);
#pragma GCC unroll 4
        for (size_t r = 0; r < R; ++r) store2(row[r] + j, load2(row[r] + j) - wj * t2[r]);
    }
    if (pairs_end < len) {
#pragma GCC unroll 4
        for (size_t r = 0; r < R; ++r) row[r][pairs_end] -= w[pairs_end] * t[r];
    }
}

// Applies I - 2 w w^T to rows k_first..n-1 of A, four rows per pass.
template <typename Len>
inline void reflect_rows(double *A, int32_t m, int32_t k_first, int32_t n, const double *w,
                         Len len) {
    int32_t k = k_first;
    for (; k + 3 < n; k += 4) reflect_block<4>(A + k * m, m, w, len);
    if (k + 1 < n) {
        reflect_block<2>(A + k * m, m, w, len);
        k += 2;
    }
    if (k < n) reflect_block<1>(A + k * m, m, w, len);
}

// Householder step for row i, whose columns from i + len on are zero: takes
// the settled entries into L, reflects the rest of the row onto the diagonal
// and applies the same reflection to the rows below.
template <typename Len>
inline void triangularise_row(double *L, double *A, int32_t n, int32_t m, double *work, int32_t i,
                              Len len) {
    double *row = A + i * m;
    double *L_row = L + gk_L_start[i];
    int32_t j = 0;
    for (; j + 1 < i; j += 2) store2(L_row + j, load2(row + j));
    if (j < i) L_row[j] = row[j];

    const double s = dot(row + i, row + i, len);
    const double x = row[i];
    // The sign of sigma follows the pivot so that x + sigma never cancels.
    const double sigma = x > 0.0 ? sqrt(s) : -sqrt(s);
    double d = x * sigma + s;
    d = d + d;
    d = sqrt(d);
    L_row[i] = -sigma;
    if (d == 0.0) {
        // Nothing left to annihilate in this row (rank-deficient input):
        // the diagonal is zero and the later rows stay as they are.
        return;
    }
    work[0] = (x + sigma) / d;
    const f64x2 d2 = splat2(d);
    j = 1;
    for (; j + 1 < len; j += 2) store2(work + j, load2(row + i + j) / d2);
    if (j < len) work[j] = row[i + j] / d;
    reflect_rows(A + i, m, i + 1, n, work, len);
}

// lq_decompose of an N x 2N matrix whose row i holds only zeros from column
// Reach::end(i) on when its turn comes, with N and every reach known at
// build time.
template <int32_t N, typename Reach, int32_t... I>
inline void lq_decompose_fixed_rows(double *L, double *A, double *work,
                                    std::integer_sequence<int32_t, I...>) {
    (triangularise_row(L, A, N, 2 * N, work, I, Fixed<Reach::end(I) - I>{}), ...);
}

template <int32_t N, typename Reach>
void lq_decompose_fixed(double *L, double *A, double *work) {
    lq_decompose_fixed_rows<N, Reach>(L, A, work, std::make_integer_sequence<int32_t, N>{});
}

}  // namespace householder
}  // namespace drlib
