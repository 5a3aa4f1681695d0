// State of the library interface unit: the active configuration, the pole
// lever and the IMU sample ring between the host's records and the resampler.
#pragma once

#include <stdint.h>

#include "drlib_toolkit.h"

// 64 samples: a record of at most 12 on top of the samples the resampler keeps
// back for the next grid points (the last 60 ms or so, and the one before),
// with a wide margin; a power of two, so that the index is masked.
constexpr uint32_t IMU_DATA_BUF_LEN = 64;
constexpr uint32_t IMU_DATA_INDEX_MASK = IMU_DATA_BUF_LEN - 1u;
static_assert((IMU_DATA_BUF_LEN & IMU_DATA_INDEX_MASK) == 0, "ring length must be a power of two");

namespace drlib {

extern DrCfg drcfg;              // active configuration
extern HwCfg hwcfg;              // pole lever, stored negated
extern const DrCfg drcfg16470;   // built-in configuration when the host gives none

// Sample ring: ImuDataWPos - ImuDataRPos (unsigned) samples are staged; the
// resampler alone advances the read counter.
extern ImuSample ImuDataBuf[IMU_DATA_BUF_LEN];
extern uint32_t ImuDataWPos;
extern uint32_t ImuDataRPos;

// Empties the sample ring (initialisation and every rejected record).
void ResetImuRing();

// True when each element of an offset-encoded gyro bias lies within
// 0.2 deg/s of its offset 1, 2, 3: zeros or any stray values carry no bias.
bool IsGyroBiasCodePresent(const double code[3]);

// Copies cfg (or, for null, the built-in record) into drcfg and points
// g_BgFromCfg at drcfg.gyro_bias_code when its code is present. The mounting
// rotation is the caller's to set up.
void LoadDrCfg(const DrCfg *cfg);

}  // namespace drlib
