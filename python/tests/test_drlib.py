"""The drlib module against drlib-replay, the C host that replays the same log, and
how the module and both tools name a damaged log.

Environment: DRLIB_LIBRARY (libdrlib.so), DRLIB_SIM and DRLIB_REPLAY (the tools).
"""
import csv
import ctypes
import itertools
import math
import os
import struct
import subprocess
import tempfile
import unittest

import drlib

SIM = os.environ.get("DRLIB_SIM", "drlib-sim")
REPLAY = os.environ.get("DRLIB_REPLAY", "drlib-replay")
_run = itertools.count()


def f32(x):
    """The float a %.9g text of a float stands for."""
    return struct.unpack("<f", struct.pack("<f", x))[0]


def replay_csv(log, *options):
    """drlib-replay's tilt-status rows and its standard output."""
    out = "%s.%d.csv" % (log, next(_run))
    text = subprocess.run([REPLAY, log, "--csv", out, "-q"] + list(options), check=False,
                          stdout=subprocess.PIPE, universal_newlines=True).stdout
    with open(out, newline="") as f:
        return list(csv.DictReader(f)), text


class ReplayAgainstHost(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.TemporaryDirectory()
        cls.log = os.path.join(cls.tmp.name, "survey.log")
        subprocess.run([SIM, "--scenario", "survey", "--duration-scale", "0.5", "--seed", "3",
                        "--quiet", "--out", cls.log, "--truth", cls.log + ".truth.csv"], check=True)
        cls.lib = drlib.load()
        with open(cls.log, "rb") as f:
            cls.data = f.read()
        cls.addClassCleanup(cls.tmp.cleanup)

    def assert_same_rows(self, rows, epochs):
        self.assertEqual(len(rows), len(epochs))
        for row, ep in zip(rows, epochs):
            where = "tow_ms %s" % row["tow_ms"]
            self.assertEqual((int(row["tow_ms"]), int(row["result"])), (ep.tow_ms, ep.result),
                             where)
            st = ep.status
            if row["status"] == "":
                self.assertIsNone(st, where)
                continue
            lat, lon, h = self.lib.ecef2llh(st.tip_pos)
            expect = dict(zip(("roll_deg", "pitch_deg", "heading_deg"), st.att_deg),
                          status=st.status, tilt_deg=st.tilt_deg, tip_h_m=h, tilt_dir_deg=st.tilt_dir_deg,
                          tip_lat_deg=lat / (math.pi / 180.0), tip_lon_deg=lon / (math.pi / 180.0))
            expect.update(zip(("tip_x_m", "tip_y_m", "tip_z_m"), st.tip_pos))
            for k, axis in enumerate("ned"):
                expect["tip_std_%s_m" % axis] = st.tip_std[k]
                expect["total_std_%s_m" % axis] = st.tip_std_total[k]
            for name, value in expect.items():
                got = float(row[name])
                self.assertEqual(f32(got) if "std" in name else got, value, "%s %s" % (where, name))

    def test_survey_log_row_for_row_and_the_stored_bias(self):
        cfg = drlib.DrCfg(0, 3, 1.52587890625e-06, 1.9073486328125e-05,
                          1.0058283805847168e-06, 1.862645149230957e-07)
        epochs = list(drlib.epochs(self.log, cfg=cfg))
        rows, text = replay_csv(self.log, "--bias-store")
        self.assert_same_rows(rows, epochs)
        # A run that reaches every accuracy class the session allows, not a stream of class 0.
        self.assertGreater(sum(1 for e in epochs if e.status and e.status.status), len(epochs) // 2)
        # The defaults (no bias stored) deliver the same statuses.
        self.assertEqual([bytes(s) for s in drlib.replay(self.log)],
                         [bytes(e.status) for e in epochs if e.status is not None])
        stored = [float(x) for x in text.split("encoded as 1+bx, 2+by, 3+bz:")[1].rstrip(")\n").split()]
        self.assertEqual(stored, list(cfg.gyro_bias_code))
        # The learned bias is small next to the offsets that encode it.
        for k in range(3):
            self.assertAlmostEqual(cfg.gyro_bias_code[k], k + 1.0, delta=0.01)

    def test_broken_sequence_pole_and_options_row_for_row(self):
        # Record 200 claims a later sequence number: the library rejects it, drops
        # its history and starts over with the next record.
        data = bytearray(self.data)
        seq_at = list(drlib.read_log(self.data))[200][0] + drlib.DrInput.seq.offset
        struct.pack_into("<I", data, seq_at, struct.unpack_from("<I", data, seq_at)[0] + 5)
        broken = os.path.join(self.tmp.name, "broken.log")
        with open(broken, "wb") as f:
            f.write(data)
        rows, _ = replay_csv(broken, "--pole", "2.1", "--options", "aligned,screen")
        both = drlib.OPT_ALIGNED_VELOCITY | drlib.OPT_SCREEN_SOLUTIONS
        epochs = list(drlib.epochs(broken, pole=2.1, options=both))
        self.assert_same_rows(rows, epochs)
        self.assertEqual(epochs[200].result, 1)
        self.assertIsNone(epochs[200].status)

    def test_truncated_log_stops_after_the_last_whole_record(self):
        cut = os.path.join(self.tmp.name, "cut.log")
        with open(cut, "wb") as f:
            f.write(self.data[:-100])
        seen = []
        with self.assertRaises(drlib.LogError) as caught:
            for ep in drlib.epochs(cut):
                seen.append(ep)
        records = list(drlib.read_log(self.data))
        self.assertEqual(len(seen), len(records) - 1)
        self.assertEqual(caught.exception.offset, len(self.data) - 100)
        fault = str(caught.exception).split(": ", 1)[1]
        self.assertTrue(fault.startswith("byte %d: truncated record" % (len(self.data) - 100)), fault)
        for tool in ([SIM, "--check", cut], [REPLAY, cut, "--csv", os.devnull, "-q"]):  # both name it alike
            p = subprocess.run(tool, stderr=subprocess.PIPE, universal_newlines=True)
            self.assertEqual(p.returncode, 1)
            self.assertIn(fault, p.stderr)
        # The session was closed on the way out: a new one opens.
        self.assertEqual(len(list(drlib.epochs(self.data[:records[-1][0]]))), len(seen))


class LayoutChecks(unittest.TestCase):
    def test_declared_layout_and_the_probe_catch_wrong_records(self):
        class Unpacked(ctypes.Structure):
            _fields_ = drlib.TiltStat._fields_
        with self.assertRaisesRegex(drlib.LayoutError, r"Unpacked is 120 bytes here but 116"):
            drlib._check_declared_layout(Unpacked, *drlib._LAYOUT[drlib.TiltStat])
        # The probe: nsamples and pos_type swapped in the header; tip_pos and vel in the status.
        for cls, i, message in ((drlib.DrInput, 2, "rejects a valid DrInput header"), (drlib.TiltStat, 6, "TiltStat")):
            fields = list(cls._fields_)
            fields[i], fields[i + 1] = fields[i + 1], fields[i]
            swapped = type("Swapped", (ctypes.Structure,), {"_pack_": getattr(cls, "_pack_", 0), "_fields_": fields})
            records = [swapped if c is cls else c for c in (drlib.DrInput, drlib.ImuSample, drlib.TiltStat)]
            with self.subTest(cls.__name__), self.assertRaisesRegex(drlib.LayoutError, message):
                drlib._probe(drlib.load(), *records)

if __name__ == "__main__":
    unittest.main()
