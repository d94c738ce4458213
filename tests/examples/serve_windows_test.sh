#!/usr/bin/env bash
# Real peers, the machine's own s_client and curl, shake hands with `delegated_tls serve` under Wine.
# usage: serve_windows_test.sh WINE PROGRAM
set -euo pipefail
work=$(mktemp -d)
cd "$work"
trap 'kill -KILL "$server" 2>/dev/null || true; rm -rf "$work"' EXIT

openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout key.pem -out certificate.pem \
  -subj /CN=localhost -addext subjectAltName=DNS:localhost,IP:127.0.0.1 2>/dev/null
: >out
"$1" "$2" serve --cert certificate.pem --key key.pem >trace 2>out &
server=$!
for _ in $(seq 300); do
  port=$(sed -n 's/^listening on 127\.0\.0\.1:\([0-9]*\),.*/\1/p' out)
  [ -z "$port" ] || break
  sleep 0.1
done

for peer in "openssl s_client -connect 127.0.0.1:$port -verify_hostname localhost -verify_return_error -CAfile" \
  "curl --silent --show-error https://localhost:$port/ --cacert"; do
  for _ in 1 2 3; do
    timeout 30 $peer certificate.pem </dev/null >peer 2>&1 || { cat peer out >&2; exit 1; }
  done
done
grep -q 'signature ecdsa_sha256 by this process' peer
[ "$(grep -c '^handshake: TLSv1.3 .* by this process' out)" -eq 6 ] || { cat out >&2; exit 1; }
