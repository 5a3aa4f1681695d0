// Generated logs as the library's update cycle sees them, the log format's
// round trip and the reader's diagnosis of damaged logs.
#include <gtest/gtest.h>

#include <cstring>

#include "dr_global_var.h"
#include "log_io.h"
#include "sim_replay.h"

namespace {

// A session across the end of the GNSS week, with the sequence number
// wrapping and a consumer-grade IMU at the largest jitter the spacing rule
// allows: every record is accepted (valid, staged, continuous), every epoch
// after the first resamples to ten complete slots, the tags wrap to 0 while
// the week counts up, and the IMU stamps keep their place within the second.
// The log reads back and writes again byte for byte; a seed repeats it.
TEST(SimLog, WeekRolloverAndJitterStayContinuousAndTheLogRoundTrips) {
    drsim::SimOptions opt = simtest::scenario("survey", 5, 0.1);
    opt.start_tow_ms = 604800000U - 3000U;
    opt.first_seq = 0xfffffff0U;
    opt.imu_grade = "consumer";
    opt.imu_jitter_us = 4000;
    opt.gnss_tow_jitter = true;
    const drsim::SimResult sim = drsim::simulate(opt);
    const std::vector<simtest::Record> records = simtest::split_records(sim.log);
    ASSERT_EQ(records.size(), sim.records);
    simtest::start_engine();
    for (size_t k = 0; k < records.size(); ++k) {
        ASSERT_EQ(simtest::feed(records[k]), 0u) << k;
        EXPECT_TRUE(k == 0 || GET_FUSION_IN(g_FusionInPos - 1u, 0u).header.nsamples == 10) << k;
    }
    EXPECT_TRUE(drsim::check_log(sim.log.data(), sim.log.size(), true).ok);
    size_t wrap = 1;
    while (wrap < sim.truth.size() && sim.truth[wrap].tow_ms > sim.truth[wrap - 1].tow_ms) ++wrap;
    ASSERT_EQ(wrap, 30u);
    EXPECT_TRUE(sim.truth[wrap].tow_ms < 2U && sim.truth[wrap].week == sim.truth[wrap - 1].week + 1);
    std::vector<uint8_t> again;  // the log written back from what was read
    for (const auto &r : drsim::read_log(sim.log.data(), sim.log.size())) {
        drsim::append_record(again, r.header, r.samples);
        for (const ImuSample &s : r.samples) {
            // Shortly before the tag: the stamp's place in the second agrees with GNSS time.
            const uint32_t lag = (r.header.tow_ms % 1000U * 1000U + 1000000U - s.time_us % 1000000U) % 1000000U;
            EXPECT_LT(lag, 150000U);
        }
    }
    EXPECT_EQ(again, sim.log);
    EXPECT_EQ(drsim::simulate(opt).log, sim.log);  // deterministic for a seed
    opt.scenario.seed = 6;
    EXPECT_NE(drsim::simulate(opt).log, sim.log);
}

// Damage a log in the ways storage and transfer do, and ask where it breaks.
TEST(SimLog, ReaderLocatesTheFirstDamagedRecord) {
    const drsim::SimResult sim = drsim::simulate(simtest::scenario("static", 2, 0.1));
    const auto records = drsim::read_log(sim.log.data(), sim.log.size());
    ASSERT_GT(records.size(), 20u);
    const size_t r7 = records[7].offset, r8 = records[8].offset;
    // One sample lost inside record 7: the structural walk loses step at the
    // next header, the strict walk sees the foreign bytes in record 7.
    std::vector<uint8_t> log = sim.log;
    log.erase(log.begin() + static_cast<long>(r7 + 100), log.begin() + static_cast<long>(r7 + 132));
    const drsim::LogCheck c = drsim::check_log(log.data(), log.size(), false);
    EXPECT_TRUE(!c.ok && c.records == 8u && c.record_offset == r8);  // where record 7, read at its stated length, ends
    const drsim::LogCheck s = drsim::check_log(log.data(), log.size(), true);
    EXPECT_TRUE(s.records == 7u && s.record_offset == r7);

    const drsim::LogCheck cut = drsim::check_log(sim.log.data(), r8 + 50, false);  // a cut at the end
    EXPECT_TRUE(!cut.ok && cut.record_offset == r8 && cut.byte_offset == r8 + 50);
    EXPECT_NE(cut.reason.find("truncated header"), std::string::npos);
    // Damage at one byte that the structural walk, or only the strict one, sees.
    const size_t stamp = r8 + sizeof(DrInput) + 3 * sizeof(ImuSample) + offsetof(ImuSample, time_us);
    const struct { size_t at; uint8_t flip; bool structural; size_t reported; } cases[] = {
        {r8, 0x07, true, r8},  // version 3
        {r8 + offsetof(DrInput, seq), 0x04, false, r8 + offsetof(DrInput, seq)},
        {r8 + offsetof(DrInput, tow_ms) + 1, 0x01, false, r8 + offsetof(DrInput, tow_ms)},  // 256 ms off
        {stamp + 1, 0x40, false, stamp}};                                                  // 16 ms off
    for (const auto &k : cases) {
        log = sim.log;
        log[k.at] ^= k.flip;
        EXPECT_EQ(drsim::check_log(log.data(), log.size(), false).ok, !k.structural) << k.at - r8;
        const drsim::LogCheck strict = drsim::check_log(log.data(), log.size(), true);
        EXPECT_EQ(strict.record_offset, r8) << k.at - r8;
        EXPECT_EQ(strict.byte_offset, k.reported) << k.at - r8;
    }
}

}  // namespace
