#!/usr/bin/env bash
# From a fresh Debian 12 machine to real TLS handshakes whose private keys never enter OpenSSL: sets up,
# builds and runs `delegated_tls demo`. Further arguments go to the demo.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

cd "$root"
ensure_packages g++ cmake ninja-build
scripts/openssl.sh
say "building"
build release -- delegated_tls
exec build/release/examples/delegated_tls/delegated_tls demo --quiet "$@"
