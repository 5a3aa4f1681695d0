#!/usr/bin/python3
"""Plots of a replay against the simulator's truth.

usage: drlib_plot.py TILT_CSV TRUTH_CSV OUT_PREFIX [--title TEXT]
                     [--compare TILT_CSV2] [--labels NAME1,NAME2]

TILT_CSV is drlib-replay's tilt-status CSV, TRUTH_CSV the truth of the same
session. --title names the run (e.g. "survey, seed 1, industrial IMU, mode
specified"); --compare overlays a second replay of the same log (e.g. in
another mode), --labels names the two. Writes
  OUT_PREFIX-attitude.png   tilt and heading against the truth, the heading error
                            over time, status class shaded
  OUT_PREFIX-tip-error.png  horizontal and signed vertical tip error (mm) against
                            the reported deviation
  OUT_PREFIX-scatter.png    the tip solutions around each survey point, with 1, 2
                            and 5 cm rings and the 95 % radius
The status classes have the same colours in every plot.
"""
import argparse
import csv
import math

import matplotlib

matplotlib.use("Agg")
import matplotlib.legend  # noqa: E402
import matplotlib.pyplot as plt  # noqa: E402

WGS84_A = 6378137.0
WGS84_F = 1.0 / 298.257223563
WGS84_E2 = WGS84_F * (2.0 - WGS84_F)
CLASS_COLOURS = {0: "#9e9e9e", 1: "#2e9d46", 2: "#d4a600", 3: "#e0562a"}
CLASS_NAMES = {0: "class 0 (no tilt solution)", 1: "class 1 (< 12 mm)", 2: "class 2 (< 60 mm)",
               3: "class 3 (< 350 mm)"}
RUN_MARKERS = ("o", "x")
RUN_LINES = ("#1f4fbf", "#b0249e")
POINT_SPLIT_M = 0.1   # the tip stands on a point while it stays this close
POINT_MIN_ROWS = 50   # ... for at least 5 s


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


def wrap180(a):
    return (a + 180.0) % 360.0 - 180.0


def read_csv(path):
    with open(path, newline="") as f:
        return list(csv.DictReader(f))


def survey_points(truth_rows):
    """Survey point of each truth row (by tow_ms): the stretches where the true
    tip stays within POINT_SPLIT_M of where it came to rest, for at least
    POINT_MIN_ROWS epochs. Rows in between (walking) belong to none."""
    stretches, start = [], 0
    tips = [[float(r["tip_%s_m" % c]) for c in "xyz"] for r in truth_rows]
    for i in range(1, len(tips) + 1):
        if i == len(tips) or math.dist(tips[i], tips[start]) > POINT_SPLIT_M:
            if i - start >= POINT_MIN_ROWS:
                stretches.append((start, i))
            start = i
    return {int(truth_rows[i]["tow_ms"]): k for k, (a, b) in enumerate(stretches) for i in range(a, b)}


class Run:
    """One replay matched against the truth, epoch by epoch."""

    def __init__(self, tilt_rows, truth, t0, points):
        self.t, self.cls, self.tilt, self.heading, self.heading_err = [], [], [], [], []
        self.err_t, self.err_cls, self.err_h, self.err_up, self.sig_h, self.sig_up = [], [], [], [], [], []
        self.scatter = {}  # point -> [(east mm, north mm, class)]
        for r in tilt_rows:
            tr = truth.get(int(r["tow_ms"])) if r["status"] != "" else None
            if tr is None:
                continue
            c = int(r["status"])
            true_heading = math.degrees(float(tr["heading_rad"]))
            self.t.append((int(r["tow_ms"]) - t0) / 1000.0)
            self.cls.append(c)
            if c == 0:
                self.tilt.append(math.nan)
                self.heading.append(math.nan)
                self.heading_err.append(math.nan)
                continue
            err = wrap180(float(r["heading_deg"]) - true_heading)
            self.tilt.append(float(r["tilt_deg"]))
            self.heading.append(true_heading % 360.0 + err)  # beside the truth, not wrapped away from it
            self.heading_err.append(err)
            tip = [float(r["tip_%s_m" % a]) for a in "xyz"]
            ttip = [float(tr["tip_%s_m" % a]) for a in "xyz"]
            n, e, d = ned([a - b for a, b in zip(tip, ttip)], *geodetic(*ttip))
            self.err_t.append(self.t[-1])
            self.err_cls.append(c)
            self.err_h.append(1e3 * math.hypot(n, e))
            self.err_up.append(-1e3 * d)
            self.sig_h.append(1e3 * math.hypot(float(r["total_std_n_m"]), float(r["total_std_e_m"])))
            self.sig_up.append(1e3 * float(r["total_std_d_m"]))
            if int(r["tow_ms"]) in points:
                self.scatter.setdefault(points[int(r["tow_ms"])], []).append((1e3 * e, 1e3 * n, c))


def percentile95(values):
    v = sorted(values)
    return v[max(1, math.ceil(0.95 * len(v))) - 1] if v else math.nan


def shade(ax, run):
    t, cls = run.t, run.cls
    start = 0
    for i in range(1, len(t) + 1):
        if i == len(t) or cls[i] != cls[start]:
            ax.axvspan(t[start], t[i - 1] + 0.1, color=CLASS_COLOURS.get(cls[start], "white"), alpha=0.18, lw=0)
            start = i


def class_legend(ax, classes, loc="upper right"):
    handles = [plt.Rectangle((0, 0), 1, 1, color=CLASS_COLOURS[c], alpha=0.5) for c in classes]
    ax.add_artist(matplotlib.legend.Legend(ax, handles, [CLASS_NAMES[c] for c in classes], loc=loc, fontsize=7,
                                           title="status class", title_fontsize=7))


def plot_attitude(runs, labels, true_t, true_tilt, true_heading, title, path):
    fig, (a1, a2, a3) = plt.subplots(3, 1, figsize=(11, 8.5), sharex=True)
    for ax in (a1, a2, a3):
        shade(ax, runs[0])
    a1.plot(true_t, true_tilt, "k-", lw=0.9, label="truth")
    a2.plot(true_t, true_heading, "k.", ms=1.2, label="truth")
    for k, (run, label) in enumerate(zip(runs, labels)):
        a1.plot(run.t, run.tilt, RUN_MARKERS[k], color=RUN_LINES[k], ms=1.8, label=label)
        a2.plot(run.t, run.heading, RUN_MARKERS[k], color=RUN_LINES[k], ms=1.8, label=label)
        a3.plot(run.t, run.heading_err, RUN_MARKERS[k], color=RUN_LINES[k], ms=1.8, label=label)
    a1.set_ylabel("tilt from vertical (deg)")
    a2.set_ylabel("heading (deg)")
    a3.set_ylabel("heading error (deg)")
    a3.axhline(0.0, color="k", lw=0.6)
    a3.set_xlabel("time (s)")
    a1.legend(loc="upper left", fontsize=8)
    a3.legend(loc="upper left", fontsize=8)
    class_legend(a1, sorted(set(runs[0].cls)))
    a2.set_title("heading drawn beside the truth (no wrap at 0/360)", fontsize=8, loc="left")
    fig.suptitle(title + ": attitude against the truth")
    fig.tight_layout()
    fig.savefig(path, dpi=90)


def plot_tip_error(runs, labels, title, path):
    fig, (b1, b2) = plt.subplots(2, 1, figsize=(11, 7), sharex=True)
    for k, (run, label) in enumerate(zip(runs, labels)):
        colours = [CLASS_COLOURS[c] for c in run.err_cls]
        b1.scatter(run.err_t, run.err_h, c=colours, s=5, marker=RUN_MARKERS[k], lw=0.8 if k else 0,
                   label=label + ": horizontal error")
        b2.scatter(run.err_t, run.err_up, c=colours, s=5, marker=RUN_MARKERS[k], lw=0.8 if k else 0,
                   label=label + ": vertical error (up +)")
        b1.plot(run.err_t, run.sig_h, "-", color=RUN_LINES[k], lw=0.8, label=label + ": reported 1 sigma (total)")
        b2.plot(run.err_t, run.sig_up, "-", color=RUN_LINES[k], lw=0.8, label=label + ": reported +-1 sigma (total)")
        b2.plot(run.err_t, [-s for s in run.sig_up], "-", color=RUN_LINES[k], lw=0.8)
    b2.axhline(0.0, color="k", lw=0.6)
    b1.set_ylabel("horizontal tip error (mm)")
    b2.set_ylabel("vertical tip error, up (mm)")
    b2.set_xlabel("time (s); points coloured by status class")
    b1.legend(loc="upper left", fontsize=8)
    b2.legend(loc="upper left", fontsize=8)
    class_legend(b1, sorted(set(runs[0].err_cls)))
    fig.suptitle(title + ": pole-tip error")
    fig.tight_layout()
    fig.savefig(path, dpi=90)


def plot_scatter(runs, labels, title, path):
    points = sorted(set().union(*[run.scatter.keys() for run in runs])) or [0]
    fig, axes = plt.subplots(1, len(points), figsize=(5.6 * len(points), 5.8), squeeze=False)
    for ax, p in zip(axes[0], points):
        lim = 0.0
        for k, (run, label) in enumerate(zip(runs, labels)):
            pts = run.scatter.get(p, [])
            if not pts:
                continue
            for c in (3, 2, 1):
                xs = [x for x, _, cc in pts if cc == c]
                ys = [y for _, y, cc in pts if cc == c]
                if xs:
                    ax.plot(xs, ys, RUN_MARKERS[k], color=CLASS_COLOURS[c], ms=2.2,
                            label="%s, %s" % (label, CLASS_NAMES[c]) if len(runs) > 1 else CLASS_NAMES[c])
            r95 = percentile95([math.hypot(x, y) for x, y, _ in pts])
            ax.add_patch(plt.Circle((0, 0), r95, fill=False, ls="--", lw=1.2, color=RUN_LINES[k],
                                    label="%s95 %% radius %.0f mm" % (label + ": " if len(runs) > 1 else "", r95)))
            lim = max(lim, max(max(abs(x), abs(y)) for x, y, _ in pts))
        for r in (10, 20, 50):
            ax.add_patch(plt.Circle((0, 0), r, fill=False, lw=0.6, color="k", alpha=0.5))
            ax.annotate("%d cm" % (r // 10), (r * 0.7071, r * 0.7071), fontsize=7, alpha=0.7)
        ax.plot([0], [0], "k+", ms=14, mew=2, label="true point")
        lim = max(55.0, 1.08 * lim)
        ax.set_xlim(-lim, lim)
        ax.set_ylim(-lim, lim)
        ax.set_aspect("equal")
        ax.set_xlabel("east (mm)")
        ax.set_ylabel("north (mm)")
        ax.set_title("survey point %d" % (p + 1))
        ax.grid(True, lw=0.3)
        ax.legend(loc="upper left", fontsize=7)
    fig.suptitle(title + ": tip solutions around the true point")
    fig.tight_layout()
    fig.savefig(path, dpi=90)


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0],
                                 formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("tilt_csv")
    ap.add_argument("truth_csv")
    ap.add_argument("prefix")
    ap.add_argument("--title", default=None, help="names the run: scenario, seed, IMU grade, mode")
    ap.add_argument("--compare", metavar="TILT_CSV2", help="a second replay of the same log, overlaid")
    ap.add_argument("--labels", default=None, help="names of the two replays, comma-separated")
    args = ap.parse_args()

    truth_rows = read_csv(args.truth_csv)
    truth = {int(r["tow_ms"]): r for r in truth_rows}
    t0 = int(truth_rows[0]["tow_ms"]) if truth_rows else 0
    points = survey_points(truth_rows)
    files = [args.tilt_csv] + ([args.compare] if args.compare else [])
    labels = args.labels.split(",") if args.labels else ["library", "compared"][:len(files)]
    if len(labels) != len(files):
        ap.error("--labels needs one name per replay")
    runs = [Run(read_csv(f), truth, t0, points) for f in files]
    title = args.title or args.tilt_csv
    true_t = [(int(r["tow_ms"]) - t0) / 1000.0 for r in truth_rows]
    true_tilt = [math.degrees(float(r["tilt_rad"])) for r in truth_rows]
    true_heading = [math.degrees(float(r["heading_rad"])) % 360.0 for r in truth_rows]

    plot_attitude(runs, labels, true_t, true_tilt, true_heading, title, args.prefix + "-attitude.png")
    plot_tip_error(runs, labels, title, args.prefix + "-tip-error.png")
    plot_scatter(runs, labels, title, args.prefix + "-scatter.png")
    for name in ("attitude", "tip-error", "scatter"):
        print("%s-%s.png" % (args.prefix, name))


if __name__ == "__main__":
    main()
