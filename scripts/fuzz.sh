#!/usr/bin/env bash
# Fuzzes the library for longer than its tests do: sets up, builds and runs the targets one after the other, a minute
# each unless told otherwise. New inputs are kept in build/fuzz/corpus, inputs that fail in build/fuzz/findings.
# usage: fuzz.sh [SECONDS] [TARGET...]
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

cd "$root"
seconds=60
if [[ "${1:-}" =~ ^[0-9]+$ ]]; then
  seconds=$1
  shift
fi
targets=("$@")
if [ "${#targets[@]}" -eq 0 ]; then
  mapfile -t targets < <(ls fuzz/corpus)
fi
for target in "${targets[@]}"; do
  [ -d "fuzz/corpus/$target" ] || die "there is no target '$target': $(ls -m fuzz/corpus)"
done

ensure_packages clang libclang-rt-14-dev cmake ninja-build
scripts/openssl.sh
say "building: fuzz"
build fuzz

failed=()
for target in "${targets[@]}"; do
  say "$target: $seconds seconds"
  mkdir -p "build/fuzz/corpus/$target" build/fuzz/findings
  build/fuzz/fuzz/"fuzz_$target" -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=60 \
    -artifact_prefix="build/fuzz/findings/$target-" "build/fuzz/corpus/$target" "fuzz/corpus/$target" \
    >"build/fuzz/$target.log" 2>&1 || {
    tail -n 40 "build/fuzz/$target.log" >&2
    failed+=("$target")
  }
  grep DONE "build/fuzz/$target.log" || true
done
[ "${#failed[@]}" -eq 0 ] || die "these targets found a fault: ${failed[*]} (build/fuzz/findings)"
