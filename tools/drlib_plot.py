#!/usr/bin/python3
"""Plots of a replay: tilt and heading over time with the status class shaded,
tip error against its reported deviation, and the horizontal scatter of the
tip solutions around the true point.

usage: drlib_plot.py TILT_CSV TRUTH_CSV OUT_PREFIX
Writes OUT_PREFIX-attitude.png, OUT_PREFIX-tip-error.png, OUT_PREFIX-scatter.png.
"""
import csv
import math
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

WGS84_A = 6378137.0
WGS84_F = 1.0 / 298.257223563
WGS84_E2 = WGS84_F * (2.0 - WGS84_F)
CLASS_COLOURS = {0: "#dddddd", 1: "#b7e4b7", 2: "#fff2a8", 3: "#f8c6a0"}


def geodetic(x, y, z):
    lon = math.atan2(y, x)
    p = math.hypot(x, y)
    lat = math.atan2(z, p * (1.0 - WGS84_E2))
    for _ in range(6):
        n = WGS84_A / math.sqrt(1.0 - WGS84_E2 * math.sin(lat) ** 2)
        lat = math.atan2(z + WGS84_E2 * n * math.sin(lat), p)
    return lat, lon


def ned(d, lat, lon):
    """ECEF difference resolved north, east, down at (lat, lon)."""
    sl, cl, so, co = math.sin(lat), math.cos(lat), math.sin(lon), math.cos(lon)
    n = -sl * co * d[0] - sl * so * d[1] + cl * d[2]
    e = -so * d[0] + co * d[1]
    dn = -cl * co * d[0] - cl * so * d[1] - sl * d[2]
    return n, e, dn


def read_csv(path):
    with open(path, newline="") as f:
        return list(csv.DictReader(f))


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    tilt_rows, truth_rows, prefix = read_csv(sys.argv[1]), read_csv(sys.argv[2]), sys.argv[3]
    truth = {int(r["tow_ms"]): r for r in truth_rows}
    t0 = int(truth_rows[0]["tow_ms"]) if truth_rows else 0

    t, cls, tilt, heading, true_tilt, true_heading = [], [], [], [], [], []
    err_t, err_h, err_v, sig_h, sig_v = [], [], [], [], []
    sc_e, sc_n, sc_c = [], [], []
    for r in tilt_rows:
        if r["status"] == "":
            continue
        tow = int(r["tow_ms"])
        tr = truth.get(tow)
        if tr is None:
            continue
        ts = (tow - t0) / 1000.0
        c = int(r["status"])
        t.append(ts)
        cls.append(c)
        tilt.append(float(r["tilt_deg"]) if c else math.nan)
        heading.append(float(r["heading_deg"]) if c else math.nan)
        true_tilt.append(math.degrees(float(tr["tilt_rad"])))
        true_heading.append(math.degrees(float(tr["heading_rad"])) % 360.0)
        if c == 0:
            continue
        tip = [float(r["tip_x_m"]), float(r["tip_y_m"]), float(r["tip_z_m"])]
        ttip = [float(tr["tip_x_m"]), float(tr["tip_y_m"]), float(tr["tip_z_m"])]
        lat, lon = geodetic(*ttip)
        n, e, d = ned([a - b for a, b in zip(tip, ttip)], lat, lon)
        err_t.append(ts)
        err_h.append(100.0 * math.hypot(n, e))
        err_v.append(100.0 * abs(d))
        sig_h.append(100.0 * math.hypot(float(r["total_std_n_m"]), float(r["total_std_e_m"])))
        sig_v.append(100.0 * float(r["total_std_d_m"]))
        sc_n.append(100.0 * n)
        sc_e.append(100.0 * e)
        sc_c.append(c)

    def shade(ax):
        start = 0
        for i in range(1, len(t) + 1):
            if i == len(t) or cls[i] != cls[start]:
                ax.axvspan(t[start], t[i - 1] + 0.1, color=CLASS_COLOURS.get(cls[start], "white"), lw=0)
                start = i

    fig, (a1, a2) = plt.subplots(2, 1, figsize=(10, 6), sharex=True)
    shade(a1)
    shade(a2)
    a1.plot(t, true_tilt, "k-", lw=0.8, label="truth")
    a1.plot(t, tilt, "b.", ms=2, label="library")
    a1.set_ylabel("tilt from vertical (deg)")
    a1.legend(loc="upper left")
    a2.plot(t, true_heading, "k.", ms=1, label="truth")
    a2.plot(t, heading, "b.", ms=2, label="library")
    a2.set_ylabel("heading (deg)")
    a2.set_xlabel("time (s); shading: status class 0 grey, 1 green, 2 yellow, 3 orange")
    fig.tight_layout()
    fig.savefig(prefix + "-attitude.png", dpi=90)

    fig, (b1, b2) = plt.subplots(2, 1, figsize=(10, 6), sharex=True)
    b1.plot(err_t, err_h, "b.", ms=2, label="horizontal error")
    b1.plot(err_t, sig_h, "r-", lw=0.8, label="reported 1 sigma (total, horizontal)")
    b1.set_ylabel("cm")
    b1.legend(loc="upper left")
    b2.plot(err_t, err_v, "b.", ms=2, label="vertical error")
    b2.plot(err_t, sig_v, "r-", lw=0.8, label="reported 1 sigma (total, down)")
    b2.set_ylabel("cm")
    b2.set_xlabel("time (s)")
    b2.legend(loc="upper left")
    fig.tight_layout()
    fig.savefig(prefix + "-tip-error.png", dpi=90)

    fig, ax = plt.subplots(figsize=(6, 6))
    for c in (3, 2, 1):
        xs = [x for x, k in zip(sc_e, sc_c) if k == c]
        ys = [y for y, k in zip(sc_n, sc_c) if k == c]
        if xs:
            ax.plot(xs, ys, ".", ms=3, label="class %d" % c)
    ax.plot([0], [0], "k+", ms=14, mew=2, label="true point")
    ax.set_xlabel("east (cm)")
    ax.set_ylabel("north (cm)")
    ax.set_aspect("equal", adjustable="datalim")
    ax.grid(True, lw=0.3)
    ax.legend()
    fig.tight_layout()
    fig.savefig(prefix + "-scatter.png", dpi=90)
    for name in ("attitude", "tip-error", "scatter"):
        print("%s-%s.png" % (prefix, name))


if __name__ == "__main__":
    main()
