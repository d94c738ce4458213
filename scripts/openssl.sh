#!/usr/bin/env bash
# Unpacks OpenSSL 1.1.1 from Debian 11's packages into .deps/openssl-1.1 (include, lib, bin).
#
# Debian 12 ships OpenSSL 3. Debian 11's packages have 1.1.1 with the fixes of its long-term support, which ended in
# August 2026; later ones come with paid support only. The packages come from the archives this machine's own apt is
# set up with, are checked against Debian's keyring, and are unpacked, never installed. Set OPENSSL_ROOT_DIR to use an
# OpenSSL 1.1.1 of your own.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

target="$deps/openssl-1.1"
packages=(libssl1.1 libssl-dev openssl)
newest=1.1.1w-0+deb11u8 # that Debian 11 got
keyring=/usr/share/keyrings/debian-archive-keyring.gpg
own="set OPENSSL_ROOT_DIR to an OpenSSL 1.1.1 of your own"

# Prints Debian 11's suites in the archives that this machine's apt is set up with, whether it has their lists or not.
# One of another maker may be among them: apt believes only what Debian signed.
sources() {
  local codename deb="deb [signed-by=$keyring]"
  codename=$(. /etc/os-release && printf '%s' "$VERSION_CODENAME")
  apt-get --print-uris update | sed -nE "
    s,^'(.*/)dists/($codename|stable|oldstable)/InRelease'.*,$deb \\1 bullseye main,p
    s,^'(.*/)dists/[a-z]+-security/InRelease'.*,$deb \\1 bullseye-security main,p"
}

download() {
  local work=$1 options
  mkdir -p "$work"/{lists/partial,cache/archives/partial,debs}
  : >"$work/status"
  sources >"$work/sources.list"
  [ -s "$work/sources.list" ] || die "no Debian archive is set up in this machine's apt sources: $own"
  options=(
    -o "Dir::Etc::sourcelist=$work/sources.list" -o Dir::Etc::sourceparts=/dev/null
    -o "Dir::State::lists=$work/lists" -o "Dir::Cache=$work/cache"
    # With the real status file apt would insist on the installed version of each package.
    -o "Dir::State::status=$work/status"
    -o APT::Sandbox::User=
  )
  # One of the suites is enough, so it is the download that has to succeed.
  LC_ALL=C apt-get -qq "${options[@]}" update >"$work/log" 2>&1 || true
  (cd "$work/debs" && LC_ALL=C apt-get -qq "${options[@]}" download "${packages[@]}") >>"$work/log" 2>&1 ||
    die "Debian 11's OpenSSL 1.1.1 could not be downloaded: $(cause_of "$work/log"); $own"
}

# Lays the unpacked packages out as an ordinary OpenSSL prefix.
lay_out() {
  local tree=$1 prefix=$2
  mkdir -p "$prefix"
  cp -a "$tree/usr/include" "$prefix/include"
  cp -a "$tree"/usr/include/*-linux-gnu*/openssl/. "$prefix/include/openssl/"
  rm -r "$prefix"/include/*-linux-gnu*
  cp -a "$tree"/usr/lib/*-linux-gnu* "$prefix/lib"
  sed -i -E "s,^(prefix|exec_prefix)=.*,\1=\${pcfiledir}/../..,; s,^libdir=.*,libdir=\${prefix}/lib," "$prefix"/lib/pkgconfig/*.pc
  cp -a "$tree/usr/bin" "$prefix/bin"
  install -D -m 644 "$tree/usr/share/doc/libssl1.1/copyright" "$prefix/share/doc/openssl/copyright"
}

# Says which version lies in .deps, and when later fixes are missing.
report() {
  local version
  version=$(cat "$target/VERSION")
  say "OpenSSL $version of Debian 11 is in .deps/openssl-1.1"
  if dpkg --compare-versions "$version" lt "$newest"; then
    say "warning: it is not the newest, $newest, and lacks its security fixes: give this machine's apt sources Debian's" \
      "security suite, remove .deps/openssl-1.1 and run scripts/openssl.sh again; or $own"
  fi
}

if [ -n "${OPENSSL_ROOT_DIR:-}" ]; then
  say "using the OpenSSL in $OPENSSL_ROOT_DIR (OPENSSL_ROOT_DIR)"
  exit 0
fi
if [ -e "$target/VERSION" ]; then
  report
  exit 0
fi
ensure_packages debian-archive-keyring ca-certificates
say "unpacking OpenSSL 1.1.1 into .deps/openssl-1.1"
mkdir -p "$deps" 2>/dev/null && work=$(mktemp -d "$deps/openssl.XXXXXX" 2>/dev/null) ||
  die "this user may not write to $deps"
trap 'rm -rf "$work"' EXIT
download "$work"
for package in "$work"/debs/*.deb; do
  dpkg -x "$package" "$work/tree"
done
lay_out "$work/tree" "$work/prefix"
dpkg-deb -f "$work"/debs/libssl1.1_*.deb Version >"$work/prefix/VERSION"
rm -rf "$target" # of an earlier layout
mv "$work/prefix" "$target"
report
