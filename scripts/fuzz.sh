#!/usr/bin/env bash
# Fuzzes the library with libFuzzer (clang, AddressSanitizer and
# UndefinedBehaviorSanitizer): record sequences through the public interface,
# the tools' log reader, and configuration records. Each target starts from
# the seed corpus in fuzz/corpus (copied, so the repository stays clean) and
# runs for DRLIB_FUZZ_SECONDS (default 60). Any finding (crash, sanitizer
# report, broken interface promise, leak, time-out) fails the script and
# leaves the input in build-fuzz/artifacts/.
#   scripts/fuzz.sh [target ...]        targets: records log_reader config
#   scripts/fuzz.sh --seeds             rewrites fuzz/corpus from the simulator
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh clang libclang-rt-dev
dir=build-fuzz
seconds=${DRLIB_FUZZ_SECONDS:-60}

echo "=== fuzz: configure and build ($dir)"
cmake -S . -B "$dir" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDRLIB_BUILD_FUZZ=ON -DDRLIB_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" -j "$(nproc)" --target fuzz_records fuzz_log_reader fuzz_config fuzz_make_seeds \
  -- --no-print-directory >"$dir.buildlog" 2>&1 || { tail -n 60 "$dir.buildlog"; echo "=== fuzz: build failed"; exit 1; }

if [ "${1:-}" = "--seeds" ]; then
  mkdir -p fuzz/corpus/records fuzz/corpus/log_reader fuzz/corpus/config
  "$dir/fuzz_make_seeds" fuzz/corpus
  echo "=== seeds written to fuzz/corpus"
  exit 0
fi

targets=${*:-"records log_reader config"}
mkdir -p "$dir/artifacts"
for t in $targets; do
  work="$dir/corpus/$t"
  rm -rf "$work" && mkdir -p "$work" && cp fuzz/corpus/"$t"/* "$work"/
  echo "=== fuzz: $t for ${seconds} s"
  if ! "$dir/fuzz_$t" "$work" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 \
        -max_len=16384 -print_final_stats=1 -artifact_prefix="$dir/artifacts/$t-" \
        >"$dir/fuzz_$t.log" 2>&1; then
    tail -n 40 "$dir/fuzz_$t.log"
    echo "=== fuzz: $t found a fault; the input is in $dir/artifacts/"
    exit 1
  fi
  grep -E 'stat::(number_of_executed_units|average_exec_per_sec)|cov:' "$dir/fuzz_$t.log" | tail -n 3
done
echo "=== fuzz: no findings ($targets)"
