// Square-root filter core: LQ triangularisation, triangular inverse and the
// update chains against the dense Kalman equations.
#include "matrix_test_util.h"

using namespace mtest;

namespace {

Mat lq(Mat A, int n, int m) {  // A is taken by value: the kernel destroys it
    Mat L(tri(n)), work(m);
    lq_decompose(L.data(), A.data(), n, m, work.data());
    return L;
}

Mat factor_product(const Mat &L, int n) { return gram(unpack_lower(L, n), n, n); }

}  // namespace

TEST(LqDecompose, FactorReproducesAAt) {
    for (int i = 0; i < 256; ++i) ASSERT_EQ(gk_L_start[i], tri(i));
    std::mt19937 rng(11);
    for (int n = 1; n <= 9; ++n)
        for (int m : {n, n + 1, 2 * n}) {
            const Mat A = random_dense(rng, n, m);
            EXPECT_TRUE(all_near(factor_product(lq(A, n, m), n), gram(A, n, m), 1e-12)) << n << "x" << m;
        }
}

TEST(LqDecompose, DiagonalTakesTheOppositeSignOfThePivot) {
    EXPECT_EQ(lq({3.0, 4.0, 12.0}, 1, 3)[0], -13.0);
    EXPECT_EQ(lq({-3.0, 4.0, 12.0}, 1, 3)[0], 13.0);
    EXPECT_EQ(lq({0.0, 4.0, 3.0}, 1, 3)[0], 5.0);  // a zero pivot takes the positive side
    std::mt19937 rng(12);
    for (int trial = 0; trial < 20; ++trial) {
        const Mat A = random_dense(rng, 4, 8);
        const double norm = std::sqrt(gram(Mat(A.begin(), A.begin() + 8), 1, 8)[0]);
        EXPECT_NEAR(lq(A, 4, 8)[0], A[0] > 0.0 ? -norm : norm, 1e-14);
    }
}

TEST(LqDecompose, RankDeficientRowGetsZeroDiagonalWithoutNaN) {
    // Row 1 = 2 * row 0, and separately an all-zero middle row.
    const Mat A = {1.0, 0.0, 0.0, 2.0, 0.0, 0.0};
    const Mat B = {1.0, 2.0, 0.5, 0.0, 0.0, 0.0, 0.0, 1.0, 3.0};
    const Mat LA = lq(A, 2, 3), LB = lq(B, 3, 3);
    EXPECT_EQ(LA[2], 0.0);
    EXPECT_EQ(LB[2], 0.0);
    EXPECT_TRUE(all_near(factor_product(LA, 2), gram(A, 2, 3), 1e-15));
    EXPECT_TRUE(all_near(factor_product(LB, 3), gram(B, 3, 3), 1e-14));
}

TEST(InvL, InverseOnBothSides) {
    std::mt19937 rng(21);
    for (int n = 1; n <= 12; ++n) {
        const Mat L = random_factor(rng, n);
        Mat X(L.size(), -99.0);
        InvL(X.data(), L.data(), n);
        const Mat Ld = unpack_lower(L, n), Xd = unpack_lower(X, n);
        EXPECT_TRUE(all_near(mul(Ld, Xd, n, n, n), identity(n), 1e-13)) << n;
        EXPECT_TRUE(all_near(mul(Xd, Ld, n, n, n), identity(n), 1e-13)) << n;
    }
}

TEST(ClearOffDiagL, ZeroesRowAndColumnOfOneState) {
    const int n = 5;
    for (int k = 0; k < n; ++k) {
        Mat L(tri(n));
        for (size_t i = 0; i < L.size(); ++i) L[i] = 1.0 + static_cast<double>(i);
        const Mat before = L;
        ClearOffDiagL(L.data(), k, n);
        for (int i = 0; i < n; ++i)
            for (int j = 0; j <= i; ++j)
                EXPECT_EQ(L[tri(i) + j], i != j && (i == k || j == k) ? 0.0 : before[tri(i) + j]) << k;
    }
}

// Array form of the measurement update: [[R^1/2, H L], [0, L]] triangularised,
// then the gain from the inverse innovation factor. It must satisfy the
// textbook K (H P H^T + R) = P H^T and P+ = P - K H P.
TEST(UpdateChains, MeasurementUpdateMatchesKalmanEquations) {
    std::mt19937 rng(31);
    std::uniform_real_distribution<double> sd(0.1, 2.0);
    for (int n = 1; n <= 12; ++n)
        for (int m = 1; m <= 3; ++m) {
            const int N = m + n;
            const Mat L = random_factor(rng, n), H = random_dense(rng, m, n);
            Mat r(m), E(N * N, 0.0);
            for (int i = 0; i < m; ++i) E[i * N + i] = r[i] = sd(rng);
            CalcHL2EM(E.data(), H.data(), L.data(), m, n);
            for (int i = 0; i < n; ++i)
                for (int j = 0; j <= i; ++j) E[(m + i) * N + m + j] = L[tri(i) + j];
            const Mat Lc = lq(E, N, N);
            Mat X(tri(m)), K(n * m);
            InvL(X.data(), Lc.data(), m);
            CalcK_fromEM(K.data(), Lc.data(), X.data(), n, m);

            const Mat P = factor_product(L, n), PHt = mul(P, transpose(H, m, n), n, n, m);
            Mat S = mul(H, PHt, m, n, m);
            for (int i = 0; i < m; ++i) S[i * m + i] += r[i] * r[i];
            EXPECT_TRUE(all_near(mul(K, S, n, m, m), PHt, 1e-11)) << n << "," << m;

            Mat Lp(tri(n)), P_ref = mul(K, transpose(PHt, n, m), n, m, n);
            for (int i = 0; i < n; ++i)
                for (int j = 0; j <= i; ++j) Lp[tri(i) + j] = Lc[tri(m + i) + m + j];
            for (size_t i = 0; i < P.size(); ++i) P_ref[i] = P[i] - P_ref[i];
            EXPECT_TRUE(all_near(factor_product(Lp, n), P_ref, 1e-11)) << n << "," << m;
        }
}

// Time update: [A L | G] triangularised gives L+ L+^T = A P A^T + G G^T.
TEST(UpdateChains, TimeUpdatePropagatesCovariance) {
    std::mt19937 rng(41);
    for (int n = 1; n <= 12; ++n) {
        const Mat L = random_factor(rng, n), A = random_dense(rng, n, n), G = random_dense(rng, n, n);
        Mat E(2 * n * n);
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) E[i * 2 * n + n + j] = G[i * n + j];
        CalcAL2EM(E.data(), A.data(), L.data(), n);
        Mat want = gram(mul(A, unpack_lower(L, n), n, n, n), n, n);
        const Mat GGt = gram(G, n, n);
        for (size_t i = 0; i < want.size(); ++i) want[i] += GGt[i];
        EXPECT_TRUE(all_near(factor_product(lq(E, n, 2 * n), n), want, 1e-12)) << n;
    }
}
