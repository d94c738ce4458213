#!/usr/bin/env bash
# Bad input to delegated_tls gets one clear sentence and a non-zero exit; the demo's table is whole.
# usage: input_test.sh PROGRAM OPENSSL_1_1_1_PREFIX
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

make_keys
openssl11 genpkey -algorithm ED25519 -out ed.key
certify ed
for curve in prime239v1 secp256k1 P-256; do # the last with its parameters in place of its name
  openssl11 genpkey -algorithm EC -pkeyopt "ec_paramgen_curve:$curve" -pkeyopt ec_param_enc:explicit -out "$curve.key"
  [ "$curve" = P-256 ] || openssl11 ec -in "$curve.key" -param_enc named_curve -out "$curve.key" 2>/dev/null
  certify "$curve"
done
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
for curve in prime239v1 secp256k1; do
  expect_refusal 1 "no TLS client can use an EC key on the curve $curve:" serve --cert "$curve.pem" --key "$curve.key"
done
expect_refusal 1 "no TLS client can use an EC key whose curve has no name:" serve --cert P-256.pem --key P-256.key
TMPDIR=$work/none expect_refusal 1 ".* directory '$work/none' \(TMPDIR\): No such file" demo --quiet
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
  [ "$(grep -c ' yes ' table.log)" -eq 9 ] || fail "not nine verified lines"$'\n'"$(cat table.log)"
  grep -q '^krOpenSSL ift_provider_private_key_operation_callback: X509_digest_length returned: 32$' trace.log ||
    fail "no trace of the provider"
  ! grep -q krOpenSSL table.log || fail "trace lines in the table"
done
mkdir tmp
TMPDIR=$work/tmp "$program" demo --quiet >out.log 2>table.log || fail "the quiet demo failed"
[ ! -s out.log ] || fail "the quiet demo wrote to standard output"
grep -q "^the library's trace goes to $work/tmp/" table.log || fail "no word of the trace file"
[ -z "$(ls tmp)" ] || fail "the quiet demo left its folder behind"
KR_TRACE=off "$program" demo >out.log 2>/dev/null || fail "the demo failed without a trace"
[ ! -s out.log ] || fail "KR_TRACE=off did not silence the trace"

for verb in serve demo; do
  other=$([ $verb = serve ] && echo demo || echo serve)
  expect "^usage: delegated_tls $verb" "$program" $verb --help
  ! "$program" $verb --help | grep -q "^$other" || fail "the help for $verb is for $other, too"
done
