// Tilt status composition, the mounting calibration filter and the gyro-bias
// store, on engine states set up by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "dr_entry.h"
#include "dr_fusion_state.h"
#include "dr_global_var.h"
#include "drlib_toolkit.h"

namespace {

// Main state with level attitude, an Earth frame equal to n, identity
// mounting and a factor diag(0.1, 0.1, 0.1, att_std, then 1e-4 for the biases).
void SetMainState(const double att_std[3], int dim = 6) {
    DrlibInit(nullptr);
    s_FltState = FLT_STATE_MAIN;
    gen_eye3d(NavMain.cbn);
    gen_eye3d(NavMain.cne);
    NavMain.rph[2] = 3.0;
    std::memset(&FltMain, 0, sizeof FltMain);
    FltMain.state_dim = static_cast<uint8_t>(dim);
    for (int i = 0; i < dim; ++i) FltMain.L[gk_L_start[i] + i] = i < 3 ? 0.1 : i < 6 ? att_std[i - 3] : 1e-4;
    // Two history entries: the previous one and the newest.
    g_FusionInPos = 2;
    g_FusionInNum = 2;
    for (uint32_t k = 0; k < 2; ++k) {
        DrInput &h = g_FusionInBuf[k].header;
        std::memset(&h, 0, sizeof h);
        h.tow_ms = 1000u + 100u * k;
        h.pos[0] = 10.0 * k;
        for (int i = 0; i < 3; ++i) h.pos_std[i] = 0.01f * static_cast<float>(i + 1);
    }
}

// Classes on the summed tip variance (a vertical unit lever: 3 P on each
// horizontal axis), class 0 (NaN included) sending the engine back to idle;
// the tip is the antenna 60 ms before the newest tag (0.4 of the newest, 0.6
// of the previous) plus the lever through mounting, attitude and Earth frame.
TEST(TiltStatus, QualityClassesAndTheTipThroughMountingAttitudeAndEarthFrame) {
    const double down[3] = {0.0, 0.0, -1.0};
    const struct { double sum; int status; } cases[] = {{0.000143, 1}, {0.000145, 2}, {0.0035, 2}, {0.0037, 3},
                                                         {0.1224, 3},   {0.1226, 0},   {NAN, 0}};
    for (const auto &c : cases) {
        const double s = std::sqrt(c.sum / 6.0), att[3] = {s, s, 0.3};
        SetMainState(att);
        TiltStat st;
        ComposeTiltStat(&st, down);
        EXPECT_EQ(st.status, c.status) << c.sum;
        EXPECT_EQ(s_FltState, c.status == 0 ? FLT_STATE_IDLE : FLT_STATE_MAIN) << c.sum;
        const double var = double(st.tip_std[0]) * st.tip_std[0] + double(st.tip_std[1]) * st.tip_std[1];
        EXPECT_TRUE(c.status == 0 || std::fabs(var - c.sum) < c.sum * 1e-6) << c.sum;
    }
    const double att[3] = {0.001, 0.002, 0.003}, lever[3] = {0.1, 0.2, -1.5};
    SetMainState(att);
    const double mount_rph[3] = {0.01, -0.015, 0.005}, body_rph[3] = {3.0, 0.3, 1.0}, llh[3] = {0.5, 2.0, 0.0};
    config_cub(mount_rph);
    double q[4], l_b[3], l_n[3], l_e[3];
    rph2qbn(q, body_rph);
    quat2dcm(NavMain.cbn, q);
    llh2cne(NavMain.cne, llh);
    TiltStat st;
    ComposeTiltStat(&st, lever);
    EXPECT_TRUE(st.tow_ms == 1100u && st.att[2] == 3.0);
    mtx_mul_vect_3d(l_b, s_cub.dcm, lever);
    mtx_mul_vect_3d(l_n, NavMain.cbn, l_b);
    mtx_mul_vect_3d(l_e, NavMain.cne, l_n);
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(st.tip_pos[i], (i == 0 ? 4.0 : 0.0) + l_e[i], 1e-12);
        EXPECT_EQ(st.tip_std_total[i], st.tip_std[i] + 0.01f * static_cast<float>(i + 1));
    }
}

// The tip error of an attitude error psi is l x psi: its variance on each
// axis, from the dense attitude covariance, times three.
TEST(TiltStatus, PoleVarianceIsThreeTimesTheRotatedAttitudeCovariance) {
    KfFilter f;
    std::memset(&f, 0, sizeof f);
    f.state_dim = 12;
    for (int k = 0; k < 78; ++k) f.L[k] = 0.05 * std::sin(1.7 * k + 0.3);
    const double l[3] = {0.3, -0.2, 1.8};
    double var[3];
    CalcKFVarPole_n(var, l, &f);
    auto L = [&f](int i, int j) { return j <= i ? f.L[gk_L_start[i] + j] : 0.0; };
    const double m[3][3] = {{0, -l[2], l[1]}, {l[2], 0, -l[0]}, {-l[1], l[0], 0}};
    for (int i = 0; i < 3; ++i) {
        double s = 0.0;
        for (int a = 0; a < 3; ++a)
            for (int b = 0; b < 3; ++b)
                for (int k = 0; k < 12; ++k) s += m[i][a] * L(3 + a, k) * L(3 + b, k) * m[i][b];
        EXPECT_NEAR(var[i], 3.0 * s, 1e-15);
    }
}

struct Note { uint32_t code, len, percent; double result[3]; };
std::vector<Note> g_notes;

void OnCalib(uint32_t code, const void *data, uint32_t len) {
    Note n{code, len, 0, {0, 0, 0}};
    if (code == 1) std::memcpy(&n.percent, data, sizeof n.percent);
    if (code == 0) std::memcpy(n.result, data, sizeof n.result);
    g_notes.push_back(n);
}

class Calibration : public ::testing::Test {
protected:
    void SetUp() override { Start(0.0, 0.0, 0.0); }
    void Start(double r, double p, double h) {
        const double att[3] = {0.001, 0.001, 0.001};
        SetMainState(att);  // body = n = e: the tip is ant + mount * pole
        g_notes.clear();
        const double rph[3] = {r, p, h};
        double q[4];
        rph2qbn(q, rph);
        quat2dcm(mount_, q);
        DrlibCalibStart(kRef, 1200, OnCalib);
    }
    // A tip standing exactly on the point with the IMU mounted by mount_.
    void Steps(int n, float std_m = 0.01f) {
        double tip_off[3];
        mtx_mul_vect_3d(tip_off, mount_, pole_);
        const double ant[3] = {kRef[0] - tip_off[0], kRef[1] - tip_off[1], kRef[2] - tip_off[2]};
        const float sd[3] = {std_m, std_m, std_m};
        for (int i = 0; i < n; ++i) CubFltProc(pole_, ant, sd);
    }
    static constexpr double kRef[3] = {100.0, -200.0, 50.0};
    double mount_[9];
    double pole_[3] = {0.0, 0.0, -1.892};
};
constexpr double Calibration::kRef[3];

TEST_F(Calibration, PoorFixRestartsMisclosureGateAndTimeLimit) {
    Steps(23);
    EXPECT_EQ(g_notes.back().percent, 2u);
    Steps(1, 0.025f);  // float nearest 0.025 lies above it: rejected
    EXPECT_EQ(FltCub.count, 0u);
    Steps(1, 0.0249f);
    EXPECT_TRUE(FltCub.count == 2u && g_notes.back().percent == 0u);

    Start(0.0, 0.0, 0.0);
    pole_[2] = 0.0;  // the misclosure is then ant - ref exactly
    const float sd[3] = {0.01f, 0.01f, 0.01f};
    FltCub.ref_pos[0] = FltCub.ref_pos[1] = FltCub.ref_pos[2] = 0.0;
    const double at_limit[3] = {0.06, 0.0, -0.06}, just_over[3] = {0.0, 0.0, -0.0600001};
    CubFltProc(pole_, at_limit, sd);
    EXPECT_EQ(FltCub.count, 2u);
    CubFltProc(pole_, just_over, sd);
    EXPECT_EQ(FltCub.count, 0u);

    // The time limit is checked on accepted steps only.
    Start(0.0, 0.0, 0.0);
    pole_[2] = -1.892;
    Steps(20);
    FltCub.start_time -= 241;  // the 240 s of a 1200-update calibration have passed
    g_notes.clear();
    Steps(3, 0.03f);  // rejected: no verdict
    EXPECT_TRUE(g_notes.empty());
    Steps(1);
    ASSERT_EQ(g_notes.size(), 1u);
    EXPECT_TRUE(g_notes[0].code == 2u && g_notes[0].len == 0u && FltCub.running == 0u);
    // The last update still reports its result after the limit.
    Start(0.002, 0.0, 0.0);
    Steps(1198);
    FltCub.start_time -= 1000;
    Steps(1);
    EXPECT_EQ(g_notes.back().code, 0u);
}

// Progress 1..99 %, then the result once and nothing after. A pole along body
// x makes heading observable; the report carries 0.3 of it. Every reported
// angle is limited to 1.08 deg.
TEST_F(Calibration, ProgressThenTheLimitedAndHeadingScaledResult) {
    const double limit = 0.01884955592153876, deg = M_PI / 180.0;
    const struct { double rph[3], pole_x, pole_z, want[3]; } cases[] = {
        {{0.004, -0.003, 0.0}, 0.0, -1.892, {0.004, -0.003, 0.0}},
        {{0.0, 0.0, 2.0 * deg}, 0.5, 0.0, {NAN, 0.0, 0.6 * deg}},  // roll about the pole is unobservable
        {{0.0, 0.0, 5.0 * deg}, 0.5, 0.0, {NAN, 0.0, limit}},
        {{-1.5 * deg, 0.01, 0.0}, 0.0, -1.0, {-limit, 0.01, NAN}},
    };
    for (const auto &c : cases) {
        Start(c.rph[0], c.rph[1], c.rph[2]);
        pole_[0] = c.pole_x;
        pole_[2] = c.pole_z;
        Steps(1199);
        ASSERT_EQ(g_notes.size(), 100u);
        for (uint32_t k = 0; k < 99; ++k) EXPECT_TRUE(g_notes[k].code == 1u && g_notes[k].percent == k + 1) << k;
        const Note &res = g_notes.back();
        ASSERT_TRUE(res.code == 0u && res.len == 24u);
        for (int i = 0; i < 3; ++i) EXPECT_TRUE(std::isnan(c.want[i]) || std::fabs(res.result[i] - c.want[i]) < 2e-5) << i;
        Steps(5);
        EXPECT_EQ(g_notes.size(), 100u);
    }
}

// Gyro-bias store: offset by the axis number, clamped to 0.18 deg/s, and
// only from a main filter that knows its bias well.

TEST(BiasStore, EncodedClampedAndAcceptedBackElseTheCodeOrZeros) {
    const double att[3] = {0.001, 0.001, 0.001};
    SetMainState(att, 12);
    const double bias[3] = {0.01, -0.001, -0.02};
    std::memcpy(FltMain.gyro_bias, bias, sizeof bias);
    double out[3];
    bwxyz_store(out);
    EXPECT_TRUE(out[0] == 1.0031415926535898 && out[1] == -0.001 + 2.0 && out[2] == 2.9968584073464104);
    DrCfg cfg = drlib::drcfg16470;
    std::memcpy(cfg.gyro_bias_code, out, sizeof out);
    DrlibUpdateCfg(&cfg);
    EXPECT_NE(g_BgFromCfg, nullptr);

    SetMainState(att, 12);
    FltMain.gyro_bias[0] = 0.001;
    FltMain.L[gk_L_start[11] + 10] = 0.001;  // variance of state 11 now above (0.05 deg/s)^2
    bwxyz_store(out);
    EXPECT_TRUE(out[0] == 0.0 && out[2] == 0.0);
    const double code[3] = {1.0005, 2.0, 3.0};
    std::memcpy(cfg.gyro_bias_code, code, sizeof code);
    DrlibUpdateCfg(&cfg);
    bwxyz_store(out);
    EXPECT_EQ(out[0], 1.0005);
    FltMain.L[gk_L_start[11] + 10] = 0.0;
    FltMain.state_dim = 6;  // a six-state filter has learned no bias, however well it knows it
    bwxyz_store(out);
    EXPECT_EQ(out[0], 1.0005);
}

}  // namespace
