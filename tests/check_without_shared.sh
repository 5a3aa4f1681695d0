#!/bin/sh
# The checks that read ../shared, run with a directory that does not exist in
# its place: each must report itself skipped, not fail.
# usage: check_without_shared.sh CHECK_SHARED_OBJECT VERSION_SCRIPT TEST_PROGRAM SUITE [EMULATOR ...]
set -u
check=$1 map=$2 program=$3 suite=$4
shift 4
absent=$(pwd)/no-shared-here
rm -rf "$absent"
rc=0; "$check" --published "$map" "$absent/exports.txt" || rc=$?
[ $rc -eq 77 ] || { echo "export list comparison: exit $rc, expected 77 (skipped)"; exit 1; }
out=$(DRLIB_SHARED_DIR=$absent "$@" "$program" --gtest_filter="$suite.*") || { echo "$out"; exit 1; }
echo "$out" | grep "^\[  SKIPPED \] $suite\." || { echo "$out"; echo "$suite was not skipped"; exit 1; }
