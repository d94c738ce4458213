#!/usr/bin/env bash
# Draws docs/diagrams/*.svg from the *.puml beside them, each with the checksum of its source, which the tests compare.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

cd "$root/docs/diagrams"
ensure_packages plantuml fonts-dejavu-core
for source in *.puml; do
  svg=${source%.puml}.svg
  # A white rectangle behind it, since a page may be dark.
  plantuml -tsvg -nometadata -pipe <"$source" | sed 's,<defs/>,&<rect width="100%" height="100%" fill="white"/>,' >"$svg" ||
    die "$source could not be drawn"
  printf '<!-- %s -->\n' "$(cat style.iuml "$source" | cksum)" >>"$svg"
done
