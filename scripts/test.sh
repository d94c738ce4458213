#!/usr/bin/env bash
# From a fresh Debian 12 machine to passed tests: sets up, builds six ways and runs everything in one
# ctest: unit and end-to-end tests, the same under the address and undefined-behaviour sanitizers, both over OpenSSL
# 1.1.1 and 3, the concurrency tests under the thread sanitizer, a few seconds of each fuzz target, and the format and
# lint checks. With --windows the Windows DLL's tests under Wine come with it (see scripts/test-windows.sh). Further
# arguments go to ctest.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

cd "$root"
ensure_packages g++ cmake ninja-build libgtest-dev libgmock-dev libbenchmark-dev clang clang-format clang-tidy \
  libclang-rt-14-dev openssl curl pkg-config binutils doxygen softhsm2 p11-kit p11-kit-modules libp11-kit-dev \
  libssl-dev libtomlplusplus-dev libasio-dev libboost-context-dev opensc valgrind gnuplot-nox python3 gnutls-bin \
  lintian dpkg-dev file man-db systemd
ensure_servers nginx apache2-bin haproxy postgresql-15
scripts/openssl.sh

presets=(dev asan tsan fuzz dev-openssl3 asan-openssl3)
for preset in "${presets[@]}"; do
  say "building: $preset"
  build "$preset" -DKR_TEST_PREFIX="$preset." -DKR_BUILD_BENCH="$([ "$preset" = dev ] && echo ON || echo OFF)"
done

windows=
if [ "${1:-}" = --windows ]; then
  shift
  windows=yes
  scripts/test-windows.sh --build-only
  presets+=(windows)
fi

# One ctest over all of them, so that one summary speaks for everything.
{
  for preset in "${presets[@]}"; do
    echo "subdirs($preset)"
  done
  echo "add_test(lint \"$root/scripts/lint.sh\" \"$root/build/dev\" \"$root/build/fuzz\")"
  if [ -n "$windows" ]; then
    echo "add_test(windows.lint \"$root/scripts/lint.sh\" --windows \"$root/build/windows\")"
  fi
} >build/CTestTestfile.cmake
exec ctest --test-dir build --output-on-failure --parallel "$(nproc)" "$@"
