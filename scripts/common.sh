# Shared by the scripts of this folder: one clear sentence on failure, Debian packages by name.
# Sourced, never run.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
deps="$root/.deps"

say() { printf '==> %s\n' "$*" >&2; }
die() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

# Runs a command as root, through sudo where we are not root already.
as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  else
    sudo "$@"
  fi
}

package_installed() {
  [ "$(dpkg-query -W -f '${Status}' "$1" 2>/dev/null)" = "install ok installed" ]
}

# Says why apt, debootstrap or npm failed, from what it wrote to the file.
cause_of() {
  if grep -Eqi 'not in the sudoers|password is required|terminal is required|not allowed to|incorrect password' "$1"; then
    echo "this user may not become root with sudo"
  elif grep -Eqi 'are you root|permission denied|read-only file system' "$1"; then
    echo "this user lacks the rights to"
  elif grep -Eqi 'resolving|could not connect|unable to connect|unreachable|timed out|failed getting release file|ENOTFOUND|EAI_AGAIN|ECONN|ETIMEDOUT' "$1"; then
    echo "there is no network, or no way to the archives"
  elif grep -Eqi 'no space left' "$1"; then
    echo "the disk is full"
  elif grep -Eqi ' 404 |does not have a release file|unable to locate|no installation candidate' "$1"; then
    echo "the archives that this machine's apt uses have no such packages"
  else
    sed -n 's/^E: //p; s/^npm ERR! //p' "$1" | head -n 1
  fi
}

# Installs the named Debian packages that are missing; asks the package lists only then.
ensure_packages() {
  local package log missing=()
  command -v apt-get >/dev/null || die "this script installs Debian packages and found no apt-get"
  for package in "$@"; do
    package_installed "$package" || missing+=("$package")
  done
  [ "${#missing[@]}" -eq 0 ] && return
  [ "$(id -u)" -eq 0 ] || command -v sudo >/dev/null || die "installing ${missing[*]} needs root or sudo"
  say "installing ${missing[*]}"
  log=$(mktemp)
  as_root env LC_ALL=C apt-get -qq update >"$log" 2>&1 || true # what cannot be read may not be needed
  as_root env LC_ALL=C DEBIAN_FRONTEND=noninteractive \
    apt-get -qq install --no-install-recommends -y "${missing[@]}" >>"$log" 2>&1 ||
    die "${missing[*]} could not be installed: $(cause_of "$log") (apt's own words are in $log)"
  rm "$log"
}

# The same for packages of servers, which are not started thereby, whatever the machine's own policy is.
ensure_servers() (
  policy=/usr/sbin/policy-rc.d
  for package in "$@"; do
    package_installed "$package" || missing=yes
  done
  [ -n "${missing:-}" ] || exit 0
  as_root sh -c "[ ! -e $policy ] || mv $policy $policy.kept
    printf '#!/bin/sh\nexit 101\n' >$policy && chmod 755 $policy"
  trap 'as_root sh -c "rm $policy; [ ! -e $policy.kept ] || mv $policy.kept $policy"' EXIT
  ensure_packages "$@"
)

# build PRESET [CONFIGURE_OPTION...] [-- TARGET...]: configures and builds, quietly unless it fails.
build() {
  local preset=$1 log="$root/build/$1.log" options=()
  shift
  while [ $# -gt 0 ] && [ "$1" != -- ]; do
    options+=("$1")
    shift
  done
  [ $# -eq 0 ] || shift
  mkdir -p "$root/build" 2>/dev/null || die "this user may not write to $root"
  { cmake --preset "$preset" "${options[@]}" && cmake --build --preset "$preset" ${1:+--target "$@"}; } >"$log" 2>&1 || {
    tail -n 60 "$log" >&2
    die "the $preset build failed (build/$preset.log)"
  }
}
