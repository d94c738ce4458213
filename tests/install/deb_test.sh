#!/usr/bin/env bash
# The Debian packages that cpack makes have no error for lintian, depend on each other as they should, and install: a
# program is built against them, the holder serves with its sample configuration and hardening, the system's openssl signs
# with a reference. Purged, nothing of them is left. For root; other users' ends before the installation.
# usage: deb_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source=$1 build=$2
work=$(mktemp -d)
packages=(libkropenssl64-1-openssl3 libkropenssl64-dev krholder krprovider)
holder='' had_user=$(getent passwd krholder || true)
. "$source/tests/install/lib.sh"
left() { find /etc /usr /lib/systemd /run /var/lib -xdev \( -iname '*krholder*' -o -iname '*kropenssl*' -o -iname '*krprovider*' -o -name 'krref*' \); }
purge() { dpkg --purge "${packages[@]}" >"$work/purge" 2>&1; }
leave_as_found() {
  local status=$?
  trap '' EXIT INT TERM
  [ -z "$holder" ] || { kill "$holder" && wait "$holder"; } 2>/dev/null || true
  if [ -e "$work/installed" ]; then
    rm -f /etc/krholder/www.pem && rm -rf /run/krholder
    purge || cat "$work/purge" >&2
    [ -n "$had_user" ] || ! getent passwd krholder >/dev/null || userdel krholder || status=1
  fi
  rm -rf "$work"
  exit "$status"
}
trap leave_as_found EXIT
trap 'exit 1' INT TERM

(cd "$build" && cpack -G DEB -B "$work/packages" >"$work/cpack" 2>&1) || fail "cpack: $(cat "$work/cpack")"
cd "$work"
lintian --allow-root --fail-on error packages/*.deb >lintian 2>&1 || fail "lintian: $(cat lintian)"
for page in "$source"/holder/man/*; do
  LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l -Tutf8 -Z "$page" 2>&1 >/dev/null | (! grep .) || fail "$page"
done
[ "$(id -u)" -eq 0 ] || { echo "[  SKIPPED ] AsRoot: installing the packages"; exit 77; } # CI fails when it reads that
[ -z "$(left)" ] || fail "there are such packages already, or what they left: $(left)"
chmod 755 .
touch installed
dpkg --install packages/*.deb >install 2>&1 || fail "dpkg: $(cat install)"

lay_out_consumer consumer
cmake -S consumer -B cmake -G Ninja >/dev/null
cmake --build cmake --target only_classes >/dev/null
read -ra flags <<<"$(pkg-config --cflags --libs krOpenSSL64)"
cc consumer/plain.c -o plain "${flags[@]}"
for program in cmake/only_classes ./plain; do
  $program >/dev/null || fail "$program"
done

for unit in socket service; do
  systemd-analyze verify "/lib/systemd/system/krholder.$unit" >verify 2>&1 || fail "$(cat verify)"
done
systemd-analyze security --offline=true --threshold=10 krholder.service >security 2>&1 || fail "$(tail -n 1 security)"

as() { setpriv --reuid "$1" --regid "$1" --init-groups "${@:2}"; }
[ "$(stat -c %U:%G:%a /etc/krholder /etc/krholder/krholder.toml | xargs)" = 'root:krholder:750 root:krholder:640' ] ||
  fail "others may read the configuration"
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out www.pem
openssl pkey -in www.pem -pubout -out public.pem
install -o root -g krholder -m 0640 www.pem /etc/krholder/www.pem
sed -Ei 's/^#(\[keys|file|users)/\1/; $ause = "everything"' /etc/krholder/krholder.toml
as krholder krholder check /etc/krholder/krholder.toml >/dev/null
install -d -o krholder -g krholder /run/krholder
install -d -o www-data www
setpriv --reuid krholder --regid krholder --init-groups krholder /etc/krholder/krholder.toml 2>log &
holder=$!
for _ in $(seq 600); do
  [ ! -S /run/krholder/socket ] || break
  sleep 0.05
done
as www-data krref make www www/www.ref || fail "$(cat log)"
as www-data krref check www/www.ref >/dev/null || fail "$(cat log)"
cp /etc/ssl/openssl.cnf system.cnf
echo '.include /etc/ssl/krprovider.cnf' >>system.cnf
for configuration in /etc/ssl/krprovider.cnf "$work/system.cnf"; do
  as www-data env OPENSSL_CONF="$configuration" openssl dgst -sha256 -sign www/www.ref -out www/signature packages/*dev*.deb
  openssl dgst -sha256 -verify public.pem -signature www/signature packages/*dev*.deb >/dev/null || fail "$configuration"
done
kill "$holder" && wait "$holder" || fail "the holder did not end well"
holder=

rm -r /etc/krholder/www.pem /run/krholder
purge || fail "purge: $(cat purge)"
[ -z "$(left)" ] || fail "left after the purge: $(left)"
