// Configuration records, input record checks and the IMU sample ring.
#include "dr_entry.h"

#include <math.h>
#include <string.h>

#include "dr_global_var.h"

namespace drlib {

constexpr DrCfg drcfg16470 = {
    0u,                                // options: none (no marker)
    4u,                                // bias_store_mode: keep the host's record untouched
    1.52587890625e-06,                 // reserved1
    1.9073486328125e-05,               // reserved2
    1.0058283805847168e-06,            // gyro_scale, deg per count per 0.01 s
    1.862645149230957e-07,             // acc_scale, m/s per count per 0.01 s
    {0.0, 0.0, 0.0},                   // gyro_bias_code: none stored
    {0.0, 0.0, 0.0},                   // mount_rph, rad
};

void ResetImuRing() {
    ImuDataWPos = 0u;
    ImuDataRPos = 0u;
}

bool IsGyroBiasCodePresent(const double code[3]) {
    constexpr double kMaxBias_radps = 0.003490658503988659;  // 0.2 deg/s
    return fabs(code[0] - 1.0) < kMaxBias_radps && fabs(code[1] - 2.0) < kMaxBias_radps &&
           fabs(code[2] - 3.0) < kMaxBias_radps;
}

void LoadDrCfg(const DrCfg *cfg) {
    if (cfg == nullptr) {
        drcfg = drcfg16470;
        g_BgFromCfg = nullptr;
        return;
    }
    memcpy(&drcfg, cfg, sizeof drcfg);
    g_BgFromCfg = IsGyroBiasCodePresent(drcfg.gyro_bias_code) ? drcfg.gyro_bias_code : nullptr;
}

namespace {

constexpr uint32_t kMaxTowMs = 604801000u;   // one week plus one second
constexpr uint32_t kWeekMs = 604800000u;
constexpr uint32_t kUsPerSecond = 1000000u;
constexpr uint32_t kMinSampleSpacing_us = 2000u;
constexpr uint32_t kMaxSampleSpacing_us = 18000u;

constexpr float kMaxPosVarSum_m2 = 100.0f;        // 10 m combined
// The float just below 0.49 (0x3EFAE147), not the nearest one (0x3EFAE148):
// the limit is this exact bit pattern, so that borderline records are judged
// alike on every target.
constexpr float kMaxVelVarSum_m2ps2 = 0x1.f5c28ep-2f;
static_assert(__builtin_bit_cast(uint32_t, kMaxVelVarSum_m2ps2) == 0x3EFAE147u,
              "velocity variance limit bit pattern");

bool IsNearTenthSecond(uint32_t tow_ms) {
    return tow_ms % 100u == 0u || (tow_ms + 1u) % 100u == 0u || (tow_ms - 1u) % 100u == 0u;
}

bool IsKnownPosType(uint8_t t) {
    static constexpr uint8_t kKnown[] = {0x10u, 0x11u, 0x12u, 0x20u, 0x21u, 0x22u, 0x30u, 0x31u, 0x32u};
    for (const uint8_t known : kKnown) {
        if (t == known) return true;
    }
    return false;
}

bool IsKnownVelType(uint8_t vel_type, uint8_t pos_type) {
    return vel_type == 8u || vel_type == 9u || vel_type == 0x10u || vel_type == 0x11u ||
           vel_type == 0x12u || vel_type == pos_type;
}

// Single precision on purpose: the same sum the receiver forms.
float SumOfSquares(const float v[3]) { return v[0] * v[0] + v[1] * v[1] + v[2] * v[2]; }

// Spacing of two stamps within the GNSS second; equal stamps read as a whole
// second so that a repeated sample is rejected.
uint32_t SampleSpacing_us(uint32_t newer_us, uint32_t older_us) {
    const uint32_t a = newer_us % kUsPerSecond;
    const uint32_t b = older_us % kUsPerSecond;
    return a > b ? a - b : a - b + kUsPerSecond;
}

}  // namespace

uint32_t TowStepMs(uint32_t tow_ms, uint32_t prev_tow_ms) {
    return tow_ms >= prev_tow_ms ? tow_ms - prev_tow_ms : tow_ms - prev_tow_ms + kWeekMs;
}

}  // namespace drlib

using namespace drlib;

extern "C" {

DRLIB_API uint32_t IsFusionDataValid(const DrInput *rec) {
    if (rec->version != 4u) return 0u;
    if (rec->tow_ms > kMaxTowMs) return 0u;
    if (!IsNearTenthSecond(rec->tow_ms)) return 0u;
    if (!IsKnownPosType(rec->pos_type)) return 0u;
    if (!IsKnownVelType(rec->vel_type, rec->pos_type)) return 0u;
    // Strict comparisons: a NaN sum does not exceed the limit.
    if (SumOfSquares(rec->pos_std) > kMaxPosVarSum_m2) return 0u;
    if (SumOfSquares(rec->vel_std) > kMaxVelVarSum_m2ps2) return 0u;
    if (rec->nsamples < 8u || rec->nsamples > 12u) return 0u;
    return 1u;
}

DRLIB_API int32_t InputImuDataToBuf(const DrInput *rec) {
    const uint32_t n = rec->nsamples;
    // Room is checked for the whole record up front, so a record that does
    // not fit is rejected before it can overwrite samples still needed.
    if (n >= IMU_DATA_BUF_LEN || ImuDataWPos - ImuDataRPos >= IMU_DATA_BUF_LEN - n) return 0;
    const ImuSample *samples = DRLIB_INPUT_SAMPLES(rec);
    for (uint32_t i = 0; i < n; ++i) {
        ImuSample s;
        memcpy(&s, &samples[i], sizeof s);
        const bool first_after_reset = (i == 0u && g_FusionInNum == 0u);
        if (!first_after_reset) {
            const ImuSample &last = ImuDataBuf[(ImuDataWPos - 1u) & IMU_DATA_INDEX_MASK];
            const uint32_t spacing = SampleSpacing_us(s.time_us, last.time_us);
            if (spacing > kMaxSampleSpacing_us || spacing < kMinSampleSpacing_us) return 0;
        }
        ImuDataBuf[ImuDataWPos & IMU_DATA_INDEX_MASK] = s;
        ++ImuDataWPos;
    }
    return 1;
}

DRLIB_API uint32_t IsFusionDataBreak(const DrInput *cur, const FusionIn *prev) {
    if (cur->seq != prev->header.seq + 1u) return 1u;
    const uint32_t d_ms = drlib::TowStepMs(cur->tow_ms, prev->header.tow_ms);
    return (d_ms > 101u || d_ms < 99u) ? 1u : 0u;
}

}  // extern "C"
