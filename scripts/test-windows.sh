#!/usr/bin/env bash
# From a fresh Debian 12 machine to the DLL for 64-bit Windows and its tests: sets up, cross-compiles and runs
# everything under Wine in one ctest. With --build-only the tests are built and left to a later ctest of build/windows.
# Further arguments go to ctest.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

cd "$root"
ensure_packages g++-mingw-w64-x86-64-posix cmake ninja-build googletest wine wine64 openssl curl \
  clang-19 libc++-19-dev libwine-dev llvm-19
scripts/openssl-windows.sh
say "starting Wine"
scripts/wine.sh wineboot --init </dev/null >/dev/null 2>&1 || die "Wine does not start (build/wine)"
say "building: windows"
build windows -DKR_TEST_PREFIX=windows.
if [ "${1:-}" = --build-only ]; then
  exit 0
fi
exec ctest --test-dir build/windows --output-on-failure --parallel "$(nproc)" "$@"
