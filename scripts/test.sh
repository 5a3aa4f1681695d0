#!/usr/bin/env bash
# The whole test suite, every stage through CTest:
#   release     warnings as errors, x86-64
#   sanitizers  AddressSanitizer + UndefinedBehaviorSanitizer, x86-64
#   armhf       cross build for 32-bit Arm Linux, tests under qemu user-mode emulation;
#               its replay is compared byte for byte with the release build's
# Installs the Debian packages it needs when they are missing, and stops at the
# first failing stage. DRLIB_STAGES="release armhf" runs a subset.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh g++-arm-linux-gnueabihf qemu-user
jobs=$(nproc)
stages=${DRLIB_STAGES:-"release sanitizers armhf"}

run_suite() {  # name, build dir, cmake options...
  local name=$1 dir=$2; shift 2
  echo "=== $name: configure and build ($dir)"
  cmake -S . -B "$dir" -DDRLIB_WERROR=ON "$@" >/dev/null
  cmake --build "$dir" -j "$jobs" -- --no-print-directory >"$dir.buildlog" 2>&1 || {
    tail -n 60 "$dir.buildlog"; echo "=== $name: build failed"; return 1; }
  echo "=== $name: tests"
  ctest --test-dir "$dir" -j "$jobs" --output-on-failure
}

for stage in $stages; do
  case $stage in
    release)    run_suite release build -DCMAKE_BUILD_TYPE=RelWithDebInfo ;;
    sanitizers) run_suite sanitizers build-asan -DCMAKE_BUILD_TYPE=Debug -DDRLIB_SANITIZE=ON ;;
    armhf)      run_suite armhf build-armhf -DCMAKE_BUILD_TYPE=RelWithDebInfo \
                  -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake \
                  -DDRLIB_HOST_BUILD_DIR="$PWD/build" ;;
    *) echo "unknown stage $stage"; exit 2 ;;
  esac
done
echo "=== all test stages passed: $stages"
