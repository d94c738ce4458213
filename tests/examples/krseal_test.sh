#!/usr/bin/env bash
# krseal's digests and MACs are OpenSSL's, what it seals opens again, and what was changed does not.
# usage: krseal_test.sh PROGRAM OPENSSL_PREFIX [EMULATOR]
set -euo pipefail
krseal=(${3:+"$3"} "$1")
openssl() { LD_LIBRARY_PATH="$prefix/lib" "$prefix/bin/openssl" "$@"; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$2
cd "$work"
fail() { echo "FAILED: $*" >&2; exit 1; }
krseal() { "${krseal[@]}" "$@" | tr -d '\r'; }
refuses() { ! "${krseal[@]}" "$@" >said 2>&1 || fail "takes: $*"; }

printf 'what do ya want for nothing?' >short # RFC 4231, 4.3
echo 4a656665 >jefe
: >empty
head -c 20000000 /dev/zero >long
[ "$(krseal mac jefe short)" = 5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843 ] || fail "RFC 4231"
for file in short empty long; do
  for name in MD5 SHA-1 SHA-224 SHA-256 SHA-384 SHA-512; do
    [ "$(krseal digest $name $file)" = "$(openssl dgst -r -"${name/-/}" $file | cut -d' ' -f1)" ] || fail "$name $file"
  done
  mac=$(openssl dgst -r -sha256 -hmac Jefe $file | cut -d' ' -f1)
  [ "$(krseal mac jefe $file)" = "$mac" ] || fail "the MAC of $file"
  [ "$(krseal verify jefe $file "$mac")" = good ] || fail "does not verify $file"
  refuses verify jefe $file "${mac%?}$([ "${mac: -1}" = 0 ] && echo 1 || echo 0)"
  refuses verify jefe $file "${mac:2}"
done

krseal key keys
refuses key keys # is there already
for file in short empty long; do
  krseal seal keys $file $file.sealed Alice
  krseal open keys $file.sealed $file.opened Alice
  cmp $file $file.opened
done
refuses open keys short.sealed none Bob
refuses open keys short none Alice
krseal key others
refuses open others short.sealed none Alice
[ ! -e none ] || fail "writes what it did not verify"
refuses digest SHA-256 . # a folder
for keys in short jefe missing; do # no digits, too few, no file
  refuses seal $keys long none
  grep -q "$keys: " said || fail "does not name $keys"
done
for line in "digest SHA-256" "digest MD4 short"; do
  status=0
  "${krseal[@]}" $line >said 2>&1 || status=$?
  [ $status -eq 2 ] || fail "status $status for $line"
done
[ -z "${3-}" ] || exit 0
# What only the system itself shows.
(umask 0; "$1" key mine; "$1" open keys short.sealed text Alice)
[ "$(stat -c %a mine text | sort -u)" = 600 ] || fail "others may read secrets"
! "$1" digest SHA-256 short >/dev/full 2>said || fail "an answer that nobody saw"
script -qec "'$1' digest SHA-256 long" /dev/null </dev/null >said
grep -q '100 %' said || fail "no progress on a terminal"
[ -z "$("$1" digest SHA-256 long 2>&1 >/dev/null)" ] || fail "progress where nobody looks"
