#!/usr/bin/env bash
# Runs a Windows program under Wine, in a Wine prefix of this checkout, and ends with its exit status.
# usage: wine.sh PROGRAM [ARGUMENT...]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export WINEPREFIX="${WINEPREFIX:-$root/build/wine}" WINEDEBUG="${WINEDEBUG:--all}"
mkdir -p "$(dirname "$WINEPREFIX")"
# The first program of a session starts Wine's services, which would hold its output open after its end: so
# the first is one without output. The session outlives the last program by a minute.
{ wineserver -p60 && wine cmd /c rem; } </dev/null >/dev/null 2>&1 || true
exec wine "$@"
