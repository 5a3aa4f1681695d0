// The host-facing functions around the per-epoch update: start, stop,
// configuration, callbacks, version text and the mounting calibration.
#include "dr_entry_api.h"

#include <string.h>
#include <time.h>

#include "dr_entry.h"
#include "dr_global_var.h"

namespace {

using drlib::bLibInited;
using drlib::bResetNotice;
using drlib::tiltUpdateCB;

constexpr uint32_t kBiasStoreMode = 3;
constexpr uint32_t kMinCalibUpdates = 1200;

// The configuration record, its stored gyro bias and the mounting rotation
// built from its angles (the caller's record is read during the call only).
void LoadConfiguration(const DrCfg *cfg) {
    drlib::LoadDrCfg(cfg);
    config_cub(cfg != nullptr ? cfg->mount_rph : nullptr);
}

}  // namespace

extern "C" {

DRLIB_API int32_t DrlibInit(const DrCfg *cfg) {
    tiltUpdateCB = nullptr;
    bResetNotice = 0;
    LoadConfiguration(cfg);
    drlib::ResetLevelArm();
    drlib::ClearFusionInHistory();
    drlib::ResetImuRing();
    bLibInited = 1;
    DrFusionReset();
    return 0;
}

DRLIB_API int32_t DrlibDestroy(DrCfg *cfg) {
    bLibInited = 0;
    if (cfg != nullptr && cfg->bias_store_mode == kBiasStoreMode) {
        bwxyz_store(cfg->gyro_bias_code);
    }
    return 0;
}

DRLIB_API uint32_t DrlibRegisterCB(DrlibTiltCallback cb) {
    tiltUpdateCB = cb;
    return 0;
}

DRLIB_API uint32_t DrlibReset(void) {
    bResetNotice = 1;
    return 0;
}

DRLIB_API void DrlibSetCoord(uint32_t coord) { (void)coord; }

DRLIB_API void DrlibVerInfo(char *buf, int32_t len) {
    if (buf == nullptr || len < 1) {
        return;
    }
    slprintf(buf, static_cast<uint32_t>(len), "%s %d.%d.%s.%s-%s", "VelkarDrLib", 4, 4, "06f71e",
             "Nov 27 2020", "16:39:54");
}

DRLIB_API void DrlibCalibStart(const double *ref_pos, uint32_t target, DrlibCalibCallback cb) {
    CubFilter *cub = get_cub_flt();
    if (ref_pos == nullptr) {
        cub->enabled = 0u;
        cub->running = 0u;
        return;
    }
    memcpy(cub->ref_pos, ref_pos, sizeof cub->ref_pos);
    cub->target = (target > kMinCalibUpdates) ? target : kMinCalibUpdates;
    cub->callback = cb;
    cub->enabled = 1u;
    cub->count = 0u;
    cub->running = 1u;
    cub->last_percent = 0u;
    cub->start_time = static_cast<int32_t>(time(nullptr));
}

DRLIB_API uint32_t DrlibUpdateDiffData(uint32_t a, uint32_t b, uint32_t c) {
    (void)a;
    (void)b;
    (void)c;
    return 0;
}

DRLIB_API uint32_t DrlibUpdateLogBin(uint32_t a, uint32_t b) {
    (void)a;
    (void)b;
    return 0;
}

DRLIB_API int32_t DrlibUpdateCfg(const DrCfg *cfg) {
    LoadConfiguration(cfg);
    return 0;
}

DRLIB_API int32_t DrlibSetHwCfg(const double *v) {
    if (v != nullptr) {
        for (int i = 0; i < 3; ++i) {
            drlib::hwcfg.lever[i] = -v[i];
        }
    }
    return 0;
}

}  // extern "C"
