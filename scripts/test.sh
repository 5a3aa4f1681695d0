#!/usr/bin/env bash
# The whole test suite: a warnings-as-errors build and an AddressSanitizer +
# UndefinedBehaviorSanitizer build of the library, tools and tests, each run
# through CTest. Exits non-zero on the first failing stage.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
jobs=$(nproc)

run_suite() {  # name, build dir, cmake options...
  local name=$1 dir=$2; shift 2
  echo "=== $name: configure and build ($dir)"
  cmake -S . -B "$dir" -DDRLIB_WERROR=ON "$@" >/dev/null
  cmake --build "$dir" -j "$jobs" -- --no-print-directory
  echo "=== $name: tests"
  ctest --test-dir "$dir" -j "$jobs" --output-on-failure
}

run_suite "release" build -DCMAKE_BUILD_TYPE=RelWithDebInfo
run_suite "sanitizers" build-asan -DCMAKE_BUILD_TYPE=Debug -DDRLIB_SANITIZE=ON
echo "=== all test stages passed"
