#include "simulator.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "drlib.h"
#include "imu_model.h"
#include "log_io.h"
#include "random.h"
#include "truth.h"

namespace drsim {

namespace {

constexpr int64_t kWeekMs = 604800000;
constexpr int64_t kSampleUs = 10000;      // nominal IMU period
constexpr int64_t kEpochUs = 100000;      // GNSS epoch period
constexpr int64_t kLatencyUs = 5000;      // a record closes this long before its epoch
constexpr int64_t kStampWrapUs = 4000000000LL;  // IMU counter wrap, a whole number of seconds

void check(const SimOptions &o) {
    if (o.imu_jitter_us < 0 || o.imu_jitter_us > 4000)
        throw std::invalid_argument("IMU jitter must lie in 0..4000 us");
    if (o.quad_substeps < 1 || o.quad_substeps > 50)
        throw std::invalid_argument("quadrature sub-steps must lie in 1..50");
    if (o.start_tow_ms % 100U != 0 || o.start_tow_ms >= static_cast<uint32_t>(kWeekMs))
        throw std::invalid_argument("start time of week must be a multiple of 100 ms below 604800000");
    if (!(o.gnss.pos_sigma_h_m >= 0.0 && o.gnss.pos_sigma_v_m >= 0.0 && o.gnss.vel_sigma_h_mps >= 0.0 &&
          o.gnss.vel_sigma_v_mps >= 0.0 && o.gnss.correlation_s > 0.0))
        throw std::invalid_argument("GNSS error figures must be non-negative");
}

// Time stamps of the IMU samples: a free-running 100 Hz clock with a random
// phase against the GNSS grid, and jitter on each stamp.
class SampleClock {
public:
    SampleClock(Random &rng, int jitter_us) : rng_(rng), jitter_(jitter_us) {
        start_us_ = -13 * kSampleUs + rng.integer(0, kSampleUs - 1);
    }
    int64_t nominal_us(int64_t i) const { return start_us_ + i * kSampleUs; }
    int64_t stamp_us(int64_t i) { return nominal_us(i) + (jitter_ ? rng_.integer(-jitter_, jitter_) : 0); }
    // Last sample a record for the epoch at epoch_us can hold before buffering.
    int64_t last_before(int64_t epoch_us) const {
        return (epoch_us - kLatencyUs - start_us_) / kSampleUs;
    }

private:
    Random &rng_;
    int jitter_;
    int64_t start_us_;
};

uint32_t week_tow_ms(int64_t abs_ms) { return static_cast<uint32_t>(((abs_ms % kWeekMs) + kWeekMs) % kWeekMs); }

}  // namespace

SimResult simulate(const SimOptions &opt, const std::function<void(double)> &progress) {
    check(opt);
    const Scenario scenario(opt.scenario);
    const Truth truth(scenario);
    const ImuGrade &grade = imu_grade(opt.imu_grade);
    const uint64_t seed = opt.scenario.seed;
    Random rng(seed * 0x9e3779b97f4a7c15ULL + 17U);
    ImuErrorModel imu_errors(grade, seed);
    Quantiser quantiser;
    GnssModel gnss(opt.gnss, seed);
    SampleClock clock(rng, opt.imu_jitter_us);

    const int64_t epochs = static_cast<int64_t>(std::floor(scenario.duration_s() * 10.0 + 1e-9)) + 1;
    const int64_t start_abs_ms = static_cast<int64_t>(opt.week) * kWeekMs + opt.start_tow_ms;
    SimResult out;
    out.log.reserve(static_cast<size_t>(epochs) * DRLIB_INPUT_SIZE(12));
    out.truth.reserve(static_cast<size_t>(epochs));

    int buffering = 0;                    // samples held back for the next record (0..2)
    int64_t prev_last = clock.last_before(0) - 10;
    int tag_offset_ms = 0;
    std::vector<ImuSample> samples;
    for (int64_t k = 0; k < epochs; ++k) {
        const int64_t epoch_us = k * kEpochUs;
        // The receiver hands over whatever its buffer holds: 8 to 12 samples.
        buffering = static_cast<int>(rng.integer(0, 2));
        const int64_t last = clock.last_before(epoch_us) - buffering;
        samples.clear();
        for (int64_t i = prev_last + 1; i <= last; ++i) {
            const int64_t stamp_us = clock.stamp_us(i);
            const double t_end = scenario_time_s(stamp_us);
            const Increment exact = exact_increment(truth, t_end, 0.01, opt.quad_substeps);
            const Increment sensed = imu_errors.apply(exact, 0.01);
            ImuSample s{};
            const int64_t week_us = (((start_abs_ms * 1000 + stamp_us) % (kWeekMs * 1000)) + kWeekMs * 1000) % (kWeekMs * 1000);
            s.time_us = static_cast<uint32_t>(week_us % kStampWrapUs);
            quantiser.quantise(sensed, s.gyro, s.acc);
            samples.push_back(s);
        }
        prev_last = last;

        // Time tag: on the 100 ms grid, or drifting by at most 1 ms from it
        // and by at most 1 ms from one epoch to the next.
        if (opt.gnss_tow_jitter) {
            const int step = static_cast<int>(rng.integer(-1, 1));
            tag_offset_ms = std::max(-1, std::min(1, tag_offset_ms + step));
        }
        const int64_t tag_abs_ms = start_abs_ms + epoch_us / 1000 + tag_offset_ms;
        const double t_tag = scenario_time_s(epoch_us + 1000LL * tag_offset_ms);
        const TruthState at_tag = truth.state(t_tag);
        const GnssFix fix = gnss.observe(at_tag.ant_e, at_tag.ant_v_e, 0.1);

        DrInput h{};
        h.version = 4;
        h.pos_type = opt.gnss.pos_type;
        h.vel_type = opt.gnss.vel_type;
        h.seq = opt.first_seq + static_cast<uint32_t>(k);
        h.tow_ms = week_tow_ms(tag_abs_ms);
        for (int i = 0; i < 3; ++i) {
            h.pos[i] = fix.pos_e[i];
            h.vel[i] = fix.vel_e[i];
            h.pos_std[i] = fix.pos_std[i];
            h.vel_std[i] = fix.vel_std[i];
        }
        append_record(out.log, h, samples);
        out.samples += samples.size();

        // The fusion solution of this epoch refers to 60 ms before its tag.
        const TruthState sol = truth.state(t_tag - 0.06);
        TruthRow row;
        row.tow_ms = h.tow_ms;
        row.week = static_cast<uint32_t>(tag_abs_ms / kWeekMs);
        row.t_s = t_tag;
        row.ant_e = at_tag.ant_e;
        row.ant_v_e = at_tag.ant_v_e;
        row.sol_tow_ms = week_tow_ms(tag_abs_ms - 60);
        row.rph = sol.rph;
        row.tilt_rad = sol.tilt_rad;
        row.tip_e = sol.tip_e;
        row.imu_llh = sol.imu_llh;
        row.imu_v_n = sol.imu_v_n;
        out.truth.push_back(row);
        if (progress && (k % 100 == 0 || k + 1 == epochs))
            progress(static_cast<double>(k + 1) / static_cast<double>(epochs));
    }
    out.records = static_cast<size_t>(epochs);
    return out;
}

}  // namespace drsim
