// Small dense products against plain loops over every size up to 5 (where
// index and remainder mistakes hide) and the 3x3 frame rotations.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include "drlib.h"

namespace {

constexpr int kMax = 5;
constexpr double kSentinel = -12345.0;

// Deterministic, non-symmetric entries.
double entry(int salt, int i) { return sin(0.37 * i + 1.3 * salt) * (1.0 + 0.1 * i); }

TEST(DenseProducts, GeneralProductsMatchPlainLoopsAtEverySize) {
    double a[kMax * kMax], b[kMax * kMax], out[kMax * kMax + 1];
    for (int i = 0; i < kMax * kMax; ++i) {
        a[i] = entry(1, i);
        b[i] = entry(2, i);
    }
    for (int m = 0; m <= kMax; ++m)
        for (int n = 0; n <= kMax; ++n)
            for (int p = 0; p <= kMax; ++p) {
                SCOPED_TRACE(testing::Message() << m << " x " << n << " x " << p);
                // A (m x n) B (n x p); A (m x n) B^T with B stored p x n; A^T B with A stored n x m.
                for (int form = 0; form < 3; ++form) {
                    for (double &o : out) o = kSentinel;
                    if (form == 0) mtx_mul_mtx(out, a, b, m, n, p);
                    if (form == 1) mtx_mul_mtxt(out, a, b, m, n, p);
                    if (form == 2) mtxt_mul_mtx(out, a, b, n, m, p);
                    for (int i = 0; i < m; ++i)
                        for (int j = 0; j < p; ++j) {
                            double want = 0.0;
                            for (int k = 0; k < n; ++k) {
                                const double x = (form == 2) ? a[k * m + i] : a[i * n + k];
                                const double y = (form == 1) ? b[j * n + k] : b[k * p + j];
                                want += x * y;
                            }
                            EXPECT_EQ(out[i * p + j], want) << "form " << form;
                        }
                    // Nothing beyond the m x p result is written.
                    EXPECT_EQ(out[m * p], kSentinel);
                }
            }
}

TEST(DenseProducts, IdentityLeavesMatrixUnchanged) {
    double eye[16] = {}, b[12], out[12];
    for (int i = 0; i < 4; ++i) eye[5 * i] = 1.0;
    for (int i = 0; i < 12; ++i) b[i] = entry(3, i);
    mtx_mul_mtx(out, eye, b, 4, 4, 3);
    EXPECT_EQ(memcmp(out, b, sizeof b), 0);
}

TEST(DenseProducts, ThreeByThreeRotationAndItsTranspose) {
    const double rph[3] = {0.4, -0.7, 2.5};
    double q[4], c[9], v[3] = {1.0, -2.0, 0.5}, w[3], back[3];
    rph2qbn(q, rph);
    quat2dcm(c, q);
    mtx_mul_vect_3d(w, c, v);
    for (int r = 0; r < 3; ++r) EXPECT_EQ(w[r], c[3 * r] * v[0] + c[3 * r + 1] * v[1] + c[3 * r + 2] * v[2]);
    EXPECT_NEAR(absvect3d(w), absvect3d(v), 1e-15);
    mtxt_mul_vect_3d(back, c, w);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(back[i], v[i], 1e-15);
}

}  // namespace
