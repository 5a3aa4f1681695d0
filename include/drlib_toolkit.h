/*
 * drlib_toolkit.h - the exported toolkit of libdrlib.so.
 *
 * Everything the shared object exports besides the Drlib family of drlib.h:
 * the input staging, the Earth model and attitude algebra, the strapdown
 * mechanization, the fusion engine's units, the matrix kernels, the scalar
 * helpers, the assertion module, the bounded strings and the CRCs, with the
 * internal records they take (FusionIn, NavState, KfFilter, CubFilter,
 * MatBlock). Test harnesses, replay tools and the library itself use it; a
 * host needs only drlib.h. Compiles as C99 and as C++, except beside a
 * <string.h> that declares the BSD strlcpy (see section 6).
 *
 * The library binds its own calls to its own definitions (it is linked with
 * -Bsymbolic), so a host function of the same name as one of these never
 * replaces the library's inside the library; a host that links the static
 * archive, however, must not define any of these names.
 *
 * Sections:
 *   1. Input staging and fusion-input history
 *   2. Earth model, gravity, attitude and vector algebra
 *   3. Navigation state and strapdown mechanization
 *   4. Fusion engine
 *   5. Numerical toolkit
 *   6. Runtime support: assertions, bounded strings, CRCs
 */
#ifndef DRLIB_TOOLKIT_H
#define DRLIB_TOOLKIT_H

#include "drlib.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================= */
/* 1. Input staging and fusion-input history                                */
/* ======================================================================= */

/* One entry of the 512-entry fusion-input history: the epoch's record header
 * and its IMU data resampled onto the 0.01 s grid. Slot k (1..10) stands at
 * tow_ms - 150 ms + (k - 1) * 10 ms; slot 0 is the previous entry's slot 10. */
typedef struct FusionIn {
    DrInput header;          /* the record's header; nsamples = resampled slots 1..10 filled */
    uint32_t pos_index;      /* g_FusionInPos when the entry was stored */
    double dtheta[11][3];    /* angle increments over 0.01 s, rad, body x, y, z */
    double dvel[11][3];      /* velocity increments over 0.01 s, m/s, body x, y, z */
} FusionIn;

/*
 * Input checks and IMU staging, called by DrlibUpdateFusion in this order for
 * each record: validity, staging, resampling, continuity. Exported for test
 * harnesses; a host needs none of them.
 */

/* 1 if the record header passes every validity check (version 4, time of
 * week within a week plus one second and within 1 ms of a 100 ms boundary,
 * known solution types, combined position sigma <= 10 m, combined velocity
 * sigma <= 0.7 m/s, 8..12 samples), else 0. Reads the header only. */
DRLIB_API uint32_t IsFusionDataValid(const DrInput *rec);

/* Stages the record's nsamples IMU samples in the 64-slot sample ring.
 * Returns 1 if all were staged; 0 if a sample is spaced less than 2000 us or
 * more than 18000 us from the one before it, or if the ring has no room for
 * the record (nothing is staged then). Samples staged before a spacing
 * failure stay in the ring; the caller empties it. */
DRLIB_API int32_t InputImuDataToBuf(const DrInput *rec);

/* 1 if cur does not continue the record held in prev (sequence number not
 * prev's plus 1, or time of week not 99..101 ms later, across the week
 * rollover), else 0. */
DRLIB_API uint32_t IsFusionDataBreak(const DrInput *cur, const FusionIn *prev);

/* Resamples the staged IMU samples onto slots 1..10 of entry, whose header
 * must already be in place (its tow_ms fixes the grid), and stores the number
 * of slots filled in entry->header.nsamples. Consumes samples that lie wholly
 * before the grid. */
DRLIB_API void FillDaDv2FusionIn(FusionIn *entry);

/* ======================================================================= */
/* 2. Earth model, gravity, attitude and vector algebra                     */
/* ======================================================================= */

/*
 * Earth model (WGS-84) and gravity. Frames: e = Earth-centred Earth-fixed,
 * n = north-east-down at the geodetic position. llh = latitude, longitude
 * (rad, east positive), height above the ellipsoid (m). cne maps n-frame
 * vectors into e; qne is its quaternion. All functions are pure, write their
 * first argument and check nothing.
 */

/* Geodetic position of an ECEF point (Bowring, one step). Writes nothing when
 * r_e lies within 1e-10 m of the polar axis. */
DRLIB_API void ecef2llh(double *llh, const double *r_e);
/* ECEF position (m) of a geodetic position. */
DRLIB_API void llh2ecef(double *r_e, const double *llh);
/* qne of a position (latitude and longitude read). */
DRLIB_API void llh2qne(double *qne, const double *llh);
/* cne of a position (latitude and longitude read). */
DRLIB_API void llh2cne(double *cne, const double *llh);
/* Latitude and longitude of a cne; llh[2] (height) is left untouched. */
DRLIB_API void cne2llh(double *llh, const double *cne);
/* Meridian (rm) and prime-vertical (rn) radii of curvature, m, from sin(latitude). */
DRLIB_API void calc_radius(double *rm, double *rn, double sin_lat);
/* Earth rate resolved in n, rad/s: (W cos lat, 0, -W sin lat). */
DRLIB_API void calc_wie_n(double *wie_n, double lat);
/* Normal gravity magnitude, m/s^2: GRS-80 series with second-order height terms. */
DRLIB_API double local_gravity_v1(double sin_lat, double height);
/* Normal gravity magnitude, m/s^2: WGS-84 Somigliana with first-order free-air term. */
DRLIB_API double local_gravity_v2(double sin_lat, double height);
/* Gravity vector in n (attraction through J3 plus centrifugal), m/s^2, at the
 * ECEF point r_e whose cne, prime-vertical radius rn (m) and height (m) are given. */
DRLIB_API void gravity_model_1971(double *g_n, const double *r_e, const double *cne, double rn,
                                  double height);

/*
 * Attitude and vector algebra. Quaternions scalar first, Hamilton product;
 * qbn maps body to n. DCMs are 9 doubles, row-major. Euler angles are roll,
 * pitch, heading with cbn = Rz(heading) Ry(pitch) Rx(roll); heading in [0, 2 pi).
 */

/* r = p (x) q with a non-negative scalar part; r may be p or q. */
DRLIB_API void quat_prod(double *r, const double *p, const double *q);
/* One Newton step of q toward unit length (no square root). */
DRLIB_API void quat_norm(double *q);
/* DCM of a quaternion. */
DRLIB_API void quat2dcm(double *dcm, const double *q);
/* Quaternion of a DCM (scalar part not sign-normalised). */
DRLIB_API void dcm2quat(double *q, const double *dcm);
/* Rotation angle of a DCM, rad, in [0, pi]. */
DRLIB_API double dcm_theta(const double *dcm);
/* Quaternion of a rotation vector (rad). */
DRLIB_API void rotvec2quat(double *q, const double *rotvec);
/* qbn of roll, pitch, heading (rad). */
DRLIB_API void rph2qbn(double *qbn, const double *rph);
/* Roll, pitch, heading (rad) of a cbn. */
DRLIB_API void cbn2rph(double *rph, const double *cbn);
/* r = a x b; r must not share storage with a or b. */
DRLIB_API void cross_prod(double *r, const double *a, const double *b);
/* Skew matrix [v x], so that M x = v x x. */
DRLIB_API void cp_form(double *m, const double *v);
/* Euclidean length of a 3-vector. */
DRLIB_API double absvect3d(const double *v);
/* Dot product of two 3-vectors. */
DRLIB_API double dotvect3d(const double *a, const double *b);
/* 3x3 identity. */
DRLIB_API void gen_eye3d(double *m);

/* ======================================================================= */
/* 3. Navigation state and strapdown mechanization                          */
/* ======================================================================= */

/* Navigation state of one filter: 56 consecutive doubles. Frames: n = north-
 * east-down, e = Earth-fixed, b = body; quaternions scalar first; DCMs row-major. */
typedef struct NavState {
    double llh[3];      /* latitude, longitude (rad), height above the ellipsoid (m) of the IMU */
    double v_n[3];      /* velocity north, east, down, m/s */
    double acc_n[3];    /* mean rate of change of v_n over the last stride, m/s^2 */
    double rph[3];      /* roll, pitch, heading of cbn, rad; heading in [0, 2 pi) */
    double f_n[3];      /* mean specific force over the last stride, n frame, m/s^2 */
    double qne[4];      /* n frame relative to e (position) */
    double qbn[4];      /* body relative to n (attitude) */
    double cne[9];      /* DCM of qne: n to e */
    double cbn[9];      /* DCM of qbn: body to n */
    double wie_n[3];    /* Earth rate in n, rad/s */
    double wen_n[3];    /* transport rate in n, rad/s */
    double g_n[3];      /* gravity in n, m/s^2 (refreshed only when a GNSS position is applied) */
    double rm;          /* meridian radius of curvature, m */
    double rn;          /* prime-vertical radius of curvature, m */
    double cos_lat;
    double sin_lat;
    double cos_lon;
    double sin_lon;
} NavState;

/*
 * Strapdown mechanization. dtheta and dvel point at element 0 of runs of
 * n + 1 increments, 3 doubles each, body axes (rad and m/s per interval of tl
 * seconds); element 0 is the interval before the first one integrated. nav is
 * updated in place; g_n is never touched. tl must exceed 1e-6 s, n at least 1.
 */

/* Forward over intervals 1..n, in strides of 1 to 3 intervals. */
DRLIB_API void dr_mech(NavState *nav, const double *dtheta, const double *dvel, int32_t n,
                       double tl);
/* Forward over one stride of m (1..3) intervals, increments 0..m. */
DRLIB_API void dr_mech_stride(NavState *nav, const double *dtheta, const double *dvel, int32_t m,
                              double tl);
/* Backward: nav holds the state at the end of interval n and receives the
 * state at the start of interval 1; the runs are in forward order. */
DRLIB_API void dr_mech_backward(NavState *nav, const double *dtheta, const double *dvel,
                                int32_t n, double tl);
/* Backward over one stride of m (1..3) intervals, increments 0..m. */
DRLIB_API void dr_mech_stride_backward(NavState *nav, const double *dtheta, const double *dvel,
                                       int32_t m, double tl);

/* ======================================================================= */
/* 4. Fusion engine                                                         */
/* ======================================================================= */

/* One error-state Kalman filter in square-root form, P = L * L^T. Error state:
 * 0..2 velocity (m/s, n), 3..5 attitude psi (rad, n), 6..8 accelerometer bias
 * (m/s^2, body), 9..11 gyro bias (rad/s, body); a filter of dimension n uses
 * the first n. L is row-packed lower-triangular: (i, j) at gk_L_start[i] + j. */
typedef struct KfFilter {
    uint8_t state_dim;     /* 6 (bank), 9 or 12 (main) */
    uint32_t pos_index;    /* pos_index of the history entry that last drove the filter */
    double acc_bias[3];    /* accelerometer bias estimate, m/s^2, body */
    double gyro_bias[3];   /* gyro bias estimate, rad/s, body */
    double L[78];          /* packed factor, 12 * 13 / 2 slots */
} KfFilter;

/*
 * Filter core. Every operation works on one filter and its navigation state,
 * passed by pointer; scratch is on the stack (n <= 12, m + n <= 15). Calling
 * order per GNSS epoch: ten times (mechanization step, KFInflatePMatrix),
 * then KFUpdateGnssSol, which runs KFInnoInput and KFStateFeedback.
 */

/* Error-state transition matrix phi (n x n, row-major) of the psi-angle model
 * over dt seconds, from f_n, cbn, wie_n and wen_n of nav; n is 6, 9 or 12. */
DRLIB_API void KFCalcPsiMatrix(double *phi, const NavState *nav, int32_t n, double dt);
/* Time update of flt->L over one step of dt seconds: P+ = Phi P Phi^T + G G^T.
 * dtheta (rad) and dvel (m/s) point at the two increment triples that open
 * and close the step; the closing triple scales the motion noise. */
DRLIB_API void KFInflatePMatrix(KfFilter *flt, const NavState *nav, const double *dtheta,
                                const double *dvel, double dt);
/* out[i][k] = in[i][k] - bias[k] for count triples; out may be in. */
DRLIB_API void ImuSampCorr(double *out, const double *in, const double *bias, int32_t count);
/* Stores +0.0 into each whole double of the first nbytes bytes at p. */
DRLIB_API void F64ToZeros(double *p, uint32_t nbytes);
/* Square-root measurement update with m measurements (m + n <= 15): adds
 * K z to dx (n doubles) and replaces the packed factor L by that of
 * P - K H P. H is m x n row-major, z = computed - measured, r holds the
 * measurement standard deviations (R = diag(r^2)). */
DRLIB_API void KFInnoInput(double *dx, double *L, const double *H, const double *z,
                           const double *r, int32_t n, int32_t m);
/* Closed-loop feedback of the error state dx (flt->state_dim entries) into
 * nav and the bias estimates, and position reset by dpos (computed minus
 * measured, north, east, down, m). */
DRLIB_API void KFStateFeedback(KfFilter *flt, NavState *nav, const double *dx, const double *dpos);
/* Variance P(i, i) of state i from the packed factor L. */
DRLIB_API double get_kf_state_variance(const double *L, int32_t i);
/* GNSS update of one filter: velocity innovation through the lever arm,
 * measurement update, feedback with position reset, gravity refresh.
 * pos, vel: antenna ECEF position (m) and velocity (m/s); w_ib: body rate,
 * rad/s; vel_std: velocity deviations north, east, down, m/s. */
DRLIB_API void KFUpdateGnssSol(KfFilter *flt, NavState *nav, const double *pos, const double *vel,
                               const double *w_ib, const float *vel_std);
/* INS position minus the lever-arm-corrected antenna position pos (ECEF, m),
 * north, east, down, m. The longitude difference is wrapped into (-pi, pi],
 * so that positions on either side of the 180 degree meridian are close. */
DRLIB_API void DifImuPosWithGnss(double *dpos, const NavState *nav, const double *pos);
/* Velocity innovation, north, east, down, m/s: INS velocity minus the antenna
 * velocity vel (ECEF, m/s) carried to the IMU with the body rate w_ib (rad/s). */
DRLIB_API void DifImuVelWithGnss(double *z, const NavState *nav, const double *vel,
                                 const double *w_ib);
/* Trace sink of the fusion engine: takes a level, a category mask and a
 * printf-style format with its arguments, prints nothing and returns 0. */
DRLIB_API int32_t empty_function(int32_t level, uint32_t mask, const char *fmt, ...)
    __attribute__((format(printf, 3, 4)));


/* Mounting-calibration filter: estimates the rotation between IMU and pole
 * while the pole tip stands on a known point (see DrlibCalibStart). */
typedef struct CubFilter {
    uint32_t enabled;              /* calibration requested */
    uint32_t running;              /* calibration in progress */
    uint32_t count;                /* accepted updates; 0 = re-initialise at the next step */
    uint32_t target;               /* updates that complete the calibration, >= 1200 */
    uint32_t last_percent;         /* last progress value seen, % */
    int32_t start_time;            /* calendar time at the start, s */
    DrlibCalibCallback callback;   /* host notification, may be null */
    double dcm[9];                 /* current mounting estimate, row-major */
    double rph[3];                 /* roll, pitch, heading of dcm, rad; heading in (-pi, pi] */
    double ref_pos[3];             /* known point, ECEF, m */
    double L[6];                   /* packed 3x3 covariance factor, rad */
} CubFilter;
/* The callback pointer is 4 bytes on 32-bit Arm and 8 on x86-64; on both the
 * doubles that follow start at byte 32 (4 bytes of padding on Arm). */
DRLIB_STATIC_ASSERT(offsetof(CubFilter, running) == 4, CubFilter_running);
DRLIB_STATIC_ASSERT(offsetof(CubFilter, count) == 8, CubFilter_count);
DRLIB_STATIC_ASSERT(offsetof(CubFilter, target) == 12, CubFilter_target);
DRLIB_STATIC_ASSERT(offsetof(CubFilter, last_percent) == 16, CubFilter_last_percent);
DRLIB_STATIC_ASSERT(offsetof(CubFilter, start_time) == 20, CubFilter_start_time);
DRLIB_STATIC_ASSERT(offsetof(CubFilter, callback) == 24, CubFilter_callback);
DRLIB_STATIC_ASSERT(offsetof(CubFilter, dcm) == 32, CubFilter_dcm);
DRLIB_STATIC_ASSERT(offsetof(CubFilter, rph) == 104, CubFilter_rph);
DRLIB_STATIC_ASSERT(offsetof(CubFilter, ref_pos) == 128, CubFilter_ref_pos);
DRLIB_STATIC_ASSERT(offsetof(CubFilter, L) == 152, CubFilter_L);
DRLIB_STATIC_ASSERT(sizeof(CubFilter) == 200, CubFilter_size);

/*
 * Fusion engine: the driver, the tilt status and the mounting calibration.
 * DrlibUpdateFusion runs them once per accepted record in this order:
 * DrFusionProc, then ComposeTiltStat (which also steps the calibration).
 * Exported for test harnesses and replay tools; a host needs none of them.
 */

/* Engine back to idle: the driver state, the standstill gyro-bias estimator
 * and the mounting calibration (stopped without a callback). The filter
 * records are left as they are; the next bank start rebuilds them. */
DRLIB_API void DrFusionReset(void);
/* One driver cycle on the newest history entry: standstill detection and
 * bank start at whole seconds, the bank or the main filter through the
 * epoch's ten 0.01 s steps and the GNSS update, promotion of a winner. */
DRLIB_API void DrFusionProc(void);

/* Fills out from the newest history entry and the engine state. hw is the
 * stored pole lever (HwCfg.lever, m, body axes). In the main state a tip
 * variance sum of 0.35^2 m^2 or more (or not a number) ends the main filter
 * (the engine returns to idle). Steps the mounting calibration. */
DRLIB_API void ComposeTiltStat(TiltStat *out, const double *hw);
/* Tip variances north, east, down (m^2, three times H P H^T) of the lever
 * vector lever_n (m, n frame) from the attitude block of flt's covariance. */
DRLIB_API void CalcKFVarPole_n(double *var, const double *lever_n, const KfFilter *flt);

/* Configured mounting rotation from roll, pitch, heading (rad); identity when
 * angles is null or any |angle| >= 1.2 deg. angles is read during the call only. */
DRLIB_API void config_cub(const double *angles);
/* The mounting-calibration record (static storage of the library). */
DRLIB_API CubFilter *get_cub_flt(void);
/* One calibration step: pole_b the pole vector (m, body), ant_pos_e the
 * antenna position (ECEF, m), tip_std the tip deviations (m) of the three
 * misclosure components. Reports through the calibration callback. */
DRLIB_API void CubFltProc(const double *pole_b, const double *ant_pos_e, const float *tip_std);
/* Writes the gyro bias to keep into out (3 doubles) in the offset encoding
 * 1 + bx, 2 + by, 3 + bz (rad/s): the main filter's if it is well learned,
 * clamped to +-0.18 deg/s, else the configured code, else zeros. */
DRLIB_API void bwxyz_store(double *out);


/*
 * Heading bank and standstill detector. The bank is 18 filters that share one
 * levelled attitude, position and velocity and differ only in heading, 20
 * degrees apart; the convergence test picks the hypothesis the GNSS updates
 * have pulled the others onto. Exported for test harnesses and replay tools;
 * a host needs none of them.
 */

/* Starts the bank from the history ending at position newest_pos: levels the
 * attitude on the specific force, seeds all 18 states and filters from the
 * newest GNSS solution and sets the driver to the converging state. Does
 * nothing (apart from storing the GNSS acceleration in the first bank state)
 * when the IMU and GNSS specific forces disagree or are implausible. */
DRLIB_API void InitParelFilter(uint32_t newest_pos);
/* IMU position of nav from the antenna position pos_e (ECEF, m) through the
 * lever arm and nav->cbn; also the Earth-model fields that depend on it. */
DRLIB_API void SetImuPosFromGnss(NavState *nav, const double *pos_e);
/* IMU velocity of nav from the antenna velocity vel_e (ECEF, m/s) and the body
 * rate w_ib (rad/s, body); needs the fields SetImuPosFromGnss writes. */
DRLIB_API void SetImuVelFromGnss(NavState *nav, const double *vel_e, const double *w_ib);
/* Once-per-second bank verdict: 0..17 the winning hypothesis, -1 not decided
 * yet, -2 two separated clusters (the bank must restart). */
DRLIB_API int32_t CheckParelFltConv(void);

/* Once-per-second standstill gyro-bias estimator over the last 30 history
 * entries; updates only outside the main state. */
DRLIB_API void ZuptFltProc(void);
/* Sorts the n values of x ascending in place and returns their median; for
 * even n the middle value with the smaller RMS deviation (the upper on ties). */
DRLIB_API double median_dat(double *x, int32_t n);
/* RMS deviation of the n values of x about centre (divisor n). */
DRLIB_API double std_dat(const double *x, int32_t n, double centre);

/* ======================================================================= */
/* 5. Numerical toolkit                                                     */
/* ======================================================================= */

/*
 * Packed triangular storage. An n x n lower triangle is stored by rows:
 * element (i, j), j <= i, at gk_L_start[i] + j; n * (n + 1) / 2 doubles in all.
 * A packed array is read either as a triangular factor L (P = L * L^T, the
 * diagonal may be negative) or as a symmetric S (S(i, j) = S(j, i)); kernels
 * whose names end in 2S write the lower triangle of a symmetric result.
 * Dense operands are row-major. All kernels take the output first, then the
 * inputs, then the dimensions; they check nothing, allocate nothing and
 * return nothing. Outputs must not alias inputs unless stated.
 */

/* Row starts of packed storage: gk_L_start[i] = i * (i + 1) / 2, i = 0..255. */
DRLIB_API extern const int32_t gk_L_start[256];

/* One block of a block-sparse dense matrix, for CalcBL2EM. A list of blocks is
 * a contiguous array that ends at the first entry whose `val` is null. */
typedef struct MatBlock {
    uint8_t row0;       /* first row of the block */
    uint8_t col0;       /* first column of the block */
    uint8_t nrows;      /* rows of the block */
    uint8_t ncols;      /* columns of the block */
    const double *val;  /* nrows x ncols values, row-major; null ends the list */
} MatBlock;
DRLIB_STATIC_ASSERT(offsetof(MatBlock, val) == sizeof(void *), MatBlock_val);

/* Householder LQ triangularisation by rows: A (dense n x m, n <= m) is
 * destroyed; L (packed n x n) satisfies L * L^T = A * A^T. The diagonal of L
 * has the opposite sign of the pivot it came from (positive for a pivot <= 0).
 * A row whose remaining part is all zero gets a zero diagonal. work: m doubles. */
DRLIB_API void lq_decompose(double *L, double *A, int32_t n, int32_t m, double *work);
/* X = L^-1, both packed n x n lower triangular; X and L must differ. */
DRLIB_API void InvL(double *X, const double *L, int32_t n);
/* Columns 0..n-1 of E (dense n x 2n) = A (dense n x n) * L (packed n x n). */
DRLIB_API void CalcAL2EM(double *E, const double *A, const double *L, int32_t n);
/* Columns 0..n-1 of E (dense n x 2n) += A * L, with A given as a block list. */
DRLIB_API void CalcBL2EM(double *E, const MatBlock *blocks, const double *L, int32_t n);
/* E[i][m + j] (row stride m + n) = (H * L)[i][j], H dense m x n, L packed n x n. */
DRLIB_API void CalcHL2EM(double *E, const double *H, const double *L, int32_t m, int32_t n);
/* Gain K (dense n x m) = Lc[m..m+n-1][0..m-1] * X, with Lc the packed (m+n)
 * triangularised update matrix and X the packed inverse of its leading m x m block. */
DRLIB_API void CalcK_fromEM(double *K, const double *Lc, const double *X, int32_t n, int32_t m);
/* out (dense r x n) = N (dense r x n) * L (packed n x n). */
DRLIB_API void CalcNL(double *out, const double *N, const double *L, int32_t r, int32_t n);
/* out (packed m x m) = H * H^T, H dense m x n. */
DRLIB_API void CalcHHt2S(double *out, const double *H, int32_t m, int32_t n);
/* out (dense p x n) = N^T * L, N dense n x p, L packed n x n. */
DRLIB_API void CalcNtL(double *out, const double *N, const double *L, int32_t p, int32_t n);
/* out (dense n x p) = L * N, L packed n x n, N dense n x p. */
DRLIB_API void CalcLN(double *out, const double *L, const double *N, int32_t n, int32_t p);
/* out (dense n x p) = S * N, S packed symmetric n x n, N dense n x p. */
DRLIB_API void CalcSN(double *out, const double *S, const double *N, int32_t n, int32_t p);
/* out (dense n x p) = S * N^T, S packed symmetric n x n, N dense p x n. */
DRLIB_API void CalcSNt(double *out, const double *S, const double *N, int32_t n, int32_t p);
/* out (dense r x n) = N * S, N dense r x n, S packed symmetric n x n. */
DRLIB_API void CalcNS(double *out, const double *N, const double *S, int32_t r, int32_t n);
/* out (dense r x n) = N^T * S, N dense n x r, S packed symmetric n x n. */
DRLIB_API void CalcNtS(double *out, const double *N, const double *S, int32_t r, int32_t n);
/* out (packed r x r) = lower triangle of N * M, N dense r x c, M dense c x r. */
DRLIB_API void CalcNM2S(double *out, const double *N, const double *M, int32_t r, int32_t c);
/* out (packed r x r) = lower triangle of N * M^T, N and M dense r x c. */
DRLIB_API void CalcNMt2S(double *out, const double *N, const double *M, int32_t r, int32_t c);
/* out (packed n x n) = L * L^T. */
DRLIB_API void CalcLLt2S(double *out, const double *L, int32_t n);
/* out (packed n x n) = L^T * diag(d) * L, d: n doubles. */
DRLIB_API void CalcLtDL2S(double *out, const double *L, const double *d, int32_t n);
/* out (packed n x n): out(i, j) = S(p[i], p[j]); p may repeat or select. */
DRLIB_API void CalcPtSP2S(double *out, const double *S, const int32_t *p, int32_t n);
/* out (dense r x c) = H^T * diag(w), H dense c x r, w: c doubles. */
DRLIB_API void CalcHtW(double *out, const double *H, const double *w, int32_t r, int32_t c);
/* out (dense r x c) = H * diag(w), H dense r x c, w: c doubles. */
DRLIB_API void CalcHW(double *out, const double *H, const double *w, int32_t r, int32_t c);
/* out (packed n x n) = H^T * H, H dense m x n. */
DRLIB_API void CalcHtH2S(double *out, const double *H, int32_t m, int32_t n);
/* Zero row k left of the diagonal and column k below it in packed n x n L. */
DRLIB_API void ClearOffDiagL(double *L, int32_t k, int32_t n);

/* Symmetric factorisations (packed storage, no pivot tolerance). */
/* S = L * D * L^T, L unit lower: U(i, j) = L(i, j) * D(j), U(j, j) = D(j). U may be S. */
DRLIB_API void LDLTDecompose(double *U, const double *S, int32_t n);
/* out (packed symmetric) = X^T * diag(1 / X(k, k)) * X; out and X differ; n <= 255. */
DRLIB_API void LTDLMultiply(double *out, const double *X, int32_t n);
/* out = S^-1 for symmetric S (packed, n <= 255); S is overwritten with D^-1 * L^-1. */
DRLIB_API void InvS(double *out, double *S, int32_t n);
/* Symmetrically pivoted S(perm[i], perm[j]) = (L^T * D * L)(i, j): unit lower L
 * is stored in S, D in d (n doubles), the permutation in perm (n entries). */
DRLIB_API void ltdl_decompose_pivot(double *S, double *d, int32_t *perm, int32_t n);
/* Jacobi eigen-decomposition of packed symmetric S (n <= 255; its strict lower
 * triangle is destroyed): S = E * diag(e) * E^T, eigenvectors in the columns of
 * E (dense n x n, may be null), eigenvalues unsorted in e. */
DRLIB_API void eig_decompose_jacobi(double *e, double *E, double *S, int32_t n);

/* Scalar helpers. */
DRLIB_API double ScaleDouble(int32_t v, uint32_t k);    /* v * 2^-k; k keeps the result normal */
DRLIB_API double ScaleDoubleU(uint32_t v, uint32_t k);  /* v * 2^-k */
DRLIB_API float ScaleFloat(int32_t v, uint32_t k);      /* v * 2^-k, v rounded to float first */
DRLIB_API float ScaleFloatU(uint32_t v, uint32_t k);    /* v * 2^-k, v rounded to float first */
DRLIB_API uint32_t isNaN(double x);                     /* 1 for a NaN, else 0 */
DRLIB_API int32_t isInf(double x);                      /* 1 for +inf, -1 for -inf, else 0 */
DRLIB_API uint32_t revertBits(uint32_t x);              /* the 32 bits in reverse order */
DRLIB_API int32_t IntLog(uint32_t x);                   /* 1000 * log10(x) within 3; 0 for x < 2 */
DRLIB_API uint32_t IntSqrt(uint32_t x);                 /* floor(sqrt(x)) */
DRLIB_API uint32_t CountOnes(uint32_t x);               /* number of set bits */
DRLIB_API uint32_t JPLapprox(int32_t a, int32_t b);     /* cheap approximation of sqrt(a^2 + b^2) */
/* 16 * chi-square threshold / (2 dof) for 2 dof degrees of freedom (dof clamped
 * to 1..20) at tail probability about 1/n; 255 for n = 0, 0 for n = 1. */
DRLIB_API uint32_t GetChi2InvNorm(uint32_t n, uint32_t dof);


/* Small dense products of row-major matrices; the output never overlaps an input. */
/* out = M v (3x3). */
DRLIB_API void mtx_mul_vect_3d(double *out, const double *m, const double *v);
/* out = M^T v (3x3). */
DRLIB_API void mtxt_mul_vect_3d(double *out, const double *m, const double *v);
/* out (m x p) = A B, A is m x n, B is n x p. */
DRLIB_API void mtx_mul_mtx(double *out, const double *a, const double *b, int32_t m, int32_t n,
                           int32_t p);
/* out (m x p) = A B^T, A is m x n, B is p x n. */
DRLIB_API void mtx_mul_mtxt(double *out, const double *a, const double *b, int32_t m, int32_t n,
                            int32_t p);
/* out (m x p) = A^T B, A is r x m, B is r x p. */
DRLIB_API void mtxt_mul_mtx(double *out, const double *a, const double *b, int32_t r, int32_t m,
                            int32_t p);

/* ======================================================================= */
/* 6. Runtime support: assertions, bounded strings, CRCs                    */
/* ======================================================================= */

/* Assertion module. assert_fail_handle prints a fixed-form message to standard
 * output and never returns: the calling thread stays parked in the handler. */
DRLIB_API void setup_abort_callback(void);
DRLIB_API void set_abort_behavior(uint32_t behavior);   /* accepted and ignored */
DRLIB_API uint32_t get_abort_behavior(void);             /* always 0 */
DRLIB_API void enable_assert_weak(uint32_t flag);
DRLIB_API uint32_t get_assert_weak(void);                /* 1 until enable_assert_weak */
DRLIB_API void assert_fail_handle(const char *expr, const char *file, int32_t line,
                                  const char *func) __attribute__((noreturn));

/* Bounded strings: never write past the given size, always terminate what they write. */
/* Formatted print into s (at most maxlen bytes with the terminator); returns the
 * characters stored without the terminator; 0 for a null s or maxlen 0. */
DRLIB_API uint32_t slprintf(char *s, uint32_t maxlen, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
/* Copy src into dst (at most size bytes with the terminator); returns the bytes
 * stored including the terminator; 0 for a null pointer or size 0.
 *
 * Not the BSD or glibc strlcpy, which returns the length of src and takes
 * and returns size_t. glibc 2.38 and later declare that one in <string.h>
 * (in C++ always, in C with _DEFAULT_SOURCE or _GNU_SOURCE), and the two
 * declarations conflict: a unit that includes both does not compile. Define
 * DRLIB_TOOLKIT_NO_STRLCPY before including this header in such a unit to
 * leave this declaration out. At run time the library's strlcpy carries the
 * version node DRLIB_4, so modules linked against another library's
 * versioned strlcpy (glibc's, libbsd's) keep theirs; but a host object that
 * calls strlcpy and is linked with -ldrlib ahead of the library that should
 * supply it binds to this one. */
#if !defined(DRLIB_TOOLKIT_NO_STRLCPY)
DRLIB_API int32_t strlcpy(char *dst, const char *src, uint32_t size);
#endif

/* CRC routines. Each continues a running CRC over len bytes and returns the new
 * register; none applies an initial value or final XOR of its own. */
/* CRC-16/ARC with crc = 0 (reflected 0x8005). */
DRLIB_API uint32_t crc16_calc_IMB(uint32_t crc, const uint8_t *data, uint32_t len);
/* CRC-16/XMODEM with crc = 0 (MSB-first 0x1021). */
DRLIB_API uint32_t crc16_cal_xmodem(uint16_t crc, const uint8_t *data, int32_t len);
/* Reflected 0x1021: CRC-16/KERMIT with crc = 0, MCRF4XX with 0xFFFF, X-25 with
 * 0xFFFF and a final XOR of 0xFFFF. */
DRLIB_API uint32_t crc16_cal_ccitt(uint16_t crc, const uint8_t *data, int32_t len);
/* CRC-24Q with crc = 0; result masked to 24 bits. */
DRLIB_API uint32_t crc24q_calc(uint32_t crc, const uint8_t *data, uint32_t len);
/* Reflected 0x04C11DB7: CRC-32 with crc = 0xFFFFFFFF and a final XOR of 0xFFFFFFFF. */
DRLIB_API int32_t crc32_calc(uint32_t crc, const uint8_t *data, uint32_t len);

/* Layout of the records the exported toolkit takes by pointer. */
DRLIB_STATIC_ASSERT(sizeof(FusionIn) == 624, FusionIn_size);
DRLIB_STATIC_ASSERT(offsetof(FusionIn, pos_index) == 88, FusionIn_pos_index);
DRLIB_STATIC_ASSERT(offsetof(FusionIn, dtheta) == 96, FusionIn_dtheta);
DRLIB_STATIC_ASSERT(offsetof(FusionIn, dvel) == 360, FusionIn_dvel);

DRLIB_STATIC_ASSERT(sizeof(NavState) == 56 * sizeof(double), NavState_size);
DRLIB_STATIC_ASSERT(offsetof(NavState, llh) == 0 * 8, NavState_llh);
DRLIB_STATIC_ASSERT(offsetof(NavState, v_n) == 3 * 8, NavState_v_n);
DRLIB_STATIC_ASSERT(offsetof(NavState, acc_n) == 6 * 8, NavState_acc_n);
DRLIB_STATIC_ASSERT(offsetof(NavState, rph) == 9 * 8, NavState_rph);
DRLIB_STATIC_ASSERT(offsetof(NavState, f_n) == 12 * 8, NavState_f_n);
DRLIB_STATIC_ASSERT(offsetof(NavState, qne) == 15 * 8, NavState_qne);
DRLIB_STATIC_ASSERT(offsetof(NavState, qbn) == 19 * 8, NavState_qbn);
DRLIB_STATIC_ASSERT(offsetof(NavState, cne) == 23 * 8, NavState_cne);
DRLIB_STATIC_ASSERT(offsetof(NavState, cbn) == 32 * 8, NavState_cbn);
DRLIB_STATIC_ASSERT(offsetof(NavState, wie_n) == 41 * 8, NavState_wie_n);
DRLIB_STATIC_ASSERT(offsetof(NavState, wen_n) == 44 * 8, NavState_wen_n);
DRLIB_STATIC_ASSERT(offsetof(NavState, g_n) == 47 * 8, NavState_g_n);
DRLIB_STATIC_ASSERT(offsetof(NavState, rm) == 50 * 8, NavState_rm);
DRLIB_STATIC_ASSERT(offsetof(NavState, rn) == 51 * 8, NavState_rn);
DRLIB_STATIC_ASSERT(offsetof(NavState, cos_lat) == 52 * 8, NavState_cos_lat);
DRLIB_STATIC_ASSERT(offsetof(NavState, sin_lat) == 53 * 8, NavState_sin_lat);
DRLIB_STATIC_ASSERT(offsetof(NavState, cos_lon) == 54 * 8, NavState_cos_lon);
DRLIB_STATIC_ASSERT(offsetof(NavState, sin_lon) == 55 * 8, NavState_sin_lon);

DRLIB_STATIC_ASSERT(sizeof(KfFilter) == 680, KfFilter_size);
DRLIB_STATIC_ASSERT(offsetof(KfFilter, pos_index) == 4, KfFilter_pos_index);
DRLIB_STATIC_ASSERT(offsetof(KfFilter, acc_bias) == 8, KfFilter_acc_bias);
DRLIB_STATIC_ASSERT(offsetof(KfFilter, gyro_bias) == 32, KfFilter_gyro_bias);
DRLIB_STATIC_ASSERT(offsetof(KfFilter, L) == 56, KfFilter_L);

#ifdef __cplusplus
}
#endif

#endif /* DRLIB_TOOLKIT_H */
