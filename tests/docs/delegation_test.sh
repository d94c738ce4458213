#!/usr/bin/env bash
# The programs of docs/delegation.md are built against the installed tree by the page's own commands, and print what
# the page says.
# usage: delegation_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source=$1
build=$2
. "$source/tests/docs/lib.sh"
page=$source/docs/delegation.md
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export HOME=$work

install=$(block_of "$page" "The program" 1 | grep '^cmake --install')
commands=$(block_of "$page" "Build and run" 1)
expected=$(block_of "$page" "Build and run" 2)

bash -euo pipefail -c "${install/build\/release/"$build"}" >/dev/null
mkdir "$work/program"
cd "$work/program"
files_of "$page" .
bash -euo pipefail -c "$commands" >out 2>report || { cat out report >&2; exit 1; }
diff <(echo "$expected") <(grep '^TLS' report)
