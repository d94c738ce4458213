#!/usr/bin/env bash
# The DLL exports exactly the names in exports.txt, imports from OpenSSL 1.1 and the system only, and protects its stack.
# An import library for Visual C++, made of the .def as docs/windows.md says, has these names for this DLL.
# usage: dll_test.sh DLL DEF
set -euo pipefail
here=$(dirname "${BASH_SOURCE[0]}")
table=$(x86_64-w64-mingw32-objdump -p "$1")

# A 64-bit number is an unsigned long long here: y where the list has m.
expected=$(sed -E '/errStr|evp_md_st/!{/^_Z/{:again;s/m([^E]*)$/y\1/;t again}}' "$here/exports.txt" | LC_ALL=C sort)
exported=$(sed -n '/Ordinal\/Name Pointer/,$s/^\t\[ *[0-9]*\] //p' <<<"$table" | LC_ALL=C sort)
diff <(echo "$expected") <(echo "$exported") || {
  echo "the exported names (right) are not those of exports.txt (left)" >&2
  exit 1
}

imported=$(sed -n 's/^\tDLL Name: //p' <<<"$table" | LC_ALL=C sort | tr '\n' ' ')
[ "$imported" = "ADVAPI32.dll KERNEL32.dll SHELL32.dll libcrypto-1_1-x64.dll libssl-1_1-x64.dll msvcrt.dll ole32.dll " ] || {
  echo "the library imports from $imported" >&2
  exit 1
}
x86_64-w64-mingw32-nm "$1" | grep ' T __stack_chk_fail$' >/dev/null || {
  echo "the library does not protect its stack" >&2
  exit 1
}

library=$(mktemp)
trap 'rm "$library"' EXIT
llvm-lib-19 /machine:x64 "/def:$2" "/out:$library"
diff <(sed "s/^/$(basename "$1") name /" <<<"$exported") <(llvm-readobj-19 "$library" |
  awk '/^File: /{dll = $2} /^Name type: /{by = $3} /^Export name: /{print dll, by, $3}' | LC_ALL=C sort) || {
  echo "the import library (right) is for others than the DLL's names (left)" >&2
  exit 1
}
