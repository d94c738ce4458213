#!/usr/bin/env bash
# Runs a Windows program under Wine, in a Wine prefix of this checkout, and ends with its exit status.
# usage: wine.sh PROGRAM [ARGUMENT...]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export WINEPREFIX="${WINEPREFIX:-$root/build/wine}" WINEDEBUG="${WINEDEBUG:--all}"
mkdir -p "$(dirname "$WINEPREFIX")"
# Who reads the output expects the line ends of this system.
wine "$@" | sed -u 's/\r$//'
