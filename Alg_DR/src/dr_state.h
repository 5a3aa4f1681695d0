// Every mutable variable of the library lives in one record, drlib::g_state,
// so that a test build can copy the whole library state and put it back with
// one assignment (see dr_state_snapshot.h). The units keep their own names
// for their parts: each unit header binds them as constant references into
// the record, which the compiler resolves to plain addresses (no storage, no
// indirection).
//
// One record rather than a dedicated linker section: the record is ordinary
// zero-initialised storage (.bss, nothing in the file), whereas GCC emits a
// named section as file-backed data (PROGBITS, the whole 350 KB in the shared
// object) and the linker's bounds symbols for it would be exported. Values a
// host can see before its first DrlibInit are set at load time instead (see
// dr_state.cpp), which keeps the record all zeros in the file.
#pragma once

#include <stdint.h>

#include "drlib_toolkit.h"

// The history keeps the last 512 epochs (51.2 s at 10 Hz); the counters run
// freely and are masked, so they may wrap after 2^32 records.
constexpr uint32_t FUSION_IN_BUF_LEN = 512;
constexpr uint32_t FUSION_IN_INDEX_MASK = FUSION_IN_BUF_LEN - 1u;
static_assert((FUSION_IN_BUF_LEN & FUSION_IN_INDEX_MASK) == 0, "history length must be a power of two");

// 64 samples: a record of at most 12 on top of the samples the resampler keeps
// back for the next grid points (the last 60 ms or so, and the one before),
// with a wide margin; a power of two, so that the index is masked.
constexpr uint32_t IMU_DATA_BUF_LEN = 64;
constexpr uint32_t IMU_DATA_INDEX_MASK = IMU_DATA_BUF_LEN - 1u;
static_assert((IMU_DATA_BUF_LEN & IMU_DATA_INDEX_MASK) == 0, "ring length must be a power of two");

constexpr int kBankSize = 18;  // heading hypotheses, 20 degrees apart

// Standstill gyro-bias estimator, one scalar filter per body axis.
struct ZuptState {
    double bias_var[3];  // (rad/s)^2
    double bias[3];      // rad/s, body x, y, z
    int32_t hold_cnt;    // measurement-variance inflation after an update
};

// Configured mounting rotation between IMU and pole.
struct CubCfg {
    double dcm[9];  // row-major; identity without usable configured angles
};

namespace drlib {

// Rates of the standstill detector's window: 6 channels of 308 samples.
constexpr int kZuptChannels = 6;
constexpr int kZuptStoreLen = 308;

struct LibState {
    // Interface (dr_entry_api.cpp, abort_handle.cpp).
    uint8_t lib_inited;
    uint8_t reset_notice;
    DrlibTiltCallback tilt_cb;
    uint32_t assert_weak;
    // Configuration and the IMU sample ring (dr_entry.cpp).
    DrCfg drcfg;
    HwCfg hwcfg;
    ImuSample imu_buf[IMU_DATA_BUF_LEN];
    uint32_t imu_wpos;
    uint32_t imu_rpos;
    // Fusion-input history and lever arm (dr_global_var.cpp).
    FusionIn fusion_in_buf[FUSION_IN_BUF_LEN];
    uint32_t fusion_in_pos;
    uint32_t fusion_in_num;
    double level_arm_b[3];
    const double *bg_from_cfg;
    // Fusion engine (dr_fusion.cpp and the units of dr_fusion_state.h).
    uint8_t flt_state;
    uint32_t updcnt;
    uint8_t toggle_cnts[kBankSize];
    NavState nav_gp[kBankSize];
    KfFilter flt_gp[kBankSize];
    NavState nav_main;
    KfFilter flt_main;
    ZuptState zupt;
    CubFilter cub_flt;
    CubCfg cub_cfg;
    // Standstill detector's scratch window, refilled at each use (zupt.cpp).
    double zupt_window[kZuptChannels][kZuptStoreLen];
};

extern LibState g_state;

}  // namespace drlib
