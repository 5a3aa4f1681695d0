#!/usr/bin/env bash
# Benchmarks: wall-clock time of one DrlibUpdateFusion epoch in each driver
# state and of the kernels behind it (Google Benchmark), then the instruction
# count per epoch of the bank and the main state under callgrind, which
# repeats exactly on a busy machine. Checks the targets: a bank epoch within
# 1% of the 100 ms epoch period and under 1.5 million instructions, a
# main-state epoch under 150,000 instructions, in both modes (library
# defaults and every option on). Then the accuracy goals of the aligned GNSS
# velocity on simulated surveys (seeds 1-5, industrial IMU): heading RMS at
# most 0.5 deg, tip horizontal RMS at most 12 mm. Exit status 1 if one is missed.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh libbenchmark-dev valgrind
dir=build-bench
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDRLIB_BUILD_BENCH=ON -DDRLIB_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" -j "$(nproc)" --target drlib_bench drlib_stack_depth drlib-sim drlib-replay -- --no-print-directory >"$dir.buildlog" 2>&1 || {
  tail -n 60 "$dir.buildlog"; echo "=== bench: build failed"; exit 1; }

echo "=== wall-clock time (this machine)"
"$dir/bench/drlib_bench" --benchmark_min_time=0.5 "$@"
status=0
"$dir/bench/drlib_bench" --check || status=1

echo "=== instructions per epoch (callgrind), library defaults and with every option on"
limits=(bank:1500000 main:150000 idle:0)
for mode in default all-options; do
for entry in "${limits[@]}"; do
  phase=${entry%%:*} limit=${entry##*:}
  out="$dir/callgrind-$mode-$phase"
  flag=()
  [ "$mode" = default ] || flag=(--all-options)
  rm -rf "$out" && mkdir -p "$out"
  valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$out/cg.%p" \
    "$dir/bench/drlib_bench" "${flag[@]}" --count "$phase" >/dev/null 2>"$out/valgrind.log"
  # One dump per epoch; its "summary:" line holds the instructions of that epoch.
  read -r n mean max < <(awk '/^summary:/ { if ($2 > 0) { n++; s += $2; if ($2 > m) m = $2 } }
      END { printf "%d %.0f %d\n", n, (n ? s / n : 0), m }' "$out"/cg.*)
  verdict=""
  if [ "$limit" -gt 0 ]; then
    if [ "$max" -lt "$limit" ]; then verdict="(limit $limit: met by the worst epoch)"
    else verdict="(limit $limit: MISSED)"; status=1; fi
  fi
  printf '%-11s %-5s %4d epochs: mean %8d, max %8d instructions %s\n' "$mode" "$phase" "$n" "$mean" "$max" "$verdict"
done
done
echo "=== accuracy with the aligned GNSS velocity (survey, industrial IMU; goals: heading RMS <= 0.5 deg, tip H RMS <= 12 mm)"
acc="$dir/accuracy"
mkdir -p "$acc"
for seed in 1 2 3 4 5; do
  "$dir/drlib-sim" --scenario survey --seed "$seed" --out "$acc/survey.log" --truth "$acc/survey.csv" --quiet 2>/dev/null \
    || { echo "=== bench: drlib-sim failed"; exit 1; }
  "$dir/drlib-replay" "$acc/survey.log" --truth "$acc/survey.csv" --options aligned --csv /dev/null \
    --json "$acc/report.json" -q >/dev/null
  /usr/bin/python3 - "$acc/report.json" "$seed" <<'PY' || status=1
import json, sys
r = json.load(open(sys.argv[1]))
heading, tip_h = r["attitude_error_deg"]["heading"]["rms"], 1e3 * r["tip_error_m"]["all"]["horizontal"]["rms"]
ok = heading <= 0.5 and tip_h <= 12.0
print("seed %s: heading RMS %.3f deg, tip H RMS %.1f mm %s" % (sys.argv[2], heading, tip_h, "" if ok else "(goal MISSED)"))
sys.exit(0 if ok else 1)
PY
done

echo "=== deepest stack use of DrlibUpdateFusion (stack painting)"
for scenario in survey calibration static; do
  "$dir/drlib-sim" --scenario "$scenario" --quiet --out "$dir/stack-$scenario.log" --truth "$dir/stack-$scenario.csv"
done
"$dir/bench/drlib_stack_depth" "$dir"/stack-{survey,calibration,static}.log
exit $status
