// The public interface as a host meets it: initialisation and configuration,
// the pole lever, the version text, the calibration start and the gyro-bias
// store; then the per-epoch update: what an accepted record delivers, and
// every path that throws the history away; last, a copy of the whole library
// state, taken mid-session and restored after the library has run something
// else, continues exactly as the session did: the same results and statuses
// bit for bit, and the same state at the end. Taken in each state of the
// driver, with and without a calibration running.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "dr_entry.h"
#include "dr_entry_api.h"
#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "dr_state_snapshot.h"
#include "drlib_toolkit.h"
#include "sim_replay.h"

namespace {

using namespace simtest;

void CountTilt(const TiltStat *) { ++g_tilt_calls; }
void NoteCalib(uint32_t, const void *, uint32_t) {}
const double kIdentity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};

TEST(ApiVersion, FullTextAndTruncation) {
    const std::string full = "VelkarDrLib 4.4.06f71e.Nov 27 2020-16:39:54";
    for (int32_t size : {64, 44, 12, 0}) {
        char buf[64];
        std::memset(buf, 'x', sizeof buf);
        DrlibVerInfo(buf, size);
        EXPECT_EQ(size ? std::string(buf) : std::string(1, buf[0]), size ? full.substr(0, size - 1) : "x");
        EXPECT_TRUE(size == 64 || buf[size] == 'x');  // nothing beyond the given size
    }
    DrlibVerInfo(nullptr, 10);  // no crash
}

// Mounting angles below 1.2 deg each give the body-to-n convention's matrix
// (Rz Ry Rx), one at the limit none; the pole lever is stored negated and
// survives initialisation; a null configuration restores the built-in one.
// A configuration update keeps the callback, the history and the engine;
// initialisation forgets all three and any pending reset request.
TEST(ApiConfig, MountingLeverDefaultsAndWhatAnUpdateKeeps) {
    DrCfg cfg = drlib::drcfg16470;
    const double rph[3] = {0.02, -0.02, 0.01};
    std::memcpy(cfg.mount_rph, rph, sizeof rph);
    DrlibInit(&cfg);
    double q[4], m[9];
    rph2qbn(q, rph);
    quat2dcm(m, q);
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(s_cub.dcm[k], m[k], 1e-12) << k;
    cfg.mount_rph[2] = -0.020943951023931952;
    DrlibRegisterCB(CountTilt);
    g_FusionInNum = 25;
    s_FltState = FLT_STATE_CONV;
    DrlibUpdateCfg(&cfg);
    EXPECT_EQ(std::memcmp(s_cub.dcm, kIdentity, sizeof kIdentity), 0);
    EXPECT_TRUE(drlib::tiltUpdateCB == &CountTilt && g_FusionInNum == 25u && s_FltState == FLT_STATE_CONV);
    DrlibReset();

    const double pole_m[3] = {0.1, -0.2, 1.5}, standard[3] = {0.0, 0.0, 1.892}, want[3] = {-0.1, 0.2, -1.5};
    DrlibSetHwCfg(pole_m);
    DrlibSetHwCfg(nullptr);
    DrlibInit(&cfg);
    g_level_arm_b[0] = 5.0;
    DrlibInit(nullptr);
    EXPECT_EQ(std::memcmp(&drlib::drcfg, &drlib::drcfg16470, sizeof(DrCfg)), 0);
    EXPECT_TRUE(g_level_arm_b[0] == -0.03404 && s_FltState == FLT_STATE_IDLE && g_FusionInNum == 0u);
    EXPECT_TRUE(drlib::tiltUpdateCB == nullptr && drlib::bResetNotice == 0);
    EXPECT_EQ(std::memcmp(drlib::hwcfg.lever, want, sizeof want), 0);
    DrlibSetHwCfg(standard);
}

TEST(ApiCalibStart, TargetFloorAndStop) {
    DrlibInit(nullptr);
    const double ref[3] = {-2.0e6, 4.0e6, 4.2e6};
    DrlibCalibStart(ref, 500, NoteCalib);
    EXPECT_TRUE(FltCub.target == 1200u && FltCub.running == 1u && FltCub.callback == &NoteCalib);
    EXPECT_EQ(std::memcmp(FltCub.ref_pos, ref, sizeof ref), 0);
    DrlibCalibStart(ref, 3000, nullptr);
    DrlibCalibStart(nullptr, 1200, NoteCalib);
    EXPECT_TRUE(FltCub.running == 0u && FltCub.target == 3000u);  // a stop touches nothing else
}

// Destroy refuses later updates, and writes the bias code back in mode 3
// only: outside the main state the configured code.
TEST(ApiDestroy, RefusesUpdatesAndStoresTheBiasInModeThree) {
    DrlibInit(nullptr);
    EXPECT_EQ(DrlibDestroy(nullptr), 0);
    unsigned char rec[DRLIB_INPUT_SIZE(10)] = {};
    g_tilt_calls = 0;
    DrlibRegisterCB(CountTilt);
    const uint32_t pos = g_FusionInPos;
    EXPECT_EQ(DrlibUpdateFusion(reinterpret_cast<const DrInput *>(rec)), 1u);
    EXPECT_TRUE(g_FusionInPos == pos && g_tilt_calls == 0);

    DrCfg host = drlib::drcfg16470;
    const double code[3] = {1.001, 2.002, 2.999};
    std::memcpy(host.gyro_bias_code, code, sizeof code);
    DrlibInit(&host);
    host.bias_store_mode = 4;
    const DrCfg before = host;
    DrlibDestroy(&host);
    EXPECT_EQ(std::memcmp(&host, &before, sizeof host), 0);
    DrlibInit(&host);
    host.bias_store_mode = 3;
    host.gyro_bias_code[0] = 0.0;
    DrlibDestroy(&host);
    EXPECT_EQ(host.gyro_bias_code[0], 1.001);  // the library's copy of the code
}

// Eight samples 2 ms apart right after the previous record's last one: valid
// spacing, but the epoch's grid is not covered.
Record ShortOfTheGrid(Record prev, const Record &cur) {
    Record r(cur.begin(), cur.begin() + static_cast<long>(DRLIB_INPUT_SIZE(8)));
    header(r).nsamples = 8;
    const ImuSample last = samples(prev)[header(prev).nsamples - 1];
    for (uint32_t i = 0; i < 8; ++i) {
        samples(r)[i] = last;
        samples(r)[i].time_us = last.time_us + 2000u * (i + 1u);
    }
    return r;
}

class UpdateCycle : public ::testing::Test {
protected:
    static void SetUpTestSuite() { records_ = simtest::quiet_static_records(6.0); }
    void SetUp() override { simtest::start_engine(); }
    void FeedFirst(size_t n) {
        for (size_t i = 0; i < n; ++i) ASSERT_EQ(feed(records_[i]), 0u) << i;
    }
    static std::vector<Record> records_;
};
std::vector<Record> UpdateCycle::records_;

// The first record comes back in the idle form; a short resampling is
// tolerated in the first entries.
TEST_F(UpdateCycle, FirstRecordsAreDeliveredInTheIdleForm) {
    Record r = records_[0];
    EXPECT_EQ(feed(r), 0u);
    ASSERT_EQ(g_tilt_calls, 1);
    const DrInput &h = header(r);
    EXPECT_TRUE(g_tilt.status == 0 && g_tilt.tow_ms == h.tow_ms);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(g_tilt.att[i] == 0.0 && g_tilt.tip_pos[i] == h.pos[i]) << i;
        EXPECT_TRUE(g_tilt.tip_std[i] == 1.5f && g_tilt.tip_std_total[i] == h.pos_std[i]) << i;
    }
    EXPECT_EQ(feed(ShortOfTheGrid(records_[0], records_[1])), 0u);
    const FusionIn &newest = GET_FUSION_IN(g_FusionInPos - 1u, 0u), &prev = GET_FUSION_IN(g_FusionInPos - 1u, ~0u);
    EXPECT_TRUE(g_FusionInNum == 2u && newest.header.nsamples < 10);
    // Element 0 continues the previous entry's last interval.
    EXPECT_TRUE(!std::memcmp(newest.dvel[0], prev.dvel[10], 24) && !std::memcmp(newest.dtheta[0], prev.dtheta[10], 24));
}

// A bad record after 20 good ones (bank running, calibration on) is refused
// without a callback, and the run of entries, the ring and the engine go.
TEST_F(UpdateCycle, EveryResetPathEmptiesTheHistoryAndTheEngine) {
    const struct { const char *what; void (*edit)(Record &); } cases[] = {
        {"invalid record", [](Record &r) { header(r).version = 3; }},
        {"repeated stamp", [](Record &r) { samples(r)[3].time_us = samples(r)[2].time_us; }},
        {"repeated sequence number", [](Record &r) { header(r).seq -= 1; }},
        {"epoch missing", [](Record &r) { header(r).tow_ms += 100; }},
        {"incomplete resampling", [](Record &r) { r = ShortOfTheGrid(records_[19], r); }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        FeedFirst(20);
        ASSERT_EQ(s_FltState, FLT_STATE_CONV);
        const double ref[3] = {1.0, 2.0, 3.0};
        DrlibCalibStart(ref, 1200, nullptr);
        Record bad = records_[20];
        c.edit(bad);
        EXPECT_EQ(feed(bad), 1u);
        EXPECT_TRUE(g_tilt_calls == 20 && g_FusionInPos == 21u && g_FusionInNum == 0u);
        EXPECT_EQ(drlib::ImuDataWPos - drlib::ImuDataRPos, 0u);
        EXPECT_TRUE(s_FltState == FLT_STATE_IDLE && FltCub.running == 0u);
        EXPECT_EQ(feed(records_[21]), 0u);  // the next record starts a new run
        EXPECT_EQ(g_FusionInNum, 1u);
    }
}

// A reset request restarts the engine at the next record but keeps the
// history: the bank restarts at the very next whole second.
TEST_F(UpdateCycle, ResetRequestKeepsTheHistoryCount) {
    FeedFirst(25);
    DrlibReset();
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);  // only a request
    EXPECT_EQ(feed(records_[25]), 0u);
    EXPECT_TRUE(g_tilt_calls == 26 && s_FltState == FLT_STATE_IDLE && g_FusionInNum == 26u);
    for (size_t i = 26; i < 30; ++i) ASSERT_EQ(feed(records_[i]), 0u);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
    ASSERT_EQ(feed(records_[30]), 0u);
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);
    EXPECT_EQ(DrlibUpdateFusion(nullptr), 1u);
    EXPECT_EQ(g_FusionInNum, 31u);
}

// Results and statuses of records [from, to), as bytes.
std::vector<uint8_t> Replay(const std::vector<simtest::Record> &recs, size_t from, size_t to) {
    std::vector<uint8_t> out;
    for (size_t i = from; i < to; ++i) {
        const int calls = simtest::g_tilt_calls;
        out.push_back(static_cast<uint8_t>(simtest::feed(recs[i])));
        if (simtest::g_tilt_calls != calls) {
            const auto *s = reinterpret_cast<const uint8_t *>(&simtest::g_tilt);
            out.insert(out.end(), s, s + sizeof simtest::g_tilt);
        }
    }
    return out;
}

TEST(StateSnapshot, RestoredCopyReplaysTheSameBytes) {
    // Still 8 s, then tilting: the main filter after about 11 s.
    const std::vector<simtest::Record> recs = simtest::split_records(drsim::simulate(simtest::scenario("survey", 1, 0.4)).log);
    ASSERT_GT(recs.size(), 400u);

    const struct { size_t at; bool calibrating; uint8_t driver_state; } points[] = {{5, false, FLT_STATE_IDLE}, {30, false, FLT_STATE_CONV},
                        {250, false, FLT_STATE_MAIN}, {250, true, FLT_STATE_MAIN}};
    const auto states = std::make_unique<drlib::LibState[]>(3);  // taken, end of the run, end of the replay
    drlib::LibState &taken = states[0], &end_of_run = states[1], &end_of_replay = states[2];
    for (const auto &p : points) {
        SCOPED_TRACE(p.at);
        simtest::start_engine();
        Replay(recs, 0, p.at);
        if (p.calibrating) {
            double ref[3];
            std::memcpy(ref, simtest::header(const_cast<simtest::Record &>(recs[p.at])).pos, sizeof ref);
            DrlibCalibStart(ref, 1200, nullptr);
        }
        ASSERT_EQ(s_FltState, p.driver_state);
        drlib::TakeStateSnapshot(taken);
        const std::vector<uint8_t> run = Replay(recs, p.at, p.at + 120);
        drlib::TakeStateSnapshot(end_of_run);

        // Something else in between: another start, other records, a reset.
        simtest::start_engine();
        Replay(recs, 100, 160);
        DrlibReset();

        drlib::RestoreStateSnapshot(taken);
        const std::vector<uint8_t> replay = Replay(recs, p.at, p.at + 120);
        drlib::TakeStateSnapshot(end_of_replay);
        EXPECT_EQ(run, replay);
        EXPECT_EQ(std::memcmp(&end_of_run, &end_of_replay, sizeof(drlib::LibState)), 0);
    }
}

}  // namespace
