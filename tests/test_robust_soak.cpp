// Soak: two hours of 10 Hz epochs in one run. A survey session is fed over and
// over, each pass 135 s after the previous one (so each starts with a break),
// across the week rollover and with the sequence number, history position and
// IMU ring counters wrapping. Every pass must repeat the first pass's statuses
// bit for bit (time tag aside): nothing drifts or accumulates, wrapped
// counters change nothing. (Resets and lost records in between are the
// recovery test's and the record fuzzer's business.)
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "dr_entry.h"
#include "dr_global_var.h"
#include "drlib_toolkit.h"
#include "sim_replay.h"

namespace {

using simtest::Record;

constexpr uint32_t kWeekMs = 604800000u;
constexpr uint32_t kPassPeriodMs = 135000u;  // whole seconds: the IMU stamps stay as they are

TEST(Soak, TwoHoursWithBreaksAndWrappingCounters) {
    drsim::SimOptions opt;
    opt.scenario.seed = 4;
    const std::vector<Record> pass = simtest::split_records(drsim::simulate(opt).log);
    const size_t passes = (2 * 3600 * 10 + pass.size() - 1) / pass.size();  // two hours of epochs

    simtest::start_engine();
    // A library that has run long: history position and sequence number about
    // to wrap; an hour before the end of the week (added to the session's tags).
    const uint32_t pos0 = 0xFFFFFFFFu - 20000u, seq0 = 0xFFFFFFFFu - 30000u;
    const uint32_t tow0 = kWeekMs - 3600u * 1000u - 345600000u;
    g_FusionInPos = pos0;
    std::vector<TiltStat> first_pass(pass.size());
    size_t fed = 0, compared = 0;
    bool crossed_week = false;
    for (size_t p = 0; p < passes; ++p) {
        for (size_t i = 0; i < pass.size(); ++i) {
            Record b = pass[i];
            DrInput &h = simtest::header(b);
            const uint32_t tow = h.tow_ms + tow0 + static_cast<uint32_t>(p) * kPassPeriodMs;
            h.tow_ms = tow % kWeekMs;
            crossed_week |= tow >= kWeekMs && h.tow_ms < 1000u;
            h.seq = seq0 + static_cast<uint32_t>(fed++);
            if (p == 0 && i == 0) h.version = 0;  // every pass then starts its run with record 1
            // Refused: the first record of a pass, which does not continue the previous pass.
            ASSERT_EQ(simtest::feed(b), i == 0 ? 1u : 0u) << "pass " << p << " record " << i;
            if (i == 0) {
                // Ring emptied: give it counters about to wrap, as after a long run.
                ASSERT_EQ(drlib::ImuDataWPos, 0u);
                drlib::ImuDataWPos = drlib::ImuDataRPos = 0xFFFFFF00u + static_cast<uint32_t>(p);
                continue;
            }
            TiltStat s = simtest::g_tilt;
            s.tow_ms = 0;
            if (p == 0) first_pass[i] = s;
            ASSERT_EQ(std::memcmp(&s, &first_pass[i], sizeof s), 0) << "pass " << p << " record " << i;
            compared += p > 0;
        }
    }
    EXPECT_TRUE(crossed_week);
    EXPECT_EQ(g_FusionInPos, pos0 + static_cast<uint32_t>(fed));
    EXPECT_LT(g_FusionInPos, pos0) << "the history position has wrapped";
    EXPECT_GT(compared, 10000u);
}

}  // namespace
