# Shared by the tests of this folder; sourced with $source set to the source tree.

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

code_of() { sed -n '/^```cpp$/,/^```$/{/^```/!p}' "$1"; }

# Lays the outside program out in a folder: its key delegation is the README's example, taken from there, and so are
# the examples of docs/classes.md and docs/porting.md.
lay_out_consumer() {
  cp -r "$source/tests/install/consumer" "$1"
  code_of "$source/README.md" >"$1/delegate.cpp"
  code_of "$source/docs/classes.md" >"$1/classes.cpp"
  code_of "$source/docs/porting.md" >"$1/porting.cpp"
  [ "$(grep -c . "$1/delegate.cpp")" -le 12 ] || { echo "the README's example has grown" >&2; exit 1; }
}
