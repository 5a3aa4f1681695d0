// Attitude algebra: quaternion products, DCM and Euler conventions against
// elementary rotations on a 90-degree grid including gimbal lock, and the
// rotation vector's series/closed-form switch.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include "drlib_toolkit.h"
#include "rotation_truth.h"

namespace {

void expect_dcm_near(const double *a, const double *b, double tol) {
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(a[i], b[i], tol) << "element " << i;
}

// i j = k; i i = -1 stored with the sign flipped; DCM(p (x) q) = DCM(p)
// DCM(q), scalar part non-negative, and the output may alias an input.
TEST(AttitudeQuaternion, HamiltonProductAndSignConvention) {
    const double i[4] = {0, 1, 0, 0}, j[4] = {0, 0, 1, 0};
    double r[4];
    quat_prod(r, i, j);
    EXPECT_TRUE(r[0] == 0.0 && r[3] == 1.0);
    quat_prod(r, i, i);
    EXPECT_TRUE(r[0] == 1.0 && r[1] == 0.0 && signbit(r[1]) && signbit(r[2]) && signbit(r[3]));
    double p[4] = {0.8, 0.1, -0.5, 0.3}, q[4] = {-0.2, 0.6, 0.4, 0.66}, pq[4], m_pq[9];
    rot::Mat3 m_p, m_q;
    quat_prod(pq, p, q);
    quat2dcm(m_p.m, p), quat2dcm(m_q.m, q), quat2dcm(m_pq, pq);
    expect_dcm_near(m_pq, rot::mul(m_p, m_q).m, 1e-15);
    EXPECT_GE(pq[0], 0.0);
    quat_prod(p, p, q);
    EXPECT_EQ(memcmp(p, pq, sizeof p), 0);
}

// Every branch of dcm2quat rebuilds the matrix up to the quaternion's sign;
// the rotation angle, and Euler angles back with heading in [0, 2 pi). At
// gimbal lock the floor on the roll row holds pitch 1e-5 short of 90 deg.
TEST(AttitudeConventions, NinetyDegreeGridIncludingGimbalLock) {
    for (int r = -2; r <= 2; ++r)
        for (int p = -1; p <= 1; ++p)
            for (int h = 0; h < 4; ++h) {
                const double rph[3] = {r * M_PI / 2.0, p * M_PI / 2.0, h * M_PI / 2.0};
                SCOPED_TRACE(testing::Message() << "roll " << r * 90 << " pitch " << p * 90 << " heading " << h * 90);
                double m[9], q[4], q2[4], m2[9], back[3];
                const rot::Mat3 truth = rot::euler(rph[0], rph[1], rph[2]);
                const double *ref = truth.m;
                rph2qbn(q, rph);
                quat2dcm(m, q);
                expect_dcm_near(m, ref, 1e-15);
                dcm2quat(q2, ref);
                quat2dcm(m2, q2);
                expect_dcm_near(m2, ref, 1e-15);
                EXPECT_NEAR(fabs(q2[0] * q[0] + q2[1] * q[1] + q2[2] * q[2] + q2[3] * q[3]), 1.0, 1e-15);
                EXPECT_NEAR(dcm_theta(ref), 2.0 * atan2(sqrt(q[1] * q[1] + q[2] * q[2] + q[3] * q[3]), fabs(q[0])), 1e-7);
                cbn2rph(back, ref);
                EXPECT_TRUE(back[2] >= 0.0 && back[2] < 2.0 * M_PI);
                expect_dcm_near(rot::euler(back[0], back[1], back[2]).m, ref, p == 0 ? 1e-15 : 2e-5);
            }
    // Ties between diagonal entries pick a fixed branch: M[0] == M[4] with
    // M[8] < 0 the y branch, M[0] == -M[4] with M[8] >= 0 the trace branch.
    const double tie_y[9] = {0.2, 0, 0, 0, 0.2, 0, 0, 0, -0.5}, tie_trace[9] = {0.3, 0, 0, 0, -0.3, 0, 0, 0, 0.1};
    double q[4], q2[4];
    dcm2quat(q, tie_y), dcm2quat(q2, tie_trace);
    EXPECT_DOUBLE_EQ(q[2], 0.5 * sqrt(1.0 - 0.2 + 0.2 + 0.5));
    EXPECT_DOUBLE_EQ(q2[0], 0.5 * sqrt(1.1));
}

// Small rotations: the series is cos and sin to rounding; just below pi the
// truncated series is close to but not the exact values; from pi the closed
// form, beyond it flipped to the non-negative scalar hemisphere.
TEST(AttitudeRotationVector, SeriesBelowPiClosedFormFromPi) {
    double q[4];
    const double small[3] = {0.003, -0.004, 0.012}, below[3] = {3.1, 0, 0}, at_pi[3] = {M_PI, 0, 0}, beyond[3] = {0, 4.0, 0};
    rotvec2quat(q, small);
    EXPECT_NEAR(q[0], cos(0.0065), 1e-16);
    EXPECT_NEAR(q[3], 0.012 * sin(0.0065) / 0.013, 1e-17);
    rotvec2quat(q, below);
    EXPECT_TRUE(q[0] != cos(1.55) && fabs(q[0] - cos(1.55)) < 1e-3);
    rotvec2quat(q, at_pi);
    EXPECT_TRUE(q[0] == 6.123233995736766e-17 && q[1] == 1.0);
    rotvec2quat(q, beyond);
    EXPECT_DOUBLE_EQ(q[0], -cos(2.0));
    EXPECT_DOUBLE_EQ(q[2], -sin(2.0));
}

}  // namespace
