#!/usr/bin/env bash
# The FIPS example goes into FIPS mode with the stand-in for wolfEngine and back; without it, it says so.
# usage: fips_switch_test.sh PROGRAM PROGRAM_FILES
set -euo pipefail
program=$1
files=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/Corvane/Logging"
export KR_PROGRAM_DATA=$work

KR_COMMON_PROGRAM_FILES=$files "$program" >"$work/trace" 2>"$work/out"
expect() { grep -Eq -- "$1" "$work/out" || { echo "FAILED: no '$1' in:" >&2; cat "$work/out" >&2; exit 1; }; }
expect '^ordinary mode: .* qvlib; .* by the key store and is good$'
expect '^FIPS mode: .* wolfEngine; .* by the key store and is good$'
expect "^  2, c=7 .* krCustomLogger\.cpp:363 - '' RSA operation "
[ "$(grep -c '^ordinary' "$work/out")" -eq 2 ]

if KR_COMMON_PROGRAM_FILES=$work "$program" >"$work/trace" 2>"$work/out"; then
  echo "FAILED: success without wolfEngine" >&2
  exit 1
fi
expect '^FIPS mode cannot be switched on'
