#!/usr/bin/env bash
# Unpacks OpenSSL 1.1.1 from Debian 11's packages into .deps/openssl-1.1 (include, lib, bin).
#
# Debian 12 ships OpenSSL 3; Debian 11 still serves 1.1.1 with security fixes. The packages come
# from the archives this machine's own apt is set up with, are checked against Debian's keyring, and
# are unpacked, never installed. Set OPENSSL_ROOT_DIR to use an OpenSSL 1.1.1 of your own.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

target="$deps/openssl-1.1"
packages=(libssl1.1 libssl-dev openssl)
keyring=/usr/share/keyrings/debian-archive-keyring.gpg

# Prints the URI of the first archive that this machine's apt uses for a suite matching $1.
archive_uri() {
  apt-get indextargets --format '$(RELEASE) $(REPO_URI)' 'Created-By: Packages' |
    awk -v suite="$1" '$1 ~ suite { print $2; exit }'
}

write_sources() {
  local codename main security
  codename=$(. /etc/os-release && printf '%s' "$VERSION_CODENAME")
  main=$(archive_uri "^($codename|stable|oldstable)\$")
  security=$(archive_uri '-security$')
  [ -n "$main" ] || die "no Debian archive is set up in this machine's apt sources"
  echo "deb [signed-by=$keyring] $main bullseye main"
  if [ -n "$security" ]; then
    echo "deb [signed-by=$keyring] $security bullseye-security main"
  fi
}

download() {
  local work=$1 options
  mkdir -p "$work"/{lists/partial,cache/archives/partial,debs}
  : >"$work/status"
  write_sources >"$work/sources.list"
  options=(
    -o "Dir::Etc::sourcelist=$work/sources.list" -o Dir::Etc::sourceparts=/dev/null
    -o "Dir::State::lists=$work/lists" -o "Dir::Cache=$work/cache"
    # With the real status file apt would insist on the installed version of each package.
    -o "Dir::State::status=$work/status"
    -o APT::Sandbox::User=
  )
  apt-get -qq "${options[@]}" update || die "Debian 11's package lists could not be read"
  (cd "$work/debs" && apt-get -qq "${options[@]}" download "${packages[@]}") ||
    die "OpenSSL 1.1.1 could not be downloaded from Debian 11's packages"
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
}

if [ -n "${OPENSSL_ROOT_DIR:-}" ] || [ -e "$target/include/openssl/opensslv.h" ]; then
  exit 0
fi
ensure_packages debian-archive-keyring ca-certificates
say "unpacking OpenSSL 1.1.1 into .deps/openssl-1.1"
mkdir -p "$deps"
work=$(mktemp -d "$deps/openssl.XXXXXX")
trap 'rm -rf "$work"' EXIT
download "$work"
for package in "$work"/debs/*.deb; do
  dpkg -x "$package" "$work/tree"
done
lay_out "$work/tree" "$work/prefix"
mv "$work/prefix" "$target"
