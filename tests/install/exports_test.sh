#!/usr/bin/env bash
# The shared library exports exactly the names in exports.txt.
# usage: exports_test.sh LIBRARY
set -euo pipefail
here=$(dirname "${BASH_SOURCE[0]}")

diff "$here/exports.txt" <(nm --dynamic --defined-only --extern-only --format=just-symbols "$1" | LC_ALL=C sort) || {
  echo "the exported names (right) are not those of exports.txt (left)" >&2
  exit 1
}
grep -q 'FLAGS_1.*NODELETE' <(readelf -d "$1") || {
  echo "the library could be unloaded while its engines are in OpenSSL's list" >&2
  exit 1
}
readelf -rW "$1" | grep -Eq 'DTPMOD|TLSDESC' && {
  echo "a thread's first use of its own words in the library allocates, and ends the process without memory" >&2
  exit 1
}
exit 0
