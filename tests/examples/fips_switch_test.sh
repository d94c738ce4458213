#!/usr/bin/env bash
# The FIPS example goes into FIPS mode with the stand-in for wolfEngine and back; where it cannot, it says at which step
# wolfEngine failed.
# usage: fips_switch_test.sh PROGRAM PROGRAM_FILES PROGRAM_FILES_WITH_A_HIDDEN_METHOD
set -euo pipefail
program=$1
files=$2
hidden=$3
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

"$program" --help >"$work/out"
expect '^usage: fips_switch \[LOG_FILE\]$'
! "$program" --nothing >"$work/trace" 2>&1 || { echo "FAILED: an unknown option is taken" >&2; exit 1; }

mkdir -p "$work"/{none,broken/Corvane/TRVA}
echo "no module" >"$work/broken/Corvane/TRVA/wolfEngine.so"
while IFS='|' read -r folder fault sentence; do
  ! KR_COMMON_PROGRAM_FILES=$folder KR_STANDIN_FAILS=$fault "$program" >"$work/trace" 2>"$work/out" ||
    { echo "FAILED: success with the fault '$fault' in '$folder'" >&2; exit 1; }
  expect '^FIPS mode cannot be switched on$'
  expect "^wolfEngine: $sentence"
  expect '^  hint: '
done <<END
$work/none||there is no file $work/none/Corvane/TRVA/wolfEngine.so$
none||there is no file none/.*, since its path is not absolute
$work/broken||it cannot be loaded: $work/broken/.*wolfEngine.so: .*(header|short)
$files|bind|OpenSSL does not take it as an engine
$files|id|the engine calls itself "libwolfengine", not "wolfEngine"
$files|no id|the engine calls itself "", not "wolfEngine"
$files|init|it refuses to be initialised
$files|methods|we_ec_key_method is exported, but empty
$hidden||we_rsa_method is not exported
END
KR_COMMON_PROGRAM_FILES=$files KR_STANDIN_FAILS=enable_debug_wolfssl "$program" >"$work/trace" 2>"$work/out"
expect '^wolfEngine does not take every command for its logging'
