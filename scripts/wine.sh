#!/usr/bin/env bash
# Runs a Windows program under Wine, in a Wine prefix of this checkout, and ends with its exit status.
# usage: wine.sh PROGRAM [ARGUMENT...]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export WINEPREFIX="${WINEPREFIX:-$root/build/wine}" WINEDEBUG="${WINEDEBUG:--all}"
mkdir -p "$WINEPREFIX"
# The first program of a session starts Wine's services, which would hold its output open after its end: so
# the first is one without output. The session outlives the last program by a minute, and each one says that there is one.
session=$WINEPREFIX/session
if [ -z "$(find "$session" -newermt '-50 seconds' 2>/dev/null)" ]; then
  { wineserver -p60 && wine cmd /c rem; } </dev/null >/dev/null 2>&1 || true
fi
touch "$session"
exec wine "$@"
