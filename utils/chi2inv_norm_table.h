// Normalised chi-square thresholds, generated at compile time.
//
// Row r = 1..20 is 2r degrees of freedom, column k = 1..16 the upper-tail
// probability 2^-k; the entry is round(16 * x / (2r)) where x is exceeded
// with that probability. For an even number of degrees of freedom the tail
// has the closed form P(X > x) = e^(-x/2) * sum_{j<r} (x/2)^j / j!, and its
// derivative is minus the density, e^(-x/2) (x/2)^(r-1) / (r-1)!, so each
// threshold is a few safeguarded Newton steps from the one before it. That
// keeps the evaluation within the default step limits of the compilers.
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

// 2^-n, exact, by repeated squaring.
constexpr double half_pow(int32_t n) {
    double result = 1.0;
    double base = 0.5;
    while (n > 0) {
        if ((n & 1) != 0) result *= base;
        base *= base;
        n >>= 1;
    }
    return result;
}

// e^-y for y >= 0: y = n ln2 + f, Taylor series for e^-f (f < ln2, so 20
// terms are far below the last bit), then the exact factor 2^-n.
constexpr double exp_neg(double y) {
    const int32_t n = static_cast<int32_t>(y / kLn2);
    const double f = y - static_cast<double>(n) * kLn2;
    double term = 1.0;
    double sum = 1.0;
    for (int32_t j = 1; j < 20; ++j) {
        term *= -f / static_cast<double>(j);
        sum += term;
    }
    return sum * half_pow(n);
}

struct TailAndDensity {
    double tail;     // P(X > 2y), 2r degrees of freedom
    double density;  // -d tail / dy
};

constexpr TailAndDensity tail_and_density(int32_t r, double y) {
    double term = 1.0;
    double sum = 1.0;
    for (int32_t j = 1; j < r; ++j) {
        term *= y / static_cast<double>(j);
        sum += term;
    }
    const double e = exp_neg(y);
    return {e * sum, e * term};
}

// The x exceeded with probability 2^-k, 2r degrees of freedom, from y_start
// (half of an x of no larger tail, or any point for k = 1). Beyond the mode
// of the density the tail is convex, so Newton steps from the left approach
// the root from below; the bracket catches the first step from the right.
constexpr double quantile(int32_t r, int32_t k, double y_start) {
    const double p = half_pow(k);
    double lo = 0.0;
    double hi = 64.0;  // far beyond every threshold of the table
    double y = y_start;
    for (int32_t it = 0; it < 40; ++it) {
        const TailAndDensity t = tail_and_density(r, y);
        if (t.tail > p) {
            lo = y;
        } else {
            hi = y;
        }
        double next = 0.5 * (lo + hi);
        if (t.density > 0.0) {
            const double step = (t.tail - p) / t.density;
            // Far more than the table's rounding needs (its entries sit at
            // least 1e-3 away from a rounding boundary).
            if ((step < 0.0 ? -step : step) <= 1e-13 * y) return 2.0 * (y + step);
            if (y + step > lo && y + step < hi) next = y + step;
        }
        y = next;
    }
    return y + y;
}

constexpr Chi2InvNormTable make_table() {
    Chi2InvNormTable t{};
    for (int32_t r = 1; r <= kChi2Rows; ++r) {
        double y = static_cast<double>(r);  // the mean, near the median
        for (int32_t k = 1; k <= kChi2Cols; ++k) {
            const double x = quantile(r, k, y);
            y = 0.5 * x;
            const double scaled = 16.0 * x / static_cast<double>(2 * r);
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
