#!/usr/bin/env bash
# krholder.so: programs of OpenSSL 1.1.1 use keys that a holder has in files and on tokens, here and on another machine;
# their errors say what is wrong.
# usage: engine_test.sh KRHOLDER KRREF ENGINE OPENSSL_1_1_1_PREFIX
set -euo pipefail
krholder=$1 krref=$2 engine=$3 prefix=$4
work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT
cd "$work"
fail() { echo "FAILED: $*" >&2; tail -n 5 log server >&2; exit 1; }
sanitizer=$(ldd "$engine" | awk '/lib[at]san/ { own = $3 } /libstdc/ { cpp = $3 } END { if (own) print own, cpp }')
o11() { LD_PRELOAD=$sanitizer LD_LIBRARY_PATH=$prefix/lib OPENSSL_CONF=$work/openssl.cnf "$prefix/bin/openssl" "$@"; }
says() { # TEXT COMMAND...: fails with this text, or succeeds where it is "ok"
  local status=0
  "${@:2}" >said 2>&1 || status=$?
  if [ "$1" = ok ]; then [ $status -eq 0 ]; else [ $status -ne 0 ] && grep -qF -- "$1" said; fi ||
    fail "$1, says ${*:2}: $(cat said)"
}
until_line() { # TEXT FILE
  for _ in $(seq 600); do grep -q -- "$1" "$2" 2>/dev/null && return; sleep 0.05; done
  fail "no $1 in $2"
}
start() {
  : >log
  "$krholder" config 2>>log &
  holder=$!
  until_line event=start log
}
umask 077
printf '%s\n' 'openssl_conf = init' '[init]' 'engines = engines' '[engines]' 'krholder = krholder' '[krholder]' \
  'engine_id = krholder' "dynamic_path = $engine" "SOCKET = $work/socket" 'DEADLINE = 1000' 'init = 1' '[req]' \
  'distinguished_name = dn' '[dn]' >openssl.cnf
export KRHOLDER_SOCKET=$work/socket SOFTHSM2_CONF=$work/softhsm2.conf
mkdir tokens
printf 'directories.tokendir = %s/tokens\n' "$work" >softhsm2.conf
echo 739152 >pin
softhsm2-util --init-token --free --label web --pin 739152 --so-pin 739152 >said
for row in 'rsa RSA rsa_keygen_bits:2048' 'ec EC ec_paramgen_curve:P-256'; do
  read -r key algorithm option <<<"$row"
  openssl genpkey -quiet -algorithm "$algorithm" -pkeyopt "$option" -out "$key.pem"
  openssl pkey -in "$key.pem" -pubout -out "$key.pub"
  openssl req -x509 -key "$key.pem" -subj /CN=localhost -out "$key.crt"
  softhsm2-util --import $key.pem --token web --label $key --id 0${#key} --pin 739152 >said
done
cat ./*.crt >all.crt

policy="users = [$(id -u)]
digests = [\"md5-sha1\", \"sha1\", \"sha256\", \"sha384\", \"sha512\"]"
module=/usr/lib/softhsm/libsofthsm2.so
in_files() { printf '[keys.%s]\nfile = "%s.pem"\n' "$1" "$1"; }
on_token() {
  printf '[keys.%s]\nmodule = "%s"\ntoken = "web"\npublic_key = "%s.crt"\npin_file = "pin"\n' "$1" "$module" "$1"
}
config() { # WHERE MORE
  echo "socket = \"$work/socket\"" >config
  for key in rsa ec; do printf '%s\n%s\n%s\n' "$("$1" $key)" "$policy" "$2" >>config; done
}

s_server() { # KEY: on a free port
  : >server
  o11 s_server -engine krholder -accept 127.0.0.1:0 -cert "$1.crt" -key "$1.ref" -keyform engine -www >>server 2>&1 &
  server=$!
  until_line ACCEPT server
  port=$(sed -n 's/^ACCEPT.*:\([0-9]*\)$/\1/p' server)
}
fetched() { # OPTION...: a page that the server sent over a handshake
  printf 'GET / HTTP/1.0\r\n\r\n' |
    timeout 60 openssl s_client -connect "127.0.0.1:$port" -CAfile all.crt -verify_return_error -ign_eof "$@" 2>&1
}
handshake() { # TEXT OPTION...
  fetched "${@:2}" >page || true
  { grep -q "$1" page && grep -q 'HTTP/1.0 200' page; } || fail "$*: $(cat page)"
}
handshakes() {
  for key in rsa ec; do
    s_server $key
    while IFS='|' read -r of text options; do
      # shellcheck disable=SC2086
      [ "$of" != $key ] || handshake "$text" $options
    done <<<"$kinds"
    kill $server
  done
}

config in_files 'use = "everything"
decrypt = true'
start
for key in rsa ec; do "$krref" make $key $key.ref; done
head -c 100 /dev/urandom >small
head -c 20000 /dev/urandom >big
openssl dgst -sha256 -binary small >digest
openssl pkeyutl -encrypt -pubin -inkey rsa.pub -in digest -out pkcs1
openssl pkeyutl -encrypt -pubin -inkey rsa.pub -in digest -pkeyopt rsa_padding_mode:oaep -pkeyopt rsa_oaep_md:sha256 -out oaep
sed '2s/./!/' rsa.ref >torn.ref

tools() {
  while IFS='|' read -r keys text command; do
    for key in $keys; do
      command=${command//KEY/$key}
      says "$text" eval "${command//REF/-engine krholder -keyform engine}"
    done
  done
}
everything="rsa ec|ok|o11 dgst -sha384 REF -sign KEY.ref -out s small && openssl dgst -sha384 -verify KEY.pub -signature s small
rsa ec|ok|o11 dgst -sha256 REF -sign KEY.ref -out s big && openssl dgst -sha256 -verify KEY.pub -signature s big
rsa|ok|o11 dgst -sha256 REF -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:-2 -sign KEY.ref -out s big && \
openssl dgst -sha256 -sigopt rsa_padding_mode:pss -verify KEY.pub -signature s big
ec|ok|o11 pkeyutl REF -sign -inkey KEY.ref -in digest -out s && openssl pkeyutl -verify -pubin -inkey KEY.pub -in digest -sigfile s
rsa ec|ok|o11 req -new -x509 REF -key KEY.ref -subj /CN=n -out new.crt && openssl verify -CAfile new.crt new.crt
rsa|ok|o11 pkeyutl REF -decrypt -inkey KEY.ref -in pkcs1 | cmp - digest
rsa|ok|o11 pkeyutl REF -decrypt -inkey KEY.ref -in oaep -pkeyopt rsa_padding_mode:oaep -pkeyopt rsa_oaep_md:sha256 | cmp - digest
rsa ec|ok|o11 dgst -engine krholder -sha256 -sign KEY.pem -out s small && openssl dgst -sha256 -verify KEY.pub -signature s small"
tools <<<"$everything"
tools <<'ROWS'
rsa|key holder refused|o11 pkeyutl REF -decrypt -inkey KEY.ref -in oaep -pkeyopt rsa_padding_mode:none
rsa|a digest that no key holder signs|o11 dgst -md5 REF -sign KEY.ref small
ec|bad key reference|o11 pkey -engine krholder -inform engine -in KEY.pem
torn|bad key reference|o11 dgst -sha256 REF -sign KEY.ref small
ROWS
kill -TERM $holder && wait $holder
tools <<'ROWS'
rsa ec|key holder unreachable: |o11 dgst -sha256 REF -sign KEY.ref small
ROWS

# Of TLS alone, with no other policy than decryption.
kinds='ec|TLSv1.3, Cipher|-tls1_3
rsa|Peer signature type: RSA-PSS|-tls1_3
ec|Cipher is ECDHE-ECDSA-AES128-GCM-SHA256|-tls1_2 -cipher ECDHE-ECDSA-AES128-GCM-SHA256
rsa|Cipher is ECDHE-RSA-AES128-GCM-SHA256|-tls1_2 -cipher ECDHE-RSA-AES128-GCM-SHA256
rsa|Cipher is AES128-GCM-SHA256|-tls1_2 -cipher AES128-GCM-SHA256
rsa|Cipher is ECDHE-RSA-AES128-SHA|-tls1_1 -cipher ECDHE-RSA-AES128-SHA:@SECLEVEL=0
rsa|Cipher is AES128-SHA|-tls1_1 -cipher AES128-SHA:@SECLEVEL=0'
config in_files 'decrypt = true'
start
handshakes
s_server rsa
kill -STOP $holder
fetched -tls1_3 >page && fail "a handshake without its key"
kill -CONT $holder
until fetched -tls1_3 | grep -q 'HTTP/1.0 200'; do [ $SECONDS -lt 300 ] || fail "it does not recover"; done
grep -q 'key holder unreachable: no answer in time' server || fail "no reason: $(cat server)"
kill $server $holder

# On a token.
config on_token 'use = "everything"
decrypt = true'
start
tools <<<"$everything"
handshakes
kill $holder

# On a token of another machine: through p11-kit's client over a pipe, as ssh makes one, and through its remote: setting,
# which p11-kit has no root read from a folder of his own.
remote="|env SOFTHSM2_CONF=$SOFTHSM2_CONF p11-kit remote $module"
export SOFTHSM2_CONF=$work/none.conf
printf 'directories.tokendir = %s/none\n' "$work" >none.conf
module=$(echo /usr/lib/*/pkcs11/p11-kit-client.so)
config on_token 'use = "everything"
decrypt = true'
P11_KIT_SERVER_ADDRESS=$remote start
tools <<<"$everything"
kill -KILL "$(pgrep -P $holder)" # the way there, in the middle
until o11 dgst -sha256 -engine krholder -keyform engine -sign ec.ref small >s 2>said; do
  { kill -0 $holder && [ $SECONDS -lt 300 ]; } || fail "it does not come back: $(cat said)"
done
kill $holder
module=$(echo /usr/lib/*/p11-kit-proxy.so)
mkdir -p .config/pkcs11/modules
echo "remote: $remote" >.config/pkcs11/modules/hsm.module
config on_token ''
if [ "$(id -u)" -eq 0 ]; then
  chown -R nobody .
  as=(setpriv --reuid=nobody --clear-groups)
fi
if "${as[@]}" "$krholder" --help >said 2>&1; then
  says ok env HOME="$work" "${as[@]}" "$krholder" check config
fi
