#!/usr/bin/env bash
# From a fresh Debian 12 machine to docs/benchmarks: sets up, builds, runs the benchmarks for some twenty minutes and
# writes the page, its plots and the results. With --quick everything runs once, in about a minute, and the page goes
# to build/bench/report: its figures mean nothing.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/common.sh"

cd "$root"
ensure_packages g++ cmake ninja-build libbenchmark-dev libboost-context-dev python3 gnuplot-nox valgrind \
  libtomlplusplus-dev libssl-dev pkg-config
scripts/openssl.sh
say "building"
build bench -- benchmarks
if [ "${1:-}" = --quick ]; then
  exec bench/measure.sh --quick build/bench/bench build/bench/report
fi
exec bench/measure.sh build/bench/bench docs/benchmarks
