#!/usr/bin/env bash
# Runs the benchmark programs of a build and makes the page, its plots and results.json of what they report.
# usage: measure.sh [--quick] PROGRAMS OUT  (both folders)
#
# Each round starts every program anew, so that where the system puts it in memory counts as noise too; the
# repetitions of a round are interleaved at random.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/common.sh"

rounds=7 repetitions=5 handshakes=40
programs=(handshakes:0.2 signing:0.1 random:0.03 classes:0.02 log:0.05 fips:0.05) # seconds for each repetition
if [ "$1" = --quick ]; then
  shift
  rounds=1 repetitions=1 handshakes=2
  programs=("${programs[@]/:*/:0.005}")
fi
mkdir -p "$2"
from=$(cd "$1" && pwd)
out=$(cd "$2" && pwd)
work=$(mktemp -d "$from/measured.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir "$work"/{results,plots}
export KR_COMMON_PROGRAM_FILES="$from/program_files" KR_PROGRAM_DATA="$work"

# quietly WHAT COMMAND...: shows what the command wrote only when it fails. The library's trace, on standard output, is
# for nobody.
quietly() {
  local what=$1
  shift
  "$@" >/dev/null 2>"$work/errors" || {
    tail -n 20 "$work/errors" >&2
    die "$what failed"
  }
}

for ((round = 1; round <= rounds; ++round)); do
  say "measuring: round $round of $rounds"
  for program in "${programs[@]}"; do
    name=bench_${program%:*}
    quietly "$name" "$from/$name" --benchmark_out="$work/results/$name.$round.json" \
      --benchmark_min_time="${program#*:}" --benchmark_repetitions="$repetitions" \
      --benchmark_enable_random_interleaving=true
  done
done

say "counting instructions"
while IFS= read -r suite; do
  quietly "valgrind" valgrind --tool=callgrind --toggle-collect='bench::Scene::play*' \
    --callgrind-out-file="$work/callgrind" "$from/count_handshakes" "$suite" "$handshakes"
  total=$(sed -n 's/^totals: //p' "$work/callgrind")
  printf '%s\t%s\n' "$suite" $((total / handshakes))
done < <("$from/count_handshakes") >"$work/instructions"

say "writing the page"
python3 -B "$root/bench/report.py" "$work" "$root/bench/page.md.in" "$out"
for plot in handshakes signatures generator classes; do
  quietly "the plot of $plot" gnuplot -e "data='$work/plots'; out='$out/$plot.svg'" \
    "$root/bench/plots/style.gp" "$root/bench/plots/$plot.gp"
  grep -q '</svg>' "$out/$plot.svg" || die "the plot of $plot is not whole"
done
say "done: $out/README.md"
