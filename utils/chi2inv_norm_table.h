// Normalised chi-square thresholds, generated at compile time.
//
// Row r = 1..20 is 2r degrees of freedom, column k = 1..16 the upper-tail
// probability 2^-k; the entry is round(16 * x / (2r)) where x is exceeded
// with that probability. For an even number of degrees of freedom the tail
// has the closed form P(X > x) = e^(-x/2) * sum_{j<r} (x/2)^j / j!, which is
// solved for x by bisection.
#pragma once

#include <stdint.h>

namespace drlib {

constexpr int32_t kChi2Rows = 20;
constexpr int32_t kChi2Cols = 16;

struct Chi2InvNormTable {
    uint8_t v[kChi2Rows * kChi2Cols];
};

namespace chi2_detail {

constexpr double kLn2 = 0.693147180559945309417;

// e^-y for y >= 0: y = n ln2 + f, Taylor series for e^-f, then n halvings.
constexpr double exp_neg(double y) {
    const int32_t n = static_cast<int32_t>(y / kLn2);
    const double f = y - static_cast<double>(n) * kLn2;
    double term = 1.0;
    double sum = 1.0;
    for (int32_t j = 1; j < 30; ++j) {
        term *= -f / static_cast<double>(j);
        sum += term;
    }
    for (int32_t i = 0; i < n; ++i) sum *= 0.5;
    return sum;
}

// Upper tail of the chi-square distribution with 2r degrees of freedom at x = 2y.
constexpr double upper_tail(int32_t r, double y) {
    double term = 1.0;
    double sum = 1.0;
    for (int32_t j = 1; j < r; ++j) {
        term *= y / static_cast<double>(j);
        sum += term;
    }
    return exp_neg(y) * sum;
}

// The x exceeded with probability 2^-k, 2r degrees of freedom.
constexpr double quantile(int32_t r, int32_t k) {
    double p = 1.0;
    for (int32_t i = 0; i < k; ++i) p *= 0.5;
    double lo = 0.0;
    double hi = 256.0;  // far beyond every threshold of the table
    for (int32_t it = 0; it < 80; ++it) {
        const double mid = 0.5 * (lo + hi);
        if (upper_tail(r, mid) > p) {
            lo = mid;
        } else {
            hi = mid;
        }
    }
    return lo + hi;  // x = 2y, y at the midpoint
}

constexpr Chi2InvNormTable make_table() {
    Chi2InvNormTable t{};
    for (int32_t r = 1; r <= kChi2Rows; ++r) {
        for (int32_t k = 1; k <= kChi2Cols; ++k) {
            const double scaled = 16.0 * quantile(r, k) / static_cast<double>(2 * r);
            t.v[(r - 1) * kChi2Cols + (k - 1)] = static_cast<uint8_t>(scaled + 0.5);
        }
    }
    return t;
}

}  // namespace chi2_detail

constexpr Chi2InvNormTable chi2inv_norm_table = chi2_detail::make_table();

// Two degrees of freedom: x = 2 k ln 2, so the first row is round(16 k ln 2).
static_assert(chi2inv_norm_table.v[0] == 11 && chi2inv_norm_table.v[15] == 177, "row 1");
static_assert(chi2inv_norm_table.v[16] == 13 && chi2inv_norm_table.v[31] == 110, "row 2");
static_assert(chi2inv_norm_table.v[19 * 16] == 16 && chi2inv_norm_table.v[19 * 16 + 9] == 29 &&
                  chi2inv_norm_table.v[319] == 35,
              "row 20");

}  // namespace drlib
