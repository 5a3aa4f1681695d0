// A copy of the whole library state, taken mid-session and restored after the
// library has run something else, continues exactly as the session did: the
// same results and statuses bit for bit, and the same state at the end. Taken
// in each state of the driver, with and without a calibration running.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "dr_fusion_state.h"
#include "dr_state_snapshot.h"
#include "sim_replay.h"

namespace {

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

    struct Point {
        size_t at;
        bool calibrating;
        uint8_t driver_state;
    } const points[] = {{5, false, FLT_STATE_IDLE}, {30, false, FLT_STATE_CONV},
                        {250, false, FLT_STATE_MAIN}, {250, true, FLT_STATE_MAIN}};
    const auto states = std::make_unique<drlib::LibState[]>(3);  // taken, end of the run, end of the replay
    drlib::LibState &taken = states[0], &end_of_run = states[1], &end_of_replay = states[2];
    for (const Point &p : points) {
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
