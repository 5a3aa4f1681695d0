// Bookkeeping of the fusion-input history; its state lives in drlib::g_state.
#include "dr_global_var.h"

#include <string.h>

namespace drlib {

void CommitFusionIn() {
    CurrentFusionIn().pos_index = g_FusionInPos;
    ++g_FusionInPos;
    if (g_FusionInNum < FUSION_IN_BUF_LEN) {
        ++g_FusionInNum;
    }
}

void BreakFusionIn() {
    ++g_FusionInPos;
    g_FusionInNum = 0;
}

void ClearFusionInHistory() {
    g_FusionInPos = 0;
    g_FusionInNum = 0;
}

void ResetLevelArm() { memcpy(g_level_arm_b, kLevelArmB_m, sizeof g_level_arm_b); }

}  // namespace drlib
