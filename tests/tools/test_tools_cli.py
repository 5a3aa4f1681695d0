"""The command-line tools as a user meets them: tilt from the pole vector,
warnings for settings that cannot work, NMEA output, the converter, quiet runs.

Environment: DRLIB_SIM, DRLIB_REPLAY, DRLIB_CONVERT (the converter), DRLIB_SHARED (../shared),
and the drlib module on PYTHONPATH (its record layouts only).
"""
import atexit
import csv
import functools
import math
import os
import shutil
import subprocess
import tempfile
import unittest

import drlib

SIM, REPLAY = os.environ["DRLIB_SIM"], os.environ["DRLIB_REPLAY"]
CONVERT, SHARED = os.environ["DRLIB_CONVERT"], os.environ.get("DRLIB_SHARED", "")
TMP = tempfile.mkdtemp()
atexit.register(shutil.rmtree, TMP, True)


def run(*args):
    p = subprocess.run([str(a) for a in args], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                       universal_newlines=True, cwd=TMP)
    return p.returncode, p.stdout, p.stderr


def rows(path):
    with open(path, newline="") as f:
        return [r for r in csv.DictReader(f) if r["status"] not in ("", "0")]


@functools.lru_cache(None)
def session(seed):
    log = os.path.join(TMP, "s%d.log" % seed)
    rc, out, err = run(SIM, "--scenario", "survey", "--duration-scale", "0.5", "--seed", seed,
                       "--out", log, "--truth", log + ".truth.csv", "--quiet")
    assert (rc, out, err) == (0, "", ""), err  # --quiet and no terminal: nothing at all
    return log


class Tools(unittest.TestCase):
    def test_external_session_tilt_comes_from_the_pole_vector(self):
        ext = os.path.join(SHARED, "datasets", "pole-tilt-ext")
        if not os.path.isdir(ext):
            self.skipTest("no external session at %s" % ext)
        rc, out, err = run(CONVERT, "--ext", ext, "--out", "ext.log", "--truth", "ext.csv", "-q")
        self.assertEqual(rc, 0, err)
        rc, _, err = run(REPLAY, "ext.log", "--pole", out.strip(), "--csv", "ext.tilt.csv", "-q")
        self.assertEqual((rc, err), (0, ""))
        tilts = [float(r["tilt_deg"]) for r in rows(os.path.join(TMP, "ext.tilt.csv"))]
        self.assertGreater(len(tilts), 300)
        self.assertTrue(all(0.0 <= t <= 35.0 for t in tilts), (min(tilts), max(tilts)))

    def test_warnings_name_each_setting_and_a_clean_run_has_none(self):
        log = session(1)
        cases = [([], None),
                 (["--mount", "2,0,0"], "--mount 2,0,0: the library ignores"),
                 (["--scales", "1,1"], "not gravity"),
                 (["--gyro-bias", "0.5,0,0"], "ignores a stored bias"),
                 (["--calib-target", "100", "--calib-point", "1,2,3"], "raises it to 1200"),
                 (["--pole", "-1.892"], "below it"),
                 (["--pole", "0.05"], "0.050 m long"),
                 (["--calib-point", "1,2,3"], "never came within 0.06 m")]
        for options, warning in cases:
            rc, _, err = run(REPLAY, log, "--csv", os.devnull, "--events", os.devnull, "-q", *options)
            self.assertEqual(rc, 0, options)
            expected = ["warning: %s" % options[0], warning] if warning else []
            self.assertEqual(([w for w in expected if w in err], err == ""), (expected, not warning), err)
        rc, _, err = run(REPLAY, log, "--truth", session(2) + ".truth.csv", "--csv", os.devnull)
        self.assertEqual(rc, 2)
        self.assertIn("does not belong to", err)

    def test_nmea_parses_back_to_the_csv_tip(self):
        log = session(1)
        rc, _, err = run(REPLAY, log, "--csv", "n.csv", "--nmea", "n.nmea", "-q")
        self.assertEqual((rc, err), (0, ""))
        with open(os.path.join(TMP, "n.nmea"), newline="") as f:
            lines = f.read().split("\r\n")[:-1]
        tips = rows(os.path.join(TMP, "n.csv"))
        self.assertEqual(len(lines), 2 * len(tips))
        for gga, gst, row in zip(lines[0::2], lines[1::2], tips):
            for s in (gga, gst):
                body, checksum = s[1:].split("*")
                self.assertEqual(int(checksum, 16), functools.reduce(lambda c, ch: c ^ ord(ch), body, 0))
            g, t = gga.split("*")[0].split(","), gst.split("*")[0].split(",")
            self.assertEqual((g[0], t[0], g[6]), ("$GNGGA", "$GNGST", {"1": "4", "2": "5", "3": "2"}[row["status"]]))
            tod = (int(row["tow_ms"]) // 1000 - 18) % 86400
            self.assertEqual(g[1], "%02d%02d%02d.%s" % (tod // 3600, tod // 60 % 60, tod % 60, g[1][7:]))
            lat = (int(g[2][:2]) + float(g[2][2:]) / 60.0) * (1 if g[3] == "N" else -1)
            lon = (int(g[4][:3]) + float(g[4][3:]) / 60.0) * (1 if g[5] == "E" else -1)
            self.assertLess(abs(lat - float(row["tip_lat_deg"])), 1e-7)
            self.assertLess(abs(lon - float(row["tip_lon_deg"])), 1e-7)
            self.assertGreaterEqual(len(g[2].split(".")[1]), 7)
            self.assertAlmostEqual(float(g[9]), float(row["tip_h_m"]), delta=1e-4)
            self.assertAlmostEqual(float(t[8]), float(row["total_std_d_m"]), delta=1e-4)

    def test_csv_in_other_conventions_converts_to_the_same_solutions(self):
        # A simulated log written out as generic CSVs: (A) body axes, increments in rad
        # and m/s, times in ms and us; (B) axes (body y, -body x, body z), rates in deg/s
        # and m/s^2, times in s. Both must give the same log, which replays like the
        # simulator's own (up to how the simulator groups samples into records).
        log, csvs = session(3), {k: [] for k in ("gA", "iA", "gB", "iB")}
        recs = [(drlib.DrInput.from_buffer_copy(r[:88]), r) for _, r in drlib.read_log(log)]
        tow0 = recs[0][0].tow_ms
        for h, r in recs:
            rest = [*h.pos_std, *h.vel, *h.vel_std]
            csvs["gA"].append([h.tow_ms, *h.pos, *rest])
            csvs["gB"].append(["%.3f" % (h.tow_ms / 1e3), *h.pos, *rest])
            for k in range(h.nsamples):
                smp = drlib.ImuSample.from_buffer_copy(r[88 + 32 * k:120 + 32 * k])
                t_us = (smp.time_us - tow0 * 1000 + 2000000000) % 4000000000 - 2000000000
                g = [math.radians(c * 1.0058283805847168e-06) for c in smp.gyro]
                a = [c * 1.862645149230957e-07 for c in smp.acc]
                csvs["iA"].append([t_us, *g, *a])
                csvs["iB"].append(["%.6f" % (t_us / 1e6)] + [math.degrees(x) / 0.01 for x in (g[1], -g[0], g[2])]
                                  + [x / 0.01 for x in (a[1], -a[0], a[2])])
        for name, lines in csvs.items():
            with open(os.path.join(TMP, name + ".csv"), "w") as f:
                f.writelines(",".join(x if isinstance(x, str) else "%.17g" % x for x in row) + "\n" for row in lines)
        base = ["--imu-time-base", tow0, "--pole", "0,0,1.892", "--gnss-std", "ned", "-q"]
        for k, extra in (("A", []), ("B", ["--axes", "-y,x,z", "--imu-kind", "rates", "--imu-units", "deg",
                                           "--imu-time", "s", "--gnss-time", "s"])):
            rc, pole, err = run(CONVERT, "--gnss", "g%s.csv" % k, "--imu", "i%s.csv" % k, "--out", k + ".log",
                                *(base + extra))
            self.assertEqual((rc, err, pole.strip()), (0, "", "0,0,1.892"), k)
        with open(os.path.join(TMP, "A.log"), "rb") as a, open(os.path.join(TMP, "B.log"), "rb") as b:
            self.assertEqual(a.read(), b.read())
        tips = {}
        for name, path in (("orig", log), ("A", "A.log")):
            self.assertEqual(run(REPLAY, path, "--csv", name + ".csv", "-q"), (0, "", ""))
            tips[name] = {r["tow_ms"]: [float(r["tip_%s_m" % c]) for c in "xyz"]
                          for r in rows(os.path.join(TMP, name + ".csv"))}
        common = [t for t in tips["A"] if t in tips["orig"]]
        self.assertGreater(len(common), max(300, 0.9 * len(tips["orig"])))
        dev = [math.dist(tips["A"][t], tips["orig"][t]) for t in common]
        self.assertLess(math.sqrt(sum(d * d for d in dev) / len(dev)), 0.02)

if __name__ == "__main__":
    unittest.main()
