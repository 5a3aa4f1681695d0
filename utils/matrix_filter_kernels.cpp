// Kernels that fill the extended matrix of a square-root filter update and
// pull the gain out of the triangularised result.
//
// Time update:        [A L | G]                  -> lq_decompose -> [L+ | 0]
// Measurement update: [[R^1/2, H L], [0, L]]      -> lq_decompose -> [[S^1/2, 0], [Kbar, L+]]
// with the gain K = Kbar * S^-1/2.
#include "drlib_toolkit.h"
#include "matrix_packed.h"

using drlib::packed_index;

extern "C" {

DRLIB_API void CalcAL2EM(double *E, const double *A, const double *L, int32_t n) {
    const int32_t stride = n + n;
    for (int32_t i = 0; i < n; ++i) {
        const double *A_row = A + i * n;
        for (int32_t j = 0; j < n; ++j) {
            double sum = 0.0;
            for (int32_t k = j; k < n; ++k) sum += A_row[k] * L[packed_index(k, j)];
            E[i * stride + j] = sum;
        }
    }
}

DRLIB_API void CalcBL2EM(double *E, const MatBlock *blocks, const double *L, int32_t n) {
    const int32_t stride = n + n;
    for (const MatBlock *blk = blocks; blk->val != nullptr; ++blk) {
        const int32_t r0 = blk->row0;
        const int32_t c0 = blk->col0;
        const int32_t nr = blk->nrows;
        const int32_t nc = blk->ncols;
        for (int32_t a = 0; a < nr; ++a) {
            const double *B_row = blk->val + a * nc;
            double *E_row = E + (r0 + a) * stride;
            for (int32_t j = 0; j < n; ++j) {
                // L(c0 + b, j) is zero above the diagonal.
                const int32_t b_first = j > c0 ? j - c0 : 0;
                for (int32_t b = b_first; b < nc; ++b) {
                    E_row[j] += B_row[b] * L[packed_index(c0 + b, j)];
                }
            }
        }
    }
}

DRLIB_API void CalcHL2EM(double *E, const double *H, const double *L, int32_t m, int32_t n) {
    const int32_t stride = m + n;
    for (int32_t i = 0; i < m; ++i) {
        const double *H_row = H + i * n;
        for (int32_t j = 0; j < n; ++j) {
            double sum = 0.0;
            for (int32_t k = j; k < n; ++k) sum += H_row[k] * L[packed_index(k, j)];
            E[i * stride + m + j] = sum;
        }
    }
}

DRLIB_API void CalcK_fromEM(double *K, const double *Lc, const double *X, int32_t n, int32_t m) {
    for (int32_t i = 0; i < n; ++i) {
        const double *Kbar_row = Lc + gk_L_start[m + i];
        for (int32_t j = 0; j < m; ++j) {
            double sum = 0.0;
            for (int32_t k = j; k < m; ++k) sum += Kbar_row[k] * X[packed_index(k, j)];
            K[i * m + j] = sum;
        }
    }
}

}  // extern "C"
