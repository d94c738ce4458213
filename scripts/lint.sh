#!/usr/bin/env bash
# Format and lint: clang-format, clang-tidy, the direction of includes and calls (floors.sh) and the share of the tests
# (share.sh). With --windows: clang-tidy over the sources that only a build for Windows has.
# usage: lint.sh BUILD_DIR...  (for their compile_commands.json; a source of several is looked at once; the first built)
#        lint.sh --windows BUILD_DIR
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

if [ "$1" = --windows ]; then
  build=$(cd "$2" && pwd)
  headers=$(dirname "$(x86_64-w64-mingw32-g++-posix -print-libgcc-file-name)")/include/c++
  mkdir -p "$build/lint"
  # Without what Clang does not know; the literals are those of the Windows headers' macros.
  sed 's/-fno-keep-inline-dllexport//g; s/-fno-semantic-interposition//g' "$build/compile_commands.json" \
    >"$build/lint/compile_commands.json"
  find "$root"/{krOpenSSL,examples,tests} -path '*/windows/*.cpp' -print0 | xargs -0 -n 1 -P "$(nproc)" \
    clang-tidy --quiet -p "$build/lint" --checks=-cert-dcl16-c --extra-arg=--target=x86_64-w64-windows-gnu \
    --extra-arg="-isystem$headers" --extra-arg="-isystem$headers/x86_64-w64-mingw32" 2>/dev/null ||
    die "clang-tidy found the above"
  exit 0
fi

builds=()
for build in "$@"; do
  builds+=("$(cd "$build" && pwd)")
done
cd "$root"
mapfile -t sources < <(find include krOpenSSL holder provider examples tests bench fuzz \( -name '*.cpp' -o -name '*.h' -o -name '*.hpp' \) | sort)

clang-format --dry-run --Werror "${sources[@]}" || die "run clang-format -i on the files above"

scripts/floors.sh "${builds[0]}"
scripts/share.sh

seen=()
for build in "${builds[@]}"; do
  mapfile -t units < <(sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' "$build/compile_commands.json" | sort -u |
    grep -vxFf <(printf '%s\n' "${seen[@]}"))
  printf '%s\0' "${units[@]}" | xargs -0 -r -n 1 -P "$(nproc)" clang-tidy --quiet -p "$build" 2>/dev/null ||
    die "clang-tidy found the above"
  seen+=("${units[@]}")
done
