#!/usr/bin/env bash
# A newcomer's day: makes bare Debian 12 systems in a temporary folder and follows the guides in them, to the letter:
# README.md to the demo, and docs/building.md to a linked program and on, to a server whose key is on a token. Takes what
# is committed. For root, on a machine whose apt knows an archive of Debian 12; some ten minutes.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# Prints the Debian archives that this machine's apt is set up with, as apt sources. It takes package lists to know them.
archives() {
  apt-get indextargets --format 'deb $(REPO_URI) $(CODENAME) main' 'Created-By: Packages' 'Origin: Debian' | sort -u
}

make_system() {
  local system=$1 log=$1.log sources mirror cause
  : >"$log"
  [ -n "$(archives)" ] || LC_ALL=C apt-get -qq update >"$log" 2>&1 || true # what cannot be read may not be needed
  sources=$(archives)
  mirror=$(awk '$3 == "bookworm" && !found++ { print $2 }' <<<"$sources")
  cause=$(cause_of "$log")
  [ -n "$mirror" ] || die "this machine's apt knows no archive of Debian 12${cause:+: $cause}"
  LC_ALL=C debootstrap --variant=minbase bookworm "$system" "$mirror" >"$log" 2>&1 ||
    die "no bare system can be made from $mirror: $(cause_of "$log")"
  echo "$sources" >"$system/etc/apt/sources.list"
  {
    apt-config dump | grep -i '^Acquire::https*::proxy' || true
    echo 'APT::Get::Assume-Yes "true";' # as a person would answer
  } >"$system/etc/apt/apt.conf.d/bare"
  mkdir "$system/root/krOpenSSL"
  git -C "$root" -c safe.directory="$root" archive HEAD | tar -x -C "$system/root/krOpenSSL"
}

# follow SYSTEM PAGE...: runs the pages' commands in a copy of the system.
follow() {
  local system=$1 copy=$1.copy page commands=
  shift
  cp -a "$system" "$copy"
  mount -t proc proc "$copy/proc"
  for page in "$@"; do
    commands+="echo '==> $page' >&2; cd /root/krOpenSSL"$'\n'$(python3 -B tests/docs/guides.py script . "$page" run serve bare)$'\n'
  done
  env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    "http_proxy=${http_proxy:-}" "https_proxy=${https_proxy:-}" \
    chroot "$copy" bash -euo pipefail -c "apt-get -qq update"$'\n'"$commands" || die "this cannot be followed: $*"
  umount "$copy/proc"
  rm -rf --one-file-system "$copy"
}

if [ "${1:-}" = --inside ]; then
  cd "$root"
  say "making a bare Debian 12"
  make_system "$2/system"
  say "following README.md"
  follow "$2/system" README.md
  say "following docs/building.md and what builds on it"
  follow "$2/system" docs/building.md docs/log.md docs/delegation.md docs/pkcs11.md
  say "the guides can be followed ($SECONDS s)"
  exit
fi

[ "$(id -u)" -eq 0 ] || die "scripts/bare.sh makes a system in a folder, which needs root"
ensure_packages debootstrap python3 git procps
own_namespaces=(unshare --mount --pid --fork --kill-child --mount-proc)
"${own_namespaces[@]}" true 2>/dev/null || die "scripts/bare.sh needs namespaces of its own, which this machine refuses"
work=$(mktemp -d /var/tmp/bare.XXXXXX)
inside=
# The processes and mounts in the namespaces go with the first process there, and that goes when this script is killed.
clean_up() {
  [ -z "$inside" ] || pkill -KILL --parent "$inside" || true
  wait
  rm -rf --one-file-system "$work"
}
trap clean_up EXIT
setpriv --pdeathsig KILL "${own_namespaces[@]}" "$root/scripts/bare.sh" --inside "$work" &
inside=$!
wait "$inside"
