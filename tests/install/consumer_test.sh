#!/usr/bin/env bash
# What is installed is hardened and may be moved, every header of it compiles alone and refuses another OpenSSL, and
# outside programs, one of them in C and one that uses only classes, are built against it and run: through the CMake
# package and through pkg-config.
# usage: consumer_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source=$1
build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
. "$source/tests/install/lib.sh"
lay_out_consumer "$work/consumer"
prefix=$work/moved
cmake --install "$build" --prefix "$work/prefix" >/dev/null
mv "$work/prefix" "$prefix"
library=$(echo "$prefix"/lib*/libkrOpenSSL64.so)

! grep -rlF -e "$source" -e "$build" -e "$work/prefix" "$prefix"/lib*/{cmake,pkgconfig} || fail "these name the build machine"
[ "$(readelf -d "$library" | sed -n 's/.*R.*PATH.*\[\(.*\)\]/\1/p')" = '$ORIGIN' ] || fail "looks for OpenSSL elsewhere"
grep -q 'FLAGS_1.*NOW' <(readelf -d "$library") || fail "its relocations stay writable"
names=$(nm --dynamic --undefined-only "$library")
for name in __stack_chk_fail __vsnprintf_chk; do
  grep -q " $name@" <<<"$names" || fail "the library does without $name"
done
[ "$(uname -m)" != x86_64 ] || grep -q 'x86 feature: IBT, SHSTK' <(readelf -n "$library") || fail "no IBT and SHSTK"

series=$(sed -n 's/.*KR_OPENSSL_SERIES=\([13]\).*/\1/p' "$(echo "$prefix"/lib*/pkgconfig/*.pc)")
case $series in
  1) other=3.0.0 number=0x30000000L ;;
  3) other=1.1.1 number=0x10101000L ;;
esac
mkdir -p "$work"/{other,newer}/{include/openssl,lib}
echo "#define OPENSSL_VERSION_NUMBER $number" >"$work/other/include/openssl/opensslv.h"
echo "#define OPENSSL_VERSION_NUMBER 0x40000000L" >"$work/newer/include/openssl/opensslv.h"
touch "$work"/{other,newer}/include/openssl/opensslconf.h "$work"/other/{include/openssl/ssl.h,lib/libssl.so,lib/libcrypto.so}
configure=(cmake -S "$work/consumer" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix")
! "${configure[@]}" -DOPENSSL_ROOT_DIR="$work/other" >/dev/null 2>"$work/errors" || fail "takes OpenSSL $other"
grep -qwF "$other" "$work/errors" || fail "does not say which OpenSSL it found"
"${configure[@]}" >/dev/null || fail "remembers the OpenSSL that it refused"
cmake --build "$work/build" >/dev/null

export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(echo "$prefix"/lib*/pkgconfig):${PKG_CONFIG_PATH:-}
read -ra cflags <<<"$(pkg-config --cflags krOpenSSL64)"
read -ra libs <<<"$(pkg-config --libs krOpenSSL64) -Wl,-rpath,$(pkg-config --variable=libdir krOpenSSL64)"
cd "$work/consumer"
c++ -std=c++20 "${cflags[@]}" main.cpp delegate.cpp classes.cpp porting.cpp -o "$work/build/main" "${libs[@]}"
c++ -std=c++20 "${cflags[@]}" only_classes.cpp -o "$work/build/classes" "${libs[@]}"
for program in consumer only_classes plain main classes; do
  "$work/build/$program" >/dev/null || fail "$program"
done

strict=(-Wall -Wextra -Wpedantic -Werror -fsyntax-only "${cflags[@]}")
for header in "$prefix"/include/krOpenSSL/{*.h,*.hpp,detail/*}; do
  c++ -std=c++20 "${strict[@]}" -include "$header" -x c++ /dev/null || fail "$header alone"
  case $header in *krLifecycle.h | *krDelegation.h | *krFips.h | *krInformation.h)
    cc -std=c11 "${strict[@]}" -Wstrict-prototypes -include "$header" -x c /dev/null || fail "$header in C" ;;
  esac
  for refused in "other|this krOpenSSL was built for the other of OpenSSL 1.1.1 and 3" \
    "newer|krOpenSSL works with OpenSSL 1.1.1 and 3:"; do
    ! c++ -std=c++20 "-I$work/${refused%%|*}/include" "${cflags[@]}" -Wfatal-errors -fsyntax-only -include "$header" -x c++ /dev/null \
      2>"$work/errors" || fail "$header takes another OpenSSL"
    grep -qF "#error \"${refused#*|}" "$work/errors" || fail "$header does not say what it needs"
  done
done
