#!/usr/bin/env bash
# The archive that cpack makes is whole: an outside program is built against what comes out of it, and runs.
# usage: package_test.sh SOURCE_DIR BUILD_DIR [WINE]
set -euo pipefail
source=$1
build=$2
run=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
. "$source/tests/install/lib.sh"
lay_out_consumer "$work/consumer"

mkdir "$work/package"
(cd "$build" && cpack -G "$([ -n "$run" ] && echo ZIP || echo TGZ)" -B "$work" >/dev/null)
(cd "$work/package" && cmake -E tar xf "$work"/krOpenSSL-*.*[pz])
prefix=$(echo "$work"/package/*)

expected=(include/krOpenSSL/krOpenSSL.h share/doc/krOpenSSL/LICENSE)
libraries=(lib/lib{ssl,crypto}.so.1.1)
if [ -n "$run" ]; then
  expected+=(bin/krOpenSSL64.dll lib/krOpenSSL64.def lib/libkrOpenSSL64.dll.a)
  libraries=(bin/lib{ssl,crypto}-1_1-x64.dll)
fi
[ -n "${OPENSSL_ROOT_DIR:-}" ] || expected+=(share/doc/krOpenSSL/LICENSE.OpenSSL "${libraries[@]}")
for file in "${expected[@]}"; do
  [ -s "$prefix/$file" ] || fail "the package has no $file"
done

options=(-G Ninja -DCMAKE_PREFIX_PATH="$prefix")
if [ -n "$run" ]; then
  options+=(-DCMAKE_TOOLCHAIN_FILE="$source/cmake/mingw-w64.cmake" -DCMAKE_EXE_LINKER_FLAGS=-static)
fi
cmake -S "$work/consumer" -B "$work/build" "${options[@]}" >/dev/null
cmake --build "$work/build" >/dev/null
if [ -n "$run" ]; then
  # A Windows program finds its DLLs beside it.
  cp "$build"/bin/lib*.dll "$prefix"/bin/*.dll "$work/build"
  "$run" "$work/build/consumer.exe" >/dev/null
else
  "$work/build/consumer" >/dev/null
fi
