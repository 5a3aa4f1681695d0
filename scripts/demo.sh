#!/usr/bin/env bash
# The demo: a simulated survey session through the library, with its report.
# Builds the library and the tools, simulates the built-in `survey` scenario
# (seed from $1, default 1), replays it through libdrlib, prints the accuracy
# report and writes the plots. Everything lands in out/demo/.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh python3-matplotlib
seed=${1:-1}
out=out/demo
mkdir -p "$out"
cmake -S . -B build-demo -DCMAKE_BUILD_TYPE=Release -DDRLIB_BUILD_TESTS=OFF >/dev/null
cmake --build build-demo -j "$(nproc)" --target drlib drlib-sim drlib-replay -- --no-print-directory >/dev/null
build-demo/drlib-sim --scenario survey --seed "$seed" --out "$out/survey.log" --truth "$out/survey-truth.csv" --quiet
echo "=== survey scenario, seed $seed: accuracy of the tilt solution against the simulator's truth"
build-demo/drlib-replay "$out/survey.log" --truth "$out/survey-truth.csv" \
  --csv "$out/survey-tilt.csv" --json "$out/survey-report.json"
echo "=== files"
echo "$out/survey.log (input log), $out/survey-truth.csv (truth), $out/survey-tilt.csv (tilt statuses),"
echo "$out/survey-report.json (report)"
/usr/bin/python3 tools/drlib_plot.py "$out/survey-tilt.csv" "$out/survey-truth.csv" "$out/survey" \
  --title "survey, seed $seed, industrial IMU, library defaults" | sed 's/^/plot: /'
