// Addressing of row-packed lower triangles and pairs of doubles, shared by
// the matrix kernels.
//
// Every row start comes from gk_L_start so that a kernel never recomputes
// i * (i + 1) / 2 in its inner loops.
#pragma once

#include <stdint.h>
#include <string.h>

#include "drlib_toolkit.h"

namespace drlib {

// Element (i, j), j <= i, of a packed lower triangle.
inline int32_t packed_index(int32_t i, int32_t j) { return gk_L_start[i] + j; }

// Element (i, j) of a packed symmetric matrix, either triangle: the stored
// lower triangle mirrors the upper one.
inline int32_t sym_index(int32_t i, int32_t j) {
    return i >= j ? gk_L_start[i] + j : gk_L_start[j] + i;
}

// Two doubles side by side: one SSE2 register on x86-64, split by the
// compiler into its two scalar halves on cores without double-precision
// vectors. Every operation is element by element, so the bits are the same
// on every target.
typedef double f64x2 __attribute__((vector_size(16)));

// Any alignment: rows of packed and extended matrices start anywhere.
inline f64x2 load2(const double *p) {
    f64x2 v;
    memcpy(&v, p, sizeof v);
    return v;
}

inline void store2(double *p, f64x2 v) { memcpy(p, &v, sizeof v); }

inline f64x2 splat2(double x) { return f64x2{x, x}; }

// lq_decompose for a matrix whose row i holds only zeros from column
// row_end[i] on when its turn comes (row_end non-decreasing): the reflection
// vector is zero there and leaves those columns of every row as they are, so
// the products with those zeros can be left out. The factor is lq_decompose's
// to rounding: its sums run over fewer terms, so not always bit for bit.
void lq_decompose_reach(double *L, double *A, int32_t n, int32_t m, double *work,
                        const int32_t *row_end);

}  // namespace drlib
