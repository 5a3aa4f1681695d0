// Library-wide state; zero at load time, set up by initialisation.
#include "dr_global_var.h"

#include <string.h>

FusionIn g_FusionInBuf[FUSION_IN_BUF_LEN];
uint32_t g_FusionInPos;
uint32_t g_FusionInNum;
double g_level_arm_b[3];
const double *g_BgFromCfg;

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
