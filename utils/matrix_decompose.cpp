// Decompositions of packed symmetric matrices: LDL^T and the symmetric
// inverse built on it, a pivoted L^T D L factorisation, and the classical
// Jacobi eigen-decomposition.
#include <math.h>

#include "drlib_toolkit.h"
#include "matrix_packed.h"

using drlib::packed_index;
using drlib::sym_index;

namespace {

constexpr int32_t kJacobiMaxDim = 255;

// Diagonal element k of a packed matrix: the last element of row k.
inline double packed_diag(const double *U, int32_t k) { return U[gk_L_start[k + 1] - 1]; }

void swap_elements(double *S, int32_t a, int32_t b) {
    const double t = S[a];
    S[a] = S[b];
    S[b] = t;
}

// Moves row/column p of the leading (k+1) x (k+1) block into position k and
// back. Rows below k already hold factor rows; their columns follow too.
void swap_symmetric(double *S, int32_t *perm, int32_t p, int32_t k, int32_t n) {
    const int32_t t = perm[p];
    perm[p] = perm[k];
    perm[k] = t;
    for (int32_t c = 0; c < p; ++c) swap_elements(S, packed_index(p, c), packed_index(k, c));
    for (int32_t c = p + 1; c < k; ++c) swap_elements(S, packed_index(c, p), packed_index(k, c));
    for (int32_t c = k + 1; c < n; ++c) swap_elements(S, packed_index(c, p), packed_index(c, k));
    S[packed_index(p, p)] = S[packed_index(k, k)];
}

// Jacobi bookkeeping: the largest strict-lower magnitude of each row and its
// column, so that the pivot search is a scan over rows rather than the triangle.
struct RowMaxima {
    double max[kJacobiMaxDim];
    int32_t ind[kJacobiMaxDim];
};

void recompute_row_max(RowMaxima &rm, const double *S, int32_t i) {
    const double *row = S + gk_L_start[i];
    rm.ind[i] = 0;
    rm.max[i] = fabs(row[0]);
    for (int32_t j = 1; j < i; ++j) {
        if (fabs(row[j]) > rm.max[i]) {
            rm.ind[i] = j;
            rm.max[i] = fabs(row[j]);
        }
    }
}

// Updates the cached row maxima after the rotation in the (q, r) plane.
void refresh_row_maxima(RowMaxima &rm, const double *S, int32_t q, int32_t r, int32_t n) {
    recompute_row_max(rm, S, q);
    recompute_row_max(rm, S, r);
    for (int32_t i = q + 1; i < r; ++i) {
        const double v = fabs(S[packed_index(i, q)]);
        if (rm.ind[i] == q) {
            if (v < rm.max[i]) {
                recompute_row_max(rm, S, i);  // the old maximum shrank: look again
            } else {
                rm.max[i] = v;
            }
        } else if (v > rm.max[i]) {
            rm.max[i] = v;
            rm.ind[i] = q;
        }
    }
    for (int32_t i = r + 1; i < n; ++i) {
        const double a = fabs(S[packed_index(i, q)]);
        const double b = fabs(S[packed_index(i, r)]);
        const double m = a > b ? a : b;
        const int32_t w = b < a ? q : r;
        if (rm.ind[i] == q || rm.ind[i] == r) {
            if (m < rm.max[i]) {
                recompute_row_max(rm, S, i);
            } else {
                rm.max[i] = m;
                rm.ind[i] = w;
            }
        } else if (m > rm.max[i]) {
            rm.max[i] = m;
            rm.ind[i] = w;
        }
    }
}

// Applies the rotation (c, s) in the (q, r) plane to the strict lower
// triangle of S and to the columns q and r of E.
void rotate_plane(double *S, double *E, int32_t q, int32_t r, int32_t n, double c, double s) {
    for (int32_t i = 0; i < q; ++i) {
        const double sq = S[packed_index(q, i)];
        const double sr = S[packed_index(r, i)];
        S[packed_index(q, i)] = c * sq - s * sr;
        S[packed_index(r, i)] = c * sr + s * sq;
    }
    for (int32_t i = q + 1; i < r; ++i) {
        const double sq = S[packed_index(i, q)];
        const double sr = S[packed_index(r, i)];
        S[packed_index(i, q)] = c * sq - s * sr;
        S[packed_index(r, i)] = c * sr + s * sq;
    }
    for (int32_t i = r + 1; i < n; ++i) {
        const double sq = S[packed_index(i, q)];
        const double sr = S[packed_index(i, r)];
        S[packed_index(i, q)] = c * sq - s * sr;
        S[packed_index(i, r)] = c * sr + s * sq;
    }
    if (E == nullptr) return;
    for (int32_t i = 0; i < n; ++i) {
        const double eq = E[i * n + q];
        const double er = E[i * n + r];
        E[i * n + q] = c * eq - s * er;
        E[i * n + r] = c * er + s * eq;
    }
}

// Sets one eigenvalue's changed flag, keeping the count of set flags.
void set_changed_flag(bool *changed, int32_t idx, bool value, int32_t &active) {
    if (changed[idx] == value) return;
    changed[idx] = value;
    active += value ? 1 : -1;
}

void set_identity(double *E, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        for (int32_t j = 0; j < n; ++j) E[i * n + j] = i == j ? 1.0 : 0.0;
    }
}

}  // namespace

extern "C" {

DRLIB_API void LDLTDecompose(double *U, const double *S, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        for (int32_t j = 0; j <= i; ++j) {
            double u = S[packed_index(i, j)];
            for (int32_t k = 0; k < j; ++k) {
                u -= (U[packed_index(i, k)] * U[packed_index(j, k)]) / packed_diag(U, k);
            }
            U[packed_index(i, j)] = u;
        }
    }
}

DRLIB_API void LTDLMultiply(double *out, const double *X, int32_t n) {
    for (int32_t i = 0; i < gk_L_start[n]; ++i) out[i] = X[i];
    for (int32_t k = n - 1; k >= 1; --k) {
        const double *X_row = X + gk_L_start[k];
        for (int32_t j = k - 1; j >= 0; --j) {
            const double c = X_row[j] / X_row[k];
            double *out_row = out + gk_L_start[j];
            for (int32_t l = j; l >= 0; --l) out_row[l] += X_row[l] * c;
        }
    }
}

DRLIB_API void InvS(double *out, double *S, int32_t n) {
    // S = L D L^T, so S^-1 = L^-T D^-1 L^-1; the inverse of U = L D is D^-1 L^-1.
    LDLTDecompose(out, S, n);
    InvL(S, out, n);
    LTDLMultiply(out, S, n);
}

DRLIB_API void ltdl_decompose_pivot(double *S, double *d, int32_t *perm, int32_t n) {
    for (int32_t i = 0; i < n; ++i) perm[i] = i;
    for (int32_t k = n - 1; k >= 0; --k) {
        // The smallest remaining diagonal goes last (first occurrence wins).
        int32_t p = 0;
        double dmin = S[0];
        for (int32_t i = 1; i <= k; ++i) {
            if (S[packed_index(i, i)] < dmin) {
                p = i;
                dmin = S[packed_index(i, i)];
            }
        }
        if (p != k) swap_symmetric(S, perm, p, k, n);
        double *row_k = S + gk_L_start[k];
        row_k[k] = 1.0;
        d[k] = dmin;
        for (int32_t c = 0; c < k; ++c) row_k[c] /= dmin;
        // Rank-one downdate of the leading block, in storage order.
        for (int32_t i = 0; i < k; ++i) {
            for (int32_t j = 0; j <= i; ++j) S[packed_index(i, j)] -= row_k[i] * dmin * row_k[j];
        }
    }
}

DRLIB_API void eig_decompose_jacobi(double *e, double *E, double *S, int32_t n) {
    if (n <= 0) return;
    if (n == 1) {
        // No off-diagonal element to annihilate.
        e[0] = S[0];
        if (E != nullptr) E[0] = 1.0;
        return;
    }
    RowMaxima rm;
    bool changed[kJacobiMaxDim];
    int32_t active = n;
    for (int32_t i = 0; i < n; ++i) {
        e[i] = S[packed_index(i, i)];
        changed[i] = true;
        recompute_row_max(rm, S, i);
    }
    if (E != nullptr) set_identity(E, n);

    while (active != 0) {
        int32_t r = 1;
        for (int32_t i = 2; i < n; ++i) {
            if (rm.max[r] < rm.max[i]) r = i;
        }
        const int32_t q = rm.ind[r];
        const double p = S[packed_index(r, q)];
        if (fabs(p) < 1e-16) break;

        // Rotation angle that annihilates S(r, q); t is the eigenvalue shift.
        const double y = (e[r] - e[q]) / 2.0;
        const double dd = fabs(y) + sqrt(p * p + y * y);
        const double h = sqrt(p * p + dd * dd);
        const double c = dd / h;
        double s = p / h;
        double t = (p * p) / dd;
        if (y < 0.0) {
            s = -s;
            t = -t;
        }
        S[packed_index(r, q)] = 0.0;
        e[q] -= t;
        e[r] += t;

        // A negligible rotation means both eigenvalues have settled.
        const bool settled = fabs(s) < 1e-14;
        set_changed_flag(changed, r, !settled, active);
        set_changed_flag(changed, q, !settled, active);
        rotate_plane(S, E, q, r, n, c, s);
        refresh_row_maxima(rm, S, q, r, n);
    }
}

}  // extern "C"
