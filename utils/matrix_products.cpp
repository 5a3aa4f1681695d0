// Products between dense, packed triangular (L) and packed symmetric (S)
// operands. Every sum starts at 0.0 in a local and runs with its index
// ascending; each output element is stored once, in storage order.
#include "drlib_toolkit.h"
#include "matrix_packed.h"

using drlib::packed_index;
using drlib::sym_index;

extern "C" {

DRLIB_API void CalcNL(double *out, const double *N, const double *L, int32_t r, int32_t n) {
    for (int32_t i = 0; i < r; ++i) {
        const double *N_row = N + i * n;
        for (int32_t j = 0; j < n; ++j) {
            double sum = 0.0;
            for (int32_t k = j; k < n; ++k) sum += N_row[k] * L[packed_index(k, j)];
            out[i * n + j] = sum;
        }
    }
}

DRLIB_API void CalcHHt2S(double *out, const double *H, int32_t m, int32_t n) {
    for (int32_t i = 0; i < m; ++i) {
        for (int32_t j = 0; j <= i; ++j) {
            double sum = 0.0;
            for (int32_t k = 0; k < n; ++k) sum += H[i * n + k] * H[j * n + k];
            out[packed_index(i, j)] = sum;
        }
    }
}

DRLIB_API void CalcNtL(double *out, const double *N, const double *L, int32_t p, int32_t n) {
    for (int32_t i = 0; i < p; ++i) {
        for (int32_t j = 0; j < n; ++j) {
            double sum = 0.0;
            for (int32_t k = j; k < n; ++k) sum += N[k * p + i] * L[packed_index(k, j)];
            out[i * n + j] = sum;
        }
    }
}

DRLIB_API void CalcLN(double *out, const double *L, const double *N, int32_t n, int32_t p) {
    for (int32_t i = 0; i < n; ++i) {
        const double *L_row = L + gk_L_start[i];
        for (int32_t j = 0; j < p; ++j) {
            double sum = 0.0;
            for (int32_t k = 0; k <= i; ++k) sum += L_row[k] * N[k * p + j];
            out[i * p + j] = sum;
        }
    }
}

DRLIB_API void CalcSN(double *out, const double *S, const double *N, int32_t n, int32_t p) {
    for (int32_t i = 0; i < n; ++i) {
        for (int32_t j = 0; j < p; ++j) {
            double sum = 0.0;
            for (int32_t k = 0; k < n; ++k) sum += S[sym_index(i, k)] * N[k * p + j];
            out[i * p + j] = sum;
        }
    }
}

DRLIB_API void CalcSNt(double *out, const double *S, const double *N, int32_t n, int32_t p) {
    for (int32_t i = 0; i < n; ++i) {
        for (int32_t j = 0; j < p; ++j) {
            double sum = 0.0;
            for (int32_t k = 0; k < n; ++k) sum += S[sym_index(i, k)] * N[j * n + k];
            out[i * p + j] = sum;
        }
    }
}

DRLIB_API void CalcNS(double *out, const double *N, const double *S, int32_t r, int32_t n) {
    for (int32_t i = 0; i < r; ++i) {
        for (int32_t j = 0; j < n; ++j) {
            double sum = 0.0;
            for (int32_t k = 0; k < n; ++k) sum += N[i * n + k] * S[sym_index(k, j)];
            out[i * n + j] = sum;
        }
    }
}

DRLIB_API void CalcNtS(double *out, const double *N, const double *S, int32_t r, int32_t n) {
    for (int32_t i = 0; i < r; ++i) {
        for (int32_t j = 0; j < n; ++j) {
            double sum = 0.0;
            for (int32_t k = 0; k < n; ++k) sum += N[k * r + i] * S[sym_index(k, j)];
            out[i * n + j] = sum;
        }
    }
}

DRLIB_API void CalcNM2S(double *out, const double *N, const double *M, int32_t r, int32_t c) {
    for (int32_t i = 0; i < r; ++i) {
        for (int32_t j = 0; j <= i; ++j) {
            double sum = 0.0;
            for (int32_t k = 0; k < c; ++k) sum += N[i * c + k] * M[k * r + j];
            out[packed_index(i, j)] = sum;
        }
    }
}

DRLIB_API void CalcNMt2S(double *out, const double *N, const double *M, int32_t r, int32_t c) {
    for (int32_t i = 0; i < r; ++i) {
        for (int32_t j = 0; j <= i; ++j) {
            double sum = 0.0;
            for (int32_t k = 0; k < c; ++k) sum += N[i * c + k] * M[j * c + k];
            out[packed_index(i, j)] = sum;
        }
    }
}

DRLIB_API void CalcLLt2S(double *out, const double *L, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        for (int32_t j = 0; j <= i; ++j) {
            double sum = 0.0;
            for (int32_t k = 0; k <= j; ++k) sum += L[packed_index(i, k)] * L[packed_index(j, k)];
            out[packed_index(i, j)] = sum;
        }
    }
}

DRLIB_API void CalcLtDL2S(double *out, const double *L, const double *d, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        for (int32_t j = 0; j <= i; ++j) {
            double sum = 0.0;
            for (int32_t k = i; k < n; ++k) {
                sum += (L[packed_index(k, i)] * d[k]) * L[packed_index(k, j)];
            }
            out[packed_index(i, j)] = sum;
        }
    }
}

DRLIB_API void CalcPtSP2S(double *out, const double *S, const int32_t *p, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        for (int32_t j = 0; j <= i; ++j) out[packed_index(i, j)] = S[sym_index(p[i], p[j])];
    }
}

DRLIB_API void CalcHtW(double *out, const double *H, const double *w, int32_t r, int32_t c) {
    for (int32_t i = 0; i < r; ++i) {
        for (int32_t j = 0; j < c; ++j) out[i * c + j] = H[j * r + i] * w[j];
    }
}

DRLIB_API void CalcHW(double *out, const double *H, const double *w, int32_t r, int32_t c) {
    for (int32_t i = 0; i < r; ++i) {
        for (int32_t j = 0; j < c; ++j) out[i * c + j] = H[i * c + j] * w[j];
    }
}

DRLIB_API void CalcHtH2S(double *out, const double *H, int32_t m, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        for (int32_t j = 0; j <= i; ++j) {
            double sum = 0.0;
            for (int32_t k = 0; k < m; ++k) sum += H[k * n + i] * H[k * n + j];
            out[packed_index(i, j)] = sum;
        }
    }
}

}  // extern "C"
