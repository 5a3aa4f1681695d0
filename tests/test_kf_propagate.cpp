// Time update of the square-root filter against the covariance form
// P+ = Phi P Phi^T + G G^T, with Phi and G written out densely from the
// psi-angle error model.
#include <gtest/gtest.h>

#include "matrix_test_util.h"

using kftest::Mat;

namespace {

constexpr double kDt = 0.01;  // s

// Per-axis noise standard deviations over one step: velocity, angle, the two bias walks.
void step_noise(double *q, int n, const double *dth_close, const double *dv_close) {
    const double s_a = n > 6 ? 0.01 : 0.05, s_g = n == 6 ? 0.006 : n == 9 ? 0.004 : 0.001;
    for (int k = 0; k < 3; ++k) {
        q[k] = s_a * kDt + 0.01 * fabs(dv_close[k]);
        q[3 + k] = s_g * kDt + 0.008 * fabs(dth_close[k]);
        q[6 + k] = 5e-5 * kDt;
        q[9 + k] = 4.84813681109536e-06 * kDt;
    }
}

Mat expected_covariance(const NavState &nav, int n, const double *L0, const double *dtheta,
                        const double *dvel) {
    Mat phi(n, n), g(n, n);
    double w_c[3], w_in[3], q[12];
    for (int k = 0; k < 3; ++k) {
        w_c[k] = 2.0 * nav.wie_n[k] + nav.wen_n[k];
        w_in[k] = nav.wie_n[k] + nav.wen_n[k];
    }
    for (int i = 0; i < n; ++i) phi(i, i) = 1.0;
    kftest::put_skew(phi, 0, 0, w_c, -kDt);
    kftest::put_skew(phi, 0, 3, nav.f_n, kDt);
    kftest::put_skew(phi, 3, 3, w_in, -kDt);
    step_noise(q, n, dtheta + 3, dvel + 3);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            if (n > 8) phi(r, 6 + c) = nav.cbn[3 * r + c] * kDt;
            if (n > 11) phi(3 + r, 9 + c) = -nav.cbn[3 * r + c] * kDt;
            g(r, c) = nav.cbn[3 * r + c] * q[c];
            g(3 + r, 3 + c) = nav.cbn[3 * r + c] * q[3 + c];
        }
    for (int i = 6; i < n; ++i) g(i, i) = q[i];
    return kftest::add(kftest::mul(kftest::mul(phi, kftest::covariance(L0, n)), phi, true),
                       kftest::mul(g, g, true));
}

}  // namespace

TEST(KfPropagate, FactorMatchesCovarianceFormForEveryDimension) {
    std::mt19937_64 rng(20240611);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    double q_ex[12];  // the bank filter's worked example
    const double dth_close[3] = {0.002, -0.001, 0.0}, dv_close[3] = {0.001, -0.002, -0.0981};
    step_noise(q_ex, 6, dth_close, dv_close);
    EXPECT_NEAR(q_ex[2], 0.001481, 1e-15);
    for (int n : {6, 9, 12}) {
        for (int trial = 0; trial < 20; ++trial) {
            NavState nav;
            memset(&nav, 0, sizeof nav);
            const double q[4] = {1.0, 0.3 * u(rng), 0.3 * u(rng), u(rng)};
            const double s = 1.0 / sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
            const double qn[4] = {q[0] * s, q[1] * s, q[2] * s, q[3] * s};
            quat2dcm(nav.cbn, qn);
            double dtheta[6], dvel[6];
            for (int k = 0; k < 3; ++k) {
                nav.f_n[k] = 2.0 * u(rng) - (k == 2 ? 9.8 : 0.0);
                nav.wie_n[k] = 7e-5 * u(rng);
                nav.wen_n[k] = 1e-5 * u(rng);
            }
            for (int k = 0; k < 6; ++k) dtheta[k] = 0.01 * u(rng), dvel[k] = 0.1 * u(rng);
            KfFilter flt = kftest::make_filter(n, nullptr);
            kftest::random_factor(flt.L, n, rng);
            const Mat want = expected_covariance(nav, n, flt.L, dtheta, dvel);
            KFInflatePMatrix(&flt, &nav, dtheta, dvel, kDt);
            EXPECT_LT(kftest::rel_err(kftest::covariance(flt.L, n), want), 1e-13) << "n = " << n;
        }
    }
}
