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
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    die "installing packages needs root or sudo"
  fi
}

package_installed() {
  [ "$(dpkg-query -W -f '${Status}' "$1" 2>/dev/null)" = "install ok installed" ]
}

# Installs the named Debian packages that are missing; asks the package lists only then.
ensure_packages() {
  local package missing=()
  command -v apt-get >/dev/null || die "this script installs Debian packages and found no apt-get"
  for package in "$@"; do
    package_installed "$package" || missing+=("$package")
  done
  [ "${#missing[@]}" -eq 0 ] && return
  say "installing ${missing[*]}"
  as_root apt-get -qq update || die "the machine's package lists could not be read"
  as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get -qq install --no-install-recommends -y "${missing[@]}" >&2 ||
    die "these packages could not be installed: ${missing[*]}"
}

# build PRESET [CONFIGURE_OPTION...] [-- TARGET...]: configures and builds, quietly unless it fails.
build() {
  local preset=$1 log="$root/build/$1.log" options=()
  shift
  while [ $# -gt 0 ] && [ "$1" != -- ]; do
    options+=("$1")
    shift
  done
  [ $# -eq 0 ] || shift
  mkdir -p "$root/build"
  { cmake --preset "$preset" "${options[@]}" && cmake --build --preset "$preset" ${1:+--target "$@"}; } >"$log" 2>&1 || {
    tail -n 60 "$log" >&2
    die "the $preset build failed (build/$preset.log)"
  }
}
