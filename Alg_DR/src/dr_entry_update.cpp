// The per-epoch update: check and stage the record, extend the history, run
// the engine and hand the tilt status to the host. A record that cannot be
// used, or that does not continue the previous one, starts everything afresh.
#include <string.h>

#include "dr_consts.h"
#include "dr_entry.h"
#include "dr_entry_api.h"
#include "dr_global_var.h"
#include "dr_options.h"

namespace {

constexpr uint32_t kResultProcessed = 0;
constexpr uint32_t kResultRejected = 1;
// The first entries after a reset may be short while the sample ring fills
// up to the resampling grid; from the fourth on every increment must be there.
constexpr uint32_t kEntriesBeforeSlotCheck = 2;

// A rejected or discontinuous record: the next one starts a new run.
void DiscardHistoryAndReset() {
    drlib::BreakFusionIn();
    drlib::ResetImuRing();
    DrFusionReset();
}

// Whether the new entry continues the newest one of the history.
bool ContinuesHistory(const DrInput *rec, const FusionIn &entry) {
    if (g_FusionInNum == 0u) {
        return true;  // first entry of a run: nothing to continue
    }
    const FusionIn &prev = GET_FUSION_IN(g_FusionInPos - 1u, 0u);
    if (IsFusionDataBreak(rec, &prev) != 0u) {
        return false;
    }
    return g_FusionInNum <= kEntriesBeforeSlotCheck ||
           entry.header.nsamples == static_cast<uint8_t>(drlib::kEntryIncrements);
}

// Element 0 is the previous epoch's last grid point, so the ten intervals of
// this epoch run on without a gap. The first entry of a run keeps its own.
void LinkToPreviousEntry(FusionIn &entry) {
    if (g_FusionInNum == 0u) {
        return;
    }
    const FusionIn &prev = GET_FUSION_IN(g_FusionInPos - 1u, 0u);
    memcpy(entry.dtheta[0], prev.dtheta[drlib::kEntryIncrements], sizeof entry.dtheta[0]);
    memcpy(entry.dvel[0], prev.dvel[drlib::kEntryIncrements], sizeof entry.dvel[0]);
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
        DiscardHistoryAndReset();
        return kResultRejected;
    }
    FusionIn &entry = drlib::CurrentFusionIn();
    memcpy(&entry.header, rec, sizeof entry.header);
    FillDaDv2FusionIn(&entry);
    if (!ContinuesHistory(rec, entry)) {
        DiscardHistoryAndReset();
        return kResultRejected;
    }
    LinkToPreviousEntry(entry);
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
