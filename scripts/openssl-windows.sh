#!/usr/bin/env bash
# Lays an OpenSSL 1.1.1 for 64-bit Windows out in .deps/openssl-1.1-windows (include, lib, bin).
#
# The two DLLs come out of an npm package that carries them, built with MSVC; import libraries are made
# from what they export. The headers are those of scripts/openssl.sh, with the one setting that differs: a
# Windows `long` has 32 bits. Set OPENSSL_ROOT_DIR to use an OpenSSL 1.1.1 for Windows of your own.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

target="$deps/openssl-1.1-windows"
package=@embedded-postgres/windows-x64@15.0.0-beta.6
sha256='5bf5523794e95ad92aef7862fbf04c6996fe357f4e59a8985919ccb0881efabc  libcrypto-1_1-x64.dll
8788cf7684a80173c6fe38d675b7ccda890ba96f8148b9ca328fcbfe03c0053b  libssl-1_1-x64.dll'

# Unpacks the two DLLs into the folder.
download() {
  local work=$1
  (cd "$work" && npm pack --loglevel=error "$package") >"$work/log" 2>&1 ||
    die "npm could not fetch $package: $(cause_of "$work/log"); set OPENSSL_ROOT_DIR to an OpenSSL 1.1.1 for Windows of your own"
  tar -xzf "$work"/*.tgz -C "$work" --strip-components=3 \
    package/native/bin/libcrypto-1_1-x64.dll package/native/bin/libssl-1_1-x64.dll
  (cd "$work" && sha256sum --check --quiet <<<"$sha256") || die "$package does not hold the DLLs it is known for"
}

lay_out() {
  local work=$1 prefix=$2 dll
  mkdir -p "$prefix"/{bin,lib}
  cp -r "$deps"/openssl-1.1/{include,share} "$prefix"
  sed -i -e 's/^\(# *\)define SIXTY_FOUR_BIT_LONG$/\1undef SIXTY_FOUR_BIT_LONG/' \
    -e 's/^\(# *\)undef SIXTY_FOUR_BIT$/\1define SIXTY_FOUR_BIT/' "$prefix/include/openssl/opensslconf.h"
  for dll in libcrypto libssl; do
    (cd "$work" && gendef "$dll-1_1-x64.dll" 2>/dev/null)
    x86_64-w64-mingw32-dlltool -d "$work/$dll-1_1-x64.def" -l "$prefix/lib/$dll.dll.a"
    install -m 755 "$work/$dll-1_1-x64.dll" "$prefix/bin"
  done
}

if [ -n "${OPENSSL_ROOT_DIR:-}" ] || [ -e "$target/share/doc/openssl/copyright" ]; then
  exit 0
fi
command -v npm >/dev/null || ensure_packages npm
ensure_packages ca-certificates mingw-w64-tools binutils-mingw-w64-x86-64
"$root/scripts/openssl.sh"
say "laying out OpenSSL 1.1.1 for Windows in .deps/openssl-1.1-windows"
work=$(mktemp -d "$deps/windows.XXXXXX")
trap 'rm -rf "$work"' EXIT
download "$work"
lay_out "$work" "$work/prefix"
rm -rf "$target" # of an earlier layout
mv "$work/prefix" "$target"
