#!/usr/bin/env bash
# Installs a build tree into a scratch prefix and builds the example host
# against the installed copy the two ways a consumer would: CMake's
# find_package(drlib CONFIG) and pkg-config (plus a static link through
# pkg-config). Each program then replays LOG; its output must equal that of
# the example built in the tree.
#
# usage: test_install.sh BUILD_DIR [LOG]
# environment: CC (the target's C compiler), READELF, PKG_CONFIG,
#   TOOLCHAIN (cross builds: the CMake toolchain file), EMULATOR (e.g. "qemu-arm -L /usr/arm-linux-gnueabihf")
set -euo pipefail
build=$(cd "$1" && pwd)
log=${2:-}
CC=${CC:-cc}
READELF=${READELF:-readelf}
PKG_CONFIG=${PKG_CONFIG:-pkg-config}
read -r -a emulator <<<"${EMULATOR:-}"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
fail() { echo "test_install: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >"$work/install.txt"

# The layout a consumer expects.
libdir=$(dirname "$(find "$prefix" -name 'libdrlib.so.*.*.*' -print -quit)")
[ -d "$libdir" ] || fail "no libdrlib.so.X.Y.Z installed"
[ "$(readlink "$libdir/libdrlib.so.4")" = "$(basename "$libdir"/libdrlib.so.*.*.*)" ] || fail "libdrlib.so.4 link"
[ "$(readlink "$libdir/libdrlib.so")" = libdrlib.so.4 ] || fail "libdrlib.so link"
for f in "$libdir/libdrlib.a" "$prefix/include/drlib.h" "$prefix/include/drlib_toolkit.h" "$libdir/cmake/drlib/drlibConfig.cmake" \
         "$libdir/cmake/drlib/drlibConfigVersion.cmake" "$libdir/pkgconfig/drlib.pc" \
         "$prefix/share/doc/drlib/examples/tilt_host.c"; do
  [ -f "$f" ] || fail "missing ${f#"$prefix"/}"
done
[ ! -x "$build/drlib-replay" ] || [ -x "$prefix/bin/drlib-replay" ] || fail "tools not installed"

run() {  # program; prints what it printed, fails on a non-zero exit
  local rc=0
  [[ $1 == *_static ]] || "$READELF" -d "$1" | grep -q 'Shared library: \[libdrlib.so.4\]' || fail "$1 does not need libdrlib.so.4"
  if [ -n "$log" ]; then
    LD_LIBRARY_PATH=$libdir "${emulator[@]}" "$@" "$log" || rc=$?
    [ $rc -eq 0 ] || fail "$1 exited with $rc"
  else
    LD_LIBRARY_PATH=$libdir "${emulator[@]}" "$@" >/dev/null 2>&1 || rc=$?
    [ $rc -eq 2 ] || fail "$1 without a log exited with $rc, expected its usage error"  # it loaded and ran
  fi
}
reference=""
if [ -n "$log" ] && [ -x "$build/examples/tilt_host" ]; then
  reference=$("${emulator[@]}" "$build/examples/tilt_host" "$log")
fi
same_output() {  # name, output
  [ -z "$reference" ] || [ "$2" = "$reference" ] || {
    diff <(echo "$reference") <(echo "$2") | head -5 >&2; fail "$1: output differs from the build tree's example"; }
  echo "test_install: $1: ok${log:+ ($(echo "$2" | tail -n 1))}"
}

# 1. CMake: the installed example directory is itself a consumer project.
cmake_args=(-S "$prefix/share/doc/drlib/examples" -B "$work/cmake-build" -DCMAKE_BUILD_TYPE=Release)
if [ -n "${TOOLCHAIN:-}" ]; then
  # The toolchain confines package searches to the target's root: name the package directly.
  cmake_args+=(-DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN" -Ddrlib_DIR="$libdir/cmake/drlib")
else
  cmake_args+=(-DCMAKE_PREFIX_PATH="$prefix")
fi
cmake "${cmake_args[@]}" >"$work/cmake-configure.txt" || { cat "$work/cmake-configure.txt"; fail "CMake consumer: configure"; }
cmake --build "$work/cmake-build" >"$work/cmake-build.txt" || { cat "$work/cmake-build.txt"; fail "CMake consumer: build"; }
out=$(run "$work/cmake-build/tilt_host")
same_output "CMake find_package(drlib) -> drlib::drlib" "$out"

# 2. pkg-config, with only the installed copy visible to it.
export PKG_CONFIG_LIBDIR=$libdir/pkgconfig PKG_CONFIG_PATH=
[ "$("$PKG_CONFIG" --modversion drlib)" = 4.4.0 ] || fail "pkg-config --modversion drlib"
mkdir "$work/pc"
cp "$prefix/share/doc/drlib/examples/tilt_host.c" "$prefix/share/doc/drlib/examples/Makefile" "$work/pc/"
# The installed Makefile, with the prefix given on make's command line as the README says.
env -u PKG_CONFIG_LIBDIR make -s -C "$work/pc" CC="$CC" PKG_CONFIG="$PKG_CONFIG" PKG_CONFIG_PATH="$libdir/pkgconfig" \
  >"$work/make.txt" 2>&1 || { cat "$work/make.txt"; fail "pkg-config consumer: build"; }
out=$(run "$work/pc/tilt_host")
same_output "pkg-config drlib" "$out"

# 3. The archive alone: a C host links it without any C++ runtime.
# shellcheck disable=SC2046
"$CC" -std=c99 -O2 -o "$work/pc/tilt_host_static" "$work/pc/tilt_host.c" \
  $("$PKG_CONFIG" --cflags drlib) -Wl,-Bstatic $("$PKG_CONFIG" --libs drlib) -Wl,-Bdynamic -lm
if "$READELF" -d "$work/pc/tilt_host_static" | grep -q 'libdrlib\|libstdc++'; then
  fail "the static host still needs a shared libdrlib or libstdc++"
fi
out=$(run "$work/pc/tilt_host_static")
same_output "static libdrlib.a" "$out"
