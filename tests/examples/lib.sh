# Shared by the tests of the example program: keys and certificates, the server, checks.
# Sourced with the program in $1 and OpenSSL 1.1.1's prefix in $2.

program=$1
prefix=$2
work=$(mktemp -d)
server=

cleanup() {
  [ -z "$server" ] || kill -KILL "$server" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
cd "$work"

# OpenSSL 1.1.1's program, beside the system's own `openssl`.
cat >openssl11 <<END
#!/bin/sh
LD_LIBRARY_PATH="$prefix/lib" OPENSSL_CONF=/dev/null exec "$prefix/bin/openssl" "\$@"
END
chmod +x openssl11
PATH="$work:$PATH"

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  [ ! -e server.log ] || sed 's/^/server: /' server.log >&2
  exit 1
}

# Runs a command and wants the regular expression $1 in what it prints.
expect() {
  local pattern=$1 output
  shift
  output=$("$@" 2>&1) || true
  grep -Eq -- "$pattern" <<<"$output" || fail "no '$pattern' from: $*"$'\n'"$output"
}

# A self-signed certificate for localhost over the key in $1.key: $1.pem.
certify() {
  openssl11 req -new -x509 -key "$1.key" -subj /CN=localhost -days 2 -out "$1.pem" \
    -config <(printf '[req]\ndistinguished_name=dn\nx509_extensions=ext\n[dn]\n[ext]\nsubjectAltName=DNS:localhost,IP:127.0.0.1\nbasicConstraints=CA:TRUE\n')
}

make_keys() {
  openssl11 genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out rsa.key 2>/dev/null
  openssl11 genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out ec.key
  certify rsa
  certify ec
}

# Starts the server for the key pair $1 with further options; sets $server and $port.
start_server() {
  local name=$1
  shift
  serve --cert "$name.pem" --key "$name.key" "$@"
}

# Starts the server with these options; sets $server and $port.
serve() {
  local tries
  rm -f server.log
  "$program" serve "$@" >trace.log 2>server.log &
  server=$!
  for tries in $(seq 300); do
    port=$(sed -n 's/^listening on 127\.0\.0\.1:\([0-9]*\),.*/\1/p' server.log 2>/dev/null) || true
    [ -n "$port" ] && return
    sleep 0.1
  done
  fail "the server did not start: $*"
}

# Ends the server, which has to go in good order.
stop_server() {
  local status=0
  kill -TERM "$server"
  wait "$server" || status=$?
  server=
  [ "$status" -eq 0 ] || fail "the server ended with status $status"
}

# The process that holds the key.
holder() { sed -n 's/.*the private key is held by process \([0-9]*\)$/\1/p' server.log; }

# One handshake of an s_client ($1 openssl11 or openssl) with the running server, verified against $2.pem.
s_client() {
  local client=$1 name=$2
  shift 2
  timeout 30 "$client" s_client -connect "127.0.0.1:$port" -CAfile "$name.pem" -verify_hostname localhost \
    -verify_return_error "$@" </dev/null
}

# Wants the handshake to verify, with this protocol and signature.
expect_handshake() {
  local protocol=$1 type=$2 digest=$3
  shift 3
  local output
  output=$(s_client "$@" 2>&1) || fail "no handshake: $*"$'\n'"$output"
  local wanted
  for wanted in "Verify return code: 0 \(ok\)" "Peer signing digest: $digest" "Peer signature type: $type" "New, $protocol"; do
    grep -Eq "$wanted" <<<"$output" || fail "no '$wanted' in: $*"$'\n'"$output"
  done
}

# Wants as many s_client handshakes at once ($1) to verify.
expect_handshakes_at_once() {
  local count=$1 client clients=()
  shift
  for _ in $(seq "$count"); do
    s_client "$@" >/dev/null 2>&1 &
    clients+=($!)
  done
  for client in "${clients[@]}"; do
    wait "$client" || fail "a handshake beside others failed"
  done
}

# Wants exit status $1 and the sentence $2 from the program.
expect_refusal() {
  local status=$1 sentence=$2 output actual=0
  shift 2
  output=$(timeout 30 "$program" "$@" 2>&1 >/dev/null) || actual=$?
  [ "$actual" -eq "$status" ] || fail "status $actual instead of $status from: $*"
  grep -Eq "^delegated_tls: $sentence" <<<"$output" || fail "no '$sentence' from: $*"$'\n'"$output"
}
