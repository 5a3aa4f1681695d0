// Symmetric decompositions checked by rebuilding or inverting the input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "matrix_test_util.h"

using namespace mtest;

namespace {

size_t sz(int32_t n) { return static_cast<size_t>(n); }

// Packed symmetric positive-definite matrix B B^T + I.
Mat random_spd(std::mt19937 &rng, int32_t n) {
    const Mat B = random_dense(rng, n, n);
    Mat S = mul(B, transpose(B, n, n), n, n, n);
    for (int32_t i = 0; i < n; ++i) S[sz(i * n + i)] += 1.0;
    return pack_lower(S, n);
}

}  // namespace

TEST(LDLTDecompose, TwoByTwoExample) {
    double S[3] = {4.0, 2.0, 3.0};
    double U[3];
    LDLTDecompose(U, S, 2);
    EXPECT_DOUBLE_EQ(U[0], 4.0);
    EXPECT_DOUBLE_EQ(U[1], 2.0);  // L(1, 0) = 0.5 stored times D(0) = 4
    EXPECT_DOUBLE_EQ(U[2], 2.0);
    LDLTDecompose(S, S, 2);  // in place
    EXPECT_TRUE(all_near({S[0], S[1], S[2]}, {4.0, 2.0, 2.0}, 0.0));
}

TEST(InvS, InvertsSymmetricMatrices) {
    std::mt19937 rng(61);
    for (int32_t n = 1; n <= 12; ++n) {
        const Mat S = random_spd(rng, n);
        Mat work = S, out(S.size());
        InvS(out.data(), work.data(), n);
        EXPECT_TRUE(all_near(mul(unpack_sym(S, n), unpack_sym(out, n), n, n, n), identity(n), 1e-12)) << n;
    }
    // A diagonal matrix inverts elementwise, and the input ends as D^-1 L^-1 = D^-1.
    Mat D = {2.0, 0.0, -4.0, 0.0, 0.0, 8.0}, out(6);
    InvS(out.data(), D.data(), 3);
    EXPECT_TRUE(all_near(out, {0.5, 0.0, -0.25, 0.0, 0.0, 0.125}, 0.0));
    EXPECT_TRUE(all_near(D, {0.5, 0.0, -0.25, 0.0, 0.0, 0.125}, 0.0));
}

TEST(LtdlDecomposePivot, RebuildsPermutedMatrix) {
    std::mt19937 rng(62);
    for (int32_t n = 1; n <= 12; ++n) {
        const Mat S = random_spd(rng, n);
        Mat F = S, d(sz(n));
        std::vector<int32_t> perm(sz(n));
        ltdl_decompose_pivot(F.data(), d.data(), perm.data(), n);

        std::vector<int32_t> sorted = perm;
        std::sort(sorted.begin(), sorted.end());
        for (int32_t i = 0; i < n; ++i) ASSERT_EQ(sorted[sz(i)], i) << "not a permutation";

        const Mat Ld = unpack_lower(F, n);
        for (int32_t i = 0; i < n; ++i) EXPECT_EQ(Ld[sz(i * n + i)], 1.0);
        Mat Dd(sz(n * n), 0.0);
        for (int32_t i = 0; i < n; ++i) Dd[sz(i * n + i)] = d[sz(i)];
        const Mat rebuilt = mul(transpose(Ld, n, n), mul(Dd, Ld, n, n, n), n, n, n);
        const Mat Sd = unpack_sym(S, n);
        for (int32_t i = 0; i < n; ++i)
            for (int32_t j = 0; j < n; ++j)
                EXPECT_NEAR(rebuilt[sz(i * n + j)], Sd[sz(perm[sz(i)] * n + perm[sz(j)])], 1e-12) << n;
    }
}

TEST(LtdlDecomposePivot, SmallestDiagonalGoesLast) {
    double S[6] = {3.0, 0.0, 1.0, 0.0, 0.0, 2.0};
    double d[3];
    int32_t perm[3];
    ltdl_decompose_pivot(S, d, perm, 3);
    EXPECT_EQ(perm[0], 0);
    EXPECT_EQ(perm[1], 2);
    EXPECT_EQ(perm[2], 1);
    EXPECT_TRUE(all_near({d[0], d[1], d[2]}, {3.0, 2.0, 1.0}, 0.0));
    EXPECT_TRUE(all_near(Mat(S, S + 6), {1.0, 0.0, 1.0, 0.0, 0.0, 1.0}, 0.0));
}

TEST(EigDecomposeJacobi, RebuildsRandomSymmetricMatrices) {
    std::mt19937 rng(63);
    for (int32_t n : {2, 3, 4, 5, 6, 7, 8, 12, 30}) {
        const Mat S = random_dense(rng, 1, tri(n));
        Mat work = S, e(sz(n)), E(sz(n * n));
        eig_decompose_jacobi(e.data(), E.data(), work.data(), n);
        Mat D(sz(n * n), 0.0);
        for (int32_t i = 0; i < n; ++i) D[sz(i * n + i)] = e[sz(i)];
        EXPECT_TRUE(all_near(mul(E, mul(D, transpose(E, n, n), n, n, n), n, n, n), unpack_sym(S, n), 1e-12)) << n;
        EXPECT_TRUE(all_near(mul(transpose(E, n, n), E, n, n, n), identity(n), 1e-12)) << n;

        // Without eigenvectors the same rotations give the same eigenvalues.
        Mat work2 = S, e2(sz(n));
        eig_decompose_jacobi(e2.data(), nullptr, work2.data(), n);
        EXPECT_EQ(e2, e) << n;
        // Trace is invariant.
        double tr = 0.0, sum = 0.0;
        for (int32_t i = 0; i < n; ++i) {
            tr += S[sz(tri(i) + i)];
            sum += e[sz(i)];
        }
        EXPECT_NEAR(sum, tr, 1e-12);
    }
}

TEST(EigDecomposeJacobi, SmallAndDiagonalCases) {
    // [[a, b], [b, a]], b > 0: one rotation, e = (a - b, a + b).
    double S[3] = {2.0, 0.5, 2.0}, e[2], E[4];
    eig_decompose_jacobi(e, E, S, 2);
    EXPECT_DOUBLE_EQ(e[0], 1.5);
    EXPECT_DOUBLE_EQ(e[1], 2.5);
    const double h = 1.0 / std::sqrt(2.0);
    EXPECT_TRUE(all_near(Mat(E, E + 4), {h, h, -h, h}, 1e-15));

    double Sd[6] = {3.0, 0.0, -1.0, 0.0, 0.0, 7.0}, ed[3], Ed[9];
    eig_decompose_jacobi(ed, Ed, Sd, 3);
    EXPECT_TRUE(all_near(Mat(ed, ed + 3), {3.0, -1.0, 7.0}, 0.0));
    EXPECT_TRUE(all_near(Mat(Ed, Ed + 9), identity(3), 0.0));

    double S1 = -4.5, e1 = 0.0, E1 = 0.0;
    eig_decompose_jacobi(&e1, &E1, &S1, 1);
    EXPECT_EQ(e1, -4.5);
    EXPECT_EQ(E1, 1.0);
}
