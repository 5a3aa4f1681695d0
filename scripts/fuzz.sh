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
#   scripts/fuzz.sh --long [target ...] not for CI: each target for
#       DRLIB_FUZZ_LONG_SECONDS (default 3600); a finding is kept and the
#       fuzzer goes on with the rest of the time; at the end the inputs that
#       reach new edges are merged into fuzz/corpus/<target> (libFuzzer
#       -merge=1 -use_counters=0, so the committed corpus stays small),
#       and each target reports its executions, coverage (cov, ft) and findings.
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

mkdir -p "$dir/artifacts"

if [ "${1:-}" = "--long" ]; then
  shift
  targets=${*:-"records log_reader config"}
  long=${DRLIB_FUZZ_LONG_SECONDS:-3600}
  summary=""
  for t in $targets; do
    work="$dir/long/$t"
    rm -rf "$work" && mkdir -p "$work" && cp fuzz/corpus/"$t"/* "$work"/
    log="$dir/fuzz_$t.long.log"
    : >"$log"
    before=$(ls fuzz/corpus/"$t" | wc -l)
    start=$(date +%s)
    execs=0 findings=0 segment=0
    echo "=== fuzz --long: $t for ${long} s"
    # A finding ends libFuzzer's run: keep the input and start again from the
    # grown corpus until the time is spent.
    while :; do
      left=$(( long - ($(date +%s) - start) ))
      [ "$left" -gt 5 ] || break
      segment=$((segment + 1))
      seglog="$dir/fuzz_$t.long.$segment.log"
      if "$dir/fuzz_$t" "$work" -max_total_time="$left" -timeout=20 -rss_limit_mb=2048 \
           -max_len=16384 -print_final_stats=1 -artifact_prefix="$dir/artifacts/$t-" >"$seglog" 2>&1; then
        status=done
      else
        status=finding
        findings=$((findings + 1))
        echo "--- finding $findings of $t:"
        grep -m1 -E 'drlib fuzz finding|ERROR: (AddressSanitizer|LeakSanitizer|libFuzzer)|runtime error' "$seglog" || true
        grep -m1 -E 'Test unit written to' "$seglog" || true
      fi
      n=$(grep -oP 'stat::number_of_executed_units: \K[0-9]+' "$seglog" || echo 0)
      execs=$((execs + n))
      cat "$seglog" >>"$log"
      [ "$status" = finding ] || break
    done
    elapsed=$(( $(date +%s) - start ))
    cov=$(grep -oP 'cov: [0-9]+ ft: [0-9]+' "$log" | tail -n 1 || true)
    # Merged on edge coverage alone (no hit counters): the committed corpus
    # keeps one small input per new edge, not one per new hit count.
    "$dir/fuzz_$t" -merge=1 -use_counters=0 fuzz/corpus/"$t" "$work" >"$dir/fuzz_$t.merge.log" 2>&1 ||
      echo "--- merge into fuzz/corpus/$t failed: see $dir/fuzz_$t.merge.log"
    after=$(ls fuzz/corpus/"$t" | wc -l)
    size=$(cat fuzz/corpus/"$t"/* | wc -c)
    line="$t: $execs executions in $elapsed s ($((execs / (elapsed > 0 ? elapsed : 1)))/s), $cov, findings $findings, corpus $before -> $after files ($size bytes)"
    echo "=== $line"
    summary="$summary$line"$'\n'
  done
  echo "=== fuzz --long summary (artifacts in $dir/artifacts/)"
  printf '%s' "$summary"
  exit 0
fi

targets=${*:-"records log_reader config"}
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
