# Shared by the tests of this folder; sourced with $source set to the source tree.

code_of() { sed -n '/^```cpp$/,/^```$/{/^```/!p}' "$1"; }

# Lays the outside program out in a folder: its key delegation is the README's example, taken from there, and so are
# the examples of docs/classes.md.
lay_out_consumer() {
  cp -r "$source/tests/install/consumer" "$1"
  code_of "$source/README.md" >"$1/delegate.cpp"
  {
    printf '#include <krOpenSSL/krOpenSSL.h>\n#include <openssl/crypto.h>\n#include <cstring>\n'
    code_of "$source/docs/classes.md"
  } >"$1/classes.cpp"
  [ "$(grep -c . "$1/delegate.cpp")" -le 12 ] || { echo "the README's example has grown" >&2; exit 1; }
}
