#!/usr/bin/env bash
# Format and lint: clang-format, clang-tidy and the direction of includes.
# usage: lint.sh BUILD_DIR  (configured, for its compile_commands.json)
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

build=$(cd "$1" && pwd)
cd "$root"
mapfile -t sources < <(find include krOpenSSL examples tests bench \( -name '*.cpp' -o -name '*.h' \) | sort)
mapfile -t units < <(sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' "$build/compile_commands.json" | sort -u)

clang-format --dry-run --Werror "${sources[@]}" || die "run clang-format -i on the files above"

# The floors of the house, top first: a room includes its own floor's room or a lower floor only.
floor() {
  case $1 in
  frame) echo 5 ;;
  fips | classes) echo 4 ;;
  engine | fipsbridge) echo 3 ;;
  log) echo 2 ;;
  accessors | platform | state) echo 1 ;;
  *) die "the room '$1' has no floor" ;;
  esac
}
while IFS=: read -r file include; do
  from=$(cut -d/ -f2 <<<"$file")
  to=${include%%/*}
  [ "$from" = "$to" ] || [ "$(floor "$from")" -gt "$(floor "$to")" ] || die "$file includes $include, which is not below it"
done < <(grep -HoP '^#include "\K[a-z]+/[^"]+' -r krOpenSSL)

printf '%s\0' "${units[@]}" | xargs -0 -n 4 -P "$(nproc)" clang-tidy --quiet -p "$build" 2>/dev/null ||
  die "clang-tidy found the above"
