// Time update of the square-root filter against the covariance form
// P+ = Phi P Phi^T + G G^T, with Phi and G written out densely from the
// psi-angle error model.
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

// The transition matrix and noise factor of one step, written out densely.
struct StepModel {
    Mat phi, g;
};

StepModel step_model(const NavState &nav, int n, const double *dtheta, const double *dvel) {
    StepModel s{Mat(n, n), Mat(n, n)};
    double w_c[3], w_in[3], q[12];
    for (int k = 0; k < 3; ++k) {
        w_c[k] = 2.0 * nav.wie_n[k] + nav.wen_n[k];
        w_in[k] = nav.wie_n[k] + nav.wen_n[k];
    }
    for (int i = 0; i < n; ++i) s.phi(i, i) = 1.0;
    kftest::put_skew(s.phi, 0, 0, w_c, -kDt);
    kftest::put_skew(s.phi, 0, 3, nav.f_n, kDt);
    kftest::put_skew(s.phi, 3, 3, w_in, -kDt);
    step_noise(q, n, dtheta + 3, dvel + 3);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            if (n > 8) s.phi(r, 6 + c) = nav.cbn[3 * r + c] * kDt;
            if (n > 11) s.phi(3 + r, 9 + c) = -nav.cbn[3 * r + c] * kDt;
            s.g(r, c) = nav.cbn[3 * r + c] * q[c];
            s.g(3 + r, 3 + c) = nav.cbn[3 * r + c] * q[3 + c];
        }
    for (int i = 6; i < n; ++i) s.g(i, i) = q[i];
    return s;
}

}  // namespace

TEST(KfPropagate, FactorMatchesCovarianceForm) {
    std::mt19937_64 rng(20240611);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (int n : {6, 9, 12}) {
        for (int trial = 0; trial < 20; ++trial) {
            const double rph[3] = {0.6 * u(rng), 0.6 * u(rng), 3.0 * u(rng)}, still[3] = {};
            NavState nav = kftest::make_nav(0.0, 0.0, 0.0, still, rph);  // rates set below
            double dtheta[6], dvel[6];
            for (int k = 0; k < 3; ++k)
                nav.f_n[k] = 2.0 * u(rng) - (k == 2 ? 9.8 : 0.0), nav.wie_n[k] = 7e-5 * u(rng), nav.wen_n[k] = 1e-5 * u(rng);
            for (int k = 0; k < 6; ++k) dtheta[k] = 0.01 * u(rng), dvel[k] = 0.1 * u(rng);
            KfFilter flt = kftest::make_filter(n, nullptr);
            kftest::random_factor(flt.L, n, rng);
            const StepModel model = step_model(nav, n, dtheta, dvel);
            const Mat want = kftest::add(
                kftest::mul(kftest::mul(model.phi, kftest::covariance(flt.L, n)), model.phi, true),
                kftest::mul(model.g, model.g, true));
            KFInflatePMatrix(&flt, &nav, dtheta, dvel, kDt);
            EXPECT_LT(kftest::rel_err(kftest::covariance(flt.L, n), want), 1e-13) << "n = " << n;
        }
    }
}
