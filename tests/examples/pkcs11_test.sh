#!/usr/bin/env bash
# `delegated_tls serve --holder pkcs11` with a SoftHSM token of its own, made by the commands of docs/pkcs11.md.
# usage: pkcs11_test.sh PROGRAM OPENSSL_1_1_1_PREFIX SESSION_TESTS GUIDE
set -euo pipefail
session_tests=$3 guide=$4
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# The guide's command block number $1.
guide_block() { awk -v wanted="$1" '/^```/ { inside = /sh$/; block += inside; next } inside && block == wanted' "$guide"; }

token() { pkcs11-tool --module "$module" --token-label web --login --pin env:PIN "$@"; }

# The certificate $1.pem for the public key in $1.der.
issue() {
  openssl x509 -new -force_pubkey "$1.der" -subj /CN=localhost -CA ca.pem -CAkey ca.key -out "$1.pem" \
    -extfile <(echo subjectAltName=DNS:localhost) 2>>tools.log
  cat ca.pem >>"$1.pem"
}

# An EC key with further options of pkcs11-tool, and its certificate.
generate() {
  local name=$1 id=$2
  shift 2
  token --keypairgen --id "$id" --label "$name" "$@" >>tools.log 2>&1
  token --read-object --type pubkey --id "$id" --output-file "$name.der" >>tools.log 2>&1
  issue "$name"
}

eval "$(guide_block 1)" >tools.log 2>&1 || fail "the guide's token"$'\n'"$(cat tools.log)"
grep -q 'Access: *sensitive, always sensitive, never extractable, local' tools.log || fail "the key could leave the token"
eval "$(guide_block 2)" >>tools.log 2>&1 || fail "the guide's certificate"$'\n'"$(cat tools.log)"
cat ca.pem >>server.pem
generate rsa 02 --key-type rsa:2048

"$session_tests" || fail "the holder's sessions"

on_token=(--holder pkcs11 --module "$module" --token-label web --pin-file pin)
curl_line() { curl -sS --max-time 30 --cacert ca.pem --resolve "localhost:$port:127.0.0.1" "https://localhost:$port/"; }

serve --cert rsa.pem "${on_token[@]}"
for client in openssl11 openssl; do
  expect_handshake TLSv1.3 RSA-PSS SHA256 "$client" rsa
  expect_handshake TLSv1.2 RSA SHA512 "$client" rsa -tls1_2 -sigalgs RSA+SHA512
done
expect "TLSv1.3 .*signature rsa_pss_sha256 by the token 'web'" curl_line
stop_server

# What keeps the server from starting.
generate always 03 --key-type EC:prime256v1 --always-auth
openssl ecparam -genkey -name prime256v1 -noout | openssl pkey -pubout -outform DER -out stranger.der
issue stranger
openssl ecparam -genkey -name prime256v1 -noout | openssl pkey -pubout -outform DER -out false.der
issue false
token --write-object false.der --type pubkey --id 01 --label false >>tools.log 2>&1
echo 000000 >wrong && : >empty && cp pin open && mkfifo pipe && head -c 256 /dev/zero >long
chmod 600 wrong empty pipe long && chmod 640 open
refused() {
  local sentence=$1 cert=$2
  shift 2
  expect_refusal 1 "$sentence" serve --cert "$cert.pem" "${on_token[@]}" "$@"
}
refused "the token 'web' refused the PIN in 'wrong': CKR_PIN_INCORRECT" server --pin-file wrong
refused "no token is labelled 'wep'; labels of the module's tokens: 'web'" server --token-label wep
refused "the PKCS#11 module cannot be loaded: ./none.so: .*No such file" server --module ./none.so
other=$(find "$prefix/lib/" -maxdepth 2 -name 'libcrypto.so.[13]*' -print -quit)
refused "'$other' is no PKCS#11 module" server --module "$other"
refused "the key is not on the token: no public key there has its point" stranger
refused "the key is not on the token: no private key there has its modulus" ca
refused "the key found on the token does not belong to the public key" false
refused "the key wants the PIN for each signature \(CKA_ALWAYS_AUTHENTICATE\)" always
refused "cannot read the PIN file 'none': No such file" server --pin-file none
refused "the PIN file 'open' is open to group or others" server --pin-file open
refused "the PIN file 'pipe' is no regular file" server --pin-file pipe
refused "the PIN file 'empty' holds no PIN" server --pin-file empty
refused "the PIN file 'long' holds no PIN" server --pin-file long

serve --cert server.pem "${on_token[@]}"
for client in openssl11 openssl; do
  expect_handshake TLSv1.3 ECDSA SHA256 "$client" server
  expect_handshake TLSv1.2 ECDSA SHA384 "$client" server -tls1_2 -sigalgs ECDSA+SHA384
done
expect "TLSv1.3 .*signature ecdsa_sha256 by the token 'web'" curl_line

# More at once than there are sessions.
expect_handshakes_at_once 24 openssl11 server

# The token goes while handshakes run, and comes back.
clients=()
for _ in $(seq 8); do
  while [ ! -e stop ]; do s_client openssl11 server >/dev/null 2>&1 || true; done &
  clients+=($!)
done
sleep 0.5
mv tokens away
sleep 0.5
touch stop
wait "${clients[@]}"
for _ in 1 2; do
  expect 'alert internal error' s_client openssl11 server
done
grep -Eq '^token failed: .*CKR_[A-Z_]+' server.log || fail "the server did not report the token's reason"
mv away tokens
expect_handshake TLSv1.3 ECDSA SHA256 openssl11 server

# A PIN that was refused at a new login is not tried again, not even when the file is right again.
cp pin right
mv tokens away
expect 'alert internal error' s_client openssl11 server
cp wrong pin
mv away tokens
expect 'alert internal error' s_client openssl11 server
grep -q "the token 'web' refused the PIN in 'pin': CKR_PIN_INCORRECT" server.log || fail "the PIN was not reported"
cp right pin
expect 'alert internal error' s_client openssl11 server
tail -n 2 server.log | grep -q 'refused the PIN, which is not tried again' || fail "a refused PIN was tried again"
stop_server
