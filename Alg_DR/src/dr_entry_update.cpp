// The per-epoch update: check and stage the record, extend the history, run
// the engine and hand the tilt status to the host. A record that cannot be
// used, or that does not continue the previous one, starts everything afresh.
#include <string.h>

#include "dr_entry.h"
#include "dr_entry_api.h"
#include "dr_global_var.h"
#include "dr_options.h"

namespace {

constexpr uint32_t kResultProcessed = 0;
constexpr uint32_t kResultRejected = 1;
constexpr uint8_t kSlotsPerEpoch = 10;
// The first entries after a reset may be short while the sample ring fills
// up to the resampling grid; from the fourth on every slot must be there.
constexpr uint32_t kEntriesBeforeSlotCheck = 2;

uint32_t DiscardHistoryAndReset() {
    drlib::BreakFusionIn();
    drlib::ResetImuRing();
    DrFusionReset();
    return kResultRejected;
}

// Links the new entry to the newest one; false when it does not continue it.
bool ContinueHistory(const DrInput *rec, FusionIn &entry) {
    if (g_FusionInNum == 0u) {
        return true;  // first entry of a run: nothing to continue, slot 0 stays as it is
    }
    const FusionIn &prev = GET_FUSION_IN(g_FusionInPos - 1u, 0u);
    if (IsFusionDataBreak(rec, &prev) != 0u) {
        return false;
    }
    if (g_FusionInNum > kEntriesBeforeSlotCheck && entry.header.nsamples != kSlotsPerEpoch) {
        return false;
    }
    // Slot 0 is the previous epoch's last grid point, so the ten intervals
    // of this epoch run on without a gap.
    memcpy(entry.dtheta[0], prev.dtheta[10], sizeof entry.dtheta[0]);
    memcpy(entry.dvel[0], prev.dvel[10], sizeof entry.dvel[0]);
    return true;
}

}  // namespace

extern "C" {

DRLIB_API uint32_t DrlibUpdateFusion(const DrInput *rec) {
    if (drlib::bLibInited == 0 || rec == nullptr) {
        return kResultRejected;
    }
    if (drlib::bResetNotice != 0) {
        DrFusionReset();
        drlib::bResetNotice = 0;
    }
    if (IsFusionDataValid(rec) == 0u || !drlib::IsSolutionPlausible(rec) ||
        InputImuDataToBuf(rec) == 0) {
        return DiscardHistoryAndReset();
    }
    FusionIn &entry = drlib::CurrentFusionIn();
    memcpy(&entry.header, rec, sizeof entry.header);
    FillDaDv2FusionIn(&entry);
    if (!ContinueHistory(rec, entry)) {
        return DiscardHistoryAndReset();
    }
    drlib::CommitFusionIn();
    DrFusionProc();
    TiltStat stat;
    ComposeTiltStat(&stat, drlib::hwcfg.lever);
    if (drlib::tiltUpdateCB != nullptr) {
        drlib::tiltUpdateCB(&stat);
    }
    return kResultProcessed;
}

}  // extern "C"
