#!/usr/bin/env bash
# Runs the benchmark programs of a build and makes the page, its plots and results.json of what they report.
# usage: measure.sh [--quick] PROGRAMS OUT  (both folders)
#
# Each round starts every program anew, so that where the system puts it in memory counts as noise too. Rounds are many
# and short: what is compared runs moments apart, and a busy machine slows both.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/common.sh"

rounds=24 counts=6 handshakes=20
programs=(handshakes:0.1 signing:0.1 random:0.03 classes:0.02 log:0.05 fips:0.05 waiting:0.2 references:0.1) # seconds for each benchmark
if [ "$1" = --quick ]; then
  shift
  rounds=1 counts=1 handshakes=2
  programs=("${programs[@]/:*/:0.005}")
fi
mkdir -p "$2"
from=$(cd "$1" && pwd)
out=$(cd "$2" && pwd)
work=$(mktemp -d "$from/measured.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir "$work"/{results,plots}
export KR_COMMON_PROGRAM_FILES="$from/program_files" KR_PROGRAM_DATA="$work"
unset KR_TRACE # as it is by default

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
      --benchmark_min_time="${program#*:}"
  done
done

say "counting instructions"
for ((count = 1; count <= counts; ++count)); do
  while IFS= read -r suite; do
    quietly "valgrind" valgrind --tool=callgrind --toggle-collect='bench::Scene::play*' \
      --callgrind-out-file="$work/callgrind" "$from/count_handshakes" "$suite" "$handshakes"
    total=$(sed -n 's/^totals: //p' "$work/callgrind")
    printf '%s\t%s\n' "$suite" $((total / handshakes))
  done < <("$from/count_handshakes")
done >"$work/instructions"

say "writing the page"
python3 -B "$root/bench/report.py" "$work" "$root/bench/page.md.in" "$out"
# plot NAME SCRIPT SETTINGS
plot() {
  quietly "the plot of $1" gnuplot -e "file='$work/plots/$1.dat'; out='$out/$1.svg'; $3" \
    "$root/bench/plots/style.gp" "$root/bench/plots/$2.gp"
  grep -q '</svg>' "$out/$1.svg" || die "the plot of $1 is not whole"
}
plot handshakes speeds "aim=0.98; height=520; title='Full TLS handshakes with a delegated key, relative to the plain key'"
plot signatures speeds "aim=0; height=360; title='A signature through the engine, relative to OpenSSL''s own method'"
plot classes speeds "aim=0.98; height=780; title='The classes, relative to the raw OpenSSL calls: 16 KiB in one call'"
plot generator generator ""
plot waiting waiting ""
say "done: $out/README.md"
