#!/usr/bin/env bash
# Checks the shared object as a host's dynamic linker sees it: it exports only
# names of the published list (every one of them once the engine is complete),
# needs only libc and libm, and calls nothing of the C++ runtime or the heap.
# usage: check_shared_object.sh libdrlib.so exports.txt [--complete]
set -euo pipefail
so=$1 list=$2 complete=${3:-}
NM=${NM:-nm} READELF=${READELF:-readelf}
fail=0
want=$(grep -v '^#' "$list" | sed '/^$/d' | sort -u)
have=$($NM -D --defined-only "$so" | awk '{print $3}' | sort -u)
extra=$(comm -13 <(echo "$want") <(echo "$have"))
missing=$(comm -23 <(echo "$want") <(echo "$have"))
if [ -n "$extra" ]; then echo "exported but not in the list:"; echo "$extra"; fail=1; fi
if [ -n "$missing" ]; then
  echo "listed but not exported yet: $(echo "$missing" | wc -l) names"
  if [ "$complete" = "--complete" ]; then echo "$missing"; fail=1; fi
fi
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
echo "exports: $(echo "$have" | wc -l) names; needs: $(echo $needed)"
exit $fail
