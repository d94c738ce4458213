#!/usr/bin/env bash
# Every source and public header, but for krAsync.hpp, which needs Boost, compiles for Visual C++'s ABI, and what a DLL of
# it would export has the names in exports.txt. Nothing is linked.
# usage: names_test.sh SOURCE_DIR OPENSSL_INCLUDE_DIR
set -euo pipefail
cd "$1"
export work headers=/usr/include/wine/wine openssl=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# compile OBJECT ARGUMENT...
compile() {
  local object=$1
  shift
  clang++-19 --target=x86_64-pc-windows-msvc -std=c++20 -nostdinc++ -nostdlibinc -fms-extensions -fms-compatibility \
    -fms-compatibility-version=19.29 -fexceptions -fcxx-exceptions -fno-sized-deallocation -Wall -Wextra -Werror \
    -D_LIBCPP_NO_VCRUNTIME -D_UCRT -D_DLL -D_MT -DWINE_UNICODE_NATIVE -include tests/abi/runtime.h \
    -isystem /usr/lib/llvm-19/include/c++/v1 -isystem "$(clang++-19 -print-resource-dir)/include" \
    -isystem "$headers/msvcrt" -isystem "$headers/windows" -isystem "$openssl" -Iinclude -IkrOpenSSL \
    -c -o "$work/$object" "$@"
}
export -f compile

printf '#include <%s>\n' $(cd include && ls krOpenSSL/*.h krOpenSSL/*.hpp | grep -v krAsync) >"$work/caller.cpp"
compile caller.o "$work/caller.cpp"
printf '%s\n' krOpenSSL/*/*.cpp krOpenSSL/*/windows/*.cpp |
  xargs -P "$(nproc)" -I{} bash -c 'compile "$(tr / _ <<<"$1").obj" "$1" -DKR_BUILDING_LIBRARY' _ {}

for object in "$work"/*.obj; do
  x86_64-w64-mingw32-objcopy --dump-section ".drectve=$object.flags" "$object" /dev/null 2>/dev/null || true # it may have none
done
diff tests/abi/exports.txt <(cat "$work"/*.flags | grep -aoE '/EXPORT:"?[^ ",]*' | sed -E 's/.*:"?//' | LC_ALL=C sort -u) || {
  echo "the exported names (right) are not those of exports.txt (left)" >&2
  exit 1
}
