#!/usr/bin/env bash
# Every relative link of the pages leads to a file and a heading that are there, every file and test that a page names
# is there, on Windows alone where the page says so, and every diagram was drawn from its source as it is now.
# usage: links_test.sh SOURCE_DIR
set -euo pipefail
cd "$1"
failures=0
complain() {
  echo "$*" >&2
  failures=$((failures + 1))
}

text_of() { awk '/^```/ { fenced = !fenced } !fenced && !/^    /' "$1"; }

# The anchors that a page's headings get.
anchors_of() {
  text_of "$1" | sed -n 's/^##* //p' | tr '[:upper:]' '[:lower:]' | sed 's/[^a-z0-9 _-]//g; s/ /-/g'
}

check_link() {
  local page=$1 path=${2%%#*} anchor= target
  [[ $2 != *#* ]] || anchor=${2#*#}
  target=$page
  [ -z "$path" ] || target=$(dirname "$page")/$path
  [ -e "$target" ] || { complain "$page: no $path"; return; }
  [ -z "$anchor" ] || grep -qx -- "$anchor" <(anchors_of "$target") || complain "$page: no heading for $2"
}

while read -r page; do
  while read -r link; do
    check_link "$page" "$link"
  done < <(text_of "$page" | grep -oP '\]\(\K[^)]+' | grep -v '^https*:')
  while read -r file; do
    [ -e "$file" ] || [ -e "include/$file" ] || complain "$page: names $file, which is not there"
  done < <(text_of "$page" | grep -oP '`\K(bench|cmake|docs|examples|fuzz|include|krOpenSSL|scripts|tests)/[\w./-]+(?=[`])')
done < <(find . -name '*.md' -not -path './.*' -not -path './build/*' | sort)

for svg in docs/diagrams/*.svg; do
  source=${svg%.svg}.puml
  [ -e "$source" ] || { complain "$svg has no source"; continue; }
  sum=$(cat docs/diagrams/style.iuml "$source" | cksum)
  [ "$(tail -n 1 "$svg" | sed 's/.*<!-- //')" = "$sum -->" ] || complain "$svg is not of its source: run scripts/diagrams.sh"
done

while IFS='. ' read -r suite name mark; do
  files=$(grep -rlE "^TEST(_[FP])?\($suite, $name\)" tests) || complain "SECURITY.md: no test $suite.$name"
  only=
  grep -qv /windows/ <<<"$files" || only='(Windows)'
  [ "$mark" = "$only" ] || complain "SECURITY.md: where does $suite.$name exist?"
done < <(grep -oP '`\K[A-Z]\w+\.[A-Z]\w+`( \(Windows\))?' SECURITY.md | tr -d '`')
while read -r target; do
  [ -e "fuzz/$target.cpp" ] || complain "no fuzz target $target"
done < <(grep -ohP 'fuzz `[a-z]+`( and `[a-z]+`)?|^\| `[a-z]+` \|' SECURITY.md fuzz/README.md | grep -oP '`\K[a-z]+')
[ "$failures" -eq 0 ]
