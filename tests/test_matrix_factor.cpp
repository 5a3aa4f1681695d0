// Factorisations of the square-root filter core, checked by rebuilding or
// inverting their input (the measurement update chain built on them is checked
// against the textbook Kalman filter in test_kf_update).
#include <algorithm>

#include "matrix_test_util.h"

using namespace mtest;

namespace {

Mat lq(Mat A, int n, int m) {  // A is taken by value: the kernel destroys it
    Mat L(tri(n)), work(m);
    lq_decompose(L.data(), A.data(), n, m, work.data());
    return L;
}

Mat factor_product(const Mat &L, int n) { return gram(unpack_lower(L, n), n, n); }

Mat random_spd(std::mt19937 &rng, int n) {  // B B^T + I, packed
    Mat S = gram(random_dense(rng, n, n), n, n);
    for (int i = 0; i < n; ++i) S[i * n + i] += 1.0;
    return pack_lower(S, n);
}

}  // namespace

// The diagonal takes the opposite sign of the pivot (a zero pivot the
// positive side); a rank-deficient row (2 x row 0, or all zeros) gets a zero
// diagonal without NaN.
TEST(LqDecompose, DiagonalSignAndRankDeficientRows) {
    EXPECT_TRUE(lq({3.0, 4.0, 12.0}, 1, 3)[0] == -13.0 && lq({-3.0, 4.0, 12.0}, 1, 3)[0] == 13.0);
    EXPECT_EQ(lq({0.0, 4.0, 3.0}, 1, 3)[0], 5.0);
    const Mat A = {1.0, 0.0, 0.0, 2.0, 0.0, 0.0}, B = {1.0, 2.0, 0.5, 0.0, 0.0, 0.0, 0.0, 1.0, 3.0};
    const Mat LA = lq(A, 2, 3), LB = lq(B, 3, 3);
    EXPECT_TRUE(LA[2] == 0.0 && LB[2] == 0.0);
    EXPECT_TRUE(all_near(factor_product(LA, 2), gram(A, 2, 3), 1e-15));
    EXPECT_TRUE(all_near(factor_product(LB, 3), gram(B, 3, 3), 1e-14));
}

// At every size: L L^T of the LQ factor is A A^T, InvL and InvS give the
// identity from both sides, and the pivoted L^T D L rebuilds the permuted
// matrix with a unit diagonal. Then small cases worked by hand.
TEST(Factorisations, RebuildOrInvertTheirInput) {
    for (int i = 0; i < 256; ++i) ASSERT_EQ(gk_L_start[i], tri(i));
    std::mt19937 rng(11);
    for (int n = 1; n <= 12; ++n) {
        for (int m : {n, n + 1, 2 * n}) {
            const Mat A = random_dense(rng, n, m);
            EXPECT_TRUE(all_near(factor_product(lq(A, n, m), n), gram(A, n, m), 1e-12)) << n << "x" << m;
        }
        const Mat L = random_factor(rng, n), S = random_spd(rng, n), Sd = unpack_sym(S, n);
        Mat X(L.size(), -99.0), work = S, Si(S.size()), F = S, d(n);
        InvL(X.data(), L.data(), n);
        const Mat Ld = unpack_lower(L, n), Xd = unpack_lower(X, n);
        EXPECT_TRUE(all_near(mul(Ld, Xd, n, n, n), identity(n), 1e-13)) << n;
        EXPECT_TRUE(all_near(mul(Xd, Ld, n, n, n), identity(n), 1e-13)) << n;
        InvS(Si.data(), work.data(), n);
        EXPECT_TRUE(all_near(mul(Sd, unpack_sym(Si, n), n, n, n), identity(n), 1e-12)) << n;
        std::vector<int32_t> perm(n);
        ltdl_decompose_pivot(F.data(), d.data(), perm.data(), n);
        std::vector<int32_t> sorted = perm;
        std::sort(sorted.begin(), sorted.end());
        for (int i = 0; i < n; ++i) ASSERT_EQ(sorted[i], i) << "not a permutation";
        const Mat Fd = unpack_lower(F, n), rebuilt = mul(transpose(Fd, n, n), mul(diag(d), Fd, n, n, n), n, n, n);
        for (int i = 0; i < n; ++i) {
            EXPECT_EQ(Fd[i * n + i], 1.0);
            for (int j = 0; j < n; ++j) EXPECT_NEAR(rebuilt[i * n + j], Sd[perm[i] * n + perm[j]], 1e-12) << n;
        }
    }
    double U[3], S2[3] = {4.0, 2.0, 3.0};
    LDLTDecompose(U, S2, 2);  // D = (4, 2), L(1, 0) = 0.5 stored times D(0)
    EXPECT_TRUE(all_near(Mat(U, U + 3), {4.0, 2.0, 2.0}, 0.0));
    double S[6] = {3.0, 0.0, 1.0, 0.0, 0.0, 2.0}, d[3];  // diag(3, 1, 2): 1 goes last
    int32_t perm[3];
    ltdl_decompose_pivot(S, d, perm, 3);
    EXPECT_EQ(std::vector<int32_t>(perm, perm + 3), (std::vector<int32_t>{0, 2, 1}));
    EXPECT_TRUE(all_near(Mat(d, d + 3), {3.0, 2.0, 1.0}, 0.0));
    EXPECT_TRUE(all_near(Mat(S, S + 6), {1.0, 0.0, 1.0, 0.0, 0.0, 1.0}, 0.0));
}

TEST(EigDecomposeJacobi, RebuildsRandomSymmetricMatrices) {
    std::mt19937 rng(63);
    for (int n : {2, 3, 4, 5, 6, 7, 12, 30}) {
        const Mat S = random_dense(rng, 1, tri(n));
        Mat work = S, work2 = S, e(n), e2(n), E(n * n);
        eig_decompose_jacobi(e.data(), E.data(), work.data(), n);
        EXPECT_TRUE(all_near(mul(E, mul(diag(e), transpose(E, n, n), n, n, n), n, n, n), unpack_sym(S, n), 1e-12));
        EXPECT_TRUE(all_near(mul(transpose(E, n, n), E, n, n, n), identity(n), 1e-12)) << n;
        eig_decompose_jacobi(e2.data(), nullptr, work2.data(), n);  // same rotations without vectors
        EXPECT_EQ(e2, e) << n;
    }
}

TEST(ClearOffDiagL, ZeroesRowAndColumnOfOneState) {
    for (int k = 0; k < 5; ++k) {
        Mat L(tri(5));
        for (size_t i = 0; i < L.size(); ++i) L[i] = 1.0 + static_cast<double>(i);
        ClearOffDiagL(L.data(), k, 5);
        for (int i = 0; i < 5; ++i)
            for (int j = 0; j <= i; ++j)
                EXPECT_EQ(L[tri(i) + j], i != j && (i == k || j == k) ? 0.0 : 1 + tri(i) + j) << k;
    }
}
