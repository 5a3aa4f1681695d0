// Library-wide state shared by the input staging, the fusion driver and the
// tilt status: the fusion-input history ring, the IMU-to-antenna lever arm and
// the configured gyro bias.
#pragma once

#include <stdint.h>

#include "dr_state.h"
#include "drlib_toolkit.h"

static constexpr auto &g_FusionInBuf = drlib::g_state.fusion_in_buf;
static constexpr auto &g_FusionInPos = drlib::g_state.fusion_in_pos;  // entry written by the next cycle: g_FusionInPos & 0x1ff
static constexpr auto &g_FusionInNum = drlib::g_state.fusion_in_num;  // consecutive valid entries ending with the newest, at most 512
static constexpr auto &g_level_arm_b = drlib::g_state.level_arm_b;  // m, body axes: IMU reference point relative to the antenna
static constexpr auto &g_BgFromCfg = drlib::g_state.bg_from_cfg;  // drcfg.gyro_bias_code when the stored code is present, else null

// History entry (base + offset) & 0x1ff with unsigned wrap-around: pass
// base = g_FusionInPos - 1 and offset -k to reach the k-th entry before the newest.
#define GET_FUSION_IN(base, offset) \
    (g_FusionInBuf[(static_cast<uint32_t>(base) + static_cast<uint32_t>(offset)) & FUSION_IN_INDEX_MASK])

// 1 when the GNSS time tag lies within 1 ms of a whole second.
#define IS_SECOND_ALIGNED(tow_ms) (drlib::IsSecondAligned(static_cast<uint32_t>(tow_ms)))

namespace drlib {

// The IMU reference point seen from the GNSS antenna, m, body axes: fixed by
// the receiver's mechanical design, not configurable.
constexpr double kLevelArmB_m[3] = {-0.03404, -0.05097, -0.01432};

inline uint32_t IsSecondAligned(uint32_t tow_ms) {
    const uint32_t ms_in_second = tow_ms % 1000u;
    return (ms_in_second == 0u || ms_in_second == 1u || ms_in_second == 999u) ? 1u : 0u;
}

// The entry the current cycle writes.
inline FusionIn &CurrentFusionIn() { return g_FusionInBuf[g_FusionInPos & FUSION_IN_INDEX_MASK]; }

// Bookkeeping of the update cycle. An accepted record stamps its entry and
// extends the run of consecutive entries; a rejected one gives up its slot
// and ends the run. The history itself is never cleared.
void CommitFusionIn();
void BreakFusionIn();
// Empty history, as after initialisation.
void ClearFusionInHistory();
// g_level_arm_b back to the fixed design value.
void ResetLevelArm();

}  // namespace drlib
