// Square-root measurement update against the textbook Kalman filter, and the
// closed-loop feedback of the error state into the navigation state.
#include <algorithm>

#include "matrix_test_util.h"

using kftest::Mat;

TEST(KfMeasurementUpdate, MatchesTextbookFilterAndAccumulatesDx) {
    std::mt19937_64 rng(424242);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (int k = 0; k < 108; ++k) {  // every n = 1..12 with m = 1..3, three times each
        const int n = 1 + k / 9, m = 1 + k / 3 % 3;
        double L[78], H[36], r[3], dx[12] = {};
        kftest::random_factor(L, n, rng);
        Mat Hm(m, n), P = kftest::covariance(L, n), want_dx(n, 1), got_dx(n, 1);
        for (int i = 0; i < m * n; ++i) Hm.a[static_cast<size_t>(i)] = H[i] = u(rng);
        for (int i = 0; i < m; ++i) r[i] = 0.01 + 0.05 * fabs(u(rng));
        for (int call = 0; call < 2; ++call) {  // the second call adds to the same dx
            double z[3];
            for (int i = 0; i < m; ++i) z[i] = 0.2 * u(rng);
            KFInnoInput(dx, L, H, z, r, n, m);
            P = kftest::textbook_update(P, Hm, z, r, &want_dx);
            got_dx.a.assign(dx, dx + n);
            EXPECT_LT(kftest::rel_err(got_dx, want_dx), 1e-10) << n << "x" << m;
            EXPECT_LT(kftest::rel_err(kftest::covariance(L, n), P), 1e-10) << n << "x" << m;
            EXPECT_NEAR(get_kf_state_variance(L, n - 1), P(n - 1, n - 1), 1e-12);
        }
    }
}

namespace {

NavState moving_nav() {
    const double v_n[3] = {1.5, -0.7, 0.2}, rph[3] = {0.1, -0.2, 2.5};
    return kftest::make_nav(0.6, 2.1, 120.0, v_n, rph);
}

const double kNoMove[3] = {0.0, 0.0, 0.0};

}  // namespace

// The computed state carries a velocity error dv and an attitude error psi
// (cbn = (I - [psi x]) cbn_true); dx holds them and bias increments, dpos = 0.
// Feedback restores the true velocity and attitude, leaves the position and
// the transport rate, and moves the biases only where the filter carries
// their states; a position error moves the frame, and the velocity with it.
TEST(KfFeedback, RemovesKnownErrorsGatesBiasesAndMovesTheFrame) {
    const NavState truth = moving_nav();
    const double psi[3] = {0.02, -0.015, 0.1}, minus_psi[3] = {-0.02, 0.015, -0.1}, dv[3] = {0.3, -0.1, 0.05};
    double dx[12] = {dv[0], dv[1], dv[2], psi[0], psi[1], psi[2]}, q_err[4];
    for (int k = 0; k < 3; ++k) dx[6 + k] = 0.001 * (k + 1), dx[9 + k] = 2e-5 * (k + 1);
    rotvec2quat(q_err, minus_psi);
    for (int n : {6, 9, 12}) {
        NavState nav = truth;
        quat_prod(nav.qbn, q_err, truth.qbn);
        quat2dcm(nav.cbn, nav.qbn);
        for (int k = 0; k < 3; ++k) nav.v_n[k] += dv[k];
        KfFilter flt = kftest::make_filter(n, nullptr);
        flt.acc_bias[0] = 0.01, flt.gyro_bias[0] = -1e-4;
        KFStateFeedback(&flt, &nav, dx, kNoMove);
        EXPECT_EQ(flt.acc_bias[0], n > 8 ? 0.01 + dx[6] : 0.01) << n;
        EXPECT_EQ(flt.gyro_bias[2], n > 11 ? dx[11] : 0.0) << n;
        for (int k = 0; k < 9; ++k) EXPECT_NEAR(nav.cbn[k], truth.cbn[k], 1e-12);
        for (int k = 0; k < 3; ++k) {
            EXPECT_TRUE(nav.llh[k] == truth.llh[k] && std::fabs(nav.v_n[k] - truth.v_n[k]) < 1e-14) << k;
            EXPECT_NEAR(nav.wen_n[k], truth.wen_n[k], 1e-20);
        }
    }
    // A position reset moves the frame with it.
    NavState nav = truth;
    KfFilter flt = kftest::make_filter(6, nullptr);
    const double dpos[3] = {2.0, -3.0, 0.5};  // computed minus measured, m
    std::fill(dx, dx + 12, 0.0);
    KFStateFeedback(&flt, &nav, dx, dpos);
    const double h = truth.llh[2];
    EXPECT_NEAR(nav.llh[0], truth.llh[0] - 2.0 / (truth.rm + h), 1e-16);
    EXPECT_NEAR(nav.llh[1], truth.llh[1] + 3.0 / ((truth.rn + h) * truth.cos_lat), 1e-16);
    EXPECT_NEAR(nav.llh[2], h + 0.5, 1e-12);
    double cne[9];  // the moved frame is the north-east-down frame of the moved position
    llh2cne(cne, nav.llh);
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(nav.cne[k], cne[k], 1e-12) << k;
    double v_e0[3], v_e1[3];  // velocity keeps its direction in the Earth frame
    mtx_mul_vect_3d(v_e0, truth.cne, truth.v_n);
    mtx_mul_vect_3d(v_e1, nav.cne, nav.v_n);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(v_e1[k], v_e0[k], 1e-11);
}
