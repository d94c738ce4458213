#!/usr/bin/env bash
# Builds the reference of the public headers, together with the guides, into build/docs/html. It fails on any warning
# of Doxygen's, and a public name without documentation is one.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

cd "$root"
ensure_packages doxygen
version=$(sed -n 's/^project(.*VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
[ -n "$version" ] || die "CMakeLists.txt names no version"
mkdir -p build/docs
{
  cat docs/Doxyfile
  printf '%s = %s\n' PROJECT_NUMBER "$version" OUTPUT_DIRECTORY build/docs
} | doxygen - >&2 || die "Doxygen complains of the above"
for folder in diagrams benchmarks; do
  mkdir -p "build/docs/html/$folder"
  cp "docs/$folder"/*.svg "build/docs/html/$folder"
done
say "the pages begin with build/docs/html/index.html"
