// Matrix products against plain dense loops at every small size, where index,
// remainder and bound errors hide.
#include "matrix_test_util.h"

using namespace mtest;

namespace {

constexpr int kMaxDim = 6;
constexpr double kTol = 1e-13;
constexpr double kSentinel = 12345.0;

}  // namespace

// A (m x n) B (n x p); A B^T with B stored p x n; A^T B with A stored n x m.
// Exact sums in the same order, and nothing written beyond the m x p result.
TEST(DenseProducts, GeneralProductsMatchPlainLoopsAtEverySize) {
    std::mt19937 rng(50);
    const Mat a = random_dense(rng, 5, 5), b = random_dense(rng, 5, 5);
    for (int m = 0; m <= 5; ++m)
        for (int n = 0; n <= 5; ++n)
            for (int p = 0; p <= 5; ++p)
                for (int form = 0; form < 3; ++form) {
                    Mat out(26, kSentinel);
                    if (form == 0) mtx_mul_mtx(out.data(), a.data(), b.data(), m, n, p);
                    if (form == 1) mtx_mul_mtxt(out.data(), a.data(), b.data(), m, n, p);
                    if (form == 2) mtxt_mul_mtx(out.data(), a.data(), b.data(), n, m, p);
                    Mat want(26, kSentinel);
                    for (int i = 0; i < m; ++i)
                        for (int j = 0; j < p; ++j) {
                            want[i * p + j] = 0.0;
                            for (int k = 0; k < n; ++k)
                                want[i * p + j] += (form == 2 ? a[k * m + i] : a[i * n + k]) *
                                                   (form == 1 ? b[j * n + k] : b[k * p + j]);
                        }
                    EXPECT_TRUE(all_near(out, want, 0.0)) << m << n << p << " form " << form;
                }
}

TEST(ProductKernels, TriangularAndSymmetricOperands) {
    std::mt19937 rng(51);
    for (int n = 1; n <= kMaxDim; ++n) {
        const Mat L = random_factor(rng, n), Ld = unpack_lower(L, n), Lt = transpose(Ld, n, n);
        const Mat S = random_dense(rng, 1, tri(n)), Sd = unpack_sym(S, n);
        for (int p = 1; p <= kMaxDim; ++p) {
            const Mat Npn = random_dense(rng, p, n), Nnp = random_dense(rng, n, p), Tnp = transpose(Nnp, n, p);
            Mat o(n * p, kSentinel);
            CalcNL(o.data(), Npn.data(), L.data(), p, n);
            EXPECT_TRUE(all_near(o, mul(Npn, Ld, p, n, n), kTol)) << "CalcNL " << p << "," << n;
            CalcNtL(o.data(), Nnp.data(), L.data(), p, n);
            EXPECT_TRUE(all_near(o, mul(Tnp, Ld, p, n, n), kTol)) << "CalcNtL";
            CalcLN(o.data(), L.data(), Nnp.data(), n, p);
            EXPECT_TRUE(all_near(o, mul(Ld, Nnp, n, n, p), kTol)) << "CalcLN";
            CalcSN(o.data(), S.data(), Nnp.data(), n, p);
            EXPECT_TRUE(all_near(o, mul(Sd, Nnp, n, n, p), kTol)) << "CalcSN";
            CalcSNt(o.data(), S.data(), Npn.data(), n, p);
            EXPECT_TRUE(all_near(o, mul(Sd, transpose(Npn, p, n), n, n, p), kTol)) << "CalcSNt";
            CalcNS(o.data(), Npn.data(), S.data(), p, n);
            EXPECT_TRUE(all_near(o, mul(Npn, Sd, p, n, n), kTol)) << "CalcNS";
            CalcNtS(o.data(), Nnp.data(), S.data(), p, n);
            EXPECT_TRUE(all_near(o, mul(Tnp, Sd, p, n, n), kTol)) << "CalcNtS";
        }
        Mat o(tri(n), kSentinel);
        CalcLLt2S(o.data(), L.data(), n);
        EXPECT_TRUE(all_near(o, pack_lower(mul(Ld, Lt, n, n, n), n), kTol)) << "CalcLLt2S";
        const Mat d = random_dense(rng, 1, n);
        CalcLtDL2S(o.data(), L.data(), d.data(), n);
        EXPECT_TRUE(all_near(o, pack_lower(mul(Lt, mul(diag(d), Ld, n, n, n), n, n, n), n), kTol)) << "CalcLtDL2S";
        // A permutation with a repeat and a subset selects from the symmetric matrix.
        const int32_t perm[4] = {n - 1, 0, n - 1, n / 2};
        Mat ps(tri(4));
        CalcPtSP2S(ps.data(), S.data(), perm, 4);
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j <= i; ++j) EXPECT_EQ(ps[tri(i) + j], Sd[perm[i] * n + perm[j]]);
    }
}

TEST(ProductKernels, DenseOperands) {
    std::mt19937 rng(52);
    for (int r = 1; r <= kMaxDim; ++r)
        for (int c = 1; c <= kMaxDim; ++c) {
            const Mat N = random_dense(rng, r, c), M = random_dense(rng, c, r), Mt = transpose(M, c, r);
            const Mat w = random_dense(rng, 1, c), Hcr = random_dense(rng, c, r);
            Mat o(tri(r), kSentinel), oc(tri(c), kSentinel), od(r * c, kSentinel);
            CalcNM2S(o.data(), N.data(), M.data(), r, c);
            EXPECT_TRUE(all_near(o, pack_lower(mul(N, M, r, c, r), r), kTol)) << "CalcNM2S";
            CalcNMt2S(o.data(), N.data(), Mt.data(), r, c);
            EXPECT_TRUE(all_near(o, pack_lower(mul(N, M, r, c, r), r), kTol)) << "CalcNMt2S";
            CalcHHt2S(o.data(), N.data(), r, c);
            EXPECT_TRUE(all_near(o, pack_lower(gram(N, r, c), r), kTol)) << "CalcHHt2S";
            CalcHtH2S(oc.data(), N.data(), r, c);
            EXPECT_TRUE(all_near(oc, pack_lower(gram(transpose(N, r, c), c, r), c), kTol)) << "CalcHtH2S";
            CalcHW(od.data(), N.data(), w.data(), r, c);
            EXPECT_TRUE(all_near(od, mul(N, diag(w), r, c, c), kTol)) << "CalcHW";
            CalcHtW(od.data(), Hcr.data(), w.data(), r, c);
            EXPECT_TRUE(all_near(od, mul(transpose(Hcr, c, r), diag(w), r, c, c), kTol)) << "CalcHtW";
        }
}

// The left half of the time update's [A L | G]: CalcAL2EM writes it at every
// size, CalcBL2EM adds it from a block list (CalcHL2EM is checked through the
// measurement update chain).
TEST(ExtendedMatrixKernels, DenseAndBlockListProducts) {
    std::mt19937 rng(55);
    auto expect_left_half = [](const Mat &E, const Mat &before, const Mat &AL, bool add, int n) {
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < 2 * n; ++j) {
                const double left = j < n ? AL[i * n + j] : 0.0, old = before[i * 2 * n + j];
                EXPECT_NEAR(E[i * 2 * n + j], j < n && !add ? left : old + left, kTol) << n;
            }
    };
    for (int n = 1; n <= 12; ++n) {
        const Mat L = random_factor(rng, n), A = random_dense(rng, n, n);
        const Mat before = random_dense(rng, n, 2 * n);
        Mat E = before;
        CalcAL2EM(E.data(), A.data(), L.data(), n);
        expect_left_half(E, before, mul(A, unpack_lower(L, n), n, n, n), false, n);
    }
    const int n = 6;
    const Mat L = random_factor(rng, n), b0 = random_dense(rng, 3, 3), b1 = random_dense(rng, 2, 4);
    const Mat b2 = {2.5}, poison = {1e9};
    // An empty block, then the terminator, then a block that must never be read.
    const MatBlock blocks[] = {{0, 0, 3, 3, b0.data()},     {3, 1, 2, 4, b1.data()}, {5, 5, 1, 1, b2.data()},
                               {1, 1, 0, 3, poison.data()}, {0, 0, 0, 0, nullptr},   {0, 0, 1, 1, poison.data()}};
    Mat A(n * n, 0.0);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) A[i * n + j] = b0[i * 3 + j];
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 4; ++j) A[(3 + i) * n + 1 + j] = b1[i * 4 + j];
    A[5 * n + 5] = 2.5;
    const Mat before = random_dense(rng, n, 2 * n);
    Mat E = before;
    CalcBL2EM(E.data(), blocks, L.data(), n);
    expect_left_half(E, before, mul(A, unpack_lower(L, n), n, n, n), true, n);
}
