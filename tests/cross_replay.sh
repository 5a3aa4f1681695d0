#!/usr/bin/env bash
# Replays the same simulated sessions on the build host and on the target and
# requires byte-identical output: the tilt-status stream (every double as %.17g)
# and the calibration notifications, with the library's defaults and with
# every option of the options word on.
#
# x86-64 glibc picks FMA variants of sin, cos, sincos, asin, acos, atan and atan2
# at run time; they differ from the generic code in the last bit of about one
# call in a thousand, and that bit propagates through the filter. The target's
# glibc has only the generic code, so the host replay is run with the FMA and
# AVX2 variants switched off (both spellings of the tunable: glibc before and
# from 2.33; names a glibc does not know are ignored).
#
# usage: cross_replay.sh HOST_BUILD_DIR WORK_DIR TARGET_REPLAY [EMULATOR ...]
# Exits 77 (skipped) when the host build has no drlib-sim or drlib-replay.
set -euo pipefail
host=$1 work=$2 target_replay=$3
shift 3
if [ ! -x "$host/drlib-sim" ] || [ ! -x "$host/drlib-replay" ]; then
  echo "no host drlib-sim/drlib-replay in '$host': build the host first"
  exit 77
fi
export GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX2_Usable,-FMA_Usable,-FMA4_Usable,-AVX2,-FMA,-FMA4
host=$(cd "$host" && pwd)
target_replay=$(cd "$(dirname "$target_replay")" && pwd)/$(basename "$target_replay")
mkdir -p "$work"
cd "$work"
fail=0

same() {  # what, host file, target file
  if cmp -s "$2" "$3"; then echo "$1: identical ($(wc -l <"$2") lines)"; return; fi
  echo "$1: differs"; diff "$2" "$3" | head -n 4; fail=1
}

for run in survey:none calibration:none survey:all calibration:all; do
  scenario=${run%%:*} options=${run##*:}
  "$host/drlib-sim" --scenario "$scenario" --seed 3 --out "$scenario.log" --truth "$scenario.truth.csv" --quiet
  opts=(-q)
  [ "$options" = none ] || opts+=(--options "$options")
  if [ "$scenario" = calibration ]; then
    # The tip rests on one point for the whole session: calibrate on it.
    opts+=(--calib-point "$(awk -F, 'NR == 1 { for (i = 1; i <= NF; ++i) c[$i] = i }
      NR == 2 { print $c["tip_x_m"] "," $c["tip_y_m"] "," $c["tip_z_m"]; exit }' "$scenario.truth.csv")")
  fi
  "$host/drlib-replay" "$scenario.log" "${opts[@]}" --csv "$scenario.host.csv" --events "$scenario.host.events.csv"
  "$@" "$target_replay" "$scenario.log" "${opts[@]}" \
    --csv "$scenario.target.csv" --events "$scenario.target.events.csv"
  same "$scenario ($options) tilt status" "$scenario.host.csv" "$scenario.target.csv"
  if [ "$scenario" = calibration ]; then
    same "$scenario ($options) notifications" "$scenario.host.events.csv" "$scenario.target.events.csv"
    grep -q '^[0-9]*,0,' "$scenario.host.events.csv" || { echo "$scenario: no calibration result"; fail=1; }
  fi
done
exit $fail
