#include "common_report.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <sstream>

#include "common_pole.h"
#include "units.h"

namespace drtools {
namespace {

using drsim::kPi;
constexpr double kRadToDeg = 180.0 / kPi;
constexpr double kMotionTilt_rad = 2.0 * kPi / 180.0;  // the pole counts as moving beyond 2 deg

double wrap_pi(double a) {
    while (a > kPi) a -= 2.0 * kPi;
    while (a <= -kPi) a += 2.0 * kPi;
    return a;
}

ErrorStats stats_of(std::vector<double> v) {
    ErrorStats s;
    s.n = v.size();
    if (v.empty()) return s;
    double sum2 = 0.0;
    for (double &x : v) {
        x = std::fabs(x);
        sum2 += x * x;
    }
    std::sort(v.begin(), v.end());
    s.rms = std::sqrt(sum2 / static_cast<double>(v.size()));
    // Nearest-rank 95th percentile.
    const size_t rank = static_cast<size_t>(std::ceil(0.95 * static_cast<double>(v.size())));
    s.p95 = v[std::max<size_t>(rank, 1) - 1];
    s.max = v.back();
    return s;
}

struct TipSamples {
    std::vector<double> h, v;
};

}  // namespace

Report make_report(const ReplayOutput &replay, const std::vector<drsim::TruthRow> &truth) {
    Report r;
    r.epochs = replay.epochs.size();
    r.rejected = replay.rejected;

    std::map<uint32_t, const drsim::TruthRow *> by_tow;
    for (const auto &row : truth) by_tow[row.tow_ms] = &row;

    r.motion_start_s = truth.empty() ? 0.0 : truth.front().t_s;
    for (const auto &row : truth) {
        if (row.tilt_rad > kMotionTilt_rad) {
            r.motion_start_s = row.t_s;
            break;
        }
    }

    size_t accepted = 0, per_class[4] = {0, 0, 0, 0};
    std::vector<double> roll, pitch, heading, tilt;
    std::map<std::string, TipSamples> groups;
    size_t comps = 0, in1 = 0, in3 = 0;
    for (const auto &ep : replay.epochs) {
        if (!ep.has_status) continue;
        ++accepted;
        const TiltStat &st = ep.status;
        per_class[st.status < 4 ? st.status : 0]++;
        const auto it = by_tow.find(st.tow_ms);
        if (it == by_tow.end()) continue;
        const drsim::TruthRow &tr = *it->second;
        ++r.matched;
        if (st.status == 0) continue;
        if (r.first_fix_s < 0.0) r.first_fix_s = tr.t_s;

        roll.push_back(wrap_pi(st.att[0] - tr.rph.x) * kRadToDeg);
        pitch.push_back(wrap_pi(st.att[1] - tr.rph.y) * kRadToDeg);
        heading.push_back(wrap_pi(st.att[2] - tr.rph.z) * kRadToDeg);
        const double att[3] = {st.att[0], st.att[1], st.att[2]};
        tilt.push_back((pole_tilt(att, replay.pole_m).tilt_rad - tr.tilt_rad) * kRadToDeg);

        // Tip error resolved north, east, down at the true tip.
        const drsim::Geodetic g = drsim::geodetic_from_ecef(tr.tip_e);
        const drsim::Mat3 cen = drsim::transpose(drsim::dcm_ne(g.lat, g.lon));
        const drsim::Vec3 d_e{st.tip_pos[0] - tr.tip_e.x, st.tip_pos[1] - tr.tip_e.y,
                              st.tip_pos[2] - tr.tip_e.z};
        const drsim::Vec3 d_n = cen * d_e;
        const double h = std::hypot(d_n.x, d_n.y), v = d_n.z;
        const double tilt_deg = tr.tilt_rad * kRadToDeg;
        const std::string band = tilt_deg < 10.0 ? "tilt 0-10" : tilt_deg < 20.0 ? "tilt 10-20"
                               : tilt_deg <= 30.0 ? "tilt 20-30" : "tilt >30";
        for (const std::string &name : {std::string("all"), "class " + std::to_string(st.status), band}) {
            groups[name].h.push_back(h);
            groups[name].v.push_back(v);
        }
        for (int i = 0; i < 3; ++i) {
            const double sigma = static_cast<double>(st.tip_std_total[i]);
            const double e = std::fabs(d_n[i]);
            ++comps;
            if (e <= sigma) ++in1;
            if (e <= 3.0 * sigma) ++in3;
        }
    }
    for (int c = 0; c < 4; ++c)
        r.class_share[c] = accepted ? static_cast<double>(per_class[c]) / static_cast<double>(accepted) : 0.0;
    if (r.first_fix_s >= 0.0) r.time_to_first_fix_s = std::max(0.0, r.first_fix_s - r.motion_start_s);
    r.roll_deg = stats_of(roll);
    r.pitch_deg = stats_of(pitch);
    r.heading_deg = stats_of(heading);
    r.tilt_deg = stats_of(tilt);
    for (const char *name : {"all", "class 1", "class 2", "class 3", "tilt 0-10", "tilt 10-20",
                             "tilt 20-30", "tilt >30"}) {
        const auto it = groups.find(name);
        if (it == groups.end()) continue;
        r.tip.push_back({name, stats_of(it->second.h), stats_of(it->second.v)});
    }
    if (comps) {
        r.within_1sigma = static_cast<double>(in1) / static_cast<double>(comps);
        r.within_3sigma = static_cast<double>(in3) / static_cast<double>(comps);
    }
    return r;
}

const TipGroup *find_group(const Report &r, const std::string &name) {
    for (const auto &g : r.tip)
        if (g.name == name) return &g;
    return nullptr;
}

void print_report(std::FILE *f, const Report &r) {
    std::fprintf(f, "epochs %zu (rejected %zu), with truth %zu\n", r.epochs, r.rejected, r.matched);
    std::fprintf(f, "status class share: 0 %.1f%%  1 %.1f%%  2 %.1f%%  3 %.1f%%\n",
                 100 * r.class_share[0], 100 * r.class_share[1], 100 * r.class_share[2],
                 100 * r.class_share[3]);
    if (r.time_to_first_fix_s >= 0.0)
        std::fprintf(f, "first tilt solution %.1f s after the pole first tilts past 2 deg (at %.1f s)\n",
                     r.time_to_first_fix_s, r.motion_start_s);
    else
        std::fprintf(f, "no tilt solution\n");
    std::fprintf(f, "\n%-12s %6s %10s %10s %10s\n", "attitude", "n", "RMS deg", "95% deg", "max deg");
    const std::pair<const char *, const ErrorStats *> att[] = {
        {"roll", &r.roll_deg}, {"pitch", &r.pitch_deg}, {"heading", &r.heading_deg}, {"tilt", &r.tilt_deg}};
    for (const auto &a : att)
        std::fprintf(f, "%-12s %6zu %10.3f %10.3f %10.3f\n", a.first, a.second->n, a.second->rms,
                     a.second->p95, a.second->max);
    std::fprintf(f, "\n%-12s %6s %9s %9s %9s %9s %9s %9s\n", "tip error", "n", "H RMS mm", "H 95% mm",
                 "H max mm", "V RMS mm", "V 95% mm", "V max mm");
    for (const auto &g : r.tip)
        std::fprintf(f, "%-12s %6zu %9.1f %9.1f %9.1f %9.1f %9.1f %9.1f\n", g.name.c_str(),
                     g.horizontal.n, 1e3 * g.horizontal.rms, 1e3 * g.horizontal.p95,
                     1e3 * g.horizontal.max, 1e3 * g.vertical.rms, 1e3 * g.vertical.p95,
                     1e3 * g.vertical.max);
    std::fprintf(f, "\nreported deviations: %.1f%% of tip error components within 1 sigma "
                 "(68.3%% if honest), %.1f%% within 3 sigma (99.7%%)\n",
                 100 * r.within_1sigma, 100 * r.within_3sigma);
}

namespace {
void json_stats(std::ostringstream &o, const ErrorStats &s) {
    o << "{\"n\": " << s.n << ", \"rms\": " << s.rms << ", \"p95\": " << s.p95 << ", \"max\": " << s.max << "}";
}
}  // namespace

std::string report_json(const Report &r) {
    std::ostringstream o;
    o.precision(9);
    o << "{\n  \"epochs\": " << r.epochs << ",\n  \"rejected\": " << r.rejected
      << ",\n  \"matched\": " << r.matched << ",\n  \"class_share\": [" << r.class_share[0] << ", "
      << r.class_share[1] << ", " << r.class_share[2] << ", " << r.class_share[3] << "]"
      << ",\n  \"motion_start_s\": " << r.motion_start_s << ",\n  \"first_fix_s\": " << r.first_fix_s
      << ",\n  \"time_to_first_fix_s\": " << r.time_to_first_fix_s << ",\n  \"attitude_error_deg\": {"
      << "\"roll\": ";
    json_stats(o, r.roll_deg);
    o << ", \"pitch\": ";
    json_stats(o, r.pitch_deg);
    o << ", \"heading\": ";
    json_stats(o, r.heading_deg);
    o << ", \"tilt\": ";
    json_stats(o, r.tilt_deg);
    o << "},\n  \"tip_error_m\": {";
    for (size_t i = 0; i < r.tip.size(); ++i) {
        o << (i ? ",\n    " : "\n    ") << "\"" << r.tip[i].name << "\": {\"horizontal\": ";
        json_stats(o, r.tip[i].horizontal);
        o << ", \"vertical\": ";
        json_stats(o, r.tip[i].vertical);
        o << "}";
    }
    o << "\n  },\n  \"within_1sigma\": " << r.within_1sigma << ",\n  \"within_3sigma\": " << r.within_3sigma
      << "\n}\n";
    return o.str();
}

}  // namespace drtools
