#!/usr/bin/env bash
# From a bare Debian 12 machine to nginx, Apache, HAProxy, PostgreSQL, psql and curl, as Debian ships them, whose
# private keys are in krholder: sets up, builds, fetches data by each kind of TLS and prints who signed; then what each
# says when its holder is not there, and whether a handshake fails while the server is reloaded and the holder killed,
# again and again. All of it happens in a temporary folder and on 127.0.0.1.
# usage: servers-demo.sh [--built KRHOLDER KRREF KRPROVIDER]   (then nothing is installed or built)
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
. "$root/scripts/servers.sh"

if [ "${1:-}" != --built ]; then
  cd "$root"
  ensure_packages g++ cmake ninja-build pkg-config libtomlplusplus-dev libssl-dev openssl curl
  ensure_servers nginx apache2-bin haproxy postgresql-15
  scripts/openssl.sh
  say "building"
  build release -DKR_BUILD_HOLDER=ON -DKR_BUILD_PROVIDER=ON -- krholder krref krprovider
  set -- --built build/release/holder/{krholder,krref} build/release/provider/krprovider.so
fi

me=$(id -u)
holder=64242 # a user that needs no name
[ "$me" -eq 0 ] || {
  holder=$me
  for who in "${!users[@]}"; do users[$who]=$(id -un); done
}
declare -A process=()
work=$(mktemp -d)
clean_up() {
  kill "${process[@]}" 2>/dev/null || true
  wait
  rm -rf "$work"
}
trap clean_up EXIT

# What is run lies where each of the users may read it.
mkdir "$work/bin" "$work/jail"
cp "${@:2}" "$root/provider/krprovider.cnf" "$work/bin"
# shellcheck disable=SC2046 # one word for each library
cp $(ldd "$2" | awk '$3 ~ /krOpenSSL64|\.so\.1\.1$/ { print $3 }') "$work/bin"
cd "$work"
chmod 711 .
export HOME=$work no_proxy=127.0.0.1 # none of a user's own settings
export KRHOLDER_SOCKET=$work/jail/socket OPENSSL_CONF=$work/openssl.cnf PATH=$PATH:/usr/sbin:/usr/lib/postgresql/15/bin

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  tail -n 5 ./*.log said >&2 || true
  exit 1
}
await() { # COMMAND...: until it succeeds
  local deadline=$((SECONDS + 180))
  until "$@" >said 2>&1; do
    [ "$SECONDS" -lt "$deadline" ] || fail "for three minutes: $*"
    sleep 0.05
  done
}
as() { # USER COMMAND...: ends with this script, however that ends
  local change=()
  [ "$me" -ne 0 ] || change=(--reuid "$1" --regid "$(id -g "$1" 2>/dev/null || echo "$1")" --clear-groups)
  exec setpriv "${change[@]}" --pdeathsig TERM "${@:2}"
}
start() { # NAME USER COMMAND...: in the background, with a log of its own
  (as "${@:2}") >>"$1.log" 2>&1 &
  process[$1]=$!
}
stop() { # NAME SIGNAL
  kill -"$2" "${process[$1]}"
  wait "${process[$1]}" 2>/dev/null || true
  unset "process[$1]"
}

# The holder, started anew whenever it ends, at a socket that stays: as a service manager does it.
holder_answers() { { bin/krref make none none 2>&1 || true; } | grep -q 'there is no key'; }
start_holder() {
  LD_LIBRARY_PATH=$work/bin start holder "$holder" perl -MPOSIX -MSocket -e '
    unlink($path = shift); umask 0; $^F = 3;
    socket(S, AF_UNIX, SOCK_STREAM, 0) && bind(S, sockaddr_un($path)) && listen(S, 1000) && dup2(fileno S, 3) || die $!;
    umask 077; exec @ARGV' "$KRHOLDER_SOCKET" sh -c 'while :; do sh -c "echo \$\$ >jail/pid
      LISTEN_FDS=1 LISTEN_PID=\$\$ exec setpriv --pdeathsig KILL bin/krholder holder.toml"; done'
  await holder_answers
}

# Keys are the holder's, certificates everybody's, references the servers'.
make_keys() {
  local row key algorithm option who extra
  echo "socket = \"$KRHOLDER_SOCKET\"" >holder.toml
  for row in 'rsa RSA rsa_keygen_bits:2048' 'ec EC ec_paramgen_curve:P-256'; do
    read -r key algorithm option <<<"$row"
    (umask 077 && openssl genpkey -quiet -algorithm "$algorithm" -pkeyopt "$option" -out "$key.pem")
    openssl req -x509 -key "$key.pem" -subj /CN=localhost -addext subjectAltName=IP:127.0.0.1 -out "$key.crt"
    for who in "${!users[@]}"; do
      # What a client signs in TLS 1.2, all that both have said before, does not show that it is TLS's.
      [[ $who == curl || $who == psql ]] && extra='use = "everything"' || extra='decrypt = true'
      printf '[keys.%s-%s]\nfile = "%s.pem"\nusers = ["%s", "%s"]\n%s\n' \
        "$who" "$key" "$key" "${users[$who]}" "$(id -un)" "$extra" >>holder.toml
    done
  done
  cat rsa.crt ec.crt >ca.crt
  chown "$holder" rsa.pem ec.pem jail
}
openssl_conf() { # SOCKET
  printf '%s\n' ".include = $work/bin/krprovider.cnf" '[krprovider_sect]' "module = $work/bin/krprovider.so" \
    "socket = $1" 'deadline = 30000' # a busy machine may take its time to start a holder
}
make_settings() {
  local cipher
  openssl_conf "$KRHOLDER_SOCKET" >openssl.cnf
  openssl_conf /socket >jail.cnf # in HAProxy's chroot
  openssl_conf "$work/nowhere" >nowhere.cnf
  for cipher in {,ECDHE-RSA-,ECDHE-ECDSA-}AES256-GCM-SHA384; do # for libpq, which has no setting for it
    printf '%s\n' ".include = $work/openssl.cnf" '[openssl_init]' 'ssl_conf = ssl_sect' '[ssl_sect]' \
      'system_default = cipher_sect' '[cipher_sect]' "CipherString = $cipher" >"$cipher.cnf"
  done
}

version_of() {
  local -A packages=([apache]=apache2-bin [postgresql]=postgresql-15 [psql]=postgresql-client-15)
  local version
  version=$(dpkg-query -W -f '${Version}' "${packages[$1]:-$1}")
  echo "$1 ${version%%-*}"
}
seen() { # WHO KEY: what the holder has done for it, as its log has it
  sed -n "s/.*event=\([a-z]*\) key=$1-$2 uid=$(id -u "${users[$1]}") .*outcome=ok .*/\1/p" holder.log
}
has_seen_more() { [ "$(seen "$1" "$2" | wc -l)" -gt "$3" ]; } # WHO KEY THAN

kinds='TLS 1.2 RSA|rsa|decrypt|TLSv1.2 AES256-GCM-SHA384
TLS 1.2 ECDHE-RSA|rsa|sign|TLSv1.2 ECDHE-RSA-AES256-GCM-SHA384
TLS 1.2 ECDHE-ECDSA|ec|sign|TLSv1.2 ECDHE-ECDSA-AES256-GCM-SHA384
TLS 1.3 RSA|rsa|sign|TLSv1.3 TLS_AES_256_GCM_SHA384
TLS 1.3 EC|ec|sign|TLSv1.3 TLS_AES_256_GCM_SHA384'
bad=0

line() { printf '%-16s %-20s %-38s %-24s %-19s %s\n' "$@"; }
row() { # WHO KIND KEY OPERATION SHOWN: one handshake, and what came of it
  local operation=$4 client='NONE|' verified=yes before operations cipher=${5#TLSv1.2 }
  if [[ $1 == curl || $1 == psql ]]; then
    operation=sign client=SUCCESS
  fi
  [ "$cipher" != "$5" ] || cipher=
  before=$(seen "$1" "$3" | wc -l)
  fetch "$1" "$3" "$cipher" >shown 2>said || true
  operations=$(seen "$1" "$3" | tail -n +$((before + 1)) | uniq -c | xargs)
  if ! grep -qxE "$5 ?($client)" shown || [ "$operations" != "1 $operation" ]; then
    verified=NO
    bad=$((bad + 1))
    cat shown said >&2
  fi
  line "$(version_of "$1")" "$2" "$5" "krholder for ${users[$1]}" "$operations" "$verified"
}

# What each says of a holder that is not there: a server in its log, a client itself.
cause='key holder unreachable: .*'
failure() { # WHO
  local file=$1.log
  [ "$1" != postgresql ] || file=postgresql-ec.log
  if [[ $1 == curl || $1 == psql ]]; then
    ! OPENSSL_CONF=$work/nowhere.cnf fetch "$1" ec '' >shown 2>"$file" || fail "$1 gets data without its holder"
  else
    ! fetch "$1" ec '' >shown 2>said || fail "$1 gives data without its holder"
  fi
  await grep -q "$cause" "$file"
  printf '%s: %s\n' "$1" "$(grep -m 1 "$cause" "$file")"
}

# Handshakes while the server is reloaded and the holder killed, four times; none sees two kills.
under_load() { # SERVER
  local good=0 all=0 before loaded
  while [ $all -lt 200 ]; do
    before=$(seen "$1" rsa | wc -l)
    load "$1" >loaded &
    await has_seen_more "$1" rsa "$before"
    reload "$1"
    kill -KILL "$(<jail/pid)"
    wait $!
    await holder_answers
    loaded=$(<loaded)
    good=$((good + ${loaded:-0}))
    all=$((all + 50))
  done
  printf '%s: %s of %s handshakes\n' "$1" $good $all
  [ $good -eq $all ] || bad=$((bad + 1))
}

servers='nginx apache haproxy postgresql'
make_settings
make_keys
start_holder
for who in $servers curl psql; do
  for key in rsa ec; do
    (umask 077 && bin/krref make "$who-$key" "$who-$key.ref")
  done
done
free_ports
for server in $servers; do
  "start_$server"
done
for server in $servers; do
  await fetch "$server" rsa ''
  await fetch "$server" ec ''
done

echo
line server TLS 'as the server saw it' 'signed by' 'seen by the holder' verified
for who in $servers curl psql; do
  while IFS='|' read -r kind key operation shown; do
    row "$who" "$kind" "$key" "$operation" "$shown"
  done <<<"$kinds"
done

printf '\nWithout the holder:\n'
failure curl
failure psql
stop holder TERM
for server in $servers; do
  failure "$server"
done
start_holder
for server in $servers; do
  await fetch "$server" ec '' # at once
done

printf '\nReloaded four times under load, the holder killed each time, its socket kept:\n'
echo 'select 1;' >select.sql
for server in $servers; do
  under_load "$server"
done
[ $bad -eq 0 ] || fail "$bad rows"
