#!/usr/bin/env bash
# Which share of the code the tests are, fuzz targets among them: of the lines that are neither blank nor comment in
# library, headers, examples, benchmarks, scripts and tests. Fails above the figure that was last stated.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

stated=345 # per mille

cd "$root"
count() { find "$@" -regextype egrep -regex '.*\.(c|cpp|h|hpp|py|sh)' -exec cat {} + | grep -cvE '^[[:space:]]*(//|#|$)'; }
tests=$(count tests fuzz)
all=$((tests + $(count krOpenSSL include holder provider examples bench scripts)))
share=$((tests * 1000 / all))
say "tests are $tests of $all lines: $((share / 10)).$((share % 10)) %"
[ "$share" -le "$stated" ] || die "that is more than the $((stated / 10)).$((stated % 10)) % of $0"
