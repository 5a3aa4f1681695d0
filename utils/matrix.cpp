// Packed triangular factors: the row-start table, the Householder LQ
// triangularisation that carries every square-root covariance update, the
// triangular inverse and the decoupling of one state from a factor.
#include <math.h>
#include <stddef.h>

#include "drlib_toolkit.h"
#include "householder.h"
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

}  // namespace

namespace drlib {

void lq_decompose_reach(double *L, double *A, int32_t n, int32_t m, double *work,
                        const int32_t *row_end) {
    for (int32_t i = 0; i < n; ++i) {
        householder::triangularise_row(L, A, n, m, work, i, row_end[i] - i);
    }
}

}  // namespace drlib

extern "C" {

DRLIB_API void lq_decompose(double *L, double *A, int32_t n, int32_t m, double *work) {
    for (int32_t i = 0; i < n; ++i) drlib::householder::triangularise_row(L, A, n, m, work, i, m - i);
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
