#!/usr/bin/env bash
# The library under valgrind: tests from every room, as many in one process as bear with each other, and the examples. A
# bad access, a decision on a value that nobody set and a block that nothing leads to any more fail it. Nothing is
# suppressed.
# usage: valgrind.sh BUILD_DIR  (built: the tests and the examples)
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

build=$(cd "$1" && pwd)
ensure_packages valgrind
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/Corvane/Logging"
export KR_PROGRAM_DATA=$work KR_COMMON_PROGRAM_FILES=$build/tests/program_files

# check PROGRAM [ARGUMENT...]
check() {
  say "$*"
  valgrind --quiet --error-exitcode=1 --num-callers=30 --leak-check=full \
    --show-leak-kinds=definite,indirect,possible --errors-for-leak-kinds=definite,indirect,possible \
    "$build/$@" >"$work/out" 2>&1 || {
    grep -av '^krOpenSSL ' "$work/out" | tail -n 100 >&2
    die "valgrind found the above in: $*"
  }
}

# in_one_process PROGRAM FILTER: tests that run; forks are slow, and some tests need a process of their own.
in_one_process() {
  check "tests/$1" --gtest_brief=1 --gtest_filter="$2"
  grep -aq 'PASSED  \] [1-9]' "$work/out" || die "$1 has no test named $2"
}

in_one_process kr_tests \
  '-*DeathTest.*:Fork.*:Random.*:Lifecycle.ReportsAFailed*:Delegation.Cleanup*:Delegation.TheFirst*'
in_one_process kr_internal_tests 'BridgeKeys.*:BridgeSymmetric.*-*WhenAllocationsFail'
in_one_process kr_internal_tests 'Accessors.*:LogLimit.*:PlatformSeed.*:Qvlib.*:TraceLog.*'
in_one_process kr_fips_tests 'FipsKeys.DelegatedOnes*:FipsKeys.Refuse*:FipsKeys.Tls*'
in_one_process kr_fips_tests 'FipsSwitch.FollowsTheStateTable'
in_one_process kr_allocation_tests 'Allocation.ClassesWriteAllOrNothing:Allocation.EnginesAndModesAreOnOrOff'
check examples/delegated_tls/delegated_tls demo --quiet --holder memory
check examples/fips_switch/fips_switch
