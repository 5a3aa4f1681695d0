// State of the library interface unit: the active configuration, the pole
// lever and the IMU sample ring between the host's records and the resampler.
#pragma once

#include <stdint.h>

#include "dr_state.h"
#include "drlib_toolkit.h"

namespace drlib {

static constexpr auto &drcfg = g_state.drcfg;  // active configuration
static constexpr auto &hwcfg = g_state.hwcfg;  // pole lever, stored negated
extern const DrCfg drcfg16470;   // built-in configuration when the host gives none

// Sample ring: ImuDataWPos - ImuDataRPos (unsigned) samples are staged; the
// resampler alone advances the read counter.
static constexpr auto &ImuDataBuf = g_state.imu_buf;
static constexpr auto &ImuDataWPos = g_state.imu_wpos;
static constexpr auto &ImuDataRPos = g_state.imu_rpos;

// Empties the sample ring (initialisation and every rejected record).
void ResetImuRing();

// True when each element of an offset-encoded gyro bias lies within
// 0.2 deg/s of its offset 1, 2, 3: zeros or any stray values carry no bias.
bool IsGyroBiasCodePresent(const double code[3]);

// Copies cfg (or, for null, the built-in record) into drcfg and points
// g_BgFromCfg at drcfg.gyro_bias_code when its code is present. The mounting
// rotation is the caller's to set up.
void LoadDrCfg(const DrCfg *cfg);

// Milliseconds from prev_tow_ms to tow_ms, across the week's end.
uint32_t TowStepMs(uint32_t tow_ms, uint32_t prev_tow_ms);

}  // namespace drlib
