// The library's options word for the tools: option names on the command
// line, and two accuracy reports of one log side by side.
#ifndef DRTOOLS_COMMON_OPTIONS_H
#define DRTOOLS_COMMON_OPTIONS_H

#include <cstdint>
#include <cstdio>
#include <string>

#include <vector>

#include "common_replay.h"
#include "common_report.h"

namespace drtools {

// Option names, comma-separated: "aligned" (DRLIB_OPT_ALIGNED_VELOCITY),
// "screen" (DRLIB_OPT_SCREEN_SOLUTIONS), "all" (both), "none". Gives the
// options word with the marker (just the marker for "none"), or false and an
// error naming the unknown option.
bool parse_options_word(const std::string &names, uint32_t &word, std::string &error);

// The option names of a word, as parse_options_word takes them ("none"
// without the marker or without option bits).
std::string options_word_names(uint32_t word);

// The key figures of two reports of the same log in two columns.
void print_reports_side_by_side(std::FILE *f, const Report &a, const std::string &name_a,
                                const Report &b, const std::string &name_b);

// Replays `log` once more with `opt` but without options, and prints the
// report of that run beside the report of `with_options` (the replay of
// `log` with `opt`). Returns the latter report.
Report compare_with_default_mode(std::FILE *f, const std::vector<uint8_t> &log, const ReplayOptions &opt,
                                 const ReplayOutput &with_options, const std::vector<drsim::TruthRow> &truth);

}  // namespace drtools

#endif
