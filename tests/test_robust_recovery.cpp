// Recovery from bad input: whatever garbage a host feeds (NaN positions and
// deviations, IMU spacing errors, gaps, absurd sample counts and raw counts,
// random bytes, resets in between, with the main filter running or not),
// a valid log fed afterwards gives a tilt solution as soon as from a fresh
// DrlibInit, and the same solution, bit for bit: no state survives a run.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "drlib.h"
#include "sim_replay.h"

namespace {

using Buf = std::vector<uint8_t>;

TiltStat g_stat;
bool g_got = false;
void OnTilt(const TiltStat *s) {
    g_stat = *s;
    g_got = true;
}

DrInput &Header(Buf &b) { return *reinterpret_cast<DrInput *>(b.data()); }
ImuSample *Samples(Buf &b) { return reinterpret_cast<ImuSample *>(b.data() + sizeof(DrInput)); }

struct Outcome {
    std::vector<uint32_t> results;
    std::vector<TiltStat> stats;  // one per record; zeros when none came
    long first_fix = -1;          // index of the first record with class 1..3
};

Outcome Feed(const std::vector<Buf> &recs) {
    Outcome o;
    for (const Buf &b : recs) {
        g_got = false;
        o.results.push_back(DrlibUpdateFusion(reinterpret_cast<const DrInput *>(b.data())));
        o.stats.push_back(g_got ? g_stat : TiltStat{});
        if (o.first_fix < 0 && g_got && g_stat.status != 0) o.first_fix = static_cast<long>(o.stats.size()) - 1;
    }
    return o;
}

void Start() {
    DrlibInit(nullptr);
    DrlibRegisterCB(OnTilt);
    const double pole[3] = {0.0, 0.0, 1.892};
    DrlibSetHwCfg(pole);
}

class Recovery : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        drsim::SimOptions opt;  // survey: still 20 s, then tilting; the bank decides once it moves
        opt.scenario.seed = 3;
        s_log = new std::vector<Buf>(simtest::split_records(drsim::simulate(opt).log));
        Start();
        s_fresh = new Outcome(Feed(*s_log));
    }
    static void TearDownTestSuite() {
        delete s_log;
        delete s_fresh;
    }

    // Garbage, then the whole valid log; the log's first record may be
    // refused as not continuing the garbage, so the valid run may start one
    // record later: the log begins with the pole standing still, which the
    // start-up does not depend on.
    void ExpectRecovers(const std::vector<Buf> &garbage, const std::function<void(size_t)> &between = {}) {
        Start();
        for (size_t i = 0; i < garbage.size(); ++i) {
            if (between) between(i);
            Feed({garbage[i]});
        }
        const Outcome after = Feed(*s_log);
        const Outcome &fresh = *s_fresh;
        ASSERT_GE(fresh.first_fix, 0);
        ASSERT_GE(after.first_fix, 0) << "no tilt solution after the garbage";
        EXPECT_LE(after.first_fix, fresh.first_fix + 10) << "later than a fresh start (one second of start-up)";
        // When the log's first record was refused (it does not continue the
        // garbage), the valid run starts with its second record: compare with
        // a fresh start fed from there.
        const size_t skip = after.results[0] == 0u ? 0u : 1u;
        Outcome ref = fresh;
        if (skip != 0u) {
            Start();
            ref = Feed(std::vector<Buf>(s_log->begin() + 1, s_log->end()));
            ref.stats.insert(ref.stats.begin(), TiltStat{});
        }
        size_t differing = 0;
        for (size_t i = skip; i < after.stats.size(); ++i) {
            if (std::memcmp(&after.stats[i], &ref.stats[i], sizeof(TiltStat)) != 0) ++differing;
        }
        EXPECT_EQ(differing, 0u) << "statuses differ from a fresh start fed the same records";
    }

    static std::vector<Buf> *s_log;
    static Outcome *s_fresh;
};
std::vector<Buf> *Recovery::s_log = nullptr;
Outcome *Recovery::s_fresh = nullptr;

const double kNaN = std::numeric_limits<double>::quiet_NaN();

// The main filter runs (record 300 lies well after the heading is decided),
// then positions, velocities and deviations turn to NaN or infinity: the
// records pass every check, so the filter takes them in.
TEST_F(Recovery, NonFinitePositionsWithTheMainFilterRunning) {
    ASSERT_LT(s_fresh->first_fix, 290);
    std::vector<Buf> g(s_log->begin(), s_log->begin() + 320);
    for (size_t i = 300; i < 320; ++i) {
        DrInput &h = Header(g[i]);
        h.pos[i % 3] = kNaN;
        h.vel[(i + 1) % 3] = i % 2 ? std::numeric_limits<double>::infinity() : kNaN;
        h.pos_std[i % 3] = std::numeric_limits<float>::quiet_NaN();
    }
    ExpectRecovers(g);
}

// Raw counts at the ends of their range in accepted records, with the main
// filter running: the increments become absurd but stay finite.
TEST_F(Recovery, ExtremeRawCountsWithTheMainFilterRunning) {
    std::vector<Buf> g(s_log->begin(), s_log->begin() + 330);
    for (size_t i = 300; i < 330; ++i) {
        ImuSample *s = Samples(g[i]);
        for (int k = 0; k < Header(g[i]).nsamples; ++k) {
            s[k].gyro[k % 3] = (i + k) % 2 ? INT32_MAX : INT32_MIN;
            s[k].acc[(k + 1) % 3] = INT32_MIN;
        }
    }
    ExpectRecovers(g);
}

// Spacing errors, gaps, time tags off the grid and impossible sample counts,
// during the bank, with reset requests in between.
TEST_F(Recovery, BrokenRecordsAndGapsDuringTheBank) {
    std::vector<Buf> g;
    for (size_t i = 0; i < 260; ++i) {
        if (i % 23 == 7) continue;  // a missing record
        Buf b = (*s_log)[i];
        if (i % 31 == 5) Samples(b)[3].time_us = Samples(b)[2].time_us;  // repeated stamp
        if (i % 37 == 11) Header(b).tow_ms += 50;                        // off the grid
        if (i % 41 == 13) {
            Header(b).nsamples = static_cast<uint8_t>(i % 2 ? 255 : 0);  // and the buffer to match
            b.resize(DRLIB_INPUT_SIZE(Header(b).nsamples), 0x5a);
        }
        g.push_back(b);
    }
    ExpectRecovers(g, [](size_t i) {
        if (i % 50 == 49) DrlibReset();
    });
}

// Random bytes in valid-looking headers: any tag, type, count and values.
TEST_F(Recovery, RandomRecords) {
    std::mt19937 rng(11);
    std::vector<Buf> g;
    for (int i = 0; i < 200; ++i) {
        const uint8_t n = static_cast<uint8_t>(rng() % 16);
        Buf b(DRLIB_INPUT_SIZE(n));
        for (uint8_t &x : b) x = static_cast<uint8_t>(rng());
        Header(b).version = 4;
        Header(b).nsamples = n;
        g.push_back(b);
    }
    ExpectRecovers(g);
}

}  // namespace
