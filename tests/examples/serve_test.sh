#!/usr/bin/env bash
# Real peers shake hands with `delegated_tls serve`: s_client of OpenSSL 1.1.1 and of the system, curl and gnutls-cli.
# usage: serve_test.sh PROGRAM OPENSSL_1_1_1_PREFIX
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

expect_curl() {
  expect "$2 .*signature $3 by process $(holder)" \
    curl -sS --max-time 30 --cacert "$1.pem" --resolve "localhost:$port:127.0.0.1" "https://localhost:$port/"
}

make_keys
start_server rsa
[ "$(holder)" != "$server" ] || fail "the key is held by the server itself"
[ -n "$(holder)" ] || fail "no holder process"
for client in openssl11 openssl; do
  expect_handshake TLSv1.3 RSA-PSS SHA256 "$client" rsa
  expect_handshake TLSv1.2 RSA SHA256 "$client" rsa -tls1_2 -sigalgs RSA+SHA256
  expect_handshake TLSv1.2 RSA SHA512 "$client" rsa -tls1_2 -sigalgs RSA+SHA512
done
expect_curl rsa TLSv1.3 rsa_pss_sha256
expect 'alert handshake failure' s_client openssl11 rsa -tls1_2 -cipher AES256-GCM-SHA384
stop_server

start_server ec
for client in openssl11 openssl; do
  expect_handshake TLSv1.3 ECDSA SHA256 "$client" ec
  expect_handshake TLSv1.2 ECDSA SHA256 "$client" ec -tls1_2
done
expect_curl ec TLSv1.3 ecdsa_sha256
for client in 'curl -sS --cacert ec.pem -d some=thing' 'curl -sSI --cacert ec.pem'; do
  expect 'by process|200 OK' $client "https://localhost:$port/"
done
for end in '\r\n' '\n'; do
  expect 'ecdsa_sha256 by process' gnutls-cli --x509cafile=ec.pem --port "$port" localhost \
    < <(printf "GET / HTTP/1.0$end$end")
done

# A thousand silent clients, and some slow ones, do not keep the server from others.
ulimit -n "$(ulimit -Hn)"
slow=()
silent=()
for i in $(seq 1016); do
  exec {client}<>"/dev/tcp/127.0.0.1/$port"
  [ "$i" -gt 16 ] && silent+=("$client") || slow+=("$client")
done
(
  trap '' PIPE
  for bytes in '\26' '\3' '\1' '\2' {1..60}; do
    for client in "${slow[@]}"; do printf "$bytes" >&"$client" || true; done
    sleep 1
  done
) 2>/dev/null &
slow_sender=$!
start=$SECONDS
expect_curl ec TLSv1.3 ecdsa_sha256
[ $((SECONDS - start)) -le 8 ] || fail "silent clients hung the server"
[ "$(ls "/proc/$server/task" | wc -l)" -le 4 ] || fail "the server has more than its threads"
for _ in $(seq 110); do
  ! grep -q 'not done within' server.log || break
  sleep 0.1
done
kill "$slow_sender"
for client in "${slow[@]}" "${silent[@]}"; do exec {client}>&-; done
grep -Eq 'handshake failed: not done within 10 s \(client 127\.0\.0\.1:[0-9]+\)' server.log || fail "no word of the slow clients"
stop_server

# Mutual TLS, on two threads; clients without a certificate are refused.
start_server ec --client-ca rsa.pem --threads 2
for protocol in tls1_2 tls1_3; do
  expect_handshake 'TLSv1.[23]' ECDSA SHA256 openssl11 ec -$protocol -cert rsa.pem -key rsa.key
  s_client openssl11 ec -$protocol >/dev/null 2>&1 || true
done
[ "$(grep -c 'peer did not return a certificate' server.log)" -eq 2 ] || fail "clients without a certificate are served"
stop_server

# Many at once, each with its own key object.
start_server ec
expect_handshakes_at_once 12 openssl11 ec

# A holder that stands still fails handshakes for a while, and so does one that dies, until there is another.
kill -STOP "$(holder)"
start=$SECONDS
expect 'alert internal error' s_client openssl11 ec
[ $((SECONDS - start)) -le 12 ] || fail "a holder that stands still hung the server"
kill -CONT "$(holder)"
expect_handshake TLSv1.3 ECDSA SHA256 openssl11 ec

# A holder that stands still and a silent client do not keep the server from stopping.
kill -STOP "$(holder)"
exec 9<>"/dev/tcp/127.0.0.1/$port"
start=$SECONDS
stop_server
exec 9>&-
[ $((SECONDS - start)) -le 4 ] || fail "the server took too long to stop"

start_server ec
kill -KILL "$(holder)"
expect 'alert internal error' s_client openssl11 ec
grep -q "handshake failed: the key holder, process $(holder), was killed by signal 9 (client 127" server.log ||
  fail "the server did not report the dead holder"
[ ! -e "/proc/$(holder)" ] || fail "the dead holder was not reaped"
sleep 2
expect_handshake TLSv1.3 ECDSA SHA256 openssl11 ec # by another holder
stop_server
