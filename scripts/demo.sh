#!/usr/bin/env bash
# From a fresh Debian 12 machine to real TLS handshakes whose private keys never enter OpenSSL: sets up,
# builds and runs `delegated_tls demo`. With --openssl3 over the system's OpenSSL 3, which spares the unpacking of 1.1.1.
# Further arguments go to the demo.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

cd "$root"
preset=release
if [ "${1:-}" = --openssl3 ]; then
  shift
  preset=release-openssl3
  ensure_packages g++ cmake ninja-build libssl-dev
else
  ensure_packages g++ cmake ninja-build
  scripts/openssl.sh
fi
say "building"
build "$preset" -- delegated_tls
exec "build/$preset/examples/delegated_tls/delegated_tls" demo --quiet "$@"
