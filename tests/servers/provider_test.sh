#!/usr/bin/env bash
# krprovider.so: the system's OpenSSL 3, nginx and curl use keys that a holder has; their errors say what is wrong.
# usage: provider_test.sh KRHOLDER KRREF KRPROVIDER
set -euo pipefail
krholder=$1 krref=$2 module=$3
work=$(mktemp -d)
end() {
  kill $(jobs -p) $(cat "$work/nginx.pid") || true
  kill -CONT $(jobs -p) || true
  rm -rf "$work"
} 2>/dev/null
trap end EXIT
cd "$work"
fail() { echo "FAILED: $*" >&2; tail -n 5 log error.log >&2; exit 1; }
says() { # TEXT COMMAND...: fails with this text, or succeeds where it is "ok"
  local status=0
  "${@:2}" >said 2>&1 || status=$?
  if [ "$1" = ok ]; then [ $status -eq 0 ]; else [ $status -ne 0 ] && grep -qF -- "$1" said; fi ||
    fail "$1, says ${*:2}: $(cat said)"
}
start() {
  "$krholder" config 2>>log &
  holder=$!
  for _ in $(seq 600); do
    { "$krref" make none none 2>&1 || true; } | grep -q 'there is no key' && return
    sleep 0.05
  done
  fail "the holder does not start"
}
export KRHOLDER_SOCKET=$work/socket OPENSSL_CONF=$work/openssl.cnf
umask 077
printf '%s\n' 'openssl_conf = init' '[init]' 'providers = providers' '[providers]' 'default = default_sect' \
  'krprovider = krprovider_sect' '[default_sect]' 'activate = 1' '[krprovider_sect]' 'activate = 1' \
  "module = $module" >openssl.cnf
echo "socket = \"$work/socket\"" >config
for row in 'rsa RSA rsa_keygen_bits:2048' 'pss RSA-PSS rsa_keygen_bits:2048' 'ec EC ec_paramgen_curve:P-256'; do
  read -r key algorithm option <<<"$row"
  openssl genpkey -quiet -algorithm "$algorithm" -pkeyopt "$option" -out "$key.pem"
  openssl pkey -in "$key.pem" -pubout -out "$key.pub"
  openssl req -x509 -key "$key.pem" -subj /CN=localhost -addext "subjectAltName=DNS:$key" -out "$key.crt"
  printf '[keys.%s]\nfile = "%s.pem"\nusers = [%s]\nuse = "everything"\ndecrypt = true\n' \
    "$key" "$key" "$(id -u)" >>config
done
cat ./*.crt >all.crt
printf '[keys.tls]\nfile = "ec.pem"\nusers = [%s]\n' "$(id -u)" >>config
start
for key in rsa pss ec tls; do "$krref" make $key $key.ref; done
chmod 000 ./*.pem

# Tools, with each key.
head -c 100 /dev/urandom >small
head -c 20000 /dev/urandom >big
openssl dgst -sha256 -binary small >digest
openssl cms -encrypt -binary -in small -out sealed rsa.crt
openssl pkeyutl -encrypt -pubin -inkey rsa.pub -in digest -pkeyopt rsa_padding_mode:oaep -out oaep
head -c 64 big | cat - <(printf '\3\0\x17\x41\4') <(head -c 64 big) >parameters # of a P-256 key exchange
head -c 132 parameters >other-length
sed '2s/./!/' rsa.ref >torn.ref
openssl asn1parse -in ec.ref -noout -out ec.der && printf '\xff' | dd of=ec.der bs=1 seek=70 conv=notrunc 2>/dev/null
{ head -n 1 ec.ref; base64 ec.der; tail -n 1 ec.ref; } >off-curve.ref
while IFS='|' read -r keys text command; do
  for key in $keys; do says "$text" bash -eo pipefail -c "${command//KEY/$key}"; done
done <<'ROWS'
rsa pss ec|ok|cat all.crt KEY.ref >bundle; openssl pkey -in bundle -pubout | cmp - KEY.pub
rsa pss ec|ok|openssl dgst -sha384 -sign KEY.ref -out s small; openssl dgst -sha384 -verify KEY.pub -signature s small
rsa pss ec|ok|openssl dgst -sha256 -sign KEY.ref -out s big; openssl dgst -sha256 -prverify KEY.ref -signature s big
rsa pss ec|ok|openssl req -x509 -key KEY.ref -subj /CN=n -out new.crt; openssl verify -CAfile new.crt new.crt
rsa ec|ok|openssl cms -sign -in small -signer KEY.crt -inkey KEY.ref -out s; openssl cms -verify -in s -CAfile all.crt
rsa|ok|openssl cms -decrypt -in sealed -recip rsa.crt -inkey rsa.ref | cmp - small
rsa|ok|openssl pkeyutl -decrypt -inkey rsa.ref -in oaep -pkeyopt rsa_padding_mode:oaep | cmp - digest
rsa|a digest that no key holder signs|openssl pkeyutl -sign -inkey rsa.ref -in digest
tls|ok|openssl dgst -sha256 -sign KEY.ref -out s parameters
tls|key holder refused|sed 's/\x17\x41/\x17\x40/' other-length | openssl dgst -sha256 -sign KEY.ref
tls|key holder refused|openssl dgst -sha256 -sign KEY.ref small
rsa pss ec|key holder refused|openssl dgst -sha224 -sign KEY.ref small
torn|bad key reference::-1:its base64 is damaged|openssl pkey -in KEY.ref -pubout
ec|bad setting of the key holder's provider::-1:the socket|KRHOLDER_SOCKET=x openssl pkey -in KEY.ref -pubout
off-curve|bad key reference::-1:its public key is damaged|openssl pkey -in KEY.ref -pubout
ROWS

# A program that goes on after a beginning that failed, and one that wants FIPS from now on, for a key that it has used.
sed '/^module/a fips = yes' openssl.cnf >fips.cnf
says ok env OPENSSL_CONF=fips.cnf python3 -c '
import ctypes
crypto, pointer = ctypes.CDLL("libcrypto.so.3"), ctypes.c_void_p
for name in ("BIO_new_file", "PEM_read_bio_PrivateKey", "EVP_MD_CTX_new"):
    getattr(crypto, name).restype = pointer
key = pointer(crypto.PEM_read_bio_PrivateKey(pointer(crypto.BIO_new_file(b"rsa.ref", b"r")), None, None, None))
def signs(digest):
    context, out, length = pointer(crypto.EVP_MD_CTX_new()), ctypes.create_string_buffer(512), ctypes.c_size_t(512)
    begun = crypto.EVP_DigestSignInit_ex(context, None, digest, None, None, key, None)
    signed = crypto.EVP_DigestSign(context, out, ctypes.byref(length), b"text", ctypes.c_size_t(4))
    return begun == 1 and signed == 1
assert signs(b"SHA256") and not signs(b"SHAKE256")
crypto.EVP_default_properties_enable_fips(None, 1)
assert not signs(b"SHA256")
'

# Handshakes: nginx and curl show the same key, each from the holder.
port=$((20000 + RANDOM % 12000)) # below those that connections get
{
  printf '%s\n' "user $(id -un); pid $work/nginx.pid; error_log $work/error.log info; events {}" \
    "http { access_log off; ssl_verify_client on; ssl_client_certificate all.crt; ssl_ciphers ALL:@SECLEVEL=0;" \
    'ssl_protocols TLSv1.1 TLSv1.2 TLSv1.3;'
  for key in rsa pss ec; do
    printf '%s\n' "server { server_name $key; listen 127.0.0.1:$port ssl; ssl_certificate $key.crt;" \
      "ssl_certificate_key $key.ref; location / { return 200 '\$ssl_protocol \$ssl_cipher \$ssl_client_verify'; } }"
  done
  echo '}'
} >nginx.conf
nginx -p "$work" -c nginx.conf
handshake() { # KEY OPTIONS...
  curl -sS --cacert all.crt --cert "$1.crt" --key "$1.ref" --connect-to "::127.0.0.1:$port" "${@:2}" "https://$1/"
}
while IFS='|' read -r key shown options; do
  read -ra options <<<"$options"
  [ "$(handshake "$key" "${options[@]}")" = "$shown SUCCESS" ] || fail "$key, $shown"
done <<'ROWS'
rsa|TLSv1.2 AES256-GCM-SHA384|--tls-max 1.2 --ciphers AES256-GCM-SHA384
rsa|TLSv1.2 ECDHE-RSA-AES256-GCM-SHA384|--tls-max 1.2
rsa|TLSv1.3 TLS_AES_256_GCM_SHA384|
pss|TLSv1.2 ECDHE-RSA-AES256-GCM-SHA384|--tls-max 1.2
pss|TLSv1.3 TLS_AES_256_GCM_SHA384|
ec|TLSv1.2 ECDHE-ECDSA-AES256-GCM-SHA384|--tls-max 1.2
ec|TLSv1.3 TLS_AES_256_GCM_SHA384|
ROWS

# What nginx logs when the holder fails it, and that it goes on when the holder is back.
logs() { # TEXT
  : >error.log
  ! handshake ec 2>/dev/null || fail "shakes hands"
  for _ in $(seq 600); do # it tells its client first
    grep -qF "krprovider::$1" error.log && return
    sleep 0.05
  done
  fail "$1"
}
kill -STOP $holder
logs 'key holder unreachable: no answer in time'
kill -CONT $holder
sleep 0.3 # the time that a holder is left alone for after that
handshake ec >/dev/null
disown $holder
kill -9 $holder
logs 'key holder unreachable: nobody listens at the socket'
sed -i.right 's/"ec.pem"/"rsa.pem"/' config
start
logs 'key holder has another key under this name'
kill $holder
wait $holder || fail "ends with $?"
mv config.right config
start
handshake ec >/dev/null
