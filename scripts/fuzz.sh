#!/usr/bin/env bash
# Fuzzes the library for longer than its tests do: sets up, builds, runs the targets side by side and says what each did.
# A target that finds a fault ends; the others go on. What reaches something new is kept in build/fuzz/corpus, as few
# and small inputs as do; inputs that fail in build/fuzz/findings; what each target says in build/fuzz/TARGET.log.
# usage: fuzz.sh [--seconds N] [TARGET...]   (N: 60 unless told otherwise; all targets when none is named)
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

cd "$root"
seconds=60
if [ "${1:-}" = --seconds ]; then
  seconds=${2:-}
  [[ "$seconds" =~ ^[1-9][0-9]*$ ]] || die "--seconds needs a number"
  shift 2
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

out=$root/build/fuzz
findings=$out/findings
mkdir -p "$findings"
declare -A running=()
stop() {
  for target in "${!running[@]}"; do
    kill "${running[$target]}" 2>/dev/null || true
  done
}
trap stop EXIT

run() { # TARGET, in a process of its own: until the time is over, or a fault is found
  local longest=()
  [ "$1" = registry ] || longest=(-max_len=300) # of which many are run
  exec "$out/fuzz/fuzz_$1" -max_total_time="$seconds" "${longest[@]}" -rss_limit_mb=2048 -timeout=60 -print_final_stats=1 \
    -artifact_prefix="$findings/$1-" "$out/corpus/$1" "fuzz/corpus/$1" >"$out/$1.log" 2>&1
}

say "${#targets[@]} targets side by side: $seconds seconds"
for target in "${targets[@]}"; do
  mkdir -p "$out/corpus/$target"
  run "$target" &
  running[$target]=$!
done
failed=()
for target in "${targets[@]}"; do
  wait "${running[$target]}" || failed+=("$target")
  unset "running[$target]"
done

# The numbers of one target: what PATTERN's last match says, 0 without one.
number() { { grep -oP "$2" "$out/$1.log" || echo 0; } | "${3:-tail}" -n 1; }

minimise() { # TARGET: keeps the fewest inputs that reach what all of them reach; all of them, if it cannot
  local fewest
  fewest=$(mktemp -d "$out/corpus/fewest.XXXXXX")
  if timeout 900 "$out/fuzz/fuzz_$1" -merge=1 -timeout=60 -artifact_prefix="$findings/$1-merge-" \
    "$fewest" "fuzz/corpus/$1" "$out/corpus/$1" >"$out/$1.merge.log" 2>&1; then
    rm -rf "$out/corpus/$1"
    mv "$fewest" "$out/corpus/$1"
  else
    rm -rf "$fewest"
    say "$1: the corpus was not minimised (build/fuzz/$1.merge.log)"
  fi
}

say "minimising the corpus"
total=0
printf '%-16s %12s %8s %18s %18s %8s\n' target executions '/s' 'edges before, new' 'kinds before, new' inputs
for target in "${targets[@]}"; do
  minimise "$target"
  executions=$(number "$target" 'number_of_executed_units: *\K\d+')
  before=$(number "$target" 'INITED cov: \K\d+')
  kinds=$(number "$target" 'INITED cov: \d+ ft: \K\d+')
  total=$((total + executions))
  printf '%-16s %12d %8d %9d %+8d %9d %+8d %8d\n' "$target" "$executions" $((executions / seconds)) \
    "$before" $(($(number "$target" ' cov: \K\d+') - before)) "$kinds" $(($(number "$target" ' ft: \K\d+') - kinds)) \
    "$(find "$out/corpus/$target" -type f | wc -l)"
done
printf '%-16s %12d %8d\n' total "$total" $((total / seconds))

[ "${#failed[@]}" -gt 0 ] || exit 0
for target in "${failed[@]}"; do
  grep -m 3 -E 'does not hold|ERROR: |runtime error|Failure' "$out/$target.log" >&2 || tail -n 20 "$out/$target.log" >&2
  printf 'again: %s\n' "$out/fuzz/fuzz_$target $(number "$target" 'Test unit written to \K.*')" >&2
done
die "these targets found a fault: ${failed[*]}"
