#!/usr/bin/env bash
# The tests without memory use every export. The constructors and destructors that only derived classes call count as
# the complete ones.
# usage: exports_test.sh OBJECT...
set -euo pipefail
export LC_ALL=C
here=$(dirname "${BASH_SOURCE[0]}")

missing=$(comm -23 <(sed 's/\([CD]\)2E/\11E/' "$here/../install/exports.txt" | sort -u) \
  <(nm --undefined-only --format=just-symbols "$@" | sort -u) | c++filt)
[ -z "$missing" ] || {
  printf 'no test runs these exports out of memory:\n%s\n' "$missing" >&2
  exit 1
}
