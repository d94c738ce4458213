#!/usr/bin/env bash
# The commands of docs/fips.md, "See it", print what the page says; the programs are built already.
# usage: fips_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
. "$1/tests/docs/lib.sh"
commands=$(block_of "$1/docs/fips.md" "See it" 1 | grep -v '^cmake ')
expected=$(block_of "$1/docs/fips.md" "See it" 2)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/build"
ln -s "$2" "$work/build/dev"
cd "$work"
bash -euo pipefail -c "$commands" 2>report || { cat report >&2; exit 1; }
diff <(head -n 4 <<<"$expected") <(head -n 4 report | sed "s,$work,...,")
grep -q "^  2, c=7 " report || { echo "no lines of the log in:" >&2; cat report >&2; exit 1; }
