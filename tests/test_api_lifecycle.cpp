// The host-facing lifecycle: initialisation and configuration, the pole
// lever, the version text, the calibration start and the gyro-bias store.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <ctime>
#include <string>

#include "dr_entry.h"
#include "dr_entry_api.h"
#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "drlib.h"

namespace {

int g_tilt_calls = 0;
void CountTilt(const TiltStat *) { ++g_tilt_calls; }
void NoteCalib(uint32_t, const void *, uint32_t) {}

DrCfg CfgWithBiasCode(double x, double y, double z) {
    DrCfg cfg = drlib::drcfg16470;
    cfg.gyro_bias_code[0] = x;
    cfg.gyro_bias_code[1] = y;
    cfg.gyro_bias_code[2] = z;
    return cfg;
}

bool IsIdentity(const double *m) {
    static const double kI[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    return std::memcmp(m, kI, sizeof kI) == 0;
}

TEST(ApiVersion, FullTextAndTruncation) {
    char buf[64];
    std::memset(buf, 'x', sizeof buf);
    DrlibVerInfo(buf, sizeof buf);
    EXPECT_STREQ(buf, "VelkarDrLib 4.4.06f71e.Nov 27 2020-16:39:54");
    EXPECT_EQ(std::strlen(buf), 43u);

    std::memset(buf, 'x', sizeof buf);
    DrlibVerInfo(buf, 12);
    EXPECT_STREQ(buf, "VelkarDrLib");
    EXPECT_EQ(buf[12], 'x');  // nothing beyond the given size

    std::memset(buf, 'x', sizeof buf);
    DrlibVerInfo(buf, 44);  // exactly enough room
    EXPECT_EQ(std::string(buf), "VelkarDrLib 4.4.06f71e.Nov 27 2020-16:39:54");

    std::memset(buf, 'x', sizeof buf);
    DrlibVerInfo(buf, 0);
    DrlibVerInfo(buf, -5);
    EXPECT_EQ(buf[0], 'x');
    DrlibVerInfo(nullptr, 10);  // no crash
}

TEST(ApiConfig, NullConfigGivesDefaults) {
    DrCfg junk = CfgWithBiasCode(1.001, 2.0, 3.0);
    junk.mount_rph[0] = 0.01;
    DrlibInit(&junk);
    g_level_arm_b[0] = 5.0;
    DrlibInit(nullptr);
    EXPECT_EQ(std::memcmp(&drlib::drcfg, &drlib::drcfg16470, sizeof(DrCfg)), 0);
    EXPECT_EQ(drlib::drcfg.bias_store_mode, 4u);
    EXPECT_EQ(drlib::drcfg.gyro_scale, 1.0058283805847168e-06);
    EXPECT_EQ(drlib::drcfg.acc_scale, 1.862645149230957e-07);
    EXPECT_EQ(g_BgFromCfg, nullptr);
    EXPECT_TRUE(IsIdentity(s_cub.dcm));
    EXPECT_EQ(g_level_arm_b[0], -0.03404);
    EXPECT_EQ(g_level_arm_b[1], -0.05097);
    EXPECT_EQ(g_level_arm_b[2], -0.01432);
    EXPECT_EQ(drlib::bLibInited, 1);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
}

TEST(ApiConfig, StoredGyroBiasIsRecognisedOnlyWithinItsBand) {
    DrCfg cfg = CfgWithBiasCode(1.001, 2.0, 3.0);
    DrlibInit(&cfg);
    ASSERT_NE(g_BgFromCfg, nullptr);
    EXPECT_EQ(g_BgFromCfg, drlib::drcfg.gyro_bias_code);  // the library's copy, not the host's
    EXPECT_NEAR(g_BgFromCfg[0] - 1.0, 0.001, 1e-15);

    cfg = CfgWithBiasCode(1.0035, 2.0, 3.0);  // 0.2 deg/s is 0.00349...: just outside
    DrlibInit(&cfg);
    EXPECT_EQ(g_BgFromCfg, nullptr);
    cfg = CfgWithBiasCode(1.0, 2.0, 2.9965);
    DrlibUpdateCfg(&cfg);
    EXPECT_EQ(g_BgFromCfg, nullptr);
    DrCfg zeros;
    std::memset(&zeros, 0, sizeof zeros);
    DrlibUpdateCfg(&zeros);
    EXPECT_EQ(g_BgFromCfg, nullptr);
    cfg = CfgWithBiasCode(0.9966, 2.0034, 3.0);
    DrlibUpdateCfg(&cfg);
    EXPECT_NE(g_BgFromCfg, nullptr);
}

TEST(ApiConfig, MountingAnglesBuildTheRotationOnlyBelowTheLimit) {
    DrCfg cfg = drlib::drcfg16470;
    cfg.mount_rph[0] = 0.02;
    cfg.mount_rph[1] = -0.02;
    cfg.mount_rph[2] = 0.02;
    DrlibInit(&cfg);
    // Rz(h) Ry(p) Rx(r) of the configured angles, written out.
    const double r = 0.02, p = -0.02, h = 0.02;
    EXPECT_NEAR(s_cub.dcm[2], std::cos(h) * std::sin(p) * std::cos(r) + std::sin(h) * std::sin(r), 1e-12);
    EXPECT_NEAR(s_cub.dcm[6], -std::sin(p), 1e-12);
    EXPECT_NEAR(s_cub.dcm[7], std::cos(p) * std::sin(r), 1e-12);
    EXPECT_NEAR(s_cub.dcm[3], std::sin(h) * std::cos(p), 1e-12);

    cfg.mount_rph[2] = 0.021;  // one angle beyond 1.2 deg: no mounting at all
    DrlibUpdateCfg(&cfg);
    EXPECT_TRUE(IsIdentity(s_cub.dcm));
    cfg.mount_rph[2] = -0.020943951023931952;  // the limit itself is out
    DrlibUpdateCfg(&cfg);
    EXPECT_TRUE(IsIdentity(s_cub.dcm));
}

TEST(ApiConfig, UpdateCfgKeepsCallbackHistoryAndEngine) {
    DrlibInit(nullptr);
    DrlibRegisterCB(CountTilt);
    g_FusionInNum = 25;
    g_FusionInPos = 77;
    s_FltState = FLT_STATE_CONV;
    DrCfg cfg = CfgWithBiasCode(1.001, 2.0, 3.0);
    DrlibUpdateCfg(&cfg);
    EXPECT_EQ(drlib::tiltUpdateCB, &CountTilt);
    EXPECT_EQ(g_FusionInNum, 25u);
    EXPECT_EQ(g_FusionInPos, 77u);
    EXPECT_EQ(s_FltState, FLT_STATE_CONV);
    EXPECT_NE(g_BgFromCfg, nullptr);
    // Initialisation, in contrast, starts afresh and forgets the callback.
    DrlibReset();
    DrlibInit(nullptr);
    EXPECT_EQ(drlib::tiltUpdateCB, nullptr);
    EXPECT_EQ(drlib::bResetNotice, 0);
    EXPECT_EQ(g_FusionInNum, 0u);
    EXPECT_EQ(g_FusionInPos, 0u);
    EXPECT_EQ(drlib::ImuDataWPos, 0u);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
}

TEST(ApiConfig, PoleLeverIsStoredNegatedAndSurvivesInit) {
    const double v[3] = {0.1, -0.2, 1.5};
    DrlibSetHwCfg(v);
    EXPECT_EQ(drlib::hwcfg.lever[0], -0.1);
    EXPECT_EQ(drlib::hwcfg.lever[1], 0.2);
    EXPECT_EQ(drlib::hwcfg.lever[2], -1.5);
    EXPECT_EQ(DrlibSetHwCfg(nullptr), 0);
    EXPECT_EQ(drlib::hwcfg.lever[2], -1.5);
    DrlibInit(nullptr);
    EXPECT_EQ(drlib::hwcfg.lever[2], -1.5);
    const double standard[3] = {0.0, 0.0, 1.892};
    DrlibSetHwCfg(standard);
}

TEST(ApiCalibStart, TargetFloorCallbackAndStop) {
    DrlibInit(nullptr);
    const double ref[3] = {-2.0e6, 4.0e6, 4.2e6};
    const time_t before = time(nullptr);
    DrlibCalibStart(ref, 500, NoteCalib);
    const CubFilter *cub = get_cub_flt();
    EXPECT_EQ(cub, &FltCub);
    EXPECT_EQ(cub->target, 1200u);
    EXPECT_EQ(cub->enabled, 1u);
    EXPECT_EQ(cub->running, 1u);
    EXPECT_EQ(cub->count, 0u);
    EXPECT_EQ(cub->last_percent, 0u);
    EXPECT_EQ(cub->callback, &NoteCalib);
    EXPECT_EQ(std::memcmp(cub->ref_pos, ref, sizeof ref), 0);
    EXPECT_GE(cub->start_time, static_cast<int32_t>(before));
    EXPECT_LE(cub->start_time, static_cast<int32_t>(time(nullptr)));

    DrlibCalibStart(ref, 3000, nullptr);
    EXPECT_EQ(cub->target, 3000u);
    EXPECT_EQ(cub->callback, nullptr);

    DrlibCalibStart(nullptr, 3000, NoteCalib);
    EXPECT_EQ(cub->enabled, 0u);
    EXPECT_EQ(cub->running, 0u);
    EXPECT_EQ(cub->target, 3000u);  // a stop touches nothing else

    DrlibCalibStart(ref, 1200, NoteCalib);
    DrFusionReset();  // any engine reset ends a calibration, silently
    EXPECT_EQ(cub->enabled, 0u);
    EXPECT_EQ(cub->running, 0u);
}

TEST(ApiLifecycle, IgnoredFunctionsAndCallsBeforeInit) {
    EXPECT_EQ(DrlibUpdateDiffData(1, 2, 3), 0u);
    EXPECT_EQ(DrlibUpdateLogBin(1, 2), 0u);
    DrlibSetCoord(7);
    EXPECT_EQ(DrlibRegisterCB(nullptr), 0u);
    EXPECT_EQ(DrlibReset(), 0u);

    DrlibInit(nullptr);
    DrCfg cfg = drlib::drcfg16470;
    EXPECT_EQ(DrlibDestroy(&cfg), 0);
    EXPECT_EQ(drlib::bLibInited, 0);
    unsigned char rec[DRLIB_INPUT_SIZE(10)] = {};
    g_tilt_calls = 0;
    DrlibRegisterCB(CountTilt);
    const uint32_t pos = g_FusionInPos;
    EXPECT_EQ(DrlibUpdateFusion(reinterpret_cast<const DrInput *>(rec)), 1u);
    EXPECT_EQ(g_FusionInPos, pos);
    EXPECT_EQ(g_tilt_calls, 0);
    EXPECT_EQ(DrlibDestroy(nullptr), 0);
}

TEST(ApiBiasStore, DestroyWritesOnlyInModeThree) {
    DrCfg host = CfgWithBiasCode(1.001, 2.002, 2.999);
    DrlibInit(&host);
    host.bias_store_mode = 4;
    DrCfg before = host;
    DrlibDestroy(&host);
    EXPECT_EQ(std::memcmp(&host, &before, sizeof host), 0);

    // Mode 3 outside the main state hands the configured code back unchanged.
    DrlibInit(&host);
    host.bias_store_mode = 3;
    host.gyro_bias_code[0] = 0.0;
    DrlibDestroy(&host);
    EXPECT_EQ(host.gyro_bias_code[0], 1.001);
    EXPECT_EQ(host.gyro_bias_code[1], 2.002);
    EXPECT_EQ(host.gyro_bias_code[2], 2.999);

    // Without a configured code it writes zeros, which the next load refuses.
    DrlibInit(nullptr);
    DrlibDestroy(&host);
    EXPECT_EQ(host.gyro_bias_code[0], 0.0);
    EXPECT_EQ(host.gyro_bias_code[2], 0.0);
    EXPECT_EQ(host.bias_store_mode, 3u);
    DrlibInit(&host);
    EXPECT_EQ(g_BgFromCfg, nullptr);
}

}  // namespace
