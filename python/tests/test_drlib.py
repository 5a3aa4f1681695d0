"""The drlib module against drlib-replay, the C host that replays the same log.

Environment: DRLIB_LIBRARY (libdrlib.so), DRLIB_SIM and DRLIB_REPLAY (the tools).
"""
import csv
import ctypes
import os
import struct
import subprocess
import tempfile
import unittest

import drlib

SIM = os.environ.get("DRLIB_SIM", "drlib-sim")
REPLAY = os.environ.get("DRLIB_REPLAY", "drlib-replay")


def f32(x):
    """The float a %.9g text of a float stands for."""
    return struct.unpack("<f", struct.pack("<f", x))[0]


def read(path):
    with open(path, "rb") as f:
        return f.read()


_runs = [0]


def replay_csv(log, *options):
    """drlib-replay's tilt-status rows and its standard output."""
    _runs[0] += 1
    out = "%s.%d.csv" % (log, _runs[0])
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

    @classmethod
    def tearDownClass(cls):
        cls.tmp.cleanup()

    def assert_same_rows(self, rows, epochs):
        self.assertEqual(len(rows), len(epochs))
        for row, ep in zip(rows, epochs):
            where = "tow_ms %s" % row["tow_ms"]
            self.assertEqual((int(row["tow_ms"]), int(row["result"])), (ep.tow_ms, ep.result), where)
            if row["status"] == "":
                self.assertIsNone(ep.status, where)
                continue
            st = ep.status
            lat, lon, h = self.lib.ecef2llh(st.tip_pos)
            expect = {
                "status": st.status,
                "roll_deg": st.att_deg[0], "pitch_deg": st.att_deg[1], "heading_deg": st.att_deg[2],
                "tilt_deg": st.tilt_deg,
                "tip_x_m": st.tip_pos[0], "tip_y_m": st.tip_pos[1], "tip_z_m": st.tip_pos[2],
                "tip_lat_deg": lat / (3.14159265358979323846 / 180.0),
                "tip_lon_deg": lon / (3.14159265358979323846 / 180.0), "tip_h_m": h,
            }
            for name, value in expect.items():
                self.assertEqual(float(row[name]), value, "%s %s" % (where, name))
            for k, axis in enumerate("ned"):
                self.assertEqual(f32(float(row["tip_std_%s_m" % axis])), st.tip_std[k], where)
                self.assertEqual(f32(float(row["total_std_%s_m" % axis])), st.tip_std_total[k], where)

    def test_survey_log_row_for_row(self):
        rows, _ = replay_csv(self.log)
        epochs = list(drlib.epochs(self.log))
        self.assert_same_rows(rows, epochs)
        # A run that reaches every accuracy class the session allows, not a stream of class 0.
        self.assertGreater(sum(1 for e in epochs if e.status and e.status.status), len(epochs) // 2)
        statuses = list(drlib.replay(self.log))
        self.assertEqual([bytes(s) for s in statuses],
                         [bytes(e.status) for e in epochs if e.status is not None])

    def test_broken_sequence_and_pole_row_for_row(self):
        # Record 200 claims a later sequence number: the library rejects it, drops
        # its history and starts over with the next record.
        data = bytearray(read(self.log))
        offsets = [off for off, _ in drlib.read_log(bytes(data))]
        seq_at = offsets[200] + drlib.DrInput.seq.offset
        seq = struct.unpack_from("<I", data, seq_at)[0]
        struct.pack_into("<I", data, seq_at, seq + 5)
        broken = os.path.join(self.tmp.name, "broken.log")
        with open(broken, "wb") as f:
            f.write(data)
        rows, _ = replay_csv(broken, "--pole", "2.1")
        epochs = list(drlib.epochs(broken, pole=2.1))
        self.assert_same_rows(rows, epochs)
        self.assertEqual(epochs[200].result, 1)
        self.assertIsNone(epochs[200].status)

    def test_configuration_and_stored_bias(self):
        cfg = drlib.DrCfg(0, 3, 1.52587890625e-06, 1.9073486328125e-05,
                          1.0058283805847168e-06, 1.862645149230957e-07)
        epochs = list(drlib.epochs(self.log, cfg=cfg))
        rows, text = replay_csv(self.log, "--bias-store")
        self.assert_same_rows(rows, epochs)
        stored = [float(x) for x in text.split("stored gyro bias code:")[1].split()]
        self.assertEqual(stored, list(cfg.gyro_bias_code))
        # The learned bias is small next to the offsets that encode it.
        for k in range(3):
            self.assertAlmostEqual(cfg.gyro_bias_code[k], k + 1.0, delta=0.01)

    def test_truncated_log_stops_after_the_last_whole_record(self):
        data = read(self.log)
        cut = os.path.join(self.tmp.name, "cut.log")
        with open(cut, "wb") as f:
            f.write(data[:-100])
        seen = []
        with self.assertRaises(drlib.LogError) as caught:
            for ep in drlib.epochs(cut):
                seen.append(ep)
        last_offset, last = list(drlib.read_log(data))[-1]
        self.assertEqual(len(seen), len(list(drlib.read_log(data))) - 1)
        self.assertEqual(caught.exception.offset, len(data) - 100)
        self.assertIn("truncated record", str(caught.exception))
        # The session was closed on the way out: a new one opens.
        self.assertEqual(len(list(drlib.epochs(data[:last_offset]))), len(seen))


class LayoutChecks(unittest.TestCase):
    def test_declared_sizes_and_offsets(self):
        class Unpacked(ctypes.Structure):
            _fields_ = drlib.TiltStat._fields_
        with self.assertRaisesRegex(drlib.LayoutError, r"Unpacked is 120 bytes here but 116"):
            drlib._check_declared_layout(Unpacked, *drlib._LAYOUT[drlib.TiltStat])

    def test_probe_detects_a_header_the_library_reads_differently(self):
        fields = list(drlib.DrInput._fields_)
        fields[2], fields[3] = fields[3], fields[2]   # nsamples and pos_type swapped

        class Swapped(ctypes.Structure):
            _fields_ = fields
        with self.assertRaisesRegex(drlib.LayoutError, "rejects a valid DrInput header"):
            drlib._probe(drlib.load(), Swapped, drlib.ImuSample, drlib.TiltStat)

    def test_probe_detects_a_status_the_library_writes_differently(self):
        fields = list(drlib.TiltStat._fields_)
        fields[6], fields[7] = fields[7], fields[6]   # tip_pos and vel swapped

        class Swapped(ctypes.Structure):
            _pack_ = 1
            _fields_ = fields
        with self.assertRaisesRegex(drlib.LayoutError, "TiltStat"):
            drlib._probe(drlib.load(), drlib.DrInput, drlib.ImuSample, Swapped)


if __name__ == "__main__":
    unittest.main()
