#!/usr/bin/env bash
# An outside program is built against the installed tree, once through the CMake package and once through
# pkg-config, and runs.
# usage: consumer_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source=$1
build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

. "$source/tests/install/lib.sh"
lay_out_consumer "$work/consumer"

cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$work/consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/build" >/dev/null
"$work/build/consumer" >/dev/null

openssl=$(sed -n 's/^OPENSSL_INCLUDE_DIR:PATH=\(.*\)\/include$/\1/p' "$build/CMakeCache.txt")
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name krOpenSSL64.pc)"):$openssl/lib/pkgconfig
libraries=$(pkg-config --libs krOpenSSL64)
# shellcheck disable=SC2046,SC2086
c++ -std=c++20 $(pkg-config --cflags krOpenSSL64) "$work"/consumer/*.cpp -o "$work/by_pkg_config" $libraries \
  -Wl,-rpath,"$openssl/lib:$(pkg-config --variable=libdir krOpenSSL64)"
"$work/by_pkg_config" >/dev/null
