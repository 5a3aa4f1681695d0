#!/usr/bin/env bash
# The whole test suite, every stage through CTest:
#   release     warnings as errors, x86-64
#   sanitizers  AddressSanitizer + UndefinedBehaviorSanitizer, x86-64
#   armhf       cross build for 32-bit Arm Linux, tests under qemu user-mode emulation
#   long        tests labelled "long" (the two-hour soak), release build
#   fuzz        each libFuzzer target for about a minute (scripts/fuzz.sh)
# Installs the Debian packages it needs when they are missing, and stops at the
# first failing stage. DRLIB_STAGES="release armhf" runs a subset.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh g++-arm-linux-gnueabihf qemu-user
jobs=$(nproc)
stages=${DRLIB_STAGES:-"release sanitizers armhf long fuzz"}

run_suite() {  # name, build dir, ctest label option, cmake options...
  local name=$1 dir=$2 labels=$3; shift 3
  echo "=== $name: configure and build ($dir)"
  cmake -S . -B "$dir" -DDRLIB_WERROR=ON "$@" >/dev/null
  cmake --build "$dir" -j "$jobs" -- --no-print-directory >"$dir.buildlog" 2>&1 || {
    tail -n 60 "$dir.buildlog"; echo "=== $name: build failed"; return 1; }
  echo "=== $name: tests"
  ctest --test-dir "$dir" -j "$jobs" --output-on-failure $labels
}

for stage in $stages; do
  case $stage in
    release)    run_suite release build "-LE long" -DCMAKE_BUILD_TYPE=RelWithDebInfo ;;
    sanitizers) run_suite sanitizers build-asan "-LE long" -DCMAKE_BUILD_TYPE=Debug -DDRLIB_SANITIZE=ON ;;
    long)       run_suite long build "-L long" -DCMAKE_BUILD_TYPE=RelWithDebInfo ;;
    fuzz)       scripts/fuzz.sh ;;
    armhf)      run_suite armhf build-armhf "-LE long" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
                  -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake ;;
    *) echo "unknown stage $stage"; exit 2 ;;
  esac
done
echo "=== all test stages passed: $stages"
