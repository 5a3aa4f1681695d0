/*
 * drlib.h - GNSS/IMU tilt-compensation fusion library for survey poles.
 *
 * The host's header of libdrlib.so. It compiles as C99 and as C++, beside
 * any C library's declarations (it declares nothing of the C library's
 * names; the exported toolkit, strlcpy included, is in drlib_toolkit.h,
 * which a host does not need).
 *
 * A host feeds the library one DrInput record per 10 Hz GNSS epoch (the
 * receiver's ECEF position and velocity plus the raw IMU samples of the
 * epoch) and receives one TiltStat record per accepted epoch through a
 * callback: attitude, tilt and the pole-tip position with its accuracy.
 *
 * All records are little-endian and laid out byte for byte as documented
 * here; every size and field offset is checked at compile time wherever this
 * header is included. The library keeps all of its state in static storage,
 * allocates nothing, owns no thread and prints nothing. It is not reentrant:
 * call every function from one thread, or serialise the calls.
 *
 * Sections:
 *   1. Records that cross the interface
 *   2. Public interface (the Drlib family)
 *   3. What an integrator must know: geometry, timing, accuracy, resources
 */
#ifndef DRLIB_H
#define DRLIB_H

#include <stddef.h>
#include <stdint.h>

#if defined(DRLIB_BUILDING)
#define DRLIB_API __attribute__((visibility("default")))
#else
#define DRLIB_API
#endif

/* Compile-time checks usable from C99 (no _Static_assert) and C++. */
#if defined(__cplusplus)
#define DRLIB_STATIC_ASSERT(cond, tag) static_assert(cond, #tag)
#else
#define DRLIB_STATIC_ASSERT(cond, tag) typedef char drlib_static_assert_##tag[(cond) ? 1 : -1]
#endif

#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "drlib records are little-endian; this target is not"
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================= */
/* 1. Records that cross the interface                                      */
/* ======================================================================= */

/*
 * DrInput: header of the per-epoch input record (88 bytes). The record the
 * host passes to DrlibUpdateFusion is this header immediately followed by
 * `nsamples` ImuSample records (32 bytes each), 88 + 32 * nsamples bytes in
 * all; DRLIB_INPUT_SAMPLES() gives the first sample.
 */
typedef struct DrInput {
    uint8_t version;      /* record version; must be 4 */
    uint8_t reserved[4];  /* never read */
    uint8_t nsamples;     /* ImuSample records that follow; valid 8..12 */
    uint8_t pos_type;     /* GNSS position solution type (0x10..0x12, 0x20..0x22, 0x30..0x32) */
    uint8_t vel_type;     /* GNSS velocity solution type (8, 9, 0x10..0x12, or equal to pos_type) */
    uint32_t seq;         /* sequence number: the previous record's plus 1 */
    uint32_t tow_ms;      /* GNSS time of week, ms; within 1 ms of a multiple of 100 */
    double pos[3];        /* antenna position, ECEF x, y, z, m */
    double vel[3];        /* antenna velocity, ECEF x, y, z, m/s */
    float pos_std[3];     /* position standard deviations north, east, down, m */
    float vel_std[3];     /* velocity standard deviations north, east, down, m/s */
} DrInput;

/* One raw IMU sample: the increments over the 10 ms ending at time_us. */
typedef struct ImuSample {
    uint32_t reserved;    /* never read */
    uint32_t time_us;     /* time stamp, us; only its value modulo 1000000 is used */
    int32_t gyro[3];      /* angle increment counts, body x, y, z (DrCfg.gyro_scale deg/count) */
    int32_t acc[3];       /* velocity increment counts, body x, y, z (DrCfg.acc_scale m/s/count) */
} ImuSample;

/* The samples that follow a DrInput header. */
#define DRLIB_INPUT_SAMPLES(rec) \
    ((const ImuSample *)(const void *)((const unsigned char *)(rec) + sizeof(DrInput)))
/* Size in bytes of a whole input record with n samples. */
#define DRLIB_INPUT_SIZE(n) (sizeof(DrInput) + (size_t)(n) * sizeof(ImuSample))

/* DrCfg: the configuration record (88 bytes). */
typedef struct DrCfg {
    uint32_t options;          /* options word, read only with DRLIB_OPTIONS_MARKER (below) */
    uint32_t bias_store_mode;  /* 3: DrlibDestroy writes the learned gyro bias into gyro_bias_code */
    double reserved1;          /* never read */
    double reserved2;          /* never read */
    double gyro_scale;         /* degrees per 0.01 s step per raw gyro count */
    double acc_scale;          /* m/s per 0.01 s step per raw accelerometer count */
    double gyro_bias_code[3];  /* gyro bias, rad/s, body x, y, z, offset-encoded as 1+bx, 2+by, 3+bz */
    double mount_rph[3];       /* mounting roll, pitch, heading, rad; used only if each |angle| < 1.2 deg */
} DrCfg;

/*
 * DrCfg.options: accuracy options beyond the classic behaviour, recommended
 * for new hosts as DRLIB_OPTIONS_MARKER | DRLIB_OPT_ALIGNED_VELOCITY |
 * DRLIB_OPT_SCREEN_SOLUTIONS. The word is read only when its upper 16 bits
 * equal the marker; any other value (0, the built-in configuration, stack
 * garbage from a host that never set it) is ignored and the library behaves
 * bit for bit as without options. With the marker, the low bits select:
 *
 *   DRLIB_OPT_ALIGNED_VELOCITY  the filters hold their state against the GNSS
 *     velocity at the instant their navigation solution refers to (60 ms
 *     before the record's time tag): 0.4 x this record's velocity + 0.6 x the
 *     previous record's, wherever the GNSS velocity enters (the heading bank's
 *     start and every bank and main filter update). Without it the velocity of
 *     the record's own time tag is used, and the acceleration x 60 ms between
 *     the two instants turns the heading. In simulated surveys with an
 *     industrial IMU the option lowers the heading RMS from 1.4-2.2 deg to
 *     0.3-0.5 deg and the tip's horizontal RMS from 18-28 mm to 10-11 mm. The reported
 *     tip deviations (and so the status classes) keep their formula, which
 *     makes them conservative with this option: 76-91 % of the tip error
 *     components lie within 1 sigma (68 % for an exact deviation) and all
 *     within 3 sigma.
 *   DRLIB_OPT_SCREEN_SOLUTIONS  a record whose position or velocity is not
 *     finite, whose position lies more than 1 km below or 10 km above the
 *     ellipsoid, whose speed exceeds 100 m/s, or whose position differs from
 *     the previous accepted record's by more than 1 m beyond what the mean of
 *     the two velocities explains over the interval, is refused like an
 *     invalid record (DrlibUpdateFusion returns 1, the run restarts, no
 *     callback). Without it such solutions are used as they stand (section 2).
 *
 * Other bits are reserved and ignored. DrlibInit and DrlibUpdateCfg take the
 * word with the rest of the record; a change takes effect with the next
 * DrlibUpdateFusion, without a restart: the running filters keep their
 * state, and only the velocity they are updated with and the screening of
 * the records change from then on.
 */
#define DRLIB_OPTIONS_MARKER 0xD7C00000u
#define DRLIB_OPT_ALIGNED_VELOCITY 0x1u
#define DRLIB_OPT_SCREEN_SOLUTIONS 0x2u

/* HwCfg: the pole lever record (24 bytes). */
typedef struct HwCfg {
    double lever[3];           /* m, body axes; the negation of the vector passed to DrlibSetHwCfg */
} HwCfg;

/* TiltStat: the status record handed to the tilt callback (116 bytes, packed). */
typedef struct __attribute__((packed)) TiltStat {
    uint8_t version;           /* always 2 */
    uint8_t status;            /* 0 no tilt solution; 1, 2, 3: tip variance sum below
                                  0.012^2, 0.06^2, 0.35^2 m^2 */
    uint8_t pos_type;          /* the newest record's pos_type */
    uint8_t vel_type;          /* the newest record's vel_type */
    uint32_t tow_ms;           /* the newest record's tow_ms; the solution is 60 ms older (section 3) */
    double att[3];             /* roll, pitch, heading, rad (n = north-east-down); zeros without solution */
    double tip_pos[3];         /* pole-tip position, ECEF, m; the antenna position without solution */
    double vel[3];             /* the newest record's velocity, ECEF, m/s */
    float tip_std[3];          /* tip deviations north, east, down from the attitude uncertainty, m */
    float tip_std_total[3];    /* tip_std plus the record's pos_std, per component, m */
    float vel_std[3];          /* the newest record's vel_std, m/s */
} TiltStat;

/* Tilt callback: called once per accepted epoch inside DrlibUpdateFusion. */
typedef void (*DrlibTiltCallback)(const TiltStat *stat);

/* Calibration callback: (code, data, length); see DrlibCalibStart. */
typedef void (*DrlibCalibCallback)(uint32_t code, const void *data, uint32_t len);

/* Record layout checks: a host compiled with another compiler or as C sees the same bytes. */
DRLIB_STATIC_ASSERT(sizeof(DrInput) == 88, DrInput_size);
DRLIB_STATIC_ASSERT(offsetof(DrInput, version) == 0, DrInput_version);
DRLIB_STATIC_ASSERT(offsetof(DrInput, reserved) == 1, DrInput_reserved);
DRLIB_STATIC_ASSERT(offsetof(DrInput, nsamples) == 5, DrInput_nsamples);
DRLIB_STATIC_ASSERT(offsetof(DrInput, pos_type) == 6, DrInput_pos_type);
DRLIB_STATIC_ASSERT(offsetof(DrInput, vel_type) == 7, DrInput_vel_type);
DRLIB_STATIC_ASSERT(offsetof(DrInput, seq) == 8, DrInput_seq);
DRLIB_STATIC_ASSERT(offsetof(DrInput, tow_ms) == 12, DrInput_tow_ms);
DRLIB_STATIC_ASSERT(offsetof(DrInput, pos) == 16, DrInput_pos);
DRLIB_STATIC_ASSERT(offsetof(DrInput, vel) == 40, DrInput_vel);
DRLIB_STATIC_ASSERT(offsetof(DrInput, pos_std) == 64, DrInput_pos_std);
DRLIB_STATIC_ASSERT(offsetof(DrInput, vel_std) == 76, DrInput_vel_std);

DRLIB_STATIC_ASSERT(sizeof(ImuSample) == 32, ImuSample_size);
DRLIB_STATIC_ASSERT(offsetof(ImuSample, reserved) == 0, ImuSample_reserved);
DRLIB_STATIC_ASSERT(offsetof(ImuSample, time_us) == 4, ImuSample_time_us);
DRLIB_STATIC_ASSERT(offsetof(ImuSample, gyro) == 8, ImuSample_gyro);
DRLIB_STATIC_ASSERT(offsetof(ImuSample, acc) == 20, ImuSample_acc);

DRLIB_STATIC_ASSERT(sizeof(DrCfg) == 88, DrCfg_size);
DRLIB_STATIC_ASSERT(offsetof(DrCfg, options) == 0, DrCfg_options);
DRLIB_STATIC_ASSERT(offsetof(DrCfg, bias_store_mode) == 4, DrCfg_bias_store_mode);
DRLIB_STATIC_ASSERT(offsetof(DrCfg, reserved1) == 8, DrCfg_reserved1);
DRLIB_STATIC_ASSERT(offsetof(DrCfg, reserved2) == 16, DrCfg_reserved2);
DRLIB_STATIC_ASSERT(offsetof(DrCfg, gyro_scale) == 24, DrCfg_gyro_scale);
DRLIB_STATIC_ASSERT(offsetof(DrCfg, acc_scale) == 32, DrCfg_acc_scale);
DRLIB_STATIC_ASSERT(offsetof(DrCfg, gyro_bias_code) == 40, DrCfg_gyro_bias_code);
DRLIB_STATIC_ASSERT(offsetof(DrCfg, mount_rph) == 64, DrCfg_mount_rph);

DRLIB_STATIC_ASSERT(sizeof(HwCfg) == 24, HwCfg_size);
DRLIB_STATIC_ASSERT(offsetof(HwCfg, lever) == 0, HwCfg_lever);

DRLIB_STATIC_ASSERT(sizeof(TiltStat) == 116, TiltStat_size);
DRLIB_STATIC_ASSERT(offsetof(TiltStat, version) == 0, TiltStat_version);
DRLIB_STATIC_ASSERT(offsetof(TiltStat, status) == 1, TiltStat_status);
DRLIB_STATIC_ASSERT(offsetof(TiltStat, pos_type) == 2, TiltStat_pos_type);
DRLIB_STATIC_ASSERT(offsetof(TiltStat, vel_type) == 3, TiltStat_vel_type);
DRLIB_STATIC_ASSERT(offsetof(TiltStat, tow_ms) == 4, TiltStat_tow_ms);
DRLIB_STATIC_ASSERT(offsetof(TiltStat, att) == 8, TiltStat_att);
DRLIB_STATIC_ASSERT(offsetof(TiltStat, tip_pos) == 32, TiltStat_tip_pos);
DRLIB_STATIC_ASSERT(offsetof(TiltStat, vel) == 56, TiltStat_vel);
DRLIB_STATIC_ASSERT(offsetof(TiltStat, tip_std) == 80, TiltStat_tip_std);
DRLIB_STATIC_ASSERT(offsetof(TiltStat, tip_std_total) == 92, TiltStat_tip_std_total);
DRLIB_STATIC_ASSERT(offsetof(TiltStat, vel_std) == 104, TiltStat_vel_std);

/* ======================================================================= */
/* 2. Public interface (the Drlib family)                                   */
/* ======================================================================= */

/*
 * Robustness: no sequence of calls with any record contents (NaN or infinite
 * values, any nsamples 0..255, any time tags or counts, any DrCfg) ends the
 * host's process or leaves state behind: a refused record restarts the run,
 * and the next valid run gives the same results, bit for bit, as after a
 * fresh DrlibInit. The internal assertions (see section 3) guard invariants
 * that no host input can reach; the library is fuzzed for this with libFuzzer.
 *
 * Within a run the library trusts the solution of every record it accepts:
 * a record is checked for its time tag, solution types, deviations and
 * samples, not for the values of its position and velocity. A position far
 * from the Earth's surface or a velocity jump is used as it stands: the tip
 * of that epoch carries it, and through gravity and the velocity update it
 * turns the attitude, so the run reports wrong tips, possibly with a quality
 * class, until the filter has worked the error off or the engine restarts (a
 * refused or discontinuous record, DrlibReset, or a tip deviation beyond
 * class 3). A NaN or infinite value ends the solution (class 0) in the same
 * or the next epoch; in a simulated survey one position 1e9 m off left the
 * tip metres wrong at class 1 for a minute, while one 5 m/s velocity glitch
 * moved it by about a centimetre. Pass only solutions the receiver reports
 * as fixes, and, if the receiver can emit outliers, screen them in the host
 * or let the library do it (DRLIB_OPT_SCREEN_SOLUTIONS, section 1).
 */

/*
 * Calling order:
 *   DrlibInit                     once at start (again at any time to start afresh)
 *   DrlibRegisterCB               after DrlibInit (initialisation clears the callback)
 *   DrlibSetHwCfg, DrlibUpdateCfg whenever the pole or the configuration changes
 *   DrlibUpdateFusion             once per 10 Hz GNSS epoch, records in time order
 *   DrlibReset, DrlibCalibStart, DrlibVerInfo   at any time
 *   DrlibDestroy                  at the end (may hand the learned gyro bias back)
 * Every function may be called before DrlibInit; DrlibUpdateFusion then
 * returns 1 and does nothing. A null pointer selects the documented default
 * (it is never an error), except for the record of DrlibUpdateFusion.
 * No function may be called from inside a callback.
 */

/*
 * Tilt callback (see DrlibRegisterCB). Called once per accepted record, on
 * the host's thread, inside DrlibUpdateFusion, after every state update of
 * the epoch. `stat` points to a record that lives only for the duration of
 * the call: copy what you need, keep no pointer to it, and do not call any
 * Drlib function from inside. TiltStat field meanings are in section 1; the
 * classes 1..3 come only from the main filter, class 0 means no tilt
 * solution (tip_pos then is the antenna position, tip_std 1.5 m).
 *
 * Calibration callback (see DrlibCalibStart). Called inside
 * DrlibUpdateFusion with (code, data, len); data is valid only during the call:
 *   code 1, len 4:  data -> uint32_t progress, percent 0..99, each time it changes
 *                   (it drops back to 0 when a rejected sample restarts the estimate);
 *   code 0, len 24: data -> 3 doubles, the result: mounting roll, pitch (rad) and
 *                   0.3 x the estimated heading (rad), each limited to +-1.08 deg;
 *                   suitable as DrCfg.mount_rph;
 *   code 2, len 0:  data null, the time limit passed before the estimate completed.
 * The same rules hold as for the tilt callback: copy, do not call back.
 */

/* Initialises the library (again, if it was): loads cfg (null: the built-in
 * defaults, no stored gyro bias, identity mounting), clears the callback and
 * any pending reset request, empties the input history and the IMU ring and
 * resets the fusion engine. The pole lever (DrlibSetHwCfg) is kept. The
 * record is copied; the host keeps ownership. Returns 0. */
DRLIB_API int32_t DrlibInit(const DrCfg *cfg);

/* Marks the library uninitialised (DrlibUpdateFusion returns 1 from now on).
 * If cfg is not null and cfg->bias_store_mode is 3, writes into
 * cfg->gyro_bias_code the gyro bias to keep, in the offset encoding
 * (1 + bx, 2 + by, 3 + bz, rad/s): the main filter's estimate if it is well
 * learned, else the configured code, else zeros (which DrlibInit ignores).
 * Nothing else of cfg is written. Passing that record to the next DrlibInit
 * carries the bias over. Returns 0. */
DRLIB_API int32_t DrlibDestroy(DrCfg *cfg);

/* Registers the tilt callback; null removes it. Returns 0. */
DRLIB_API uint32_t DrlibRegisterCB(DrlibTiltCallback cb);

/* Requests an engine reset: the next DrlibUpdateFusion returns the engine
 * to idle before it processes its record. The input history is kept, so the
 * heading bank may restart at the next whole second. Returns 0. */
DRLIB_API uint32_t DrlibReset(void);

/* One fusion cycle with the epoch's input record (DrInput header followed by
 * its nsamples ImuSample records, DRLIB_INPUT_SIZE(nsamples) bytes). The
 * record is read during the call only. Returns 0 when the record was
 * processed: the tilt callback, if registered, has been called exactly once.
 * Returns 1 without a callback when the library is not initialised or rec
 * is null (nothing is done then), or when the record is invalid, its IMU
 * samples are badly spaced, it does not continue the previous record (sequence
 * number + 1, 99..101 ms later), its samples do not cover the epoch, or,
 * with DRLIB_OPT_SCREEN_SOLUTIONS, its solution is implausible: the history and the IMU ring are then discarded and the engine reset, and the
 * next record starts a new run. */
DRLIB_API uint32_t DrlibUpdateFusion(const DrInput *rec);

/* Accepted and ignored. */
DRLIB_API void DrlibSetCoord(uint32_t coord);

/* Writes the version text, "VelkarDrLib 4.4.06f71e.Nov 27 2020-16:39:54"
 * (43 characters), into buf, cut to len - 1 characters and always
 * terminated. Nothing is written for a null buf or len < 1. */
DRLIB_API void DrlibVerInfo(char *buf, int32_t len);

/* Starts the mounting calibration with the pole tip on a known point:
 * ref_pos is that point (ECEF, m, 3 doubles, copied); target the number of
 * updates to collect (raised to at least 1200; one update per accepted epoch
 * with the main filter running and the tip deviations within 0.025 m and the
 * tip within 0.06 m of the point on each axis; a rejected epoch restarts the
 * count); cb the calibration callback (may be null: the calibration runs
 * unreported). A time limit of target / 5 seconds of wall-clock time runs
 * from this call (240 s at the minimum target). When the last update
 * arrives after the time limit, the result is still reported (code 0), as
 * the estimate is complete. With a null ref_pos, stops a running calibration
 * without a callback. The result is not applied by the library: send it
 * back as DrCfg.mount_rph through DrlibUpdateCfg. */
DRLIB_API void DrlibCalibStart(const double *ref_pos, uint32_t target, DrlibCalibCallback cb);

/* Accepted and ignored; returns 0. */
DRLIB_API uint32_t DrlibUpdateDiffData(uint32_t a, uint32_t b, uint32_t c);

/* Accepted and ignored; returns 0. */
DRLIB_API uint32_t DrlibUpdateLogBin(uint32_t a, uint32_t b);

/* Replaces the active configuration as DrlibInit loads it (null: defaults)
 * and rebuilds the mounting rotation, without touching the callback, the
 * history or the filters. Returns 0. */
DRLIB_API int32_t DrlibUpdateCfg(const DrCfg *cfg);

/* Sets the pole vector v: the position of the GNSS antenna relative to the
 * pole tip, IMU body axes, m (3 doubles). (0, 0, h) is an antenna h metres up
 * the pole from the tip with the IMU's z axis pointing up the pole; an IMU
 * whose z axis points down the pole has v = (x, y, -h). The pole's tilt is
 * the angle of v from the vertical. The library stores -v (the tip seen from
 * the antenna) in HwCfg.lever. Null
 * leaves it unchanged. Kept across DrlibInit; default v = (0, 0, 1.892).
 * Returns 0. */
DRLIB_API int32_t DrlibSetHwCfg(const double *v);

/* ======================================================================= */
/* 3. What an integrator must know: geometry, timing, accuracy, resources   */
/* ======================================================================= */

/*
 * IMU and antenna. The library assumes the IMU reference point at
 * (-0.03404, -0.05097, -0.01432) m from the GNSS antenna's phase centre, in
 * IMU body axes; no call changes it. It carries the GNSS velocity to the IMU
 * (the velocity seen there includes the rotation rate times this offset) and
 * the GNSS position to the INS. The receiver's board must place the IMU so:
 * an IMU elsewhere sees a rotation-induced velocity that the filter reads as
 * attitude error (5 cm of misplacement at 1 rad/s of pole rotation is
 * 5 cm/s, as much as the GNSS velocity noise). The pole vector of
 * DrlibSetHwCfg runs from the tip to the antenna, not to the IMU.
 *
 * Time. TiltStat.tow_ms is the newest record's tag, but the solution refers
 * to 60 ms before it: the IMU data are resampled onto a 10 ms grid that ends
 * 60 ms before the tag, so that the epoch's samples cover it, and the antenna
 * position of the tip is interpolated to that instant (0.4 of this record's
 * position plus 0.6 of the previous one's). A moving pole's tip lags its tag
 * by 60 ms. ImuSample.time_us must be GNSS time modulo one second (only its
 * value modulo 1000000 is used): the samples are placed on the grid by that
 * stamp, so an IMU clock that runs free of GNSS time misplaces them.
 *
 * Solution types. pos_type must be one of 0x10, 0x11, 0x12, 0x20, 0x21,
 * 0x22, 0x30, 0x31, 0x32; vel_type one of 8, 9, 0x10, 0x11, 0x12 or equal to
 * pos_type. They are the receiver's own codes: the library refuses a record
 * with another code, and otherwise gives them no meaning (it neither weights
 * nor screens a solution by its type) and copies them into TiltStat. Pass
 * only the solutions whose pos_std and vel_std are honest.
 *
 * Scale factors. The defaults (DrlibInit(NULL)) are gyro_scale
 * 1.0058283805847168e-06 deg per count (540 * 2^-29) and acc_scale
 * 1.862645149230957e-07 m/s per count (100 * 2^-29), each count being the
 * increment over one 10 ms sample.
 *
 * Accuracy classes. TiltStat.status 1..3 compares the sum of the tip
 * variances from the attitude uncertainty (tip_std squared) with 0.012^2,
 * 0.06^2 and 0.35^2 m^2: the GNSS position error is left out, so a class-1
 * tip is only as good as the fix under it. tip_std_total adds the record's
 * pos_std to tip_std per component; without a main filter (status 0) it is
 * the record's pos_std itself, and tip_std is 1.5 m.
 *
 * Tilt and its direction. att is roll, pitch, heading of the body-to-NED
 * rotation cbn = Rz(heading) Ry(pitch) Rx(roll). The pole's unit vector in
 * NED is u = cbn * M * v / |v|, with v the vector given to DrlibSetHwCfg and
 * M the mounting rotation of DrCfg.mount_rph (identity by default). Then
 *   tilt            = atan2(hypot(u[0], u[1]), -u[2])   (0 for a plumb pole)
 *   tilt direction  = atan2(u[1], u[0])  (azimuth from north, east positive,
 *                     towards which the antenna leans from the tip).
 * For v along body z, (0, 0, h), with r, p, y = roll, pitch, heading:
 * u = (cos r sin p cos y + sin r sin y, cos r sin p sin y - sin r cos y,
 * cos r cos p), so tilt = acos(-cos r cos p); a plumb pole has r near pi.
 *
 * Resources. All state is static, about 350 KiB, nearly all of it zero at
 * load (.bss: 358,288 bytes on armhf, 358,328 on x86-64; 319,488 of them the
 * 512-epoch input history). Nothing is allocated and no thread is created.
 * The deepest stack a DrlibUpdateFusion call reached below its caller's
 * frame, in simulated survey, calibration and static sessions with and
 * without the recommended options, was 6,287 bytes on armhf and 7,639 on
 * x86-64 (stack painting, a callback that copies the record included); the
 * largest single frame is 4,992 bytes on armhf. Reserve 16 KiB of the
 * calling thread's stack for the library, about twice the deepest use
 * measured.
 *
 * Assertions. Internal invariants are checked by assertions that no host
 * input can reach (the library is fuzzed for that). If one fails anyway, the
 * library prints a short message to standard output and halts the calling
 * thread for good (it never returns into the host and never ends the
 * process); a watchdog of the host's own is the way to recover from that.
 */

#ifdef __cplusplus
}
#endif

#endif /* DRLIB_H */
