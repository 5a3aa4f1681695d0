// Recovery from bad input: after records that pass every check but carry
// non-finite values and extreme counts, with the main filter running, a valid
// log fed afterwards gives a tilt solution as soon as from a fresh start, and
// the same statuses bit for bit: no state survives a run. (Random and broken
// records with resets in between are the record fuzzer's business.)
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

#include "drlib.h"
#include "sim_replay.h"

namespace {

using simtest::header;
using simtest::Record;
using simtest::samples;

struct Outcome {
    std::vector<uint32_t> results;
    std::vector<TiltStat> stats;  // one per record; zeros when none came
    long first_fix = -1;          // index of the first record with class 1..3
};

Outcome Feed(const std::vector<Record> &recs) {
    Outcome o;
    for (const Record &b : recs) {
        const int calls = simtest::g_tilt_calls;
        o.results.push_back(simtest::feed(b));
        const bool got = simtest::g_tilt_calls != calls;
        o.stats.push_back(got ? simtest::g_tilt : TiltStat{});
        if (o.first_fix < 0 && got && simtest::g_tilt.status != 0) o.first_fix = long(o.stats.size()) - 1;
    }
    return o;
}

class Recovery : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        drsim::SimOptions opt;  // survey: still 20 s, then tilting; the bank decides once it moves
        opt.scenario.seed = 3;
        s_log = simtest::split_records(drsim::simulate(opt).log);
        simtest::start_engine();
        s_fresh = Feed(s_log);
    }

    // Garbage, then the whole valid log.
    void ExpectRecovers(const std::vector<Record> &garbage) {
        simtest::start_engine();
        for (const Record &r : garbage) Feed({r});
        const Outcome after = Feed(s_log);
        ASSERT_TRUE(s_fresh.first_fix >= 0 && after.first_fix >= 0) << "no tilt solution after the garbage";
        EXPECT_LE(after.first_fix, s_fresh.first_fix + 10) << "later than a fresh start (one second of start-up)";
        // The log's first record may be refused as not continuing the garbage:
        // then compare with a fresh start fed from its second record.
        const size_t skip = after.results[0] == 0u ? 0u : 1u;
        Outcome ref = s_fresh;
        if (skip != 0u) {
            simtest::start_engine();
            ref = Feed(std::vector<Record>(s_log.begin() + 1, s_log.end()));
            ref.stats.insert(ref.stats.begin(), TiltStat{});
        }
        size_t differing = 0;
        for (size_t i = skip; i < after.stats.size(); ++i)
            differing += std::memcmp(&after.stats[i], &ref.stats[i], sizeof(TiltStat)) != 0;
        EXPECT_EQ(differing, 0u) << "statuses differ from a fresh start fed the same records";
    }

    static std::vector<Record> s_log;
    static Outcome s_fresh;
};
std::vector<Record> Recovery::s_log;
Outcome Recovery::s_fresh;

// With the main filter running (record 300 lies well after the heading is
// decided), records that pass every check: positions, velocities and
// deviations NaN or infinite, raw counts at the ends of their range.
TEST_F(Recovery, NonFiniteValuesAndExtremeCountsWithTheMainFilterRunning) {
    ASSERT_LT(s_fresh.first_fix, 290);
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
    std::vector<Record> g(s_log.begin(), s_log.begin() + 330);
    for (size_t i = 300; i < 330; ++i) {
        DrInput &h = header(g[i]);
        if (i < 320) h.pos[i % 3] = nan, h.vel[(i + 1) % 3] = i % 2 ? inf : nan, h.pos_std[i % 3] = NAN;
        for (int k = 0; k < h.nsamples; ++k)
            samples(g[i])[k].gyro[k % 3] = samples(g[i])[k].acc[(k + 1) % 3] = (i + k) % 2 ? INT32_MAX : INT32_MIN;
    }
    ExpectRecovers(g);
}

}  // namespace
