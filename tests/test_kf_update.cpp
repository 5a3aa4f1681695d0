// Square-root measurement update against the textbook Kalman filter, and the
// closed-loop feedback of the error state into the navigation state.
#include <gtest/gtest.h>

#include "kf_test_util.h"

using kftest::Mat;

namespace {

struct Textbook {
    Mat dx, P;
};

// K = P H^T (H P H^T + R)^-1, dx = dx0 + K z, P+ = P - K H P.
Textbook textbook_update(const Mat &P, const Mat &H, const Mat &z, const double *r, const Mat &dx0) {
    Mat R(H.rows, H.rows);
    for (int i = 0; i < H.rows; ++i) R(i, i) = r[i] * r[i];
    const Mat pht = kftest::mul(P, kftest::transpose(H));
    const Mat S = kftest::add(kftest::mul(H, pht), R);
    const Mat K = kftest::mul(pht, kftest::inverse(S));
    return {kftest::add(dx0, kftest::mul(K, z)), kftest::add(P, kftest::mul(kftest::mul(K, H), P), -1.0)};
}

Mat column(const double *v, int n) {
    Mat out(n, 1);
    for (int i = 0; i < n; ++i) out(i, 0) = v[i];
    return out;
}

struct UpdateCase {
    int n, m;
    double L[78];
    double H[45];
    double z[3];
    double r[3];
};

UpdateCase random_case(int n, int m, std::mt19937_64 &rng) {
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    UpdateCase c{};
    c.n = n;
    c.m = m;
    kftest::random_factor(c.L, n, kftest::state_scales(), rng);
    for (int i = 0; i < m * n; ++i) c.H[i] = u(rng);
    for (int i = 0; i < m; ++i) {
        c.z[i] = 0.2 * u(rng);
        c.r[i] = 0.01 + 0.05 * fabs(u(rng));
    }
    return c;
}

double rel_err(const Mat &got, const Mat &want) {
    return kftest::max_abs_diff(got, want) / kftest::max_abs(want);
}

}  // namespace

TEST(KfMeasurementUpdate, MatchesTextbookFilterAndAccumulatesDx) {
    std::mt19937_64 rng(424242);
    const int shapes[][2] = {{6, 3}, {12, 3}, {3, 3}, {9, 1}, {12, 2}};
    for (const auto &shape : shapes) {
        const int n = shape[0], m = shape[1];
        for (int trial = 0; trial < 10; ++trial) {
            UpdateCase c = random_case(n, m, rng);
            Mat H(m, n);
            H.a.assign(c.H, c.H + m * n);
            const Mat P0 = kftest::covariance(c.L, n);

            double dx[12] = {};
            KFInnoInput(dx, c.L, c.H, c.z, c.r, n, m);
            const Textbook first = textbook_update(P0, H, column(c.z, m), c.r, Mat(n, 1));
            EXPECT_LT(rel_err(column(dx, n), first.dx), 1e-11) << n << "x" << m;
            EXPECT_LT(rel_err(kftest::covariance(c.L, n), first.P), 1e-11) << n << "x" << m;
            for (int i = 0; i < n; ++i)
                EXPECT_NEAR(get_kf_state_variance(c.L, i), first.P(i, i), 1e-11 * kftest::max_abs(first.P));

            // A second measurement adds its correction to the same dx.
            double z2[3];
            for (int i = 0; i < m; ++i) z2[i] = -0.5 * c.z[i] + 0.01 * i;
            KFInnoInput(dx, c.L, c.H, z2, c.r, n, m);
            const Textbook second = textbook_update(first.P, H, column(z2, m), c.r, first.dx);
            EXPECT_LT(rel_err(column(dx, n), second.dx), 1e-10) << n << "x" << m;
            EXPECT_LT(rel_err(kftest::covariance(c.L, n), second.P), 1e-10) << n << "x" << m;
        }
    }
}

TEST(KfMeasurementUpdate, ZeroInnovationShrinksCovarianceWithoutMovingDx) {
    std::mt19937_64 rng(99);
    UpdateCase c = random_case(12, 3, rng);
    const double zero[3] = {0.0, 0.0, 0.0};
    double dx[12];
    for (int i = 0; i < 12; ++i) dx[i] = 0.1 * i - 0.3;
    double dx0[12];
    memcpy(dx0, dx, sizeof dx);
    const Mat P0 = kftest::covariance(c.L, 12);
    KFInnoInput(dx, c.L, c.H, zero, c.r, 12, 3);
    for (int i = 0; i < 12; ++i) EXPECT_EQ(dx[i], dx0[i]) << i;
    const Mat P1 = kftest::covariance(c.L, 12);
    double trace0 = 0.0, trace1 = 0.0;
    for (int i = 0; i < 12; ++i) {
        EXPECT_LE(P1(i, i), P0(i, i) * (1.0 + 1e-12)) << i;
        trace0 += P0(i, i);
        trace1 += P1(i, i);
    }
    EXPECT_LT(trace1, trace0);
}

// ---------------------------------------------------------------------------
// Feedback

namespace {

NavState moving_nav() {
    const double v_n[3] = {1.5, -0.7, 0.2};
    const double rph[3] = {0.1, -0.2, 2.5};
    return kftest::make_nav(0.6, 2.1, 120.0, v_n, rph);
}

KfFilter filter_of(int n) {
    KfFilter flt;
    memset(&flt, 0, sizeof flt);
    flt.state_dim = static_cast<uint8_t>(n);
    for (int k = 0; k < 3; ++k) {
        flt.acc_bias[k] = 0.01 * (k + 1);
        flt.gyro_bias[k] = -1e-4 * (k + 1);
    }
    return flt;
}

}  // namespace

TEST(KfFeedback, ZeroCorrectionKeepsPositionVelocityAndAttitude) {
    NavState nav = moving_nav();
    const NavState before = nav;
    KfFilter flt = filter_of(12);
    const double dx[12] = {};
    const double dpos[3] = {0.0, 0.0, 0.0};
    KFStateFeedback(&flt, &nav, dx, dpos);
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(nav.llh[k], before.llh[k]);
        EXPECT_EQ(nav.v_n[k], before.v_n[k]);
        EXPECT_NEAR(nav.rph[k], before.rph[k], 1e-14);
        EXPECT_NEAR(nav.wen_n[k], before.wen_n[k], 1e-20);
        EXPECT_EQ(flt.acc_bias[k], 0.01 * (k + 1));
    }
    for (int k = 0; k < 9; ++k) {
        EXPECT_NEAR(nav.cbn[k], before.cbn[k], 1e-15);
        EXPECT_NEAR(nav.cne[k], before.cne[k], 1e-15);
    }
    EXPECT_NEAR(nav.cos_lat, cos(0.6), 1e-15);
    EXPECT_NEAR(nav.sin_lon, sin(2.1), 1e-15);
}

TEST(KfFeedback, RemovesKnownVelocityAndAttitudeErrors) {
    const NavState truth = moving_nav();
    NavState nav = truth;
    // Computed attitude carries the error psi: cbn_computed = (I - [psi x]) cbn_true.
    const double psi[3] = {0.02, -0.015, 0.1};
    const double minus_psi[3] = {-psi[0], -psi[1], -psi[2]};
    double q_err[4];
    rotvec2quat(q_err, minus_psi);
    quat_prod(nav.qbn, q_err, truth.qbn);
    quat2dcm(nav.cbn, nav.qbn);
    const double dv[3] = {0.3, -0.1, 0.05};  // computed minus true, m/s
    for (int k = 0; k < 3; ++k) nav.v_n[k] += dv[k];

    KfFilter flt = filter_of(6);
    const double dx[6] = {dv[0], dv[1], dv[2], psi[0], psi[1], psi[2]};
    const double dpos[3] = {0.0, 0.0, 0.0};
    KFStateFeedback(&flt, &nav, dx, dpos);
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(nav.cbn[k], truth.cbn[k], 1e-12) << k;
    for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(nav.v_n[k], truth.v_n[k], 1e-14);
        EXPECT_NEAR(nav.rph[k], truth.rph[k], 1e-12);
    }
}

TEST(KfFeedback, BiasesChangeOnlyWithTheirStates) {
    double dx[12];
    for (int i = 0; i < 12; ++i) dx[i] = 0.0;
    for (int k = 0; k < 3; ++k) {
        dx[6 + k] = 0.001 * (k + 1);
        dx[9 + k] = 2e-5 * (k + 1);
    }
    const double dpos[3] = {0.0, 0.0, 0.0};
    for (int n : {6, 9, 12}) {
        NavState nav = moving_nav();
        KfFilter flt = filter_of(n);
        KFStateFeedback(&flt, &nav, dx, dpos);
        for (int k = 0; k < 3; ++k) {
            const double acc0 = 0.01 * (k + 1), gyro0 = -1e-4 * (k + 1);
            EXPECT_EQ(flt.acc_bias[k], n > 8 ? acc0 + dx[6 + k] : acc0) << "n = " << n;
            EXPECT_EQ(flt.gyro_bias[k], n > 11 ? gyro0 + dx[9 + k] : gyro0) << "n = " << n;
        }
    }
}

TEST(KfFeedback, PositionResetMovesFrameConsistently) {
    NavState nav = moving_nav();
    const NavState before = nav;
    KfFilter flt = filter_of(6);
    const double dx[6] = {};
    const double dpos[3] = {2.0, -3.0, 0.5};  // computed minus measured, m
    KFStateFeedback(&flt, &nav, dx, dpos);
    const double h = before.llh[2];
    EXPECT_NEAR(nav.llh[0], before.llh[0] - 2.0 / (before.rm + h), 1e-16);
    EXPECT_NEAR(nav.llh[1], before.llh[1] + 3.0 / ((before.rn + h) * before.cos_lat), 1e-16);
    EXPECT_NEAR(nav.llh[2], h + 0.5, 1e-12);
    // The moved quaternion describes the moved latitude and longitude.
    double ll[3] = {0.0, 0.0, 0.0};
    cne2llh(ll, nav.cne);
    EXPECT_NEAR(ll[0], nav.llh[0], 1e-12);
    EXPECT_NEAR(ll[1], nav.llh[1], 1e-12);
    EXPECT_EQ(nav.cos_lat, nav.cne[6]);
    // The velocity keeps its direction in the Earth frame.
    double v_e_before[3], v_e_after[3];
    kftest::mat3_vec(v_e_before, before.cne, before.v_n);
    kftest::mat3_vec(v_e_after, nav.cne, nav.v_n);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(v_e_after[k], v_e_before[k], 1e-11);
}
