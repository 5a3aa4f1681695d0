// Packed triangular factors: the row-start table, the Householder LQ
// triangularisation that carries every square-root covariance update, the
// triangular inverse and the decoupling of one state from a factor.
#include <math.h>
#include <stddef.h>

#include "drlib.h"
#include "matrix_packed.h"

namespace {

constexpr int32_t row_start(int32_t i) { return i * (i + 1) / 2; }

}  // namespace

// The table is spelled out by its rule at compile time; 256 entries in
// groups of 4, 16 and 64.
#define DR_ROWS4(i) row_start(i), row_start((i) + 1), row_start((i) + 2), row_start((i) + 3)
#define DR_ROWS16(i) DR_ROWS4(i), DR_ROWS4((i) + 4), DR_ROWS4((i) + 8), DR_ROWS4((i) + 12)
#define DR_ROWS64(i) DR_ROWS16(i), DR_ROWS16((i) + 16), DR_ROWS16((i) + 32), DR_ROWS16((i) + 48)

extern "C" DRLIB_API constexpr int32_t gk_L_start[256] = {DR_ROWS64(0), DR_ROWS64(64),
                                                          DR_ROWS64(128), DR_ROWS64(192)};

#undef DR_ROWS64
#undef DR_ROWS16
#undef DR_ROWS4

static_assert(gk_L_start[0] == 0 && gk_L_start[1] == 1 && gk_L_start[4] == 10, "row starts");
static_assert(gk_L_start[12] == 78, "a 12-state factor fills 78 doubles");
static_assert(gk_L_start[254] == 32385 && gk_L_start[255] == 32640, "last row starts");

namespace {

using drlib::packed_index;

using drlib::f64x2;
using drlib::load2;
using drlib::splat2;
using drlib::store2;

// Sum of x[j] * y[j], even and odd j in separate partial sums.
double dot(const double *__restrict x, const double *__restrict y, int32_t len) {
    f64x2 acc = splat2(0.0);
    int32_t j = 0;
    for (; j + 1 < len; j += 2) acc += load2(x + j) * load2(y + j);
    double s = acc[0] + acc[1];
    if (j < len) s += x[j] * y[j];
    return s;
}

// Applies I - 2 w w^T (w unit, len entries) to R rows spaced m apart, all
// in one pass, so that each pair of w is loaded once for all of them.
template <size_t R>
void reflect_block(double *first, int32_t m, const double *__restrict w, int32_t len) {
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
void reflect_rows(double *A, int32_t m, int32_t k_first, int32_t n, const double *w, int32_t len) {
    int32_t k = k_first;
    for (; k + 3 < n; k += 4) reflect_block<4>(A + k * m, m, w, len);
    if (k + 1 < n) {
        reflect_block<2>(A + k * m, m, w, len);
        k += 2;
    }
    if (k < n) reflect_block<1>(A + k * m, m, w, len);
}

// Householder step for row i, whose columns from row_end on are zero: takes
// the settled entries into L, reflects the rest of the row onto the diagonal
// and applies the same reflection to the rows below.
void triangularise_row(double *L, double *A, int32_t n, int32_t m, double *work, int32_t i,
                       int32_t row_end) {
    double *row = A + i * m;
    double *L_row = L + gk_L_start[i];
    int32_t j = 0;
    for (; j + 1 < i; j += 2) store2(L_row + j, load2(row + j));
    if (j < i) L_row[j] = row[j];

    const int32_t len = row_end - i;
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

}  // namespace

namespace drlib {

void lq_decompose_reach(double *L, double *A, int32_t n, int32_t m, double *work,
                        const int32_t *row_end) {
    for (int32_t i = 0; i < n; ++i) triangularise_row(L, A, n, m, work, i, row_end[i]);
}

}  // namespace drlib

extern "C" {

DRLIB_API void lq_decompose(double *L, double *A, int32_t n, int32_t m, double *work) {
    for (int32_t i = 0; i < n; ++i) triangularise_row(L, A, n, m, work, i, m);
}

DRLIB_API void InvL(double *X, const double *L, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        double *X_row = X + gk_L_start[i];
        const double *L_row = L + gk_L_start[i];
        for (int32_t j = 0; j < i; ++j) X_row[j] = 0.0;
        // Forward substitution against the rows of X already final.
        for (int32_t k = i - 1; k >= 0; --k) {
            const double *Xk = X + gk_L_start[k];
            for (int32_t j = k; j >= 0; --j) X_row[j] -= Xk[j] * L_row[k];
        }
        const double diag = L_row[i];
        X_row[i] = 1.0 / diag;
        for (int32_t j = i - 1; j >= 0; --j) X_row[j] /= diag;
    }
}

DRLIB_API void ClearOffDiagL(double *L, int32_t k, int32_t n) {
    for (int32_t j = 0; j < k; ++j) L[packed_index(k, j)] = 0.0;
    for (int32_t i = k + 1; i < n; ++i) L[packed_index(i, k)] = 0.0;
}

}  // extern "C"
