#!/usr/bin/env bash
# Where a machine has no network, rights or packages, the scripts name the cause in one sentence; scripts/openssl.sh
# says which OpenSSL it took. apt-get and sudo are played here.
# usage: scripts_test.sh SOURCE_DIR
set -euo pipefail
source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
. "$source/tests/install/lib.sh"
mkdir -p "$work"/{bin,checkout/.deps/openssl-1.1}
printf '#!/bin/sh\n[ "$1" != --print-uris ] || exec echo "$APT_HAS"\necho "$APT_SAYS" >&2\nexit 100\n' >"$work/bin/apt-get"
printf '#!/bin/sh\nexec "$@"\n' >"$work/bin/sudo"
chmod +x "$work"/bin/*
cp -r "$source/scripts" "$work/checkout"
export PATH=$work/bin:$PATH TMPDIR=$work APT_SAYS APT_HAS

while IFS='|' read -r APT_SAYS cause; do
  ! (. "$work/checkout/scripts/common.sh" && ensure_packages kr-none) 2>"$work/out" || fail "success without apt-get"
  grep -q "^error: kr-none could not be installed: $cause" "$work/out" || fail "'$APT_SAYS' is told as: $(cat "$work/out")"
  [ "$(wc -l <"$work/out")" -eq 2 ] || fail "more than a sentence: $(cat "$work/out")"
done <<'END'
W: Failed to fetch x  Temporary failure resolving 'x'|there is no network
E: Unable to locate package kr-none|the archives .* have no such packages
E: Could not open lock file - open (13: Permission denied)|this user lacks the rights
sudo: a terminal is required to read the password|this user may not become root
E: dpkg was interrupted|dpkg was interrupted
END

while IFS='|' read -r version warning; do
  echo "$version" >"$work/checkout/.deps/openssl-1.1/VERSION"
  env -u OPENSSL_ROOT_DIR "$work/checkout/scripts/openssl.sh" 2>"$work/out"
  grep -q "OpenSSL $version " "$work/out" || fail "does not say that it has $version"
  [ "$(grep -c 'not the newest.*own' "$work/out")" -eq "$warning" ] || fail "$version: $(cat "$work/out")"
done <<'END'
1.1.1w-0+deb11u1|1
1.1.1w-0+deb11u8|0
END

# The machine's archives are known where apt has no package lists.
rm -r "$work/checkout/.deps"
APT_SAYS="Temporary failure resolving 'x'"
while IFS='|' read -r suite error; do
  APT_HAS="'http://x/dists/$suite/InRelease' x 0"
  ! env -u OPENSSL_ROOT_DIR "$work/checkout/scripts/openssl.sh" 2>"$work/out" || fail "success without an archive"
  grep -q "^error: $error" "$work/out" || fail "$suite: $(cat "$work/out")"
done <<'END'
stable|.* could not be downloaded: there is no network
another|no Debian archive is set up
END
