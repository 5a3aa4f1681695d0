// Attitude and vector algebra: quaternion products, DCM and Euler
// conventions against elementary rotations, the branches of dcm2quat and
// dcm_theta on a 90-degree grid including gimbal lock, and the rotation
// vector's series/closed-form switch.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include "drlib.h"

namespace {

constexpr double kPi = 3.141592653589793;

void matmul3(double *out, const double *a, const double *b) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            out[3 * i + j] = 0.0;
            for (int k = 0; k < 3; ++k) out[3 * i + j] += a[3 * i + k] * b[3 * k + j];
        }
}

// cbn = Rz(heading) Ry(pitch) Rx(roll) from right-handed elementary rotations.
void euler_dcm(double *m, double roll, double pitch, double heading) {
    const double rx[9] = {1, 0, 0, 0, cos(roll), -sin(roll), 0, sin(roll), cos(roll)};
    const double ry[9] = {cos(pitch), 0, sin(pitch), 0, 1, 0, -sin(pitch), 0, cos(pitch)};
    const double rz[9] = {cos(heading), -sin(heading), 0, sin(heading), cos(heading), 0, 0, 0, 1};
    double t[9];
    matmul3(t, ry, rx);
    matmul3(m, rz, t);
}

void expect_dcm_near(const double *a, const double *b, double tol) {
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(a[i], b[i], tol) << "element " << i;
}

TEST(AttitudeQuaternion, HamiltonProductAndSignConvention) {
    const double i[4] = {0, 1, 0, 0}, j[4] = {0, 0, 1, 0};
    double r[4];
    quat_prod(r, i, j);  // i j = k
    EXPECT_EQ(r[0], 0.0);
    EXPECT_EQ(r[3], 1.0);
    quat_prod(r, i, i);  // -1, stored with the sign flipped
    EXPECT_EQ(r[0], 1.0);
    EXPECT_TRUE(r[1] == 0.0 && signbit(r[1]) && signbit(r[2]) && signbit(r[3]));
    // Chaining frames: DCM of p (x) q is DCM(p) DCM(q); aliasing gives the same bits.
    const double p[4] = {0.8, 0.1, -0.5, 0.3}, q[4] = {-0.2, 0.6, 0.4, 0.66};
    double pq[4], mp[9], mq[9], mpq[9], prod[9];
    quat_prod(pq, p, q);
    quat2dcm(mp, p);
    quat2dcm(mq, q);
    quat2dcm(mpq, pq);
    matmul3(prod, mp, mq);
    expect_dcm_near(mpq, prod, 1e-15);
    EXPECT_GE(pq[0], 0.0);
    double a[4], b[4];
    memcpy(a, p, sizeof a);
    memcpy(b, q, sizeof b);
    quat_prod(a, a, q);
    quat_prod(b, p, b);
    EXPECT_EQ(memcmp(a, pq, sizeof a), 0);
    EXPECT_EQ(memcmp(b, pq, sizeof b), 0);
    double n[4] = {1.01, 0, 0, 0};
    quat_norm(n);
    EXPECT_DOUBLE_EQ(n[0], 0.9998495);
}

TEST(AttitudeConventions, NinetyDegreeGridIncludingGimbalLock) {
    for (int r = -2; r <= 2; ++r)
        for (int p = -1; p <= 1; ++p)
            for (int h = 0; h < 4; ++h) {
                const double rph[3] = {r * kPi / 2.0, p * kPi / 2.0, h * kPi / 2.0};
                SCOPED_TRACE(testing::Message() << "roll " << r * 90 << " pitch " << p * 90
                                                << " heading " << h * 90);
                double ref[9], m[9], q[4], q2[4], m2[9], back[3], m3[9];
                euler_dcm(ref, rph[0], rph[1], rph[2]);
                rph2qbn(q, rph);
                quat2dcm(m, q);
                expect_dcm_near(m, ref, 1e-15);
                // Every branch of dcm2quat rebuilds the matrix, up to the quaternion's sign.
                dcm2quat(q2, ref);
                quat2dcm(m2, q2);
                expect_dcm_near(m2, ref, 1e-15);
                EXPECT_NEAR(fabs(q2[0] * q[0] + q2[1] * q[1] + q2[2] * q[2] + q2[3] * q[3]), 1.0,
                            1e-15);
                const double angle = 2.0 * atan2(sqrt(q[1] * q[1] + q[2] * q[2] + q[3] * q[3]),
                                                 fabs(q[0]));
                EXPECT_NEAR(dcm_theta(ref), angle, 1e-7);
                cbn2rph(back, ref);
                EXPECT_GE(back[2], 0.0);
                EXPECT_LT(back[2], 2.0 * kPi);
                euler_dcm(m3, back[0], back[1], back[2]);
                // At gimbal lock the floor on the roll row holds pitch 1e-5 short of 90 deg.
                expect_dcm_near(m3, ref, p == 0 ? 1e-15 : 2e-5);
            }
}

TEST(AttitudeConventions, BranchSelectionOfDcmToQuaternion) {
    struct Case { double m[9]; double q[4]; } cases[] = {
        {{1, 0, 0, 0, -1, 0, 0, 0, -1}, {0, 1, 0, 0}},   // x branch
        {{-1, 0, 0, 0, 1, 0, 0, 0, -1}, {0, 0, 1, 0}},   // y branch
        {{-1, 0, 0, 0, -1, 0, 0, 0, 1}, {0, 0, 0, 1}},   // z branch
        {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {1, 0, 0, 0}},     // trace branch
    };
    for (const auto &c : cases) {
        double q[4];
        dcm2quat(q, c.m);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(q[i], c.q[i]);
    }
    EXPECT_EQ(dcm_theta(cases[3].m), 0.0);
    EXPECT_DOUBLE_EQ(dcm_theta(cases[0].m), kPi);
    // Ties: M[0] == M[4] with M[8] < 0 goes to the y branch (component 2 from t),
    // M[0] == -M[4] with M[8] >= 0 to the trace branch (component 0 from t).
    const double tie_y[9] = {0.2, 0, 0, 0, 0.2, 0, 0, 0, -0.5};
    const double tie_trace[9] = {0.3, 0, 0, 0, -0.3, 0, 0, 0, 0.1};
    double q[4];
    dcm2quat(q, tie_y);
    EXPECT_DOUBLE_EQ(q[2], 0.5 * sqrt(1.0 - 0.2 + 0.2 + 0.5));
    dcm2quat(q, tie_trace);
    EXPECT_DOUBLE_EQ(q[0], 0.5 * sqrt(1.1));
}

TEST(AttitudeConventions, EulerRoundTripAndFloor) {
    const double rph[3] = {0.1, -0.2, -0.3};
    double q[4], m[9], back[3];
    rph2qbn(q, rph);
    quat2dcm(m, q);
    cbn2rph(back, m);
    EXPECT_NEAR(back[0], 0.1, 1e-15);
    EXPECT_NEAR(back[1], -0.2, 1e-15);
    EXPECT_NEAR(back[2], 5.983185307179586, 1e-15);
    const double locked[9] = {0, 0, 0, 0, 0, 0, -1, 0, 0};
    cbn2rph(back, locked);
    EXPECT_DOUBLE_EQ(back[1], 1.570786326794897);
    EXPECT_EQ(back[0], 0.0);
}

TEST(AttitudeRotationVector, SeriesBelowPiClosedFormFromPi) {
    double q[4];
    const double zero[3] = {0, 0, 0};
    rotvec2quat(q, zero);
    EXPECT_EQ(q[0], 1.0);
    EXPECT_EQ(q[1], 0.0);
    // Small rotations: the series is cos and sin to rounding.
    const double small[3] = {0.003, -0.004, 0.012};
    rotvec2quat(q, small);
    EXPECT_NEAR(q[0], cos(0.0065), 1e-16);
    EXPECT_NEAR(q[3], 0.012 * sin(0.0065) / 0.013, 1e-17);
    // Just below pi the truncated series is used, close to but not the exact values.
    const double below[3] = {3.1, 0, 0};
    rotvec2quat(q, below);
    EXPECT_NE(q[0], cos(1.55));
    EXPECT_NEAR(q[0], cos(1.55), 1e-3);
    EXPECT_NEAR(q[1], sin(1.55), 1e-3);
    const double at_pi[3] = {kPi, 0, 0};
    rotvec2quat(q, at_pi);
    EXPECT_EQ(q[0], 6.123233995736766e-17);
    EXPECT_EQ(q[1], 1.0);
    // Beyond pi the closed form flips to the non-negative scalar hemisphere.
    const double beyond[3] = {0, 4.0, 0};
    rotvec2quat(q, beyond);
    EXPECT_DOUBLE_EQ(q[0], -cos(2.0));
    EXPECT_DOUBLE_EQ(q[2], -sin(2.0));
}

TEST(AttitudeVectors, CrossSkewDotNormIdentity) {
    const double a[3] = {1.5, -2.0, 0.25}, b[3] = {-0.5, 3.0, 4.0};
    double c[3], m[9], mb[3], eye[9];
    cross_prod(c, a, b);
    cp_form(m, a);
    for (int i = 0; i < 3; ++i) mb[i] = m[3 * i] * b[0] + m[3 * i + 1] * b[1] + m[3 * i + 2] * b[2];
    for (int i = 0; i < 3; ++i) EXPECT_EQ(c[i], mb[i]);
    EXPECT_EQ(dotvect3d(c, a), 0.0);
    EXPECT_EQ(dotvect3d(c, b), 0.0);
    EXPECT_EQ(dotvect3d(a, b), -0.75 - 6.0 + 1.0);
    const double v[3] = {3.0, 4.0, 12.0};
    EXPECT_EQ(absvect3d(v), 13.0);
    gen_eye3d(eye);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(eye[i], (i % 4 == 0) ? 1.0 : 0.0);
}

}  // namespace
