#include "common_options.h"

#include <sstream>

#include "drlib.h"

namespace drtools {

namespace {

constexpr uint32_t kMarkerMask = 0xFFFF0000u;

const struct {
    const char *name;
    uint32_t bits;
} kOptionNames[] = {
    {"aligned", DRLIB_OPT_ALIGNED_VELOCITY},
    {"screen", DRLIB_OPT_SCREEN_SOLUTIONS},
    {"all", DRLIB_OPT_ALIGNED_VELOCITY | DRLIB_OPT_SCREEN_SOLUTIONS},
    {"none", 0u},
};

// Tip error statistics of all epochs with a tilt solution (empty without any).
ErrorStats tip_all(const Report &r, bool horizontal) {
    const TipGroup *g = find_group(r, "all");
    if (g == nullptr) return ErrorStats{};
    return horizontal ? g->horizontal : g->vertical;
}

}  // namespace

bool parse_options_word(const std::string &names, uint32_t &word, std::string &error) {
    word = DRLIB_OPTIONS_MARKER;
    std::istringstream in(names);
    std::string name;
    while (std::getline(in, name, ',')) {
        bool known = false;
        for (const auto &o : kOptionNames) {
            if (name == o.name) {
                word |= o.bits;
                known = true;
            }
        }
        if (!known) {
            error = "unknown option '" + name + "' (aligned, screen, all, none)";
            return false;
        }
    }
    return true;
}

std::string options_word_names(uint32_t word) {
    if ((word & kMarkerMask) != DRLIB_OPTIONS_MARKER) return "none";
    std::string names;
    for (const auto &o : kOptionNames) {
        if (o.bits != 0u && (o.bits & (o.bits - 1u)) == 0u && (word & o.bits) != 0u)
            names += (names.empty() ? "" : ",") + std::string(o.name);
    }
    return names.empty() ? "none" : names;
}

void print_reports_side_by_side(std::FILE *f, const Report &a, const std::string &name_a,
                                const Report &b, const std::string &name_b) {
    using Figure = double (*)(const Report &);
    const struct {
        const char *label, *fmt;
        Figure get;
    } rows[] = {
        {"records rejected", "%.0f", [](const Report &r) { return static_cast<double>(r.rejected); }},
        {"first tilt solution after tilt, s", "%.1f", [](const Report &r) { return r.time_to_first_fix_s; }},
        {"share without solution, %", "%.1f", [](const Report &r) { return 100.0 * r.class_share[0]; }},
        {"share of class 1, %", "%.1f", [](const Report &r) { return 100.0 * r.class_share[1]; }},
        {"roll RMS, deg", "%.3f", [](const Report &r) { return r.roll_deg.rms; }},
        {"pitch RMS, deg", "%.3f", [](const Report &r) { return r.pitch_deg.rms; }},
        {"heading RMS, deg", "%.3f", [](const Report &r) { return r.heading_deg.rms; }},
        {"heading 95%, deg", "%.3f", [](const Report &r) { return r.heading_deg.p95; }},
        {"tip H RMS, mm", "%.1f", [](const Report &r) { return 1e3 * tip_all(r, true).rms; }},
        {"tip H 95%, mm", "%.1f", [](const Report &r) { return 1e3 * tip_all(r, true).p95; }},
        {"tip H max, mm", "%.1f", [](const Report &r) { return 1e3 * tip_all(r, true).max; }},
        {"tip V RMS, mm", "%.1f", [](const Report &r) { return 1e3 * tip_all(r, false).rms; }},
        {"tip V 95%, mm", "%.1f", [](const Report &r) { return 1e3 * tip_all(r, false).p95; }},
        {"within 1 sigma, % (exact: 68.3)", "%.1f", [](const Report &r) { return 100.0 * r.within_1sigma; }},
        {"within 3 sigma, % (exact: 99.7)", "%.1f", [](const Report &r) { return 100.0 * r.within_3sigma; }},
    };
    std::fprintf(f, "%-34s %12s %12s\n", "", name_a.c_str(), name_b.c_str());
    for (const auto &row : rows) {
        char cells[2][32];
        std::snprintf(cells[0], sizeof cells[0], row.fmt, row.get(a));
        std::snprintf(cells[1], sizeof cells[1], row.fmt, row.get(b));
        std::fprintf(f, "%-34s %12s %12s\n", row.label, cells[0], cells[1]);
    }
}

Report compare_with_default_mode(std::FILE *f, const std::vector<uint8_t> &log, const ReplayOptions &opt,
                                 const ReplayOutput &with_options, const std::vector<drsim::TruthRow> &truth) {
    ReplayOptions plain = opt;
    plain.cfg.options = 0u;
    const Report rep_plain = make_report(replay_log(log, plain), truth);
    const Report rep = make_report(with_options, truth);
    print_reports_side_by_side(f, rep_plain, "default", rep, options_word_names(opt.cfg.options));
    return rep;
}

}  // namespace drtools
