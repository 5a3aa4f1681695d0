#!/usr/bin/env bash
# The whole test suite, every stage through CTest:
#   release     warnings as errors, x86-64
#   sanitizers  AddressSanitizer + UndefinedBehaviorSanitizer, x86-64
#   armhf       cross build for 32-bit Arm Linux, tests under qemu user-mode emulation;
#               its replay is compared byte for byte with the release build's
#   package     Debian packages for amd64 and armhf (Release, prefix /usr) into
#               out/packages/<arch>/, inspected and tried in a scratch root
#   long        tests labelled "long" (the two-hour soak), release build
#   fuzz        each libFuzzer target for about a minute (scripts/fuzz.sh)
# Installs the Debian packages it needs when they are missing, and stops at the
# first failing stage. DRLIB_STAGES="release armhf" runs a subset.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh g++-arm-linux-gnueabihf qemu-user pkg-config python3 file lld
jobs=$(nproc)
stages=${DRLIB_STAGES:-"release sanitizers armhf package long fuzz"}

run_suite() {  # name, build dir, ctest label option, cmake options...
  local name=$1 dir=$2 labels=$3; shift 3
  echo "=== $name: configure and build ($dir)"
  cmake -S . -B "$dir" -DDRLIB_WERROR=ON "$@" >/dev/null
  cmake --build "$dir" -j "$jobs" -- --no-print-directory >"$dir.buildlog" 2>&1 || {
    tail -n 60 "$dir.buildlog"; echo "=== $name: build failed"; return 1; }
  echo "=== $name: tests"
  ctest --test-dir "$dir" -j "$jobs" --output-on-failure $labels
}

package_arch() {  # arch, build dir, cmake options...
  local arch=$1 dir=$2; shift 2
  echo "=== package $arch: configure and build ($dir)"
  cmake -S . -B "$dir" --no-warn-unused-cli -DDRLIB_WERROR=ON -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
    -DDRLIB_BUILD_TESTS=OFF "$@" >/dev/null
  cmake --build "$dir" -j "$jobs" -- --no-print-directory >"$dir.buildlog" 2>&1 || {
    tail -n 60 "$dir.buildlog"; echo "=== package $arch: build failed"; return 1; }
  rm -rf "out/packages/$arch"
  cpack --config "$dir/CPackConfig.cmake" -B "$PWD/out/packages/$arch" >"$dir.cpacklog" 2>&1 || {
    cat "$dir.cpacklog"; echo "=== package $arch: cpack failed"; return 1; }
  rm -rf "out/packages/$arch/_CPack_Packages"
  ls -l out/packages/"$arch"/*.deb
}

package_stage() {
  package_arch amd64 build-pkg-amd64 -DDRLIB_BUILD_EXAMPLES=OFF
  package_arch armhf build-pkg-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake \
    -DDRLIB_BUILD_EXAMPLES=OFF
  echo "=== package: inspect, and try the amd64 packages in a scratch root"
  build-pkg-amd64/drlib-sim --scenario survey --duration-scale 0.5 --quiet \
    --out build-pkg-amd64/survey.log --truth build-pkg-amd64/survey-truth.csv
  LOG=build-pkg-amd64/survey.log tests/test_packages.sh out/packages/amd64 out/packages/armhf
}

for stage in $stages; do
  case $stage in
    release)    run_suite release build "-LE long" -DCMAKE_BUILD_TYPE=RelWithDebInfo ;;
    sanitizers) run_suite sanitizers build-asan "-LE long" -DCMAKE_BUILD_TYPE=Debug -DDRLIB_SANITIZE=ON ;;
    long)       run_suite long build "-L long" -DCMAKE_BUILD_TYPE=RelWithDebInfo ;;
    fuzz)       scripts/fuzz.sh ;;
    armhf)      run_suite armhf build-armhf "-LE long" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
                  -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake \
                  -DDRLIB_HOST_BUILD_DIR="$PWD/build" ;;
    package)    package_stage ;;
    *) echo "unknown stage $stage"; exit 2 ;;
  esac
done
echo "=== all test stages passed: $stages"
