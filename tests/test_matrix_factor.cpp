// Square-root filter core: LQ triangularisation, triangular inverse and the
// measurement-update chain against the textbook Kalman equations.
#include <gtest/gtest.h>

#include <cmath>

#include "matrix_test_util.h"

using namespace mtest;

namespace {

// lq_decompose of a dense n x m matrix, returning L (A is copied first).
Mat lq(Mat A, int32_t n, int32_t m) {
    Mat L(static_cast<size_t>(tri(n)), 0.0);
    std::vector<double> work(static_cast<size_t>(m) + 1);
    lq_decompose(L.data(), A.data(), n, m, work.data());
    return L;
}

}  // namespace

TEST(RowStarts, FollowTheTriangleNumbers) {
    for (int32_t i = 0; i < 256; ++i) ASSERT_EQ(gk_L_start[i], tri(i)) << i;
}

TEST(LqDecompose, FactorReproducesAAt) {
    std::mt19937 rng(11);
    for (int32_t n = 1; n <= 9; ++n) {
        for (int32_t m : {n, n + 1, 2 * n}) {
            const Mat A = random_dense(rng, n, m);
            const Mat L = unpack_lower(lq(A, n, m), n);
            EXPECT_TRUE(all_near(mul(L, transpose(L, n, n), n, n, n), mul(A, transpose(A, n, m), n, m, n), 1e-12))
                << n << "x" << m;
        }
    }
}

TEST(LqDecompose, DiagonalTakesTheOppositeSignOfThePivot) {
    // A single row: the diagonal is minus sign(a0) times the row norm; a zero
    // pivot takes the positive side.
    double L = 0.0, work[3];
    double row_pos[3] = {3.0, 4.0, 12.0};
    lq_decompose(&L, row_pos, 1, 3, work);
    EXPECT_DOUBLE_EQ(L, -13.0);
    double row_neg[3] = {-3.0, 4.0, 12.0};
    lq_decompose(&L, row_neg, 1, 3, work);
    EXPECT_DOUBLE_EQ(L, 13.0);
    double row_zero[3] = {0.0, 4.0, 3.0};
    lq_decompose(&L, row_zero, 1, 3, work);
    EXPECT_DOUBLE_EQ(L, 5.0);

    // In a larger matrix the first row is processed untouched by the others.
    std::mt19937 rng(12);
    for (int trial = 0; trial < 20; ++trial) {
        const Mat A = random_dense(rng, 4, 8);
        double norm = 0.0;
        for (int32_t j = 0; j < 8; ++j) norm += A[static_cast<size_t>(j)] * A[static_cast<size_t>(j)];
        const double expected = A[0] > 0.0 ? -std::sqrt(norm) : std::sqrt(norm);
        EXPECT_NEAR(lq(A, 4, 8)[0], expected, 1e-14);
    }
}

TEST(LqDecompose, RankDeficientRowGetsZeroDiagonalWithoutNaN) {
    // Row 1 is twice row 0: after the first reflection nothing is left of it.
    Mat A = {1.0, 0.0, 0.0, 2.0, 0.0, 0.0};
    const Mat L = lq(A, 2, 3);
    for (double x : L) EXPECT_TRUE(std::isfinite(x));
    EXPECT_EQ(L[2], 0.0);
    EXPECT_TRUE(all_near(mul(unpack_lower(L, 2), transpose(unpack_lower(L, 2), 2, 2), 2, 2, 2), {1, 2, 2, 4}, 1e-15));

    // An all-zero row in the middle leaves the rows after it intact.
    Mat B = {1.0, 2.0, 0.5, 0.0, 0.0, 0.0, 0.0, 1.0, 3.0};
    const Mat LB = lq(B, 3, 3);
    for (double x : LB) EXPECT_TRUE(std::isfinite(x));
    EXPECT_EQ(LB[2], 0.0);
    EXPECT_TRUE(all_near(mul(unpack_lower(LB, 3), transpose(unpack_lower(LB, 3), 3, 3), 3, 3, 3),
                         mul(B, transpose(B, 3, 3), 3, 3, 3), 1e-14));
}

TEST(InvL, InverseOnBothSides) {
    std::mt19937 rng(21);
    for (int32_t n = 1; n <= 12; ++n) {
        const Mat L = random_factor(rng, n);
        Mat X(L.size(), -99.0);
        InvL(X.data(), L.data(), n);
        const Mat Ld = unpack_lower(L, n), Xd = unpack_lower(X, n);
        EXPECT_TRUE(all_near(mul(Ld, Xd, n, n, n), identity(n), 1e-13)) << n;
        EXPECT_TRUE(all_near(mul(Xd, Ld, n, n, n), identity(n), 1e-13)) << n;
    }
}

TEST(InvL, DiagonalAndLeadingBlock) {
    const Mat D = {2.0, 0.0, -4.0, 0.0, 0.0, 0.5};
    Mat X(6);
    InvL(X.data(), D.data(), 3);
    EXPECT_TRUE(all_near(X, {0.5, 0.0, -0.25, 0.0, 0.0, 2.0}, 0.0));

    // The leading 3x3 block of a packed 6x6 factor is its first six doubles.
    std::mt19937 rng(22);
    const Mat L6 = random_factor(rng, 6);
    Mat X3(6);
    InvL(X3.data(), L6.data(), 3);
    const Mat L3(L6.begin(), L6.begin() + 6);
    EXPECT_TRUE(all_near(mul(unpack_lower(L3, 3), unpack_lower(X3, 3), 3, 3, 3), identity(3), 1e-14));
}

TEST(ClearOffDiagL, ZeroesRowAndColumnOfOneState) {
    const int32_t n = 5;
    for (int32_t k = 0; k < n; ++k) {
        Mat L(static_cast<size_t>(tri(n)));
        for (size_t i = 0; i < L.size(); ++i) L[i] = 1.0 + static_cast<double>(i);
        const Mat before = L;
        ClearOffDiagL(L.data(), k, n);
        for (int32_t i = 0; i < n; ++i) {
            for (int32_t j = 0; j <= i; ++j) {
                const size_t idx = static_cast<size_t>(tri(i) + j);
                const bool cleared = i != j && (i == k || j == k);
                EXPECT_EQ(L[idx], cleared ? 0.0 : before[idx]) << k << ": " << i << "," << j;
            }
        }
    }
}

// The array-form measurement update: triangularise [[R^1/2, H L], [0, L]],
// invert the innovation factor, extract the gain. The result must be the
// textbook K = P H^T (H P H^T + R)^-1 and P+ = P - K H P.
TEST(MeasurementUpdateChain, MatchesTextbookKalmanGain) {
    std::mt19937 rng(31);
    std::uniform_real_distribution<double> sd(0.1, 2.0);
    for (int32_t n = 1; n <= 12; ++n) {
        for (int32_t m = 1; m <= 3 && m + n <= 15; ++m) {
            const Mat L = random_factor(rng, n);
            const Mat H = random_dense(rng, m, n);
            std::vector<double> r(static_cast<size_t>(m));
            for (double &x : r) x = sd(rng);

            const int32_t N = m + n;
            Mat E(static_cast<size_t>(N * N), 0.0);
            for (int32_t i = 0; i < m; ++i) E[static_cast<size_t>(i * N + i)] = r[static_cast<size_t>(i)];
            CalcHL2EM(E.data(), H.data(), L.data(), m, n);
            for (int32_t i = 0; i < n; ++i)
                for (int32_t j = 0; j <= i; ++j)
                    E[static_cast<size_t>((m + i) * N + m + j)] = L[static_cast<size_t>(tri(i) + j)];

            Mat Lc(static_cast<size_t>(tri(N)));
            std::vector<double> work(static_cast<size_t>(N));
            lq_decompose(Lc.data(), E.data(), N, N, work.data());
            Mat X(static_cast<size_t>(tri(m)));
            InvL(X.data(), Lc.data(), m);
            Mat K(static_cast<size_t>(n * m));
            CalcK_fromEM(K.data(), Lc.data(), X.data(), n, m);

            const Mat Ld = unpack_lower(L, n);
            const Mat P = mul(Ld, transpose(Ld, n, n), n, n, n);
            const Mat PHt = mul(P, transpose(H, m, n), n, n, m);
            Mat S = mul(H, PHt, m, n, m);
            for (int32_t i = 0; i < m; ++i) S[static_cast<size_t>(i * m + i)] += r[static_cast<size_t>(i)] * r[static_cast<size_t>(i)];
            const Mat K_ref = mul(PHt, inverse(S, m), n, m, m);
            EXPECT_TRUE(all_near(K, K_ref, 1e-11)) << "n=" << n << " m=" << m;

            Mat Lp(static_cast<size_t>(n * n), 0.0);
            for (int32_t i = 0; i < n; ++i)
                for (int32_t j = 0; j <= i; ++j)
                    Lp[static_cast<size_t>(i * n + j)] = Lc[static_cast<size_t>(tri(m + i) + m + j)];
            Mat P_ref = mul(K_ref, mul(H, P, m, n, n), n, m, n);
            for (size_t i = 0; i < P_ref.size(); ++i) P_ref[i] = P[i] - P_ref[i];
            EXPECT_TRUE(all_near(mul(Lp, transpose(Lp, n, n), n, n, n), P_ref, 1e-11)) << "n=" << n << " m=" << m;
        }
    }
}

// The time-update shape: [A L | G] gives L+ L+^T = A P A^T + G G^T.
TEST(TimeUpdateChain, PropagatesCovariance) {
    std::mt19937 rng(41);
    for (int32_t n = 1; n <= 12; ++n) {
        const Mat L = random_factor(rng, n);
        const Mat A = random_dense(rng, n, n);
        const Mat G = random_dense(rng, n, n);
        Mat E(static_cast<size_t>(2 * n * n));
        for (int32_t i = 0; i < n; ++i)
            for (int32_t j = 0; j < n; ++j) E[static_cast<size_t>(i * 2 * n + n + j)] = G[static_cast<size_t>(i * n + j)];
        CalcAL2EM(E.data(), A.data(), L.data(), n);
        const Mat Lp = unpack_lower(lq(E, n, 2 * n), n);
        const Mat Ld = unpack_lower(L, n);
        const Mat AL = mul(A, Ld, n, n, n);
        Mat want = mul(AL, transpose(AL, n, n), n, n, n);
        const Mat GGt = mul(G, transpose(G, n, n), n, n, n);
        for (size_t i = 0; i < want.size(); ++i) want[i] += GGt[i];
        EXPECT_TRUE(all_near(mul(Lp, transpose(Lp, n, n), n, n, n), want, 1e-12)) << n;
    }
}
