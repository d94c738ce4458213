#!/usr/bin/env bash
# Bad input to delegated_tls gets one clear sentence and a non-zero exit; the demo's table is whole.
# usage: input_test.sh PROGRAM OPENSSL_1_1_1_PREFIX
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

make_keys
openssl11 genpkey -algorithm ED25519 -out ed.key
certify ed
openssl11 rsa -in rsa.key -aes128 -passout pass:secret -out locked.key 2>/dev/null
start_server rsa

for holder in process memory; do
  serve=(serve --holder "$holder")
  expect_refusal 1 "cannot read the private key 'none.key': No such file" "${serve[@]}" --cert rsa.pem --key none.key
  expect_refusal 1 "'rsa.pem' holds no private key in clear PEM form" "${serve[@]}" --cert rsa.pem --key rsa.pem
  expect_refusal 1 "'locked.key' holds no private key in clear PEM form" "${serve[@]}" --cert rsa.pem --key locked.key
  expect_refusal 1 "keys of type ED25519 are not supported" "${serve[@]}" --cert rsa.pem --key ed.key
  expect_refusal 1 "the private key in 'ec.key' does not belong to the certificate in 'rsa.pem'" \
    "${serve[@]}" --cert rsa.pem --key ec.key
  expect_refusal 1 "cannot listen on 127.0.0.1 port $port: Address already in use" \
    "${serve[@]}" --cert rsa.pem --key rsa.key --port "$port"
done
expect_refusal 1 "cannot read the certificate chain 'none.pem': No such file" serve --cert none.pem --key rsa.key
expect_refusal 1 "'rsa.key' holds no PEM certificate" serve --cert rsa.key --key rsa.key
expect_refusal 1 "keys of type ED25519 are not supported" serve --cert ed.pem --key ed.key
expect_refusal 2 "serve needs --cert and --key" serve --cert rsa.pem
expect_refusal 2 "--port is a number from 0 to 65535, not '65536'" serve --port 65536
expect_refusal 2 "--holder is process or memory, not 'pkcs11'" demo --holder pkcs11
expect_refusal 2 "--holder is process, memory or pkcs11, not 'vault'" serve --cert rsa.pem --key rsa.key --holder vault
expect_refusal 2 "--module, --token-label and --pin-file are for --holder pkcs11 only" serve --cert rsa.pem --key rsa.key \
  --pin-file pin
expect_refusal 2 "--key is not for --holder pkcs11: " serve --cert rsa.pem --key rsa.key --holder pkcs11
expect_refusal 2 "serve with --holder pkcs11 needs --cert, --module, --token-label and --pin-file" \
  serve --cert rsa.pem --holder pkcs11 --module none.so --token-label web
expect_refusal 2 "unknown command 'sign'" sign
stop_server

for holder in process memory; do
  "$program" demo --holder "$holder" >trace.log 2>table.log || fail "the demo failed"$'\n'"$(cat table.log)"
  [ "$(grep -c ' yes ' table.log)" -eq 8 ] || fail "not eight verified lines"$'\n'"$(cat table.log)"
  grep -q '^krOpenSSL ift_provider_private_key_operation_callback: X509_digest_length returned: 32$' trace.log ||
    fail "no trace of the provider"
  ! grep -q krOpenSSL table.log || fail "trace lines in the table"
done
TMPDIR=$work "$program" demo --quiet >out.log 2>table.log || fail "the quiet demo failed"
[ ! -s out.log ] || fail "the quiet demo wrote to standard output"
[ -s "$(sed -n "s/^the library's trace goes to //p" table.log)" ] || fail "no trace file"
