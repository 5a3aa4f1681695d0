#!/bin/sh
# Runs two host programs on the same log and requires byte-identical output.
# usage: same_output.sh LOG PROGRAM_A PROGRAM_B [EMULATOR ...]
set -u
log=$1 a=$2 b=$3
shift 3
"$@" "$a" "$log" >"$log.a.txt" || { echo "$a failed"; exit 1; }
"$@" "$b" "$log" >"$log.b.txt" || { echo "$b failed"; exit 1; }
cmp "$log.a.txt" "$log.b.txt" || { diff "$log.a.txt" "$log.b.txt" | head -n 6; exit 1; }
echo "same output: $(tail -n 1 "$log.a.txt")"
