#!/usr/bin/env bash
# krholder and krref: keys of each kind and back end are found, shown and sign; what a policy, a reload, a death, a token
# that goes or a bad line does.
# usage: holder_test.sh KRHOLDER KRREF OPENSSL HOLDER_BACKEND
set -euo pipefail
krholder=$1 krref=$2 openssl=$3 own=$4 here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap '{ kill $(jobs -p) || true; kill -CONT $(jobs -p) || true; } 2>/dev/null; rm -rf "$work"' EXIT
cd "$work"
fail() { echo "FAILED: $*" >&2; cat log >&2; exit 1; }
says() { # STATUS TEXT COMMAND...
  local wanted=$1 text=$2 status=0
  shift 2
  "$@" >said 2>&1 || status=$?
  [ $status -eq "$wanted" ] || fail "status $status: $* ($(cat said))"
  grep -qF -- "$text" said || fail "$*: $(cat said)"
}
start() {
  "${1:-$krholder}" config 2>>log &
  holder=$!
  for _ in $(seq 600); do
    { "$krref" make probe probe 2>&1 || true; } | grep -q 'there is no key' && return
    sleep 0.05
  done
  fail "does not start"
}
export KRHOLDER_SOCKET=$work/socket

umask 077
"$openssl" genpkey -quiet -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out rsa.pem 2>/dev/null
"$openssl" genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out ec.pem
echo secret >passphrase
"$openssl" ec -in ec.pem -aes128 -passout file:passphrase -out locked.pem 2>/dev/null
me="users = [$(id -u)]"
config() { printf 'socket = "socket"\nmetrics = "metrics"\n%s\n' "$1" >config; }
keys="[keys.rsa]
file = \"rsa.pem\"
$me
[keys.ec]
file = \"locked.pem\"
passphrase_file = \"passphrase\"
digests = [\"sha384\"]
$me
[keys.others]
file = \"ec.pem\"
users = [65534]
[keys.slow]
file = \"ec.pem\"
per_second = 1
$me"

# A token with both keys.
module=/usr/lib/softhsm/libsofthsm2.so
export SOFTHSM2_CONF=$work/softhsm2.conf
mkdir tokens
printf 'directories.tokendir = %s/tokens\n' "$work" >softhsm2.conf
echo 739152 >pin
softhsm2-util --init-token --free --label web --pin 739152 --so-pin 739152 >said
for key in rsa ec; do
  softhsm2-util --import $key.pem --token web --label $key --id 0${#key} --pin 739152 >said
  "$openssl" pkey -in $key.pem -pubout -out $key.pub
done
"$openssl" ecparam -genkey -name prime256v1 -noout | "$openssl" pkey -pubout -out stranger.pub
token="users = [$(id -u)], module = \"$module\", token"

# Each line: what the file says, and where it is wrong.
while IFS='|' read -r line place; do
  config "${line/TOKEN/$token}"
  says 78 "$place" "$krholder" config
  says 78 "config:3:" "$krholder" config
done <<'ROWS'
[keys.a]|3:1: the key has none of "file", "token"
keys = 1|3:8: a table is needed here
color = "red"|3:1: "color" is not known here
connections = 0|3:15: a whole number from 1 to 10000 is needed here
[keys."a b"]|3:7: a name has 1 to 64 letters
[keys.a] file|3:10:
keys.a = { file = "a", token = "b", users = [0] }|3:32: the key has "file" already
keys.a = { file = "a", module = "b", users = [0] }|3:24: "module" is not known here
keys.a = { TOKEN = "web" }|: the key has no "public_key"
keys.a = { TOKEN = "web", public_key = "ec.pub" }|: the key has no "pin_file"
keys.a = { TOKEN = "web", public_key = "rsa.pem", pin_file = "pin" }|: rsa.pem: is neither certificate nor public key
keys.a = { TOKEN = "web", public_key = "stranger.pub", pin_file = "pin" }|: the key is not on the token
keys.a = { TOKEN = "wep", public_key = "ec.pub", pin_file = "pin" }|: no token is labelled 'wep'; labels
keys.a = { TOKEN = "web", public_key = "ec.pub", pin_file = "passphrase" }|refused the PIN in 'passphrase': CKR_PIN
keys.a = { module = "none", users = [0], token = "w", public_key = "ec.pub", pin_file = "pin" }|: none: cannot open
ROWS
config "${keys/rsa.pem/passphrase}"
says 78 "passphrase: is no private key" "$krholder" check config
chmod 604 ec.pem
config "$keys"
says 78 "others than its owner and group may use it" "$krholder" check config
chmod 600 ec.pem
says 0 good "$krholder" check config

start
says 1 'may not use the key "others"' "$krref" make others others.ref
says 1 'there is no key "none"' "$krref" make none none.ref
"$krref" make rsa rsa.ref
"$krref" make --socket "$work/socket" ec ec.ref
"$krref" make slow slow.ref
says 0 'pss with sha256' "$krref" check rsa.ref
says 0 'do not take it here (' env OPENSSL_CONF=/dev/null "$krref" check rsa.ref
says 0 'ecdsa with sha384' env KRHOLDER_SOCKET=nowhere "$krref" check ec.ref
says 0 "socket: $work/socket" "$krref" show ec.ref
for _ in $(seq 50); do # two within a second, on a machine however slow
  "$krref" check slow.ref >slow 2>&1 || break
done
grep -q 'limit of operations' slow || fail "$(cat slow)"
says 1 'No such file' env KRHOLDER_SOCKET=nowhere "$krref" check rsa.ref
cmp <(cat ec.pem rsa.ref >bundle; "$krref" show bundle) <("$krref" show rsa.ref) || fail "a bundle"
says 1 'there is no "BEGIN' "$krref" show ec.pem

config "${keys/rsa.pem/ec.pem}" # the key of that name is another one now
kill -HUP $holder
for _ in $(seq 600); do grep -q 'event=reload' log && break; sleep 0.05; done
says 1 'is another one now' "$krref" check rsa.ref
config 'connections = "many"' # stays with what it had
kill -HUP $holder
for _ in $(seq 600); do grep -q 'reload outcome=failed' log && break; sleep 0.05; done
says 0 'ecdsa with sha384' "$krref" check ec.ref

config "$keys"
disown $holder; kill -9 $holder
wait $holder 2>/dev/null || true # killed
says 1 'Connection refused' "$krref" check rsa.ref
start # in place of the socket that was left
kill -STOP $holder
says 1 'no answer in time' "$krref" check rsa.ref
kill -CONT $holder
says 0 good "$krref" check rsa.ref
kill -TERM $holder
wait $holder || fail "ends with $?"
grep -q 'krholder_operations_total{key="rsa",operation="sign",outcome="ok"} 1' metrics || fail "$(cat metrics)"
grep -q "event=sign key=rsa uid=$(id -u) pid=[0-9]* outcome=ok" log || fail "the log"

# On the token: with its PSS and with the holder's, and while it is away.
keys="[keys.rsa]
module = \"$module\"
token = \"web\"
public_key = \"rsa.pub\"
pin_file = \"pin\"
$me"
config "$keys
${keys//rsa/ec}"
for mechanisms in ALL -CKM_RSA_PKCS_PSS; do
  printf 'directories.tokendir = %s/tokens\nslots.mechanisms = %s\n' "$work" $mechanisms >softhsm2.conf
  start
  says 0 'pss with sha256' "$krref" check rsa.ref
says 0 'do not take it here (' env OPENSSL_CONF=/dev/null "$krref" check rsa.ref
  says 0 'ecdsa with sha256' "$krref" check ec.ref
  mv tokens away
  says 1 "the key's operation failed" "$krref" check rsa.ref
  grep -q 'key=rsa .* outcome=failed .*reason=".*CKR_' log || fail "the token's reason"
  mv away tokens
  says 0 'pss with sha256' "$krref" check rsa.ref
says 0 'do not take it here (' env OPENSSL_CONF=/dev/null "$krref" check rsa.ref
  kill -TERM $holder
  wait $holder || fail "ends with $?"
done

# A back end of somebody's own.
config 'keys.own = { fleeting = "none", users = [0] }'
says 78 'config:3:25: there is no curve "none"' "$own" check config
config "[keys.own]
fleeting = \"secp384r1\"
$me"
start "$own"
"$krref" make own own.ref
says 0 'ecdsa with sha256' "$krref" check own.ref
kill -TERM $holder
wait $holder || fail "ends with $?"

# Killed again and again on a socket that stays: nobody notices.
config "$(printf '[keys.rsa]\nfile = "rsa.pem"\n%s' "$me")"
"$here/kept_socket.py" "$work/kept" "$krholder" config >kills 2>>log &
keeper=$!
until [ -S kept ]; do sleep 0.05; done
for _ in $(seq 300); do
  says 0 good "$krref" check --socket "$work/kept" rsa.ref
done
touch done
wait $keeper
[ "$(cat kills)" -ge 3 ] || fail "killed $(cat kills) times"
