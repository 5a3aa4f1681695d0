// A small deterministic random source. The standard library's distributions
// may differ between implementations, so the simulator draws its own: the
// same seed gives the same log on every platform.
#ifndef DRSIM_RANDOM_H
#define DRSIM_RANDOM_H

#include <cmath>
#include <cstdint>

namespace drsim {

class Random {
public:
    explicit Random(uint64_t seed) : state_(seed ^ 0x6a09e667f3bcc909ULL) {}

    // splitmix64: full period, good enough statistics for noise generation.
    uint64_t next() {
        uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }
    // Uniform in [0, 1).
    double uniform() { return static_cast<double>(next() >> 11) * (1.0 / 9007199254740992.0); }
    double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
    // Integer uniform in [lo, hi].
    int64_t integer(int64_t lo, int64_t hi) {
        const uint64_t span = static_cast<uint64_t>(hi - lo) + 1U;
        return lo + static_cast<int64_t>(next() % span);
    }
    // Standard normal (Box-Muller, both values used).
    double normal() {
        if (has_spare_) {
            has_spare_ = false;
            return spare_;
        }
        double u1 = uniform();
        while (u1 <= 0.0) u1 = uniform();
        const double u2 = uniform();
        const double r = std::sqrt(-2.0 * std::log(u1));
        spare_ = r * std::sin(6.283185307179586 * u2);
        has_spare_ = true;
        return r * std::cos(6.283185307179586 * u2);
    }

private:
    uint64_t state_;
    double spare_ = 0.0;
    bool has_spare_ = false;
};

}  // namespace drsim

#endif
