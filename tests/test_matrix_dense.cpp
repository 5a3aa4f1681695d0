// Small dense products against plain loops over every size up to 5, where
// index and remainder mistakes hide.
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

}  // namespace
