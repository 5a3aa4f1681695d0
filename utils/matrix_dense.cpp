// Small dense products of row-major matrices: the 3x3 frame rotations of the
// navigation code and the general products of the filter and calibration.
// Sums run with the inner index ascending from 0.0, so that every caller gets
// the same bits on every target.
#include "drlib_toolkit.h"

extern "C" {

DRLIB_API void mtx_mul_vect_3d(double *out, const double *m, const double *v) {
    out[0] = m[0] * v[0] + m[1] * v[1] + m[2] * v[2];
    out[1] = m[3] * v[0] + m[4] * v[1] + m[5] * v[2];
    out[2] = m[6] * v[0] + m[7] * v[1] + m[8] * v[2];
}

DRLIB_API void mtxt_mul_vect_3d(double *out, const double *m, const double *v) {
    out[0] = m[0] * v[0] + m[3] * v[1] + m[6] * v[2];
    out[1] = m[1] * v[0] + m[4] * v[1] + m[7] * v[2];
    out[2] = m[2] * v[0] + m[5] * v[1] + m[8] * v[2];
}

DRLIB_API void mtx_mul_mtx(double *out, const double *a, const double *b, int32_t m, int32_t n,
                           int32_t p) {
    for (int32_t i = 0; i < m; ++i) {
        for (int32_t j = 0; j < p; ++j) {
            double sum = 0.0;
            for (int32_t k = 0; k < n; ++k) sum += a[i * n + k] * b[k * p + j];
            out[i * p + j] = sum;
        }
    }
}

DRLIB_API void mtx_mul_mtxt(double *out, const double *a, const double *b, int32_t m, int32_t n,
                            int32_t p) {
    for (int32_t i = 0; i < m; ++i) {
        for (int32_t j = 0; j < p; ++j) {
            double sum = 0.0;
            for (int32_t k = 0; k < n; ++k) sum += a[i * n + k] * b[j * n + k];
            out[i * p + j] = sum;
        }
    }
}

DRLIB_API void mtxt_mul_mtx(double *out, const double *a, const double *b, int32_t r, int32_t m,
                            int32_t p) {
    for (int32_t i = 0; i < m; ++i) {
        for (int32_t j = 0; j < p; ++j) {
            double sum = 0.0;
            for (int32_t k = 0; k < r; ++k) sum += a[k * m + i] * b[k * p + j];
            out[i * p + j] = sum;
        }
    }
}

}  // extern "C"
