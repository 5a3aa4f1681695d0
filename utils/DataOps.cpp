// Scalar helpers: power-of-two scaling of fixed-point integers, IEEE
// classification, bit tricks, integer logarithm and square root, a magnitude
// approximation and the normalised chi-square threshold lookup.
#include <string.h>

#include "chi2inv_norm_table.h"
#include "drlib_toolkit.h"

namespace {

// 256 * log2(1 + f) within each quarter s of the mantissa range: a quadratic
// in the next eight mantissa bits, plus the value at the segment start.
constexpr int32_t LogTable1[4] = {-2349, -1569, -1122, -842};
constexpr int32_t LogTable2[4] = {23412, 18789, 15686, 13460};
constexpr int32_t LogTable3[4] = {0, 82, 150, 207};

// Reinterprets the bits of one trivially copyable value as another of the same size.
template <typename To, typename From>
To bit_copy(From x) {
    static_assert(sizeof(To) == sizeof(From), "same size");
    To y;
    memcpy(&y, &x, sizeof y);
    return y;
}

// Division by 2^k as an exponent decrement; exact while the result stays normal.
double scale_double(double v, uint32_t k) {
    if (v == 0.0) return 0.0;
    return bit_copy<double>(bit_copy<uint64_t>(v) - (static_cast<uint64_t>(k) << 52));
}

float scale_float(float v, uint32_t k) {
    if (v == 0.0F) return 0.0F;
    return bit_copy<float>(bit_copy<uint32_t>(v) - (k << 23));
}

uint32_t magnitude(int32_t v) {
    const uint32_t u = static_cast<uint32_t>(v);
    return v < 0 ? 0U - u : u;
}

uint32_t leading_bit_index(uint32_t x) {
    uint32_t k = 0;
    while ((x >> 1) != 0U) {
        x >>= 1;
        ++k;
    }
    return k;
}

}  // namespace

extern "C" {

DRLIB_API double ScaleDouble(int32_t v, uint32_t k) {
    return scale_double(static_cast<double>(v), k);
}

DRLIB_API double ScaleDoubleU(uint32_t v, uint32_t k) {
    return scale_double(static_cast<double>(v), k);
}

DRLIB_API float ScaleFloat(int32_t v, uint32_t k) { return scale_float(static_cast<float>(v), k); }

DRLIB_API float ScaleFloatU(uint32_t v, uint32_t k) {
    return scale_float(static_cast<float>(v), k);
}

DRLIB_API uint32_t isNaN(double x) {
    const uint64_t b = bit_copy<uint64_t>(x);
    const uint64_t exponent = (b >> 52) & 0x7ffU;
    const uint64_t fraction = b & 0xfffffffffffffULL;
    return (exponent == 0x7ffU && fraction != 0U) ? 1U : 0U;
}

DRLIB_API int32_t isInf(double x) {
    const uint64_t b = bit_copy<uint64_t>(x);
    const uint32_t hi = static_cast<uint32_t>(b >> 32);
    const uint32_t lo = static_cast<uint32_t>(b);
    if (lo != 0U) return 0;
    if (hi == 0x7ff00000U) return 1;
    if (hi == 0xfff00000U) return -1;
    return 0;
}

DRLIB_API uint32_t revertBits(uint32_t x) {
    x = ((x & 0x55555555U) << 1) | ((x & 0xaaaaaaaaU) >> 1);
    x = ((x & 0x33333333U) << 2) | ((x & 0xccccccccU) >> 2);
    x = ((x & 0x0f0f0f0fU) << 4) | ((x & 0xf0f0f0f0U) >> 4);
    x = ((x & 0x00ff00ffU) << 8) | ((x & 0xff00ff00U) >> 8);
    return (x << 16) | (x >> 16);
}

DRLIB_API uint32_t CountOnes(uint32_t x) {
    x = (x & 0x55555555U) + ((x >> 1) & 0x55555555U);
    x = (x & 0x33333333U) + ((x >> 2) & 0x33333333U);
    x = (x & 0x0f0f0f0fU) + ((x >> 4) & 0x0f0f0f0fU);
    x = (x & 0x000f000fU) + ((x >> 8) & 0x000f000fU);
    return (x >> 16) + (x & 255U);
}

DRLIB_API int32_t IntLog(uint32_t x) {
    if (x < 2U) return 0;
    // The float's exponent is the integer part of log2; its mantissa bits
    // pick a segment and feed the quadratic for the fraction.
    const uint32_t b = bit_copy<uint32_t>(static_cast<float>(x));
    const uint32_t s = (b >> 21) & 3U;
    const int32_t m = static_cast<int32_t>((b >> 13) & 255U);
    int32_t v = (m * LogTable1[s]) >> 8;
    v = (m * (v + LogTable2[s])) >> 16;
    v = LogTable3[s] + v + static_cast<int32_t>((b >> 15) & 0xff00U) - 32512;  // 256 * log2(x)
    // 77064 / 65536 * 256 = 301.03 ~ 1000 * log10(2)
    return (v * 77064 + 32768) >> 16;
}

DRLIB_API uint32_t IntSqrt(uint32_t x) {
    uint32_t root = 0;
    uint32_t a = 0;
    for (int32_t i = 15; i >= 0; --i) {
        const uint32_t shift = static_cast<uint32_t>(i);
        const uint32_t bit = 1U << shift;
        const uint32_t t = (bit << shift) + a;
        if (x >= t) {
            root += bit;
            a = (root << shift) + t;
        } else {
            a = t - ((root + bit) << shift);
        }
    }
    return root & 0xffffU;
}

DRLIB_API uint32_t JPLapprox(int32_t a, int32_t b) {
    uint32_t hi = magnitude(a);
    uint32_t lo = magnitude(b);
    if (static_cast<int32_t>(hi) < static_cast<int32_t>(lo)) {
        const uint32_t t = hi;
        hi = lo;
        lo = t;
    }
    // Piecewise-linear fit of the Euclidean norm.
    if (hi < 3U * lo) return ((7U * hi) >> 3) + (lo >> 1);
    return hi + (lo >> 3);
}

DRLIB_API uint32_t GetChi2InvNorm(uint32_t n, uint32_t dof) {
    if (n == 0U) return 255U;
    if (n == 1U) return 0U;
    if (dof < 1U) dof = 1U;
    if (dof > static_cast<uint32_t>(drlib::kChi2Rows)) dof = static_cast<uint32_t>(drlib::kChi2Rows);
    uint32_t k = leading_bit_index(n);
    if (((n >> (k - 1U)) & 1U) != 0U) ++k;  // round log2(n) up from 1.5 * 2^k
    if (k > static_cast<uint32_t>(drlib::kChi2Cols)) k = static_cast<uint32_t>(drlib::kChi2Cols);
    return drlib::chi2inv_norm_table.v[(dof - 1U) * 16U + (k - 1U)];
}

}  // extern "C"
