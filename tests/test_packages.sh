#!/usr/bin/env bash
# Inspects the Debian packages of one or more package directories (one per
# architecture, as cpack writes them) and unpacks the amd64 ones into a
# scratch root, where the Python module replays a log through the packaged
# library. (Building against the installed files is test_install.sh's.)
#
# usage: test_packages.sh DIR... ; environment: LOG (an input log for the runs)
set -euo pipefail
[ $# -ge 1 ] || { echo "usage: $0 PACKAGE_DIR..." >&2; exit 2; }
version=4.4.0-1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "test_packages: $*" >&2; exit 1; }
field() { dpkg-deb --field "$1" "$2"; }
python=/usr/bin/python3
[ -x "$python" ] || python=python3

check_arch_dir() {  # dir
  local dir=$1 runtime dev py tools arch triple machine
  runtime=$(ls "$dir"/libdrlib4_${version}_*.deb 2>/dev/null | head -n 1)
  [ -n "$runtime" ] || fail "$dir: no libdrlib4 package"
  arch=$(field "$runtime" Architecture)
  case $arch in
    amd64) triple=x86_64-linux-gnu machine='Advanced Micro Devices X86-64' ;;
    armhf) triple=arm-linux-gnueabihf machine='ARM' ;;
    *) fail "$runtime: unexpected architecture '$arch'" ;;
  esac
  dev=$dir/libdrlib-dev_${version}_${arch}.deb py=$dir/python3-drlib_${version}_all.deb
  tools=$dir/drlib-tools_${version}_${arch}.deb
  for deb in "$dev" "$py" "$tools"; do [ -f "$deb" ] || fail "missing $(basename "$deb")"; done

  # Control fields.
  local depends glibc check deb name want
  for check in "$runtime|Package|libdrlib4" "$runtime|Version|$version" "$dev|Architecture|$arch" \
               "$dev|Depends|libdrlib4 (= $version)" "$py|Architecture|all" "$py|Depends|python3, libdrlib4 (>= 4.4.0)"; do
    IFS='|' read -r deb name want <<<"$check"
    [ "$(field "$deb" "$name")" = "$want" ] || fail "$(basename "$deb") $name: '$(field "$deb" "$name")', not '$want'"
  done
  depends=$(field "$runtime" Depends)
  [[ $depends =~ ^libc6\ \(\>=\ ([0-9]+(\.[0-9]+)+)\)$ ]] || fail "runtime Depends '$depends': libc6 only"
  glibc=${BASH_REMATCH[1]}
  dpkg-deb --ctrl-tarfile "$runtime" | tar -xO ./shlibs | grep -qx "libdrlib 4 libdrlib4 (>= $version)" \
    || fail "runtime shlibs"
  dpkg-deb --ctrl-tarfile "$runtime" | tar -xO ./postinst | grep -q 'ldconfig' || fail "postinst does not run ldconfig"

  # Every package: the MIT licence as its copyright file, a real maintainer.
  local files deb pkg
  for deb in "$runtime" "$dev" "$py" "$tools"; do
    pkg=$(field "$deb" Package)
    dpkg-deb --fsys-tarfile "$deb" | tar -xO "./usr/share/doc/$pkg/copyright" | grep '^License: MIT$' >/dev/null \
      || fail "$pkg: no MIT licence in /usr/share/doc/$pkg/copyright"
    [[ $(field "$deb" Maintainer) =~ ^drlib\ authors\ \<[^@]+@[a-z.]+\>$ ]] || fail "$pkg: Maintainer"
    [[ $(field "$deb" Maintainer) != *localhost* ]] || fail "$pkg: Maintainer at localhost"
    dpkg-deb --contents "$deb" | awk '$2 != "root/root" {exit 1}' || fail "$pkg: files not owned by root"
  done
  # Contents: the runtime package holds the shared object and its SONAME link, nothing else.
  files=$(dpkg-deb --contents "$runtime" | grep -v '/$' | awk '{s = $1 " " $6; if ($7 == "->") s = s " -> " $8; print s}' | LC_ALL=C sort -k2,2)
  [ "$files" = "lrwxrwxrwx ./usr/lib/$triple/libdrlib.so.4 -> libdrlib.so.4.4.0
-rw-r--r-- ./usr/lib/$triple/libdrlib.so.4.4.0
-rw-r--r-- ./usr/share/doc/libdrlib4/copyright" ] || fail "runtime contents:
$files"
  files=$(dpkg-deb --contents "$tools" | awk '{print $1, $6}')
  for f in "rwxr-xr-x ./usr/bin/drlib-sim" "rwxr-xr-x ./usr/bin/drlib-replay" "rwxr-xr-x ./usr/bin/drlib-csv2log" \
           "rwxr-xr-x ./usr/bin/drlib-plot" "r--r-- ./usr/share/doc/drlib-tools/log-format.md" \
           "r--r-- ./usr/share/doc/drlib-tools/csv-input.md"; do
    grep -q -- "${f% *}.* ${f#* }\$" <<<"$files" || fail "tools package lacks ${f#* } (${f% *})"
  done
  dpkg-deb -x "$tools" "$work/t-$arch"
  readelf -h "$work/t-$arch/usr/bin/drlib-replay" | grep -q "Machine: *$machine\$" \
    || fail "$arch: drlib-replay is not built for $machine"
  files=$(dpkg-deb --contents "$dev" | awk '{print $6}')
  for f in ./usr/include/drlib.h ./usr/include/drlib_toolkit.h ./usr/lib/$triple/libdrlib.so ./usr/lib/$triple/libdrlib.a \
           ./usr/lib/$triple/cmake/drlib/drlibConfig.cmake ./usr/lib/$triple/cmake/drlib/drlibConfigVersion.cmake \
           ./usr/lib/$triple/pkgconfig/drlib.pc ./usr/share/doc/drlib/examples/tilt_host.c; do
    grep -qx "$f" <<<"$files" || fail "dev package lacks $f"
  done
  ! grep -q 'libdrlib.so.4' <<<"$files" || fail "dev package carries the runtime's files"

  # The shared object itself: the right machine, no newer glibc symbol than
  # Depends states, stripped (what it needs: check_shared_object.sh).
  local x=$work/x-$arch so
  dpkg-deb -x "$runtime" "$x"
  so=$x/usr/lib/$triple/libdrlib.so.4.4.0
  readelf -h "$so" | grep -q "Machine: *$machine\$" || fail "$arch: ELF machine is not $machine"
  if [ "$arch" = armhf ]; then
    readelf -h "$so" | grep -q 'hard-float ABI' || fail "armhf: not the hard-float ABI"
  fi
  readelf -V --wide "$so" | grep -o 'GLIBC_[0-9.]*' | sed 's/GLIBC_//' | while read -r v; do
    [ "$(printf '%s\n%s\n' "$v" "$glibc" | sort -V | tail -n 1)" = "$glibc" ] \
      || fail "$arch: references GLIBC_$v, Depends says >= $glibc"
  done
  ! readelf -S "$so" | grep -q '\.debug_info' || fail "$arch: shared object not stripped"
  echo "test_packages: $arch: $(basename "$runtime") (Depends: $depends), $(basename "$dev"), $(basename "$py"), $(basename "$tools"): ok"
  [ "$arch" = amd64 ] && amd64_dir=$dir
  return 0
}

amd64_dir=""
for d in "$@"; do check_arch_dir "$d"; done
[ -n "$amd64_dir" ] || exit 0

# Scratch root with the amd64 packages unpacked as dpkg would place them.
root=$work/root
for deb in "$amd64_dir"/libdrlib4_"$version"_amd64.deb "$amd64_dir"/libdrlib-dev_"$version"_amd64.deb \
           "$amd64_dir"/python3-drlib_"$version"_all.deb; do
  dpkg-deb -x "$deb" "$root"
done
libdir=$root/usr/lib/x86_64-linux-gnu
grep -qx 'prefix=/usr' "$libdir/pkgconfig/drlib.pc" || fail "drlib.pc does not point at /usr"

# The Python module finds the packaged library by its SONAME.
out=$(env -u DRLIB_LIBRARY PYTHONDONTWRITEBYTECODE=1 PYTHONPATH="$root/usr/lib/python3/dist-packages" \
  LD_LIBRARY_PATH="$libdir" "$python" - "${LOG:-}" <<'EOF'
import sys, drlib
print(drlib.version())
if sys.argv[1]:
    stats = list(drlib.replay(sys.argv[1]))
    assert stats and any(s.status for s in stats), "no tilt solution"
    print(len(stats), "statuses")
EOF
) || fail "python module from the package"
echo "test_packages: amd64 scratch root: python3-drlib: $(echo "$out" | tr '\n' ' ')ok"

# The module installs with pip from the source tree, offline (a copy: pip builds in place).
cp -r "$(dirname "$0")/../python" "$work/pysrc"
PIP_ROOT_USER_ACTION=ignore "$python" -m pip install --no-build-isolation --no-index --no-deps -q \
  --target "$work/pip" "$work/pysrc" >/dev/null 2>&1 && [ -f "$work/pip/drlib.py" ] \
  && grep -qx 'License: MIT' "$work"/pip/drlib-*.dist-info/METADATA || fail "pip install of python/"
echo "test_packages: pip install of the source tree's python/: ok"
