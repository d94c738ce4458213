#!/usr/bin/env bash
# The floors of the house: a room includes and calls its own and lower floors' only. Includes are read in the sources;
# calls in the objects, since a public header hides where a function lives.
# usage: floors.sh BUILD_DIR  (built)
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

build=$(cd "$1" && pwd)
cd "$root"
declare -A floors=([frame]=5 [fips]=4 [engine]=3 [fipsbridge]=3 [classes]=2 [log]=2 [accessors]=1 [state]=1 [platform]=0)

floor() { printf '%s' "${floors[$1]:-$(die "the room '$1' has no floor")}"; }
below() { [ "$1" = "$2" ] || [ "$(floor "$1")" -gt "$(floor "$2")" ]; }

while IFS=: read -r file include; do
  room=$(cut -d/ -f2 <<<"$file")
  below "$room" "${include%%/*}" || die "$file includes $include, which is not below it"
done < <(grep -HoP '^#include "\K[a-z]+/[^"]+' -r krOpenSSL)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for room in "${!floors[@]}"; do
  find "$build/krOpenSSL/CMakeFiles/kr_$room.dir" -name '*.o' >"$work/objects"
  [ -s "$work/objects" ] || die "$build has no objects of the room '$room'"
  # Strong definitions alone: what a header defines is in every room that uses it.
  xargs nm -C -g --defined-only <"$work/objects" | sed -n 's/^[0-9a-f]* [BDRT] //p' | sort -u >"$work/$room.defined"
  xargs nm -C --undefined-only <"$work/objects" | sed -n 's/^ *U //p' | sort -u >"$work/$room.used"
done
for user in "${!floors[@]}"; do
  for owner in "${!floors[@]}"; do
    below "$user" "$owner" || comm -12 "$work/$user.used" "$work/$owner.defined" | sed "s/^/$user uses $owner: /"
  done
done | sort >"$work/wrong"
[ ! -s "$work/wrong" ] || die "uses of what is not below: $(cat "$work/wrong")"
