// Truth motion of a survey pole: where the tip stands and how the pole is
// held, as smooth functions of time.
//
// The motion is described in the tangent frame t of the first survey point:
// north-east-down axes at that point, fixed to the Earth. The pole frame p
// has its z axis along the pole from the tip to the antenna, so a vertical
// pole is rotated by pi about the north axis (roll 180 degrees) and its
// "heading" is its spin about the pole axis. A tilt is a rotation about a
// horizontal axis; the lean vector (north, east) points where the antenna
// leans to, its length being the tilt angle.
#ifndef DRSIM_SCENARIO_H
#define DRSIM_SCENARIO_H

#include <cstdint>
#include <string>
#include <vector>

#include "attitude.h"
#include "earth.h"

namespace drsim {

struct ScenarioOptions {
    std::string name = "survey";            // static, survey or calibration
    double duration_scale = 1.0;            // stretches every phase
    double max_tilt_deg = 30.0;             // largest tilt while tilting
    double pole_length_m = 1.892;           // tip to antenna
    Geodetic point{0.52, 1.98, 30.0};       // first survey point (the tip)
    uint64_t seed = 1;
    bool mount_given = false;               // else the scenario's own mounting
    Vec3 mount_rph_deg{0.0, 0.0, 0.0};      // IMU mounting on the pole, roll, pitch, heading
};

// One stretch of the motion. Envelopes rise and fall smoothly over `ramp_s`
// at both ends, so phases join without a jump in rate or acceleration.
struct Phase {
    enum Kind { kStill, kTilt, kWalk } kind = kStill;
    double t0 = 0.0, t1 = 0.0, ramp_s = 0.0;  // s
    // Tilting: tilt level, lean direction and spin, each a sum of slow sines.
    double tilt_w = 0.0, tilt_p = 0.0;        // rad/s, rad
    double dir0 = 0.0, dir_a1 = 0.0, dir_w1 = 0.0, dir_p1 = 0.0, dir_a2 = 0.0, dir_w2 = 0.0, dir_p2 = 0.0;
    double spin_a = 0.0, spin_w = 0.0, spin_p = 0.0;
    // Walking: displacement of the tip (north, east, m) and the turn of the surveyor (rad).
    double walk_n = 0.0, walk_e = 0.0, turn = 0.0;
};

template <typename T>
struct PoleMotion {
    Vec3T<T> tip_t;   // tip position in the tangent frame, m
    QuatT<T> q_pt;    // pole axes to tangent axes
};

class Scenario {
public:
    // Builds a named scenario; throws std::invalid_argument for an unknown name.
    explicit Scenario(const ScenarioOptions &opt);

    template <typename T>
    PoleMotion<T> motion(const T &t) const;

    const ScenarioOptions &options() const { return opt_; }
    double duration_s() const { return duration_s_; }
    const std::vector<Phase> &phases() const { return phases_; }
    // Mounting angles actually used (roll, pitch, heading, rad): c_pb, which
    // maps pole-axis vectors into IMU body axes, is Rz(heading) Ry(pitch) Rx(roll).
    Vec3 mount_rph() const { return mount_rph_; }
    double heading0() const { return heading0_; }

private:
    ScenarioOptions opt_;
    std::vector<Phase> phases_;
    double duration_s_ = 0.0;
    double heading0_ = 0.0;   // spin of the vertical pole at the start, rad
    double max_tilt_ = 0.0;   // rad
    Vec3 mount_rph_{};
};

}  // namespace drsim

#endif
