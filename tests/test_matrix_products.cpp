// The Calc* product family against plain dense products, at every size
// 1..7 in each dimension (remainder and bound errors show at small sizes).
#include <gtest/gtest.h>

#include <cmath>

#include "matrix_test_util.h"

using namespace mtest;

namespace {

constexpr int32_t kMaxDim = 7;
constexpr double kTol = 1e-13;
constexpr double kSentinel = 12345.0;

size_t sz(int32_t n) { return static_cast<size_t>(n); }

Mat random_sym(std::mt19937 &rng, int32_t n) { return random_dense(rng, 1, tri(n)); }

// The packed lower triangle of a dense square matrix, for the *2S kernels.
Mat lower_of(const Mat &D, int32_t n) { return pack_lower(D, n); }

}  // namespace

TEST(ProductKernels, TriangularFactorProducts) {
    std::mt19937 rng(51);
    for (int32_t n = 1; n <= kMaxDim; ++n) {
        const Mat L = random_factor(rng, n);
        const Mat Ld = unpack_lower(L, n);
        for (int32_t r = 1; r <= kMaxDim; ++r) {
            const Mat N = random_dense(rng, r, n);  // r x n
            Mat out(sz(r * n), kSentinel);
            CalcNL(out.data(), N.data(), L.data(), r, n);
            EXPECT_TRUE(all_near(out, mul(N, Ld, r, n, n), kTol)) << "CalcNL " << r << "x" << n;

            const Mat Nt = random_dense(rng, n, r);  // n x r, p = r
            Mat outt(sz(r * n), kSentinel);
            CalcNtL(outt.data(), Nt.data(), L.data(), r, n);
            EXPECT_TRUE(all_near(outt, mul(transpose(Nt, n, r), Ld, r, n, n), kTol)) << "CalcNtL";

            Mat outl(sz(n * r), kSentinel);
            CalcLN(outl.data(), L.data(), Nt.data(), n, r);
            EXPECT_TRUE(all_near(outl, mul(Ld, Nt, n, n, r), kTol)) << "CalcLN";
        }
        Mat llt(sz(tri(n)), kSentinel);
        CalcLLt2S(llt.data(), L.data(), n);
        EXPECT_TRUE(all_near(llt, lower_of(mul(Ld, transpose(Ld, n, n), n, n, n), n), kTol)) << "CalcLLt2S";

        const Mat d = random_dense(rng, 1, n);
        Mat Dd(sz(n * n), 0.0);
        for (int32_t i = 0; i < n; ++i) Dd[sz(i * n + i)] = d[sz(i)];
        Mat ltdl(sz(tri(n)), kSentinel);
        CalcLtDL2S(ltdl.data(), L.data(), d.data(), n);
        EXPECT_TRUE(all_near(ltdl, lower_of(mul(transpose(Ld, n, n), mul(Dd, Ld, n, n, n), n, n, n), n), kTol))
            << "CalcLtDL2S";
    }
}

TEST(ProductKernels, SymmetricOperandProducts) {
    std::mt19937 rng(52);
    for (int32_t n = 1; n <= kMaxDim; ++n) {
        const Mat S = random_sym(rng, n);
        const Mat Sd = unpack_sym(S, n);
        for (int32_t p = 1; p <= kMaxDim; ++p) {
            const Mat Nnp = random_dense(rng, n, p);
            const Mat Npn = random_dense(rng, p, n);
            Mat out(sz(n * p), kSentinel);
            CalcSN(out.data(), S.data(), Nnp.data(), n, p);
            EXPECT_TRUE(all_near(out, mul(Sd, Nnp, n, n, p), kTol)) << "CalcSN";
            CalcSNt(out.data(), S.data(), Npn.data(), n, p);
            EXPECT_TRUE(all_near(out, mul(Sd, transpose(Npn, p, n), n, n, p), kTol)) << "CalcSNt";
            // r = p rows of output for N S and N^T S.
            CalcNS(out.data(), Npn.data(), S.data(), p, n);
            EXPECT_TRUE(all_near(out, mul(Npn, Sd, p, n, n), kTol)) << "CalcNS";
            CalcNtS(out.data(), Nnp.data(), S.data(), p, n);
            EXPECT_TRUE(all_near(out, mul(transpose(Nnp, n, p), Sd, p, n, n), kTol)) << "CalcNtS";
        }
    }
}

TEST(ProductKernels, SymmetricResultsOfDenseOperands) {
    std::mt19937 rng(53);
    for (int32_t r = 1; r <= kMaxDim; ++r) {
        for (int32_t c = 1; c <= kMaxDim; ++c) {
            const Mat N = random_dense(rng, r, c);
            const Mat M = random_dense(rng, c, r);
            const Mat Mt = random_dense(rng, r, c);
            Mat out(sz(tri(r)), kSentinel);
            CalcNM2S(out.data(), N.data(), M.data(), r, c);
            EXPECT_TRUE(all_near(out, lower_of(mul(N, M, r, c, r), r), kTol)) << "CalcNM2S";
            CalcNMt2S(out.data(), N.data(), Mt.data(), r, c);
            EXPECT_TRUE(all_near(out, lower_of(mul(N, transpose(Mt, r, c), r, c, r), r), kTol)) << "CalcNMt2S";
            CalcHHt2S(out.data(), N.data(), r, c);
            EXPECT_TRUE(all_near(out, lower_of(mul(N, transpose(N, r, c), r, c, r), r), kTol)) << "CalcHHt2S";
            Mat hth(sz(tri(c)), kSentinel);
            CalcHtH2S(hth.data(), N.data(), r, c);
            EXPECT_TRUE(all_near(hth, lower_of(mul(transpose(N, r, c), N, c, r, c), c), kTol)) << "CalcHtH2S";

            const Mat w = random_dense(rng, 1, c);
            Mat W(sz(c * c), 0.0);
            for (int32_t j = 0; j < c; ++j) W[sz(j * c + j)] = w[sz(j)];
            Mat hw(sz(r * c), kSentinel);
            CalcHW(hw.data(), N.data(), w.data(), r, c);
            EXPECT_TRUE(all_near(hw, mul(N, W, r, c, c), kTol)) << "CalcHW";
            const Mat Hcr = random_dense(rng, c, r);
            CalcHtW(hw.data(), Hcr.data(), w.data(), r, c);
            EXPECT_TRUE(all_near(hw, mul(transpose(Hcr, c, r), W, r, c, c), kTol)) << "CalcHtW";
        }
    }
}

TEST(ProductKernels, PermutationAndSelectionOfSymmetric) {
    const int32_t n = 5;
    std::mt19937 rng(54);
    const Mat S = random_sym(rng, n);
    const Mat Sd = unpack_sym(S, n);
    const int32_t perm[4] = {4, 0, 4, 2};  // a repeat and a subset
    Mat out(sz(tri(4)));
    CalcPtSP2S(out.data(), S.data(), perm, 4);
    for (int32_t i = 0; i < 4; ++i)
        for (int32_t j = 0; j <= i; ++j) EXPECT_EQ(out[sz(tri(i) + j)], Sd[sz(perm[i] * n + perm[j])]);
}

TEST(ExtendedMatrixKernels, WriteOnlyTheirBlock) {
    std::mt19937 rng(55);
    for (int32_t n = 1; n <= kMaxDim; ++n) {
        const Mat L = random_factor(rng, n);
        const Mat Ld = unpack_lower(L, n);
        const Mat A = random_dense(rng, n, n);
        Mat E(sz(2 * n * n), kSentinel);
        CalcAL2EM(E.data(), A.data(), L.data(), n);
        const Mat AL = mul(A, Ld, n, n, n);
        for (int32_t i = 0; i < n; ++i)
            for (int32_t j = 0; j < 2 * n; ++j) {
                const double want = j < n ? AL[sz(i * n + j)] : kSentinel;
                EXPECT_NEAR(E[sz(i * 2 * n + j)], want, kTol);
            }

        for (int32_t m = 1; m <= 3; ++m) {
            const Mat H = random_dense(rng, m, n);
            const int32_t N = m + n;
            Mat EH(sz(N * N), kSentinel);
            CalcHL2EM(EH.data(), H.data(), L.data(), m, n);
            const Mat HL = mul(H, Ld, m, n, n);
            for (int32_t i = 0; i < N; ++i)
                for (int32_t j = 0; j < N; ++j) {
                    const bool inside = i < m && j >= m;
                    const double want = inside ? HL[sz(i * n + j - m)] : kSentinel;
                    EXPECT_NEAR(EH[sz(i * N + j)], want, kTol);
                }
        }
    }
    // Zero dimensions touch nothing.
    double untouched = kSentinel;
    CalcAL2EM(&untouched, nullptr, nullptr, 0);
    CalcHL2EM(&untouched, nullptr, nullptr, 0, 0);
    CalcNL(&untouched, nullptr, nullptr, 0, 0);
    EXPECT_EQ(untouched, kSentinel);
}

TEST(ExtendedMatrixKernels, BlockListAddsSparseProduct) {
    const int32_t n = 6;
    std::mt19937 rng(56);
    const Mat L = random_factor(rng, n);
    // A block-sparse transition: a 3x3 block, a 2x4 block off the diagonal,
    // a 1x1 block, an empty block, then the terminator and a block after it
    // that must never be read.
    const Mat b0 = random_dense(rng, 3, 3), b1 = random_dense(rng, 2, 4), b2 = {2.5}, poison = {1e9};
    const MatBlock blocks[] = {{0, 0, 3, 3, b0.data()}, {3, 1, 2, 4, b1.data()}, {5, 5, 1, 1, b2.data()},
                               {1, 1, 0, 3, poison.data()}, {0, 0, 0, 0, nullptr}, {0, 0, 1, 1, poison.data()}};
    Mat A(sz(n * n), 0.0);
    for (int32_t i = 0; i < 3; ++i)
        for (int32_t j = 0; j < 3; ++j) A[sz(i * n + j)] = b0[sz(i * 3 + j)];
    for (int32_t i = 0; i < 2; ++i)
        for (int32_t j = 0; j < 4; ++j) A[sz((3 + i) * n + 1 + j)] = b1[sz(i * 4 + j)];
    A[sz(5 * n + 5)] = 2.5;

    Mat E = random_dense(rng, n, 2 * n);
    const Mat before = E;
    CalcBL2EM(E.data(), blocks, L.data(), n);
    const Mat AL = mul(A, unpack_lower(L, n), n, n, n);
    for (int32_t i = 0; i < n; ++i)
        for (int32_t j = 0; j < 2 * n; ++j) {
            const double want = before[sz(i * 2 * n + j)] + (j < n ? AL[sz(i * n + j)] : 0.0);
            EXPECT_NEAR(E[sz(i * 2 * n + j)], want, kTol) << i << "," << j;
        }
}
