// Time update of the square-root filter against the covariance form
// P+ = Phi P Phi^T + G G^T, with Phi and G written out densely from the
// psi-angle error model.
#include <gtest/gtest.h>

#include "kf_test_util.h"

using kftest::Mat;

namespace {

constexpr double kDt = 0.01;  // s

struct Noise {
    double s_a, s_g;           // m/s and rad per second
    double acc_walk, gyro_walk;  // per second
};

Noise noise_of(int n) {
    if (n == 6) return {0.05, 0.006, 0.0, 0.0};
    if (n == 9) return {0.01, 0.004, 5e-5, 0.0};
    return {0.01, 0.001, 5e-5, 4.84813681109536e-06};
}

Mat dense_phi(const NavState &nav, int n, double dt) {
    Mat phi = kftest::identity(n);
    double w_c[3], w_in[3];
    for (int k = 0; k < 3; ++k) {
        w_c[k] = 2.0 * nav.wie_n[k] + nav.wen_n[k];
        w_in[k] = nav.wie_n[k] + nav.wen_n[k];
    }
    kftest::put_skew(phi, 0, 0, w_c, -dt);
    kftest::put_skew(phi, 0, 3, nav.f_n, dt);
    kftest::put_skew(phi, 3, 3, w_in, -dt);
    if (n > 8) kftest::put_block(phi, 0, 6, nav.cbn, dt);
    if (n > 11) kftest::put_block(phi, 3, 9, nav.cbn, -dt);
    return phi;
}

Mat dense_g(const NavState &nav, int n, double dt, const double *dth_close, const double *dv_close) {
    const Noise q = noise_of(n);
    Mat d(n, n);
    for (int k = 0; k < 3; ++k) {
        d(k, k) = q.s_a * dt + 0.01 * fabs(dv_close[k]);
        d(3 + k, 3 + k) = q.s_g * dt + 0.008 * fabs(dth_close[k]);
        if (n > 8) d(6 + k, 6 + k) = q.acc_walk * dt;
        if (n > 11) d(9 + k, 9 + k) = q.gyro_walk * dt;
    }
    Mat rot = kftest::identity(n);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            rot(r, c) = nav.cbn[3 * r + c];
            rot(3 + r, 3 + c) = nav.cbn[3 * r + c];
        }
    return kftest::mul(rot, d);
}

NavState random_nav(std::mt19937_64 &rng) {
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    NavState nav;
    memset(&nav, 0, sizeof nav);
    kftest::euler_to_cbn(nav.cbn, 0.5 * u(rng), 0.5 * u(rng), 3.0 * u(rng));
    for (int k = 0; k < 3; ++k) {
        nav.f_n[k] = 2.0 * u(rng);
        nav.wie_n[k] = 7e-5 * u(rng);
        nav.wen_n[k] = 1e-5 * u(rng);
    }
    nav.f_n[2] -= 9.8;
    return nav;
}

// P+ from the filter, relative to the size of the expected P+.
double propagation_error(int n, const NavState &nav, const double *L0, const double *dtheta,
                         const double *dvel) {
    KfFilter flt;
    memset(&flt, 0, sizeof flt);
    flt.state_dim = static_cast<uint8_t>(n);
    memcpy(flt.L, L0, sizeof flt.L);
    KFInflatePMatrix(&flt, &nav, dtheta, dvel, kDt);

    const Mat phi = dense_phi(nav, n, kDt);
    const Mat g = dense_g(nav, n, kDt, dtheta + 3, dvel + 3);
    const Mat want = kftest::add(kftest::mul(kftest::mul(phi, kftest::covariance(L0, n)),
                                             kftest::transpose(phi)),
                                 kftest::mul(g, kftest::transpose(g)));
    const Mat got = kftest::covariance(flt.L, n);
    return kftest::max_abs_diff(got, want) / kftest::max_abs(want);
}

}  // namespace

TEST(KfPropagate, FactorMatchesCovarianceFormForEveryDimension) {
    std::mt19937_64 rng(20240611);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (int n : {6, 9, 12}) {
        for (int trial = 0; trial < 20; ++trial) {
            const NavState nav = random_nav(rng);
            double L0[78] = {};
            kftest::random_factor(L0, n, kftest::state_scales(), rng);
            double dtheta[6], dvel[6];
            for (int k = 0; k < 6; ++k) {
                dtheta[k] = 0.01 * u(rng);
                dvel[k] = 0.1 * u(rng);
            }
            EXPECT_LT(propagation_error(n, nav, L0, dtheta, dvel), 1e-13) << "n = " << n;
        }
    }
}

TEST(KfPropagate, NoiseFromAZeroFactorHasTheRatesOfEachDimension) {
    // With L = 0 and cbn = I, P+ is diag(q_a^2, q_g^2, bias walks^2).
    const double dtheta[6] = {9.0, 9.0, 9.0, 0.002, -0.001, 0.0};  // opening triple is ignored
    const double dvel[6] = {9.0, 9.0, 9.0, 0.001, -0.002, -0.0981};
    NavState nav;
    memset(&nav, 0, sizeof nav);
    kftest::euler_to_cbn(nav.cbn, 0.0, 0.0, 0.0);
    for (int n : {6, 9, 12}) {
        KfFilter flt;
        memset(&flt, 0, sizeof flt);
        flt.state_dim = static_cast<uint8_t>(n);
        KFInflatePMatrix(&flt, &nav, dtheta, dvel, kDt);
        const Noise q = noise_of(n);
        double want[12] = {};
        for (int k = 0; k < 3; ++k) {
            want[k] = q.s_a * kDt + 0.01 * fabs(dvel[3 + k]);
            want[3 + k] = q.s_g * kDt + 0.008 * fabs(dtheta[3 + k]);
            want[6 + k] = q.acc_walk * kDt;
            want[9 + k] = q.gyro_walk * kDt;
        }
        for (int i = 0; i < n; ++i)
            EXPECT_NEAR(sqrt(get_kf_state_variance(flt.L, i)), want[i], 1e-15 + 1e-12 * want[i])
                << "n = " << n << ", state " << i;
    }
    // The bank filter's worked example: q_a = (0.00051, 0.00052, 0.001481) m/s.
    KfFilter bank;
    memset(&bank, 0, sizeof bank);
    bank.state_dim = 6;
    KFInflatePMatrix(&bank, &nav, dtheta, dvel, kDt);
    EXPECT_NEAR(sqrt(get_kf_state_variance(bank.L, 0)), 0.00051, 1e-15);
    EXPECT_NEAR(sqrt(get_kf_state_variance(bank.L, 1)), 0.00052, 1e-15);
    EXPECT_NEAR(sqrt(get_kf_state_variance(bank.L, 2)), 0.001481, 1e-15);
}

TEST(KfPropagate, NoiseDependsOnMagnitudeOfClosingSampleOnly) {
    std::mt19937_64 rng(7);
    const NavState nav = random_nav(rng);
    double L0[78] = {};
    kftest::random_factor(L0, 12, kftest::state_scales(), rng);
    const double dtheta[6] = {0.0, 0.0, 0.0, 0.003, -0.002, 0.001};
    const double dvel[6] = {0.0, 0.0, 0.0, 0.01, 0.02, -0.098};
    double dtheta_flip[6], dvel_flip[6];
    for (int k = 0; k < 6; ++k) {
        dtheta_flip[k] = k < 3 ? 5.0 : -dtheta[k];
        dvel_flip[k] = k < 3 ? -5.0 : -dvel[k];
    }
    KfFilter a, b;
    memset(&a, 0, sizeof a);
    a.state_dim = 12;
    memcpy(a.L, L0, sizeof a.L);
    b = a;
    KFInflatePMatrix(&a, &nav, dtheta, dvel, kDt);
    KFInflatePMatrix(&b, &nav, dtheta_flip, dvel_flip, kDt);
    for (int k = 0; k < 78; ++k) EXPECT_EQ(a.L[k], b.L[k]) << k;
}

TEST(KfPropagate, ImuSampCorrRemovesBiasInPlace) {
    double run[11][3];
    for (int i = 0; i < 11; ++i)
        for (int k = 0; k < 3; ++k) run[i][k] = 0.1 * i + k;
    const double bias[3] = {0.5, -0.25, 1.0};
    ImuSampCorr(&run[0][0], &run[0][0], bias, 11);
    for (int i = 0; i < 11; ++i)
        for (int k = 0; k < 3; ++k) EXPECT_DOUBLE_EQ(run[i][k], 0.1 * i + k - bias[k]);
}

TEST(KfPropagate, F64ToZerosClearsWholeDoublesOnly) {
    double buf[4] = {1.0, -2.0, 3.0, 4.0};
    F64ToZeros(buf, 23);  // two whole doubles
    EXPECT_EQ(buf[0], 0.0);
    EXPECT_FALSE(signbit(buf[1]));
    EXPECT_EQ(buf[1], 0.0);
    EXPECT_EQ(buf[2], 3.0);
    EXPECT_EQ(buf[3], 4.0);
}
