#include "scenario.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "jet.h"
#include "random.h"
#include "units.h"

namespace drsim {

namespace {


// Quintic smooth step: 0 below 0, 1 above 1, continuous to the second derivative.
template <typename T>
T smooth_step(const T &x) {
    if (value(x) <= 0.0) return T(0.0);
    if (value(x) >= 1.0) return T(1.0);
    return x * x * x * (T(10.0) + x * (T(-15.0) + x * T(6.0)));
}

template <typename T>
T envelope(const Phase &p, const T &t) {
    return smooth_step((t - T(p.t0)) / T(p.ramp_s)) * smooth_step((T(p.t1) - t) / T(p.ramp_s));
}

Phase still(double t0, double t1) {
    Phase p;
    p.kind = Phase::kStill;
    p.t0 = t0;
    p.t1 = t1;
    p.ramp_s = 1.0;
    return p;
}

Phase tilting(double t0, double t1, Random &rng) {
    Phase p;
    p.kind = Phase::kTilt;
    p.t0 = t0;
    p.t1 = t1;
    p.ramp_s = std::min(3.0, 0.25 * (t1 - t0));
    p.tilt_w = 2.0 * kPi * rng.uniform(0.04, 0.10);
    p.tilt_p = rng.uniform(0.0, 2.0 * kPi);
    p.dir0 = rng.uniform(0.0, 2.0 * kPi);
    p.dir_a1 = rng.uniform(1.0, 2.0);
    p.dir_w1 = 2.0 * kPi * rng.uniform(0.02, 0.06);
    p.dir_p1 = rng.uniform(0.0, 2.0 * kPi);
    p.dir_a2 = rng.uniform(0.5, 1.0);
    p.dir_w2 = 2.0 * kPi * rng.uniform(0.07, 0.15);
    p.dir_p2 = rng.uniform(0.0, 2.0 * kPi);
    p.spin_a = rng.uniform(0.6, 1.2);
    p.spin_w = 2.0 * kPi * rng.uniform(0.02, 0.05);
    p.spin_p = rng.uniform(0.0, 2.0 * kPi);
    return p;
}

Phase walking(double t0, double t1, double distance_m, Random &rng) {
    Phase p;
    p.kind = Phase::kWalk;
    p.t0 = t0;
    p.t1 = t1;
    p.ramp_s = std::min(1.5, 0.25 * (t1 - t0));
    const double azimuth = rng.uniform(0.0, 2.0 * kPi);
    p.walk_n = distance_m * std::cos(azimuth);
    p.walk_e = distance_m * std::sin(azimuth);
    p.turn = rng.uniform(-0.6, 0.6);
    return p;
}

void check_options(const ScenarioOptions &o) {
    if (!(o.duration_scale >= 0.05 && o.duration_scale <= 100.0))
        throw std::invalid_argument("duration scale must lie in 0.05..100");
    if (!(o.max_tilt_deg >= 0.0 && o.max_tilt_deg <= 60.0))
        throw std::invalid_argument("maximum tilt must lie in 0..60 degrees");
    if (!(o.pole_length_m >= 0.1 && o.pole_length_m <= 10.0))
        throw std::invalid_argument("pole length must lie in 0.1..10 m");
    if (!(std::fabs(o.point.lat) <= 1.5))
        throw std::invalid_argument("latitude must lie within +-1.5 rad (the poles are not modelled)");
    if (!(std::fabs(o.point.lon) <= 2.0 * kPi))
        throw std::invalid_argument("longitude must lie within +-2 pi rad");
    if (!(o.point.h >= -500.0 && o.point.h <= 10000.0))
        throw std::invalid_argument("height must lie in -500..10000 m");
    for (int i = 0; i < 3; ++i)
        if (!(std::fabs(o.mount_rph_deg[i]) <= 5.0))
            throw std::invalid_argument("mounting angles must lie within +-5 degrees");
}

}  // namespace

Scenario::Scenario(const ScenarioOptions &opt) : opt_(opt) {
    check_options(opt);
    Random rng(opt.seed);
    const double s = opt.duration_scale;
    heading0_ = rng.uniform(0.0, 2.0 * kPi);
    max_tilt_ = opt.max_tilt_deg * kDeg;
    Vec3 mount_deg{0.0, 0.0, 0.0};
    if (opt.name == "static") {
        phases_.push_back(still(0.0, 120.0 * s));
    } else if (opt.name == "survey") {
        phases_.push_back(still(0.0, 20.0 * s));
        phases_.push_back(tilting(20.0 * s, 80.0 * s, rng));
        phases_.push_back(walking(80.0 * s, 94.0 * s, 10.0, rng));
        phases_.push_back(tilting(94.0 * s, 134.0 * s, rng));
    } else if (opt.name == "calibration") {
        phases_.push_back(tilting(0.0, 200.0 * s, rng));
        mount_deg = {0.5, -0.3, 0.4};
    } else {
        throw std::invalid_argument("unknown scenario '" + opt.name +
                                    "' (known: static, survey, calibration)");
    }
    if (opt.mount_given) mount_deg = opt.mount_rph_deg;
    mount_rph_ = kDeg * mount_deg;
    duration_s_ = phases_.back().t1;
}

template <typename T>
PoleMotion<T> Scenario::motion(const T &t) const {
    using std::cos;
    using std::sin;
    T lean_n(0.0), lean_e(0.0);
    T spin(heading0_);
    Vec3T<T> tip{T(0.0), T(0.0), T(0.0)};
    for (const Phase &p : phases_) {
        if (p.kind == Phase::kTilt) {
            if (value(t) <= p.t0 || value(t) >= p.t1) continue;  // envelope and its rates are zero
            const T env = envelope(p, t);
            const T tilt = T(max_tilt_) * env * (T(0.55) + T(0.45) * sin(T(p.tilt_w) * t + T(p.tilt_p)));
            const T dir = T(p.dir0) + T(p.dir_a1) * sin(T(p.dir_w1) * t + T(p.dir_p1)) +
                          T(p.dir_a2) * sin(T(p.dir_w2) * t + T(p.dir_p2));
            // Hand tremor of a tenth of a degree on top of the deliberate motion.
            const T tremor = T(0.1 * kDeg) * env;
            lean_n += tilt * cos(dir) + tremor * sin(T(2.0 * kPi * 1.3) * t);
            lean_e += tilt * sin(dir) + tremor * cos(T(2.0 * kPi * 1.7) * t + T(0.4));
            spin += env * T(p.spin_a) * sin(T(p.spin_w) * t + T(p.spin_p));
        } else if (p.kind == Phase::kWalk) {
            const T progress = smooth_step((t - T(p.t0)) / T(p.t1 - p.t0));
            tip.x += T(p.walk_n) * progress;
            tip.y += T(p.walk_e) * progress;
            spin += T(p.turn) * progress;
            const T env = envelope(p, t);
            // Walking sway: sideways at the stride rate, fore and aft at the
            // step rate; the tip swings up to 3 cm above the ground.
            const double len = std::hypot(p.walk_n, p.walk_e);
            const T fwd_n(p.walk_n / len), fwd_e(p.walk_e / len);
            const T side = T(2.0 * kDeg) * env * sin(T(2.0 * kPi * 0.9) * t);
            const T fore = T(1.0 * kDeg) * env * sin(T(2.0 * kPi * 1.8) * t);
            lean_n += fore * fwd_n - side * fwd_e;
            lean_e += fore * fwd_e + side * fwd_n;
            tip.z -= T(0.015) * env * (T(1.0) - cos(T(2.0 * kPi * 1.8) * t));
        }
    }
    // A lean (n, e) of angle |lean| is the rotation vector (e, -n, 0): it turns
    // the pole's up direction (0, 0, -1) toward (n, e, 0).
    const Vec3T<T> tilt_vec{lean_e, -lean_n, T(0.0)};
    PoleMotion<T> m;
    m.tip_t = tip;
    m.q_pt = quat_from_rotvec(tilt_vec) * quat_axis(2, spin) * quat_axis(0, T(kPi));
    return m;
}

template PoleMotion<double> Scenario::motion<double>(const double &) const;
template PoleMotion<Jet> Scenario::motion<Jet>(const Jet &) const;

}  // namespace drsim
