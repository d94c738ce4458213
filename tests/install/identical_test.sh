#!/usr/bin/env bash
# Two builds in two folders make the same library, to the byte.
# usage: identical_test.sh SOURCE_DIR OPENSSL_PREFIX
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export CCACHE_DISABLE=1

for folder in "$work/one" "$work/another/one"; do
  mkdir -p "$folder"
  cp -r "$1"/{CMakeLists.txt,LICENSE,cmake,include,krOpenSSL} "$folder"
  cmake -S "$folder" -B "$folder/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DOPENSSL_ROOT_DIR="$2" \
    -DKR_BUILD_TESTS=OFF -DKR_BUILD_EXAMPLES=OFF >/dev/null
  cmake --build "$folder/build" --target krOpenSSL64 -- -j2 >/dev/null
done
cmp "$work"/{one,another/one}/build/krOpenSSL/libkrOpenSSL64.so
