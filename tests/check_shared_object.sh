#!/usr/bin/env bash
# Checks the shared object as a host's dynamic linker sees it: it exports
# exactly the names of the version script, each under the script's version
# node, needs only libc and libm, and calls nothing of the C++ runtime or the
# heap.
# usage: check_shared_object.sh LIB VERSION_SCRIPT
#        check_shared_object.sh --published VERSION_SCRIPT EXPORTS_TXT
# The second form compares the version script with the published export list
# and exits 77 (skipped) when that list is not there.
set -euo pipefail
NM=${NM:-nm} READELF=${READELF:-readelf}

script_names() {  # the names between `global:` and `local:` of a version script
  sed -e 's/#.*//' "$1" | awk '/global:/ {on = 1; next} /local:/ {on = 0} on' |
    tr -s ' \t;' '\n' | sed '/^$/d' | sort -u
}

if [ "$1" = --published ]; then
  map=$2 published=$3
  if [ ! -f "$published" ]; then
    echo "SKIPPED: $published is absent (it lies beside the checkout, in ../shared);" \
         "the exported names were checked against $map only"
    exit 77
  fi
  diff <(script_names "$map") <(grep -v '^#' "$published" | sed '/^$/d' | sort -u) \
    && { echo "$map lists the $(script_names "$map" | wc -l) published names"; exit 0; }
  echo "$map (<) and $published (>) differ"; exit 1
fi

so=$1 map=$2
fail=0
node=$(sed -e 's/#.*//' "$map" | sed -n 's/^ *\([A-Za-z_][A-Za-z0-9_.]*\) *{.*/\1/p' | head -n 1)
want=$(script_names "$map")
# Defined dynamic symbols as name@@version. Every one counts, absolute ones
# too: GNU ld would add the version node itself as one (the library links
# with lld, which does not).
syms=$($NM -D --defined-only --with-symbol-versions "$so" | awk '{print $3}')
have=$(echo "$syms" | sed 's/@.*//' | sort -u)
extra=$(comm -13 <(echo "$want") <(echo "$have"))
missing=$(comm -23 <(echo "$want") <(echo "$have"))
if [ -n "$extra" ]; then echo "exported but not in the list:"; echo "$extra"; fail=1; fi
if [ -n "$missing" ]; then echo "listed but not exported:"; echo "$missing"; fail=1; fi
unversioned=$(echo "$syms" | grep -v "@@$node\$" || true)
if [ -n "$unversioned" ]; then echo "exported without the version node $node:"; echo "$unversioned"; fail=1; fi
needed=$($READELF -d "$so" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort)
for lib in $needed; do
  case "$lib" in libc.so.*|libm.so.*|ld-linux*) ;; *) echo "needs $lib"; fail=1 ;; esac
done
# The heap, any C++ name (operator new and delete, std::), the C++ ABI and the
# unwinder, with the Arm EHABI personality routines exception tables refer to.
runtime='^(malloc|calloc|realloc|free|posix_memalign|aligned_alloc|memalign|_Z|__cxa_|_Unwind_|__gxx_personality|__aeabi_unwind_cpp_|__gnu_Unwind)'
undef=$($NM -D --undefined-only "$so" | awk '{print $2}')
bad=$(echo "$undef" | grep -Ev '^__cxa_finalize(@|$)' | grep -E "$runtime" || true)
if [ -n "$bad" ]; then echo "calls forbidden runtime symbols:"; echo "$bad"; fail=1; fi
# Nor may -static-libgcc have copied the unwinder in (seen while symbols are kept).
inside=$($NM --defined-only "$so" 2>/dev/null | awk '{print $3}' |
         grep -E '^(__cxa_|_Unwind_|__gxx_personality|__aeabi_unwind_cpp_|__gnu_Unwind)' || true)
if [ -n "$inside" ]; then echo "carries runtime code:"; echo "$inside"; fail=1; fi
echo "exports: $(echo "$have" | wc -l) names under $node; needs: $(echo $needed)"
exit $fail
