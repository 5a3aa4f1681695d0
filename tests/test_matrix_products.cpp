// Matrix products against plain dense loops at every small size, where index,
// remainder and bound errors hide.
#include <functional>

#include "matrix_test_util.h"

using namespace mtest;

namespace {

constexpr int kMaxDim = 6;
constexpr double kTol = 1e-13;
constexpr double kSentinel = 12345.0;

}  // namespace

// Each kernel against the dense product of its unpacked operands: triangular
// L, symmetric S, dense N, M, H and a diagonal w, every size pair; the general
// products in two shapes each, so that no two of their dimensions can trade
// places unseen; nothing written beyond the result.
TEST(ProductKernels, PackedAndDenseOperandsAtEverySize) {
    std::mt19937 rng(51);
    for (int n = 1; n <= kMaxDim; ++n) {
        const Mat L = random_factor(rng, n), Ld = unpack_lower(L, n), Lt = transpose(Ld, n, n);
        const Mat S = random_dense(rng, 1, tri(n)), Sd = unpack_sym(S, n), d = random_dense(rng, 1, n);
        for (int p = 1; p <= kMaxDim; ++p) {
            const Mat Npn = random_dense(rng, p, n), Nnp = random_dense(rng, n, p), Tnp = transpose(Nnp, n, p);
            const Mat Mnp = random_dense(rng, n, p), w = random_dense(rng, 1, n);
            const struct { const char *name; std::function<void(double *)> run; Mat want; } cases[] = {
                {"mtx_mul_mtx", [&](double *o) { mtx_mul_mtx(o, Npn.data(), Ld.data(), p, n, n); }, mul(Npn, Ld, p, n, n)},
                {"mtx_mul_mtx", [&](double *o) { mtx_mul_mtx(o, Npn.data(), Mnp.data(), p, n, p); }, mul(Npn, Mnp, p, n, p)},
                {"mtx_mul_mtxt", [&](double *o) { mtx_mul_mtxt(o, Npn.data(), Ld.data(), p, n, n); }, mul(Npn, Lt, p, n, n)},
                {"mtx_mul_mtxt", [&](double *o) { mtx_mul_mtxt(o, Npn.data(), Npn.data(), p, n, p); }, gram(Npn, p, n)},
                {"mtxt_mul_mtx", [&](double *o) { mtxt_mul_mtx(o, Nnp.data(), Ld.data(), n, p, n); }, mul(Tnp, Ld, p, n, n)},
                {"mtxt_mul_mtx", [&](double *o) { mtxt_mul_mtx(o, Nnp.data(), Mnp.data(), n, p, p); }, mul(Tnp, Mnp, p, n, p)},
                {"CalcNL", [&](double *o) { CalcNL(o, Npn.data(), L.data(), p, n); }, mul(Npn, Ld, p, n, n)},
                {"CalcNtL", [&](double *o) { CalcNtL(o, Nnp.data(), L.data(), p, n); }, mul(Tnp, Ld, p, n, n)},
                {"CalcLN", [&](double *o) { CalcLN(o, L.data(), Nnp.data(), n, p); }, mul(Ld, Nnp, n, n, p)},
                {"CalcSN", [&](double *o) { CalcSN(o, S.data(), Nnp.data(), n, p); }, mul(Sd, Nnp, n, n, p)},
                {"CalcSNt", [&](double *o) { CalcSNt(o, S.data(), Npn.data(), n, p); }, mul(Sd, transpose(Npn, p, n), n, n, p)},
                {"CalcNS", [&](double *o) { CalcNS(o, Npn.data(), S.data(), p, n); }, mul(Npn, Sd, p, n, n)},
                {"CalcNtS", [&](double *o) { CalcNtS(o, Nnp.data(), S.data(), p, n); }, mul(Tnp, Sd, p, n, n)},
                {"CalcNM2S", [&](double *o) { CalcNM2S(o, Npn.data(), Mnp.data(), p, n); }, pack_lower(mul(Npn, Mnp, p, n, p), p)},
                {"CalcNMt2S", [&](double *o) { CalcNMt2S(o, Npn.data(), transpose(Mnp, n, p).data(), p, n); },
                 pack_lower(mul(Npn, Mnp, p, n, p), p)},
                {"CalcHHt2S", [&](double *o) { CalcHHt2S(o, Npn.data(), p, n); }, pack_lower(gram(Npn, p, n), p)},
                {"CalcHtH2S", [&](double *o) { CalcHtH2S(o, Nnp.data(), n, p); }, pack_lower(gram(Tnp, p, n), p)},
                {"CalcHW", [&](double *o) { CalcHW(o, Npn.data(), w.data(), p, n); }, mul(Npn, diag(w), p, n, n)},
                {"CalcHtW", [&](double *o) { CalcHtW(o, Nnp.data(), w.data(), p, n); }, mul(Tnp, diag(w), p, n, n)},
            };
            for (const auto &c : cases) {
                Mat o(c.want.size() + 1, kSentinel);
                c.run(o.data());
                EXPECT_TRUE(all_near(Mat(o.begin(), o.end() - 1), c.want, kTol)) << c.name << " " << p << "," << n;
                EXPECT_EQ(o.back(), kSentinel) << c.name;
            }
        }
        Mat o(tri(n), kSentinel), ps(tri(4));
        CalcLLt2S(o.data(), L.data(), n);
        EXPECT_TRUE(all_near(o, pack_lower(mul(Ld, Lt, n, n, n), n), kTol)) << "CalcLLt2S";
        CalcLtDL2S(o.data(), L.data(), d.data(), n);
        EXPECT_TRUE(all_near(o, pack_lower(mul(Lt, mul(diag(d), Ld, n, n, n), n, n, n), n), kTol)) << "CalcLtDL2S";
        // A permutation with a repeat and a subset selects from the symmetric matrix.
        const int32_t perm[4] = {n - 1, 0, n - 1, n / 2};
        CalcPtSP2S(ps.data(), S.data(), perm, 4);
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j <= i; ++j) EXPECT_EQ(ps[tri(i) + j], Sd[perm[i] * n + perm[j]]);
    }
}

// The left half of the time update's [A L | G]: CalcAL2EM writes it at every
// size, CalcBL2EM adds it from a block list (CalcHL2EM is checked through the
// measurement update).
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
        const Mat L = random_factor(rng, n), A = random_dense(rng, n, n), before = random_dense(rng, n, 2 * n);
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
    for (const MatBlock *b = blocks; b->val; ++b)
        for (int i = 0; i < b->nrows * b->ncols; ++i) A[(b->row0 + i / b->ncols) * n + b->col0 + i % b->ncols] = b->val[i];
    const Mat before = random_dense(rng, n, 2 * n);
    Mat E = before;
    CalcBL2EM(E.data(), blocks, L.data(), n);
    expect_left_half(E, before, mul(A, unpack_lower(L, n), n, n, n), true, n);
}
