// Tilt status composition, the mounting calibration filter and the gyro-bias
// store, on engine states set up by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <ctime>
#include <vector>

#include "dr_entry.h"
#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "drlib.h"

namespace {

void SetIdentity(double *m) {
    static const double kI[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    std::memcpy(m, kI, sizeof kI);
}

// Main state with level attitude, an Earth frame equal to n, identity
// mounting and a six-state factor diag(0.1, 0.1, 0.1, att_std).
void SetMainState(const double att_std[3]) {
    DrlibInit(nullptr);
    s_FltState = FLT_STATE_MAIN;
    SetIdentity(NavMain.cbn);
    SetIdentity(NavMain.cne);
    NavMain.rph[0] = 0.1;
    NavMain.rph[1] = -0.2;
    NavMain.rph[2] = 3.0;
    std::memset(&FltMain, 0, sizeof FltMain);
    FltMain.state_dim = 6;
    for (int i = 0; i < 3; ++i) {
        FltMain.L[gk_L_start[i] + i] = 0.1;
        FltMain.L[gk_L_start[3 + i] + 3 + i] = att_std[i];
    }
    // Two history entries: the previous one and the newest.
    g_FusionInPos = 2;
    g_FusionInNum = 2;
    for (uint32_t k = 0; k < 2; ++k) {
        DrInput &h = g_FusionInBuf[k].header;
        std::memset(&h, 0, sizeof h);
        h.version = 4;
        h.pos_type = 0x32;
        h.vel_type = 0x11;
        h.tow_ms = 1000u + 100u * k;
        h.pos[0] = 10.0 * k;
        h.vel[1] = 0.25;
        for (int i = 0; i < 3; ++i) {
            h.pos_std[i] = 0.01f * static_cast<float>(i + 1);
            h.vel_std[i] = 0.02f;
        }
    }
}

// Attitude deviations that give a summed tip variance of var_sum with a
// vertical unit lever (tip variance 3 P on each horizontal axis).
void SetTipVarianceSum(double var_sum) {
    const double s = std::sqrt(var_sum / 6.0);
    const double att[3] = {s, s, 0.3};
    SetMainState(att);
}

TEST(TiltStatus, QualityClassesFollowTheTipVarianceSum) {
    const double lever[3] = {0.0, 0.0, -1.0};
    const struct {
        double sum;
        int status;
    } cases[] = {{0.000143, 1}, {0.000145, 2}, {0.0035, 2}, {0.0037, 3}, {0.1224, 3}, {0.1226, 0}};
    for (const auto &c : cases) {
        SetTipVarianceSum(c.sum);
        TiltStat st;
        ComposeTiltStat(&st, lever);
        EXPECT_EQ(st.status, c.status) << c.sum;
        EXPECT_EQ(s_FltState, c.status == 0 ? FLT_STATE_IDLE : FLT_STATE_MAIN) << c.sum;
        EXPECT_NEAR(static_cast<double>(st.tip_std[0]) * st.tip_std[0] +
                        static_cast<double>(st.tip_std[1]) * st.tip_std[1],
                    c.sum, c.sum * 1e-6);
        EXPECT_EQ(st.tip_std[2], 0.0f);  // a vertical lever hides heading errors
    }
    SetTipVarianceSum(std::nan(""));
    TiltStat st;
    ComposeTiltStat(&st, lever);
    EXPECT_EQ(st.status, 0);
    EXPECT_EQ(s_FltState, FLT_STATE_IDLE);
}

TEST(TiltStatus, MainStateRecordInterpolatesTheAntennaAndAddsDeviations) {
    const double att[3] = {0.001, 0.002, 0.003};
    SetMainState(att);
    const double no_lever[3] = {0.0, 0.0, 0.0};
    TiltStat st;
    ComposeTiltStat(&st, no_lever);
    EXPECT_EQ(st.version, 2);
    EXPECT_EQ(st.status, 1);  // no lever, no tip uncertainty
    EXPECT_EQ(st.tow_ms, 1100u);
    EXPECT_EQ(st.pos_type, 0x32);
    EXPECT_EQ(st.vel_type, 0x11);
    // 60 ms before the newest tag: 0.4 of the newest, 0.6 of the previous.
    EXPECT_EQ(st.tip_pos[0], 4.0);
    EXPECT_EQ(st.tip_pos[1], 0.0);
    EXPECT_EQ(st.vel[1], 0.25);
    EXPECT_EQ(st.att[0], 0.1);
    EXPECT_EQ(st.att[2], 3.0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(st.tip_std[i], 0.0f);
        EXPECT_EQ(st.tip_std_total[i], 0.01f * static_cast<float>(i + 1));
        EXPECT_EQ(st.vel_std[i], 0.02f);
    }

    // A lever through mounting, attitude and Earth frame in that order.
    const double lever[3] = {0.1, 0.2, -1.5};
    const double mount_rph[3] = {0.01, -0.015, 0.005};
    config_cub(mount_rph);
    const double body_rph[3] = {3.0, 0.3, 1.0};
    double q[4];
    rph2qbn(q, body_rph);
    quat2dcm(NavMain.cbn, q);
    const double llh[3] = {0.5, 2.0, 0.0};
    llh2cne(NavMain.cne, llh);
    ComposeTiltStat(&st, lever);
    double l_b[3], l_n[3], l_e[3];
    mtx_mul_vect_3d(l_b, s_cub.dcm, lever);
    mtx_mul_vect_3d(l_n, NavMain.cbn, l_b);
    mtx_mul_vect_3d(l_e, NavMain.cne, l_n);
    EXPECT_NEAR(st.tip_pos[0], 4.0 + l_e[0], 1e-12);
    EXPECT_NEAR(st.tip_pos[1], l_e[1], 1e-12);
    EXPECT_NEAR(st.tip_pos[2], l_e[2], 1e-12);
    // The tip stays one lever length from the antenna.
    EXPECT_NEAR(std::hypot(st.tip_pos[0] - 4.0, std::hypot(st.tip_pos[1], st.tip_pos[2])),
                std::sqrt(0.01 + 0.04 + 2.25), 1e-12);
    // Total deviation: single-precision sum of the two parts.
    for (int i = 0; i < 3; ++i) EXPECT_EQ(st.tip_std_total[i], st.tip_std[i] + 0.01f * static_cast<float>(i + 1));
}

TEST(TiltStatus, PoleVarianceIsThreeTimesTheRotatedAttitudeCovariance) {
    KfFilter f;
    std::memset(&f, 0, sizeof f);
    f.state_dim = 12;
    unsigned seed = 7;
    auto rnd = [&seed]() {
        seed = seed * 1103515245u + 12345u;
        return static_cast<double>((seed >> 8) & 0xffff) / 65536.0 - 0.5;
    };
    for (int k = 0; k < 78; ++k) f.L[k] = 0.05 * rnd();
    const double l[3] = {0.3, -0.2, 1.8};
    double var[3];
    CalcKFVarPole_n(var, l, &f);
    // Dense P of the attitude block and the tip error l x psi.
    auto L = [&f](int i, int j) { return j <= i ? f.L[gk_L_start[i] + j] : 0.0; };
    double p[3][3];
    for (int a = 0; a < 3; ++a) {
        for (int b = 0; b < 3; ++b) {
            p[a][b] = 0.0;
            for (int k = 0; k < 12; ++k) p[a][b] += L(3 + a, k) * L(3 + b, k);
        }
    }
    const double m[3][3] = {{0, -l[2], l[1]}, {l[2], 0, -l[0]}, {-l[1], l[0], 0}};
    for (int i = 0; i < 3; ++i) {
        double s = 0.0;
        for (int a = 0; a < 3; ++a) {
            for (int b = 0; b < 3; ++b) s += m[i][a] * p[a][b] * m[i][b];
        }
        EXPECT_NEAR(var[i], 3.0 * s, 1e-15);
    }
}

// ---------------------------------------------------------------------------
// Mounting calibration

struct Note {
    uint32_t code;
    uint32_t len;
    uint32_t percent;
    double result[3];
};
std::vector<Note> g_notes;

void OnCalib(uint32_t code, const void *data, uint32_t len) {
    Note n{code, len, 0, {0, 0, 0}};
    if (code == 1) std::memcpy(&n.percent, data, sizeof n.percent);
    if (code == 0) std::memcpy(n.result, data, sizeof n.result);
    if (code == 2) {
        EXPECT_EQ(data, nullptr);
    }
    g_notes.push_back(n);
}

// Rz(h) Ry(p) Rx(r), written out.
void Rotation(double *c, double r, double p, double h) {
    const double cr = std::cos(r), sr = std::sin(r), cp = std::cos(p), sp = std::sin(p);
    const double ch = std::cos(h), sh = std::sin(h);
    const double m[9] = {ch * cp, ch * sp * sr - sh * cr, ch * sp * cr + sh * sr,
                         sh * cp, sh * sp * sr + ch * cr, sh * sp * cr - ch * sr,
                         -sp,     cp * sr,                cp * cr};
    std::memcpy(c, m, sizeof m);
}

class Calibration : public ::testing::Test {
protected:
    void SetUp() override {
        const double att[3] = {0.001, 0.001, 0.001};
        SetMainState(att);  // body = n = e: the tip is ant + mount * pole
        g_notes.clear();
        DrlibCalibStart(kRef, 1200, OnCalib);
    }
    // A tip standing exactly on the point with the IMU mounted by `mount`.
    void Steps(int n, const double *pole, const double *mount, float std_m = 0.01f) {
        double tip_off[3];
        mtx_mul_vect_3d(tip_off, mount, pole);
        const double ant[3] = {kRef[0] - tip_off[0], kRef[1] - tip_off[1], kRef[2] - tip_off[2]};
        const float sd[3] = {std_m, std_m, std_m};
        for (int i = 0; i < n; ++i) CubFltProc(pole, ant, sd);
    }
    static constexpr double kRef[3] = {100.0, -200.0, 50.0};
};
constexpr double Calibration::kRef[3];

TEST_F(Calibration, ProgressInOrderThenTheResult) {
    double mount[9];
    Rotation(mount, 0.004, -0.003, 0.0);
    const double pole[3] = {0.0, 0.0, -1.892};
    Steps(1199, pole, mount);
    ASSERT_EQ(g_notes.size(), 100u);
    for (uint32_t k = 0; k < 99; ++k) {
        EXPECT_EQ(g_notes[k].code, 1u);
        EXPECT_EQ(g_notes[k].len, 4u);
        EXPECT_EQ(g_notes[k].percent, k + 1);
    }
    const Note &res = g_notes.back();
    EXPECT_EQ(res.code, 0u);
    EXPECT_EQ(res.len, 24u);
    EXPECT_NEAR(res.result[0], 0.004, 2e-5);
    EXPECT_NEAR(res.result[1], -0.003, 2e-5);
    EXPECT_NEAR(res.result[2], 0.0, 2e-5);
    EXPECT_EQ(FltCub.running, 0u);
    EXPECT_EQ(FltCub.enabled, 1u);
    Steps(5, pole, mount);  // finished: nothing more happens
    EXPECT_EQ(g_notes.size(), 100u);
}

TEST_F(Calibration, FirstProgressAtTheTwelfthUpdateAndRestartReportsZero) {
    double mount[9];
    Rotation(mount, 0.0, 0.0, 0.0);
    const double pole[3] = {0.0, 0.0, -1.0};
    Steps(10, pole, mount);  // count 11: still 0 %
    EXPECT_TRUE(g_notes.empty());
    Steps(1, pole, mount);
    ASSERT_EQ(g_notes.size(), 1u);
    EXPECT_EQ(g_notes[0].percent, 1u);
    Steps(12, pole, mount);
    EXPECT_EQ(g_notes.back().percent, 2u);
    Steps(1, pole, mount, 0.025f);  // float nearest 0.025 lies above it: rejected
    EXPECT_EQ(FltCub.count, 0u);
    Steps(1, pole, mount, 0.0249f);
    EXPECT_EQ(FltCub.count, 2u);
    EXPECT_EQ(g_notes.back().percent, 0u);
}

TEST_F(Calibration, MisclosureGateIsInclusive) {
    const double no_pole[3] = {0.0, 0.0, 0.0};  // the misclosure is then ant - ref exactly
    const float sd[3] = {0.01f, 0.01f, 0.01f};
    FltCub.ref_pos[0] = FltCub.ref_pos[1] = FltCub.ref_pos[2] = 0.0;
    const double over[3] = {0.0, 0.0625, 0.0};
    CubFltProc(no_pole, over, sd);
    EXPECT_EQ(FltCub.count, 0u);
    const double at_limit[3] = {0.06, 0.0, -0.06};
    CubFltProc(no_pole, at_limit, sd);
    EXPECT_EQ(FltCub.count, 2u);
    const double just_over[3] = {0.0, 0.0, -0.0600001};
    CubFltProc(no_pole, just_over, sd);
    EXPECT_EQ(FltCub.count, 0u);
}

TEST_F(Calibration, ReportedAnglesAreLimitedAndHeadingScaled) {
    const double limit = 0.01884955592153876;
    double mount[9];
    // Pole along body x: heading and pitch are observable.
    const double pole_x[3] = {0.5, 0.0, 0.0};
    Rotation(mount, 0.0, 0.0, 2.0 * M_PI / 180.0);
    Steps(1199, pole_x, mount);
    ASSERT_EQ(g_notes.back().code, 0u);
    EXPECT_NEAR(g_notes.back().result[2], 0.3 * 2.0 * M_PI / 180.0, 1e-4);

    g_notes.clear();
    DrlibCalibStart(kRef, 1200, OnCalib);
    Rotation(mount, 0.0, 0.0, 5.0 * M_PI / 180.0);
    Steps(1199, pole_x, mount);
    ASSERT_EQ(g_notes.back().code, 0u);
    EXPECT_EQ(g_notes.back().result[2], limit);  // 0.3 x 5 deg = 1.5 deg

    g_notes.clear();
    DrlibCalibStart(kRef, 1200, OnCalib);
    const double pole_z[3] = {0.0, 0.0, -1.0};
    Rotation(mount, -1.5 * M_PI / 180.0, 0.01, 0.0);
    Steps(1199, pole_z, mount);
    ASSERT_EQ(g_notes.back().code, 0u);
    EXPECT_EQ(g_notes.back().result[0], -limit);
    EXPECT_NEAR(g_notes.back().result[1], 0.01, 1e-4);
}

TEST_F(Calibration, TimeLimitIsCheckedOnAcceptedStepsOnly) {
    double mount[9];
    Rotation(mount, 0.0, 0.0, 0.0);
    const double pole[3] = {0.0, 0.0, -1.0};
    Steps(20, pole, mount);
    FltCub.start_time -= 241;  // the 240 s of a 1200-update calibration have passed
    g_notes.clear();
    Steps(3, pole, mount, 0.03f);  // rejected: no verdict
    EXPECT_TRUE(g_notes.empty());
    EXPECT_EQ(FltCub.running, 1u);
    Steps(1, pole, mount);
    ASSERT_EQ(g_notes.size(), 1u);
    EXPECT_EQ(g_notes[0].code, 2u);
    EXPECT_EQ(g_notes[0].len, 0u);
    EXPECT_EQ(FltCub.enabled, 0u);
    EXPECT_EQ(FltCub.running, 0u);
    Steps(5, pole, mount);
    EXPECT_EQ(g_notes.size(), 1u);
}

TEST_F(Calibration, LastUpdateAfterTheTimeLimitStillReportsTheResult) {
    double mount[9];
    Rotation(mount, 0.002, 0.0, 0.0);
    const double pole[3] = {0.0, 0.0, -1.0};
    Steps(1198, pole, mount);
    FltCub.start_time -= 1000;
    g_notes.clear();
    Steps(1, pole, mount);
    ASSERT_EQ(g_notes.size(), 1u);
    EXPECT_EQ(g_notes[0].code, 0u);
    EXPECT_NEAR(g_notes[0].result[0], 0.002, 2e-5);
}

// ---------------------------------------------------------------------------
// Gyro-bias store

TEST(BiasStore, MainFilterBiasIsEncodedAndClamped) {
    const double att[3] = {0.001, 0.001, 0.001};
    SetMainState(att);
    FltMain.state_dim = 12;
    for (int c = 0; c < 3; ++c) FltMain.L[gk_L_start[9 + c] + 9 + c] = 1e-4;
    FltMain.gyro_bias[0] = 0.01;    // beyond 0.18 deg/s: clamped
    FltMain.gyro_bias[1] = -0.001;
    FltMain.gyro_bias[2] = -0.02;
    double out[3];
    bwxyz_store(out);
    EXPECT_EQ(out[0], 1.0031415926535898);
    EXPECT_EQ(out[1], -0.001 + 2.0);
    EXPECT_EQ(out[2], 2.9968584073464104);
    // Every value it writes is accepted back as a configured bias.
    DrCfg cfg = drlib::drcfg16470;
    std::memcpy(cfg.gyro_bias_code, out, sizeof out);
    DrlibUpdateCfg(&cfg);
    EXPECT_NE(g_BgFromCfg, nullptr);
}

TEST(BiasStore, PoorlyKnownBiasFallsBackToTheConfiguredCodeOrZeros) {
    const double att[3] = {0.001, 0.001, 0.001};
    SetMainState(att);
    FltMain.state_dim = 12;
    FltMain.gyro_bias[0] = 0.001;
    for (int c = 0; c < 3; ++c) FltMain.L[gk_L_start[9 + c] + 9 + c] = 1e-4;
    FltMain.L[gk_L_start[11] + 10] = 0.001;  // variance of state 11 now above (0.05 deg/s)^2
    double out[3] = {9, 9, 9};
    bwxyz_store(out);
    EXPECT_EQ(out[0], 0.0);
    EXPECT_EQ(out[1], 0.0);
    EXPECT_EQ(out[2], 0.0);

    DrCfg cfg = drlib::drcfg16470;
    cfg.gyro_bias_code[0] = 1.0005;
    cfg.gyro_bias_code[1] = 2.0;
    cfg.gyro_bias_code[2] = 3.0;
    DrlibUpdateCfg(&cfg);
    bwxyz_store(out);
    EXPECT_EQ(out[0], 1.0005);
    EXPECT_EQ(out[2], 3.0);

    FltMain.L[gk_L_start[11] + 10] = 0.0;
    FltMain.state_dim = 6;  // a six-state filter has learned no bias
    bwxyz_store(out);
    EXPECT_EQ(out[0], 1.0005);
    FltMain.state_dim = 12;
    s_FltState = FLT_STATE_CONV;
    bwxyz_store(out);
    EXPECT_EQ(out[0], 1.0005);
    s_FltState = FLT_STATE_MAIN;
    bwxyz_store(out);
    EXPECT_EQ(out[0], 1.001);
}

}  // namespace
