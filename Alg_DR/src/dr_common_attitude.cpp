// Attitude and vector algebra: Hamilton quaternions (scalar first), row-major
// direction cosine matrices, roll-pitch-heading Euler angles and rotation
// vectors. qbn maps body to n, so cbn = Rz(heading) Ry(pitch) Rx(roll).
#include <math.h>

#include "dr_consts.h"
#include "drlib_toolkit.h"

namespace {

using drlib::kPi;
using drlib::kTwoPi;
constexpr double kPiSquared = 9.869604401089358;
// Floor on the length of the cbn row that carries roll: keeps the pitch
// finite at gimbal lock (pitch then tops out at atan(1e5), 89.99943 deg).
constexpr double kMinRollRowNorm = 1e-5;

static_assert(kPiSquared == kPi * kPi, "pi squared");

// The four branches share one test order; the branch picks the largest
// quaternion component so that the square root is of a value >= 1.
enum class DcmBranch { kX, kY, kZ, kTrace };

DcmBranch dcm_branch(const double *m) {
    if (m[8] < 0.0) return (m[0] > m[4]) ? DcmBranch::kX : DcmBranch::kY;
    return (m[0] < -m[4]) ? DcmBranch::kZ : DcmBranch::kTrace;
}

}  // namespace

extern "C" {

DRLIB_API void quat_prod(double *r, const double *p, const double *q) {
    double r0 = p[0] * q[0] - p[1] * q[1] - p[2] * q[2] - p[3] * q[3];
    double r1 = p[0] * q[1] + p[1] * q[0] + p[2] * q[3] - p[3] * q[2];
    double r2 = p[0] * q[2] + p[2] * q[0] + p[3] * q[1] - p[1] * q[3];
    double r3 = p[0] * q[3] + p[3] * q[0] + p[1] * q[2] - p[2] * q[1];
    // q and -q are the same rotation; a non-negative scalar part keeps the
    // stored quaternions on one hemisphere.
    if (r0 < 0.0) {
        r0 = -r0;
        r1 = -r1;
        r2 = -r2;
        r3 = -r3;
    }
    r[0] = r0;
    r[1] = r1;
    r[2] = r2;
    r[3] = r3;
}

DRLIB_API void quat_norm(double *q) {
    // One Newton step of 1/sqrt(n2) around 1: exact to first order in the
    // length error, which a single product can only make tiny.
    const double n2 = q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3];
    const double k = 1.5 - n2 / 2.0;
    q[0] *= k;
    q[1] *= k;
    q[2] *= k;
    q[3] *= k;
}

DRLIB_API void quat2dcm(double *dcm, const double *q) {
    const double q00 = q[0] * q[0], q11 = q[1] * q[1], q22 = q[2] * q[2], q33 = q[3] * q[3];
    dcm[0] = q00 + q11 - q22 - q33;
    dcm[1] = 2.0 * (q[1] * q[2] - q[0] * q[3]);
    dcm[2] = 2.0 * (q[1] * q[3] + q[0] * q[2]);
    dcm[3] = 2.0 * (q[1] * q[2] + q[0] * q[3]);
    dcm[4] = q00 - q11 + q22 - q33;
    dcm[5] = 2.0 * (q[2] * q[3] - q[0] * q[1]);
    dcm[6] = 2.0 * (q[1] * q[3] - q[0] * q[2]);
    dcm[7] = 2.0 * (q[2] * q[3] + q[0] * q[1]);
    dcm[8] = q00 - q11 - q22 + q33;
}

DRLIB_API void dcm2quat(double *q, const double *m) {
    double t = 0.0;
    double s = 0.0;
    switch (dcm_branch(m)) {
        case DcmBranch::kX:
            t = 1.0 + m[0] - m[4] - m[8];
            s = 0.5 / sqrt(t);
            q[0] = (m[7] - m[5]) * s;
            q[1] = t * s;
            q[2] = (m[1] + m[3]) * s;
            q[3] = (m[6] + m[2]) * s;
            break;
        case DcmBranch::kY:
            t = 1.0 - m[0] + m[4] - m[8];
            s = 0.5 / sqrt(t);
            q[0] = (m[2] - m[6]) * s;
            q[1] = (m[1] + m[3]) * s;
            q[2] = t * s;
            q[3] = (m[5] + m[7]) * s;
            break;
        case DcmBranch::kZ:
            t = 1.0 - m[0] - m[4] + m[8];
            s = 0.5 / sqrt(t);
            q[0] = (m[3] - m[1]) * s;
            q[1] = (m[6] + m[2]) * s;
            q[2] = (m[5] + m[7]) * s;
            q[3] = t * s;
            break;
        case DcmBranch::kTrace:
            t = 1.0 + m[0] + m[4] + m[8];
            s = 0.5 / sqrt(t);
            q[0] = t * s;
            q[1] = (m[7] - m[5]) * s;
            q[2] = (m[2] - m[6]) * s;
            q[3] = (m[3] - m[1]) * s;
            break;
    }
}

DRLIB_API double dcm_theta(const double *m) {
    // |q0| = cos(angle / 2), taken from the same well-conditioned branch as
    // dcm2quat. The arc cosine is deliberately not clamped.
    double t = 0.0;
    double c = 0.0;
    switch (dcm_branch(m)) {
        case DcmBranch::kX:
            t = 1.0 + m[0] - m[4] - m[8];
            c = fabs(m[7] - m[5]) * (0.5 / sqrt(t));
            break;
        case DcmBranch::kY:
            t = 1.0 - m[0] + m[4] - m[8];
            c = fabs(m[2] - m[6]) * (0.5 / sqrt(t));
            break;
        case DcmBranch::kZ:
            t = 1.0 - m[0] - m[4] + m[8];
            c = fabs(m[3] - m[1]) * (0.5 / sqrt(t));
            break;
        case DcmBranch::kTrace:
            t = 1.0 + m[0] + m[4] + m[8];
            c = t * (0.5 / sqrt(t));
            break;
    }
    return 2.0 * acos(c);
}

DRLIB_API void rotvec2quat(double *q, const double *rotvec) {
    const double theta2 =
        rotvec[0] * rotvec[0] + rotvec[1] * rotvec[1] + rotvec[2] * rotvec[2];
    if (theta2 < kPiSquared) {
        // Series of cos(theta/2) and sin(theta/2)/theta through x^3, x = theta^2/4:
        // no trigonometric call on the per-stride path.
        const double x = theta2 / 4.0;
        const double q0 = 1.0 - (x / 2.0) * (1.0 - (x / 12.0) * (1.0 - x / 30.0));
        const double s = 0.5 - (x / 12.0) * (1.0 - (x / 20.0) * (1.0 - x / 42.0));
        q[0] = q0;
        q[1] = s * rotvec[0];
        q[2] = s * rotvec[1];
        q[3] = s * rotvec[2];
        return;
    }
    const double theta = sqrt(theta2);
    const double q0 = cos(theta / 2.0);
    const double s = sin(theta / 2.0);
    const double sign = (q0 < 0.0) ? -1.0 : 1.0;
    q[0] = sign * q0;
    q[1] = sign * (rotvec[0] * s / theta);
    q[2] = sign * (rotvec[1] * s / theta);
    q[3] = sign * (rotvec[2] * s / theta);
}

DRLIB_API void rph2qbn(double *qbn, const double *rph) {
    const double cr = cos(rph[0] / 2.0), sr = sin(rph[0] / 2.0);
    const double cp = cos(rph[1] / 2.0), sp = sin(rph[1] / 2.0);
    const double ch = cos(rph[2] / 2.0), sh = sin(rph[2] / 2.0);
    qbn[0] = cr * cp * ch + sr * sp * sh;
    qbn[1] = sr * cp * ch - cr * sp * sh;
    qbn[2] = cr * sp * ch + sr * cp * sh;
    qbn[3] = cr * cp * sh - sr * sp * ch;
}

DRLIB_API void cbn2rph(double *rph, const double *cbn) {
    double d = sqrt(cbn[7] * cbn[7] + cbn[8] * cbn[8]);
    if (d < kMinRollRowNorm) d = kMinRollRowNorm;
    const double pitch = atan(cbn[6] / (-d));
    const double roll = atan2(cbn[7], cbn[8]);
    double heading = atan2(cbn[3], cbn[0]);
    if (heading < 0.0) heading += kTwoPi;
    rph[0] = roll;
    rph[1] = pitch;
    rph[2] = heading;
}

DRLIB_API void cross_prod(double *r, const double *a, const double *b) {
    r[0] = a[1] * b[2] - b[1] * a[2];
    r[1] = b[0] * a[2] - a[0] * b[2];
    r[2] = a[0] * b[1] - b[0] * a[1];
}

DRLIB_API void cp_form(double *m, const double *v) {
    m[0] = 0.0;
    m[1] = -v[2];
    m[2] = v[1];
    m[3] = v[2];
    m[4] = 0.0;
    m[5] = -v[0];
    m[6] = -v[1];
    m[7] = v[0];
    m[8] = 0.0;
}

DRLIB_API double absvect3d(const double *v) { return sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

DRLIB_API double dotvect3d(const double *a, const double *b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

DRLIB_API void gen_eye3d(double *m) {
    for (int i = 0; i < 9; ++i) m[i] = (i % 4 == 0) ? 1.0 : 0.0;
}

}  // extern "C"
