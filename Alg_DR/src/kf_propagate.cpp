// Error-state time update of the square-root filter.
//
// The covariance is never formed: P+ = Phi P Phi^T + G G^T is obtained as the
// LQ factor of the compound matrix [Phi L | G], which keeps P+ symmetric and
// positive semidefinite by construction.
#include <math.h>
#include <stddef.h>

#include "drlib_toolkit.h"
#include "kf_dims.h"
#include "householder.h"
#include "matrix_packed.h"

namespace {

using drlib::has_acc_bias;
using drlib::has_gyro_bias;
using drlib::kKfAccBias;
using drlib::kKfAtt;
using drlib::kKfBankStates;
using drlib::kKfGyroBias;
using drlib::kKfMaxStates;
using drlib::kKfVel;

// Motion-proportional noise: a fraction of each closing increment, because
// scale-factor and misalignment errors grow with what the sensor sees.
constexpr double kVelNoisePerIncrement = 0.01;     // of |dv|
constexpr double kAngleNoisePerIncrement = 0.008;  // of |dtheta|
constexpr double kAccBiasWalk = 5e-5;              // m/s^2 per second of step
constexpr double kGyroBiasWalk = 4.84813681109536e-06;  // one arcsecond, rad/s per second

// Velocity random walk, m/s per second: the six-state bank carries no bias
// states, so its velocity noise also has to absorb the unmodelled bias.
double velocity_noise_rate(int32_t n) { return n > 6 ? 0.01 : 0.05; }

// Angle random walk, rad per second, smaller the more of the gyro error the
// filter models itself.
double angle_noise_rate(int32_t n) {
    if (n <= 6) return 0.006;
    if (n <= 9) return 0.004;
    return 0.001;
}

// Writes I3 - [w x] into the 3x3 block of phi (row stride n) at (row0, row0).
void set_rotation_block(double *phi, int32_t n, int32_t row0, const double *w) {
    double *b = phi + row0 * n + row0;
    b[0] = 1.0;
    b[1] = w[2];
    b[2] = -w[1];
    b[n + 0] = -w[2];
    b[n + 1] = 1.0;
    b[n + 2] = w[0];
    b[2 * n + 0] = w[1];
    b[2 * n + 1] = -w[0];
    b[2 * n + 2] = 1.0;
}

// Writes scale * m (3x3, row-major) into the block of phi at (row0, col0).
void set_scaled_block(double *phi, int32_t n, int32_t row0, int32_t col0, const double *m,
                      double scale) {
    for (int32_t r = 0; r < 3; ++r) {
        for (int32_t c = 0; c < 3; ++c) phi[(row0 + r) * n + col0 + c] = m[3 * r + c] * scale;
    }
}

void set_unit_diagonal(double *phi, int32_t n, int32_t first) {
    for (int32_t k = first; k < first + 3; ++k) phi[k * n + k] = 1.0;
}

// Writes cbn diag(q) into the noise half of the compound matrix (row stride
// 2n, noise column j at n + j) for the 3x3 block at (row0, row0).
void set_noise_block(double *ext, int32_t n, int32_t row0, const double *cbn, const double *q) {
    const int32_t stride = 2 * n;
    for (int32_t r = 0; r < 3; ++r) {
        for (int32_t c = 0; c < 3; ++c) {
            ext[(row0 + r) * stride + n + row0 + c] = cbn[3 * r + c] * q[c];
        }
    }
}

void set_noise_diagonal(double *ext, int32_t n, int32_t first, double value) {
    const int32_t stride = 2 * n;
    for (int32_t k = first; k < first + 3; ++k) ext[k * stride + n + k] = value;
}

// Noise columns 0..end-1 are the ones row i of [Phi L | G] can hold when its
// reflection comes: G is block diagonal (two 3x3 blocks, then a diagonal),
// and the reflections of the rows above spread only over their own blocks.
constexpr int32_t noise_reach(int32_t i) {
    if (i < kKfAtt) return kKfAtt;
    if (i < kKfAccBias) return kKfAccBias;
    return i + 1;
}

// Where row i of an n-state compound matrix ends when its reflection comes:
// the whole state half, then the noise columns within reach.
constexpr int32_t compound_row_end(int32_t n, int32_t i) { return n + noise_reach(i); }

template <int32_t N>
struct CompoundReach {
    static constexpr int32_t end(int32_t i) { return compound_row_end(N, i); }
};

struct ColumnRange {
    int32_t begin;
    int32_t end;
};

// Rows of Phi that share their non-zero columns: the three velocity rows,
// the three attitude rows, then each bias row on its own (unit diagonal).
struct PhiRowGroup {
    int32_t first_row;
    int32_t rows;
    int32_t range_count;
    ColumnRange ranges[2];
};

PhiRowGroup phi_row_group(int32_t first_row, int32_t n) {
    if (first_row == kKfVel) {
        const int32_t end = has_acc_bias(n) ? kKfAccBias + 3 : kKfAtt + 3;
        return {kKfVel, 3, 1, {{kKfVel, end}, {0, 0}}};
    }
    if (first_row == kKfAtt) {
        const int32_t count = has_gyro_bias(n) ? 2 : 1;
        return {kKfAtt, 3, count, {{kKfAtt, kKfAtt + 3}, {kKfGyroBias, kKfGyroBias + 3}}};
    }
    return {first_row, 1, 1, {{first_row, first_row + 1}, {0, 0}}};
}

// Adds Phi(row, k) L(k, j), j = 0..k, to each row of the group (row stride
// 2n in the compound matrix), for every k of the group's ranges in
// ascending order; each row of L is loaded once for the whole group.
template <size_t R>
void add_group_products(double *ext, const double *phi, const double *L, int32_t n,
                        const PhiRowGroup &g) {
    double *E_row[R];
#pragma GCC unroll 3
    for (size_t r = 0; r < R; ++r) E_row[r] = ext + (g.first_row + static_cast<int32_t>(r)) * 2 * n;
    for (int32_t c = 0; c < g.range_count; ++c) {
        for (int32_t k = g.ranges[c].begin; k < g.ranges[c].end; ++k) {
            const double *L_row = L + gk_L_start[k];
            double a[R];
            drlib::f64x2 a2[R];
#pragma GCC unroll 3
            for (size_t r = 0; r < R; ++r) {
                a[r] = phi[(g.first_row + static_cast<int32_t>(r)) * n + k];
                a2[r] = drlib::splat2(a[r]);
            }
            int32_t j = 0;
            for (; j < k; j += 2) {
                const drlib::f64x2 l = drlib::load2(L_row + j);
#pragma GCC unroll 3
                for (size_t r = 0; r < R; ++r) {
                    drlib::store2(E_row[r] + j, drlib::load2(E_row[r] + j) + a2[r] * l);
                }
            }
            if (j == k) {
#pragma GCC unroll 3
                for (size_t r = 0; r < R; ++r) E_row[r][j] += a[r] * L_row[j];
            }
        }
    }
}

// Writes Phi L into the state half of the compound matrix. Each element is
// the sum of CalcAL2EM, k ascending from 0.0, with the products by the
// structural zeros of Phi left out (they add exact zeros).
void transition_times_factor(double *ext, const double *phi, const double *L, int32_t n) {
    const int32_t stride = 2 * n;
    for (int32_t i = 0; i < n; ++i) {
        double *E_row = ext + i * stride;
        int32_t j = 0;
        for (; j + 1 < n; j += 2) drlib::store2(E_row + j, drlib::splat2(0.0));
        if (j < n) E_row[j] = 0.0;
    }
    int32_t row = 0;
    while (row < n) {
        const PhiRowGroup g = phi_row_group(row, n);
        if (g.rows == 3) {
            add_group_products<3>(ext, phi, L, n, g);
        } else {
            add_group_products<1>(ext, phi, L, n, g);
        }
        row += g.rows;
    }
}

// Clears the noise columns that the triangularisation will read.
void clear_noise_half(double *ext, int32_t n) {
    const int32_t stride = 2 * n;
    for (int32_t i = 0; i < n; ++i) {
        double *g = ext + i * stride + n;
        const int32_t reach = noise_reach(i);
        for (int32_t c = 0; c < reach; ++c) g[c] = 0.0;
    }
}

}  // namespace

extern "C" {

DRLIB_API void KFCalcPsiMatrix(double *phi, const NavState *nav, int32_t n, double dt) {
    F64ToZeros(phi, static_cast<uint32_t>(n * n) * 8u);

    // Velocity error turns with the Coriolis rate and picks up attitude error
    // through the specific force; attitude error turns with the n-frame rate.
    double w_cor[3];  // rad over the step
    double w_in[3];   // rad over the step
    double f[3];      // m/s over the step
    for (int k = 0; k < 3; ++k) {
        w_cor[k] = (2.0 * nav->wie_n[k] + nav->wen_n[k]) * dt;
        w_in[k] = (nav->wie_n[k] + nav->wen_n[k]) * dt;
        f[k] = nav->f_n[k] * dt;
    }
    set_rotation_block(phi, n, kKfVel, w_cor);

    double *va = phi + kKfVel * n + kKfAtt;  // velocity rows, attitude columns: [f x]
    va[1] = -f[2];
    va[2] = f[1];
    va[n + 0] = f[2];
    va[n + 2] = -f[0];
    va[2 * n + 0] = -f[1];
    va[2 * n + 1] = f[0];

    set_rotation_block(phi, n, kKfAtt, w_in);

    if (has_acc_bias(n)) {
        set_scaled_block(phi, n, kKfVel, kKfAccBias, nav->cbn, dt);
        set_unit_diagonal(phi, n, kKfAccBias);
    }
    if (has_gyro_bias(n)) {
        set_scaled_block(phi, n, kKfAtt, kKfGyroBias, nav->cbn, -dt);
        set_unit_diagonal(phi, n, kKfGyroBias);
    }
}

DRLIB_API void KFInflatePMatrix(KfFilter *flt, const NavState *nav, const double *dtheta,
                                const double *dvel, double dt) {
    const int32_t n = flt->state_dim;
    const double s_a = velocity_noise_rate(n);  // m/s per second
    const double s_g = angle_noise_rate(n);     // rad per second

    // Only the sample that closes the step scales the noise.
    const double *dv_close = dvel + 3;      // m/s
    const double *dth_close = dtheta + 3;   // rad
    double q_a[3];  // m/s
    double q_g[3];  // rad
    for (int k = 0; k < 3; ++k) {
        q_a[k] = s_a * dt + kVelNoisePerIncrement * fabs(dv_close[k]);
        q_g[k] = s_g * dt + kAngleNoisePerIncrement * fabs(dth_close[k]);
    }

    double ext[kKfMaxStates * 2 * kKfMaxStates];
    double phi[kKfMaxStates * kKfMaxStates];
    double work[2 * kKfMaxStates];
    KFCalcPsiMatrix(phi, nav, n, dt);
    transition_times_factor(ext, phi, flt->L, n);

    // White noise enters in body axes, so its factor is rotated into n.
    clear_noise_half(ext, n);
    set_noise_block(ext, n, kKfVel, nav->cbn, q_a);
    set_noise_block(ext, n, kKfAtt, nav->cbn, q_g);
    if (has_acc_bias(n)) set_noise_diagonal(ext, n, kKfAccBias, kAccBiasWalk * dt);
    if (has_gyro_bias(n)) set_noise_diagonal(ext, n, kKfGyroBias, kGyroBiasWalk * dt);

    // Entries outside the reach of each row are never read: they are zero
    // in [Phi L | G] and stay zero through the reflections above. The bank
    // (6 states) and the main filter (12) run the unrolled kernels.
    using drlib::householder::lq_decompose_fixed;
    if (n == kKfBankStates) {
        lq_decompose_fixed<kKfBankStates, CompoundReach<kKfBankStates>>(flt->L, ext, work);
    } else if (n == kKfMaxStates) {
        lq_decompose_fixed<kKfMaxStates, CompoundReach<kKfMaxStates>>(flt->L, ext, work);
    } else {
        int32_t row_end[kKfMaxStates];
        for (int32_t i = 0; i < n; ++i) row_end[i] = compound_row_end(n, i);
        drlib::lq_decompose_reach(flt->L, ext, n, 2 * n, work, row_end);
    }
}

DRLIB_API void ImuSampCorr(double *out, const double *in, const double *bias, int32_t count) {
    for (int32_t i = 0; i < count; ++i) {
        for (int32_t k = 0; k < 3; ++k) out[3 * i + k] = in[3 * i + k] - bias[k];
    }
}

}  // extern "C"
