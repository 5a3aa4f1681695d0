#!/usr/bin/env bash
# The demo: a simulated survey session through the library, with its report.
# Builds the library and the tools, simulates the built-in `survey` scenario
# (seed from $1, default 1), replays it through libdrlib, prints the accuracy
# report, then the library's defaults and its options side by side, and
# writes the plots. Everything lands in out/demo/.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh python3-matplotlib lld
seed=${1:-1}
out=out/demo
mkdir -p "$out"
cmake -S . -B build-demo -DCMAKE_BUILD_TYPE=Release -DDRLIB_BUILD_TESTS=OFF >/dev/null
cmake --build build-demo -j "$(nproc)" --target drlib drlib-sim drlib-replay -- --no-print-directory >/dev/null
build-demo/drlib-sim --scenario survey --seed "$seed" --out "$out/survey.log" --truth "$out/survey-truth.csv" --quiet
echo "=== survey scenario, seed $seed: accuracy of the tilt solution against the simulator's truth"
build-demo/drlib-replay "$out/survey.log" --truth "$out/survey-truth.csv" \
  --csv "$out/survey-tilt.csv" --json "$out/survey-report.json"
echo "=== the same session with the library's defaults and with the options aligned (GNSS velocity"
echo "    at the solution instant) and screen (implausible solutions refused), side by side"
build-demo/drlib-replay "$out/survey.log" --truth "$out/survey-truth.csv" --compare --options aligned,screen \
  --csv "$out/survey-tilt-options.csv" --json "$out/survey-report-options.json" -q
echo "=== files"
echo "$out/survey.log (input log), $out/survey-truth.csv (truth), $out/survey-tilt.csv (tilt statuses),"
echo "$out/survey-report.json (report); with the options: $out/survey-tilt-options.csv, $out/survey-report-options.json"
/usr/bin/python3 tools/drlib_plot.py "$out/survey-tilt.csv" "$out/survey-truth.csv" "$out/survey" \
  --compare "$out/survey-tilt-options.csv" --labels "defaults,aligned+screen" \
  --title "survey, seed $seed, industrial IMU: library defaults against the options" | sed 's/^/plot: /'
