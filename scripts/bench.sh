#!/usr/bin/env bash
# Benchmarks: wall-clock time of one DrlibUpdateFusion epoch in each driver
# state and of the kernels behind it (Google Benchmark), then the instruction
# count per epoch of the bank and the main state under callgrind, which
# repeats exactly on a busy machine. Checks the targets: a bank epoch within
# 1% of the 100 ms epoch period and under 1.5 million instructions, a
# main-state epoch under 150,000 instructions. Exit status 1 if one is missed.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh libbenchmark-dev valgrind
dir=build-bench
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDRLIB_BUILD_BENCH=ON -DDRLIB_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" -j "$(nproc)" --target drlib_bench drlib_stack_depth drlib-sim -- --no-print-directory >"$dir.buildlog" 2>&1 || {
  tail -n 60 "$dir.buildlog"; echo "=== bench: build failed"; exit 1; }

echo "=== wall-clock time (this machine)"
"$dir/bench/drlib_bench" --benchmark_min_time=0.5 "$@"
status=0
"$dir/bench/drlib_bench" --check || status=1

echo "=== instructions per epoch (callgrind)"
limits=(bank:1500000 main:150000 idle:0)
for entry in "${limits[@]}"; do
  phase=${entry%%:*} limit=${entry##*:}
  out="$dir/callgrind-$phase"
  rm -rf "$out" && mkdir -p "$out"
  valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$out/cg.%p" \
    "$dir/bench/drlib_bench" --count "$phase" >/dev/null 2>"$out/valgrind.log"
  # One dump per epoch; its "summary:" line holds the instructions of that epoch.
  read -r n mean max < <(awk '/^summary:/ { if ($2 > 0) { n++; s += $2; if ($2 > m) m = $2 } }
      END { printf "%d %.0f %d\n", n, (n ? s / n : 0), m }' "$out"/cg.*)
  verdict=""
  if [ "$limit" -gt 0 ]; then
    if [ "$max" -lt "$limit" ]; then verdict="(limit $limit: met by the worst epoch)"
    else verdict="(limit $limit: MISSED)"; status=1; fi
  fi
  printf '%-5s %4d epochs: mean %8d, max %8d instructions %s\n' "$phase" "$n" "$mean" "$max" "$verdict"
done

echo "=== deepest stack use of DrlibUpdateFusion (stack painting)"
for scenario in survey calibration static; do
  "$dir/drlib-sim" --scenario "$scenario" --quiet --out "$dir/stack-$scenario.log" --truth "$dir/stack-$scenario.csv"
done
"$dir/bench/drlib_stack_depth" "$dir"/stack-{survey,calibration,static}.log
exit $status
