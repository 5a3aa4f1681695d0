// Square-root measurement update and closed-loop feedback of the error state.
//
// The update is the array form of the square-root filter: one LQ
// factorisation turns the pre-array [[R^1/2, H L], [0, L]] into the post-array
// [[S^1/2, 0], [Kbar, L+]], so neither P nor S is ever formed or inverted as
// a full matrix; only the m x m factor S^1/2 is inverted for the gain.
#include "dr_assert.h"
#include "dr_common_rates.h"
#include "drlib_toolkit.h"
#include "kf_dims.h"
#include "matrix_packed.h"

namespace {

using drlib::has_acc_bias;
using drlib::has_gyro_bias;
using drlib::kKfAccBias;
using drlib::kKfAtt;
using drlib::kKfGyroBias;
using drlib::kKfMaxUpdateDim;
using drlib::packed_index;
using drlib::packed_size;

constexpr int32_t kExtendCapacity = kKfMaxUpdateDim * kKfMaxUpdateDim;

// Builds the pre-array of an update with m measurements and n states.
void build_pre_array(double *ext, const double *L, const double *H, const double *r, int32_t n,
                     int32_t m) {
    const int32_t dim = m + n;
    F64ToZeros(ext, static_cast<uint32_t>(dim * dim) * 8u);
    for (int32_t i = 0; i < m; ++i) ext[i * dim + i] = r[i];
    for (int32_t i = 0; i < n; ++i) {
        for (int32_t j = 0; j <= i; ++j) ext[(m + i) * dim + m + j] = L[packed_index(i, j)];
    }
    CalcHL2EM(ext, H, L, m, n);
}

// Frame rotation (rad, n) that goes with moving the position by dlat, dlon.
void position_rotation(double *theta, double dlat, double dlon, double cos_lat, double sin_lat) {
    theta[0] = -dlon * cos_lat;
    theta[1] = dlat;
    theta[2] = dlon * sin_lat;
}

// Moves the n frame: qne, cne and the geodetic position.
void feed_back_position(NavState *nav, const double *theta, double dlat, double dlon,
                        double dpos_down) {
    double q_theta[4];
    rotvec2quat(q_theta, theta);
    quat_prod(nav->qne, nav->qne, q_theta);
    quat_norm(nav->qne);
    quat2dcm(nav->cne, nav->qne);
    nav->llh[0] -= dlat;
    nav->llh[1] -= dlon;
    nav->llh[2] += dpos_down;  // height points up
}

// Removes the velocity error and re-expresses the velocity in the moved frame.
void feed_back_velocity(NavState *nav, const double *dv, const double *theta) {
    double skew[9];
    cp_form(skew, theta);
    double turn[9];  // I3 - [theta x]
    for (int k = 0; k < 9; ++k) turn[k] = -skew[k];
    turn[0] += 1.0;
    turn[4] += 1.0;
    turn[8] += 1.0;
    double v[3];
    for (int k = 0; k < 3; ++k) v[k] = nav->v_n[k] - dv[k];
    mtx_mul_vect_3d(nav->v_n, turn, v);
}

void feed_back_attitude(NavState *nav, const double *psi, const double *theta) {
    double phi[3];
    for (int k = 0; k < 3; ++k) phi[k] = psi[k] + theta[k];
    double q_phi[4];
    rotvec2quat(q_phi, phi);
    quat_prod(nav->qbn, q_phi, nav->qbn);
    quat_norm(nav->qbn);
    quat2dcm(nav->cbn, nav->qbn);
    cbn2rph(nav->rph, nav->cbn);
}

// Trigonometric cache and transport rate of the corrected state. rm and rn
// stay those of the position before the feedback until the next stride.
void refresh_frame_rates(NavState *nav) {
    nav->cos_lat = nav->cne[6];
    nav->sin_lat = -nav->cne[8];
    nav->cos_lon = nav->cne[4];
    nav->sin_lon = -nav->cne[1];
    drlib::transport_rate(nav->wen_n, nav->v_n, nav);
}

}  // namespace

extern "C" {

DRLIB_API void F64ToZeros(double *p, uint32_t nbytes) {
    const uint32_t count = nbytes / 8u;
    for (uint32_t i = 0; i < count; ++i) p[i] = 0.0;
}

DRLIB_API void KFInnoInput(double *dx, double *L, const double *H, const double *z,
                           const double *r, int32_t n, int32_t m) {
    const int32_t dim = m + n;
    double ExtendMat[kExtendCapacity];
    double Lc[packed_size(kKfMaxUpdateDim)];
    double work[kKfMaxUpdateDim];

    build_pre_array(ExtendMat, L, H, r, n, m);
    lq_decompose(Lc, ExtendMat, dim, dim, work);

    // The pre-array is spent; its storage holds S^-1/2, the gain and K z.
    double *s_inv = ExtendMat;
    double *gain = ExtendMat + m * dim;
    double *kz = gain + n * m;
    InvL(s_inv, Lc, m);  // the leading m x m block of Lc is S^1/2
    CalcK_fromEM(gain, Lc, s_inv, n, m);
    DR_ASSERT(kz + n <= ExtendMat + sizeof(ExtendMat) / sizeof(double),
              "dx + state_dim <= ExtendMat + sizeof(ExtendMat) / sizeof(double)",
              "Alg_DR/src/dr_fusion", 426, "KFInnoInput");
    mtx_mul_mtx(kz, gain, z, n, m, 1);
    for (int32_t i = 0; i < n; ++i) dx[i] += kz[i];

    int32_t slot = 0;
    for (int32_t i = m; i < dim; ++i) {
        for (int32_t j = m; j <= i; ++j) L[slot++] = Lc[packed_index(i, j)];
    }
}

DRLIB_API void KFStateFeedback(KfFilter *flt, NavState *nav, const double *dx, const double *dpos) {
    const int32_t n = flt->state_dim;
    const double h = nav->llh[2];  // m, before the reset
    const double dlat = dpos[0] / (nav->rm + h);                   // rad
    const double dlon = dpos[1] / ((nav->rn + h) * nav->cos_lat);  // rad
    double theta[3];
    position_rotation(theta, dlat, dlon, nav->cos_lat, nav->sin_lat);

    feed_back_position(nav, theta, dlat, dlon, dpos[2]);
    feed_back_velocity(nav, dx, theta);
    feed_back_attitude(nav, dx + kKfAtt, theta);
    refresh_frame_rates(nav);

    // Bias states are increments to the stored estimates.
    if (has_acc_bias(n)) {
        for (int k = 0; k < 3; ++k) flt->acc_bias[k] += dx[kKfAccBias + k];
    }
    if (has_gyro_bias(n)) {
        for (int k = 0; k < 3; ++k) flt->gyro_bias[k] += dx[kKfGyroBias + k];
    }
}

DRLIB_API double get_kf_state_variance(const double *L, int32_t i) {
    const double *row = L + gk_L_start[i];
    double var = 0.0;
    for (int32_t j = 0; j <= i; ++j) var += row[j] * row[j];
    return var;
}

}  // extern "C"
