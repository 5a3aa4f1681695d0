"""Replay GNSS/IMU input logs through libdrlib from Python (standard library only).

    import drlib
    for st in drlib.replay("survey.log"):
        print(st.tow_ms, st.status, st.att_deg, st.tilt_deg, tuple(st.tip_pos))

The records of drlib.h are ctypes Structures with the header's field names
(DrInput, ImuSample, DrCfg, HwCfg, TiltStat). When the shared object is
loaded, their sizes and offsets are checked against the documented layout and
against the library itself (a probe record goes through it); a mismatch
raises LayoutError.

The library is found through $DRLIB_LIBRARY (a path), else as libdrlib.so.4 on
the dynamic loader's search path. It keeps all of its state in static storage
and is not reentrant: one Session at a time per process, all calls from one
thread.
"""

import collections
import ctypes
import ctypes.util
import math
import os

__all__ = [
    "DrInput", "ImuSample", "DrCfg", "HwCfg", "TiltStat",
    "Epoch", "CalibEvent", "Library", "Session",
    "LayoutError", "LogError", "SessionError",
    "load", "read_log", "replay", "epochs", "version",
    "SONAME", "DEFAULT_POLE_M",
    "OPTIONS_MARKER", "OPT_ALIGNED_VELOCITY", "OPT_SCREEN_SOLUTIONS", "default_cfg",
]

SONAME = "libdrlib.so.4"
# The pole vector: the position of the GNSS antenna relative to the pole tip,
# IMU body axes, m (what DrlibSetHwCfg takes); a number L stands for (0, 0, L),
# an IMU whose z axis points up the pole. Tilt is this vector's angle from the
# vertical.
DEFAULT_POLE_M = (0.0, 0.0, 1.892)
_DEG = math.pi / 180.0              # the same constant drlib-replay divides by

# DrCfg.options (drlib.h): read only with the marker in the upper 16 bits.
OPTIONS_MARKER = 0xD7C00000
OPT_ALIGNED_VELOCITY = 0x1          # GNSS velocity at the navigation solution's instant
OPT_SCREEN_SOLUTIONS = 0x2          # refuse implausible positions and velocities


class LayoutError(RuntimeError):
    """The records as declared here do not match the loaded library."""


class LogError(ValueError):
    """An input log is malformed from byte `offset` on."""

    def __init__(self, path, offset, reason):
        super().__init__("%s: byte %d: %s" % (path, offset, reason))
        self.path, self.offset, self.reason = path, offset, reason


class SessionError(RuntimeError):
    """Another session is open: the library has one state per process."""


# --------------------------------------------------------------------------
# Records

class DrInput(ctypes.Structure):
    """Header of an input record; `nsamples` ImuSample records follow it."""
    _fields_ = [
        ("version", ctypes.c_uint8),
        ("reserved", ctypes.c_uint8 * 4),
        ("nsamples", ctypes.c_uint8),
        ("pos_type", ctypes.c_uint8),
        ("vel_type", ctypes.c_uint8),
        ("seq", ctypes.c_uint32),
        ("tow_ms", ctypes.c_uint32),
        ("pos", ctypes.c_double * 3),      # antenna, ECEF, m
        ("vel", ctypes.c_double * 3),      # ECEF, m/s
        ("pos_std", ctypes.c_float * 3),   # north, east, down, m
        ("vel_std", ctypes.c_float * 3),   # north, east, down, m/s
    ]


class ImuSample(ctypes.Structure):
    """Increments over the 10 ms ending at time_us, in raw counts."""
    _fields_ = [
        ("reserved", ctypes.c_uint32),
        ("time_us", ctypes.c_uint32),
        ("gyro", ctypes.c_int32 * 3),
        ("acc", ctypes.c_int32 * 3),
    ]


class DrCfg(ctypes.Structure):
    """Configuration record (None selects the library's defaults)."""
    _fields_ = [
        ("options", ctypes.c_uint32),            # DRLIB_OPTIONS_MARKER | OPT_* bits
        ("bias_store_mode", ctypes.c_uint32),
        ("reserved1", ctypes.c_double),
        ("reserved2", ctypes.c_double),
        ("gyro_scale", ctypes.c_double),        # deg per count
        ("acc_scale", ctypes.c_double),         # m/s per count
        ("gyro_bias_code", ctypes.c_double * 3),  # 1+bx, 2+by, 3+bz, rad/s
        ("mount_rph", ctypes.c_double * 3),     # rad
    ]


def default_cfg(options=0):
    """The library's built-in configuration record; with option bits
    (OPT_ALIGNED_VELOCITY | OPT_SCREEN_SOLUTIONS) the options word carries them
    and the marker."""
    return DrCfg(OPTIONS_MARKER | options if options else 0, 4, 1.52587890625e-06,
                 1.9073486328125e-05, 1.0058283805847168e-06, 1.862645149230957e-07)


class HwCfg(ctypes.Structure):
    """Pole lever record."""
    _fields_ = [("lever", ctypes.c_double * 3)]


class TiltStat(ctypes.Structure):
    """Tilt status handed to the callback once per accepted record."""
    _pack_ = 1
    _fields_ = [
        ("version", ctypes.c_uint8),
        ("status", ctypes.c_uint8),        # 0 no solution; 1..3 accuracy class
        ("pos_type", ctypes.c_uint8),
        ("vel_type", ctypes.c_uint8),
        ("tow_ms", ctypes.c_uint32),
        ("att", ctypes.c_double * 3),      # roll, pitch, heading, rad
        ("tip_pos", ctypes.c_double * 3),  # pole tip, ECEF, m
        ("vel", ctypes.c_double * 3),      # ECEF, m/s
        ("tip_std", ctypes.c_float * 3),   # north, east, down, m
        ("tip_std_total", ctypes.c_float * 3),
        ("vel_std", ctypes.c_float * 3),
    ]

    @property
    def att_deg(self):
        """Roll, pitch, heading in degrees."""
        return tuple(a / _DEG for a in self.att)

    # The pole vector the status was computed with (Session sets it).
    pole = DEFAULT_POLE_M

    def pole_tilt(self, pole=None):
        """(tilt, direction) of the pole vector, rad: its angle from the vertical,
        and the azimuth the antenna leans towards from the tip, [0, 2 pi).
        (0, 0) without a solution."""
        if not self.status:
            return 0.0, 0.0
        v = _vec3(self.pole if pole is None else pole)
        length = math.sqrt(sum(x * x for x in v))
        if not length > 0.0:
            return 0.0, 0.0
        u = [x / length for x in v]
        sr, cr = math.sin(self.att[0]), math.cos(self.att[0])
        sp, cp = math.sin(self.att[1]), math.cos(self.att[1])
        sh, ch = math.sin(self.att[2]), math.cos(self.att[2])
        # Rows of c_bn = Rz(heading) Ry(pitch) Rx(roll), body to north-east-down.
        north = cp * ch * u[0] + (sr * sp * ch - cr * sh) * u[1] + (cr * sp * ch + sr * sh) * u[2]
        east = cp * sh * u[0] + (sr * sp * sh + cr * ch) * u[1] + (cr * sp * sh - sr * ch) * u[2]
        down = -sp * u[0] + sr * cp * u[1] + cr * cp * u[2]
        direction = math.atan2(east, north)
        if direction < 0.0:
            direction += 2.0 * math.pi
        return math.acos(max(-1.0, min(1.0, -down))), direction

    @property
    def tilt(self):
        """Angle of the pole vector from the vertical, rad; 0 without a solution."""
        return self.pole_tilt()[0]

    @property
    def tilt_deg(self):
        return self.tilt / _DEG

    @property
    def tilt_dir_deg(self):
        """Azimuth the antenna leans towards from the tip, degrees."""
        return self.pole_tilt()[1] / _DEG

    def as_dict(self):
        return {name: (list(v) if isinstance(v, ctypes.Array) else v)
                for name, v in ((f[0], getattr(self, f[0])) for f in self._fields_)}

    def __repr__(self):
        return ("TiltStat(tow_ms=%d, status=%d, att_deg=(%.3f, %.3f, %.3f), tip_pos=(%.4f, %.4f, %.4f))"
                % ((self.tow_ms, self.status) + self.att_deg + tuple(self.tip_pos)))


# The documented sizes and offsets of every record that crosses the interface.
_LAYOUT = {
    DrInput: (88, {"version": 0, "reserved": 1, "nsamples": 5, "pos_type": 6, "vel_type": 7,
                   "seq": 8, "tow_ms": 12, "pos": 16, "vel": 40, "pos_std": 64, "vel_std": 76}),
    ImuSample: (32, {"reserved": 0, "time_us": 4, "gyro": 8, "acc": 20}),
    DrCfg: (88, {"options": 0, "bias_store_mode": 4, "reserved1": 8, "reserved2": 16,
                 "gyro_scale": 24, "acc_scale": 32, "gyro_bias_code": 40, "mount_rph": 64}),
    HwCfg: (24, {"lever": 0}),
    TiltStat: (116, {"version": 0, "status": 1, "pos_type": 2, "vel_type": 3, "tow_ms": 4,
                     "att": 8, "tip_pos": 32, "vel": 56, "tip_std": 80, "tip_std_total": 92,
                     "vel_std": 104}),
}


def _check_declared_layout(cls, size, offsets):
    name = cls.__name__
    if ctypes.sizeof(cls) != size:
        raise LayoutError("drlib: %s is %d bytes here but %d bytes in libdrlib"
                          % (name, ctypes.sizeof(cls), size))
    for field, offset in offsets.items():
        got = getattr(cls, field).offset
        if got != offset:
            raise LayoutError("drlib: %s.%s is at byte %d here but at byte %d in libdrlib"
                              % (name, field, got, offset))


# --------------------------------------------------------------------------
# The shared object

TILT_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_void_p)
CALIB_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_uint32, ctypes.c_void_p, ctypes.c_uint32)

_Vec3 = ctypes.c_double * 3


class Library:
    """The loaded shared object with its prototypes. Use load() to get one."""

    def __init__(self, path=None):
        named = path or os.environ.get("DRLIB_LIBRARY")
        self.path = named or SONAME
        try:
            self.dll = ctypes.CDLL(self.path)
        except OSError as e:
            # Only the default name may fall back to a search of the linker cache.
            found = None if named else ctypes.util.find_library("drlib")
            if not found:
                raise OSError("drlib: cannot load %s (%s); install libdrlib4 or set DRLIB_LIBRARY"
                              % (self.path, e)) from e
            self.path = found
            self.dll = ctypes.CDLL(found)
        self._declare()

    def _declare(self):
        d, i32, u32 = self.dll, ctypes.c_int32, ctypes.c_uint32
        proto = {
            "DrlibInit": (i32, [ctypes.POINTER(DrCfg)]),
            "DrlibDestroy": (i32, [ctypes.POINTER(DrCfg)]),
            "DrlibRegisterCB": (u32, [TILT_CALLBACK]),
            "DrlibReset": (u32, []),
            "DrlibUpdateFusion": (u32, [ctypes.c_void_p]),
            "DrlibVerInfo": (None, [ctypes.c_char_p, i32]),
            "DrlibCalibStart": (None, [ctypes.POINTER(ctypes.c_double), u32, CALIB_CALLBACK]),
            "DrlibUpdateCfg": (i32, [ctypes.POINTER(DrCfg)]),
            "DrlibSetHwCfg": (i32, [ctypes.POINTER(ctypes.c_double)]),
            "IsFusionDataValid": (u32, [ctypes.c_void_p]),
            "ecef2llh": (None, [ctypes.POINTER(ctypes.c_double), ctypes.POINTER(ctypes.c_double)]),
        }
        for name, (restype, argtypes) in proto.items():
            fn = getattr(d, name)
            fn.restype, fn.argtypes = restype, argtypes

    def version(self):
        """The library's version text."""
        buf = ctypes.create_string_buffer(64)
        self.dll.DrlibVerInfo(buf, len(buf))
        return buf.value.decode("ascii", "replace")

    def ecef2llh(self, xyz):
        """Geodetic latitude, longitude (rad) and height (m) of an ECEF point, by the library."""
        llh = _Vec3(0.0, 0.0, 0.0)
        self.dll.ecef2llh(llh, _Vec3(*xyz))
        return tuple(llh)


_loaded = {}


def load(path=None):
    """Loads (once per path) and checks the shared object; returns the Library."""
    key = path or os.environ.get("DRLIB_LIBRARY") or SONAME
    if key not in _loaded:
        for cls, (size, offsets) in _LAYOUT.items():
            _check_declared_layout(cls, size, offsets)
        lib = Library(path)
        _probe(lib, DrInput, ImuSample, TiltStat)
        _loaded[key] = lib
    return _loaded[key]


def version():
    return load().version()


def _probe_record(header_cls, sample_cls):
    """A valid first record: a receiver standing still on the WGS-84 ellipsoid."""
    h = header_cls()
    h.version, h.nsamples, h.pos_type, h.vel_type = 4, 10, 0x12, 0x12
    h.seq, h.tow_ms = 7, 345600000
    h.pos[:] = [-2267749.0, 5009154.0, 3221290.0]
    h.vel[:] = [0.25, -0.5, 0.125]
    h.pos_std[:] = [0.01, 0.01, 0.02]
    h.vel_std[:] = [0.015625, 0.03125, 0.0625]
    samples = (sample_cls * h.nsamples)()
    for k, s in enumerate(samples):
        s.time_us = (h.tow_ms % 1000) * 1000 + 1000000 - 150000 + 10000 * k
        s.acc[2] = -int(9.8 * 0.01 / 1.862645149230957e-07)
    return h, bytes(h) + bytes(samples)


def _probe(lib, header_cls, sample_cls, stat_cls):
    """Feeds one record through the library and reads back what it echoes,
    so that a layout that differs from the library's own shows up here."""
    header, record = _probe_record(header_cls, sample_cls)
    buf = ctypes.create_string_buffer(record, len(record))
    if lib.dll.IsFusionDataValid(buf) != 1:
        raise LayoutError("drlib: libdrlib rejects a valid DrInput header: the record layout "
                          "(%d-byte header) does not match the library's" % ctypes.sizeof(header_cls))
    seen = []

    def on_tilt(p):
        seen.append(ctypes.string_at(p, ctypes.sizeof(stat_cls)))

    cb = TILT_CALLBACK(on_tilt)
    lib.dll.DrlibInit(None)
    lib.dll.DrlibRegisterCB(cb)
    try:
        result = lib.dll.DrlibUpdateFusion(buf)
    finally:
        lib.dll.DrlibDestroy(None)
        lib.dll.DrlibRegisterCB(TILT_CALLBACK())
    if result != 0 or len(seen) != 1:
        raise LayoutError("drlib: libdrlib did not accept the probe record (result %d, %d statuses): "
                          "DrInput/ImuSample do not match the library's" % (result, len(seen)))
    st = stat_cls.from_buffer_copy(seen[0])
    echoed = (st.version == 2 and st.tow_ms == header.tow_ms and st.pos_type == header.pos_type
              and st.vel_type == header.vel_type and list(st.vel) == list(header.vel)
              and list(st.vel_std) == list(header.vel_std))
    if not echoed:
        raise LayoutError("drlib: the TiltStat the library returned does not read back the probe "
                          "record (%d-byte TiltStat): the layout does not match the library's"
                          % ctypes.sizeof(stat_cls))


# --------------------------------------------------------------------------
# Logs and sessions

Epoch = collections.namedtuple("Epoch", "offset tow_ms result status events")
Epoch.__doc__ = """One DrlibUpdateFusion call: byte offset of the record in the log, its
tow_ms, the result (0 accepted, 1 rejected), the TiltStat (None when rejected)
and the calibration events raised during the call."""

CalibEvent = collections.namedtuple("CalibEvent", "code percent result")
CalibEvent.__doc__ = """A calibration notification: code 1 progress (percent), code 0
result (roll, pitch, 0.3 x heading, rad), code 2 time limit passed."""


def read_log(source):
    """Yields (offset, record bytes) for each record of an input log (a path or
    bytes); raises LogError at the first malformed or truncated record."""
    if isinstance(source, (bytes, bytearray, memoryview)):
        data, name = bytes(source), "<log>"
    else:
        with open(source, "rb") as f:
            data = f.read()
        name = os.fspath(source)
    head = ctypes.sizeof(DrInput)
    sample = ctypes.sizeof(ImuSample)
    at = 0
    while at < len(data):
        left = len(data) - at
        if left < head:
            raise LogError(name, len(data), "truncated header: %d of %d bytes" % (left, head))
        version, nsamples = data[at], data[at + DrInput.nsamples.offset]
        if version != 4:
            raise LogError(name, at, "version %d, expected 4" % version)
        if not 8 <= nsamples <= 12:
            raise LogError(name, at + DrInput.nsamples.offset, "nsamples %d outside 8..12" % nsamples)
        length = head + nsamples * sample
        if left < length:
            raise LogError(name, len(data), "truncated record: %d of %d bytes" % (left, length))
        yield at, data[at:at + length]
        at += length


def _vec3(v):
    if isinstance(v, (int, float)):
        return _Vec3(0.0, 0.0, float(v))
    return _Vec3(*[float(x) for x in v])


class Session:
    """One run of the library, DrlibInit to DrlibDestroy.

    pole: the pole vector (see DEFAULT_POLE_M), or the pole length; cfg: a
    DrCfg (None: the library's defaults); options: option bits, written with
    the marker into cfg.options (of default_cfg() when cfg is None)."""

    _open = None

    def __init__(self, pole=DEFAULT_POLE_M, cfg=None, lib=None, options=0):
        self.lib = lib or load()
        if options:
            cfg = cfg if cfg is not None else default_cfg()
            cfg.options = OPTIONS_MARKER | options
        self.cfg = cfg
        self._pole = _vec3(pole)
        self._stats = []
        self._events = []
        self._tilt_cb = TILT_CALLBACK(self._on_tilt)
        self._calib_cb = None
        self._buf = (ctypes.c_double * ((ctypes.sizeof(DrInput) + 255 * ctypes.sizeof(ImuSample)) // 8))()
        self._active = False

    def __enter__(self):
        self.open()
        return self

    def __exit__(self, *exc):
        self.close()

    def open(self):
        if Session._open is not None:
            raise SessionError("drlib: a Session is already open (the library has one state per process)")
        Session._open = self
        d = self.lib.dll
        d.DrlibInit(ctypes.byref(self.cfg) if self.cfg is not None else None)
        d.DrlibRegisterCB(self._tilt_cb)  # after DrlibInit, which clears it
        d.DrlibSetHwCfg(self._pole)      # kept across DrlibInit: always set it
        self._active = True

    def close(self):
        """DrlibDestroy. With cfg.bias_store_mode == 3 the library writes the
        gyro bias to keep into cfg.gyro_bias_code."""
        if not self._active:
            return
        d = self.lib.dll
        d.DrlibDestroy(ctypes.byref(self.cfg) if self.cfg is not None else None)
        d.DrlibRegisterCB(TILT_CALLBACK())
        self._active = False
        Session._open = None

    def _on_tilt(self, p):
        stat = TiltStat.from_buffer_copy(ctypes.string_at(p, ctypes.sizeof(TiltStat)))
        stat.pole = tuple(self._pole)
        self._stats.append(stat)

    def _on_calib(self, code, data, length):
        percent, result = None, None
        if code == 1 and data and length == 4:
            percent = ctypes.c_uint32.from_address(data).value
        elif code == 0 and data and length == 24:
            result = tuple(_Vec3.from_address(data))
        self._events.append(CalibEvent(code, percent, result))

    def update(self, record, offset=0):
        """Feeds one input record (bytes); returns its Epoch."""
        if not self._active:
            raise SessionError("drlib: the session is not open")
        if len(record) > ctypes.sizeof(self._buf):
            raise ValueError("drlib: record of %d bytes is too long" % len(record))
        ctypes.memmove(self._buf, bytes(record), len(record))
        self._stats, self._events = [], []
        result = self.lib.dll.DrlibUpdateFusion(self._buf)
        tow_ms = DrInput.from_buffer(self._buf).tow_ms
        status = self._stats[0] if self._stats else None
        return Epoch(offset, tow_ms, result, status, self._events)

    def reset(self):
        self.lib.dll.DrlibReset()

    def update_cfg(self, cfg):
        self.cfg = cfg
        self.lib.dll.DrlibUpdateCfg(ctypes.byref(cfg) if cfg is not None else None)

    def calib_start(self, ref_pos, target=1200, on_event=None):
        """Starts the mounting calibration with the tip on ref_pos (ECEF, m).
        Events land in each Epoch's `events`; on_event(CalibEvent) is also called."""
        def handler(code, data, length):
            self._on_calib(code, data, length)
            if on_event is not None:
                on_event(self._events[-1])
        self._calib_cb = CALIB_CALLBACK(handler)
        self.lib.dll.DrlibCalibStart(_Vec3(*ref_pos), target, self._calib_cb)

    def calib_stop(self):
        self.lib.dll.DrlibCalibStart(None, 0, CALIB_CALLBACK())


def epochs(log, pole=DEFAULT_POLE_M, cfg=None, lib=None, options=0):
    """Yields an Epoch for every record of the log (a path or bytes), accepted or not."""
    with Session(pole, cfg, lib, options) as session:
        for offset, record in read_log(log):
            yield session.update(record, offset)


def replay(log, pole=DEFAULT_POLE_M, cfg=None, lib=None, options=0):
    """Yields the TiltStat of every accepted record of the log, in order;
    options: e.g. OPT_ALIGNED_VELOCITY | OPT_SCREEN_SOLUTIONS."""
    for epoch in epochs(log, pole, cfg, lib, options):
        if epoch.status is not None:
            yield epoch.status
