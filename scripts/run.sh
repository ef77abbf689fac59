#!/usr/bin/env bash
# Installs what is missing, builds, and runs Zorvane: without arguments the desktop
# application on this X11 session; with arguments the executable with them (--discover,
# --selftest <folder>, ...).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" >/dev/null
build=${ZORVANE_BUILD_DIR:-$root/build}
if [ $# -eq 0 ] && [ -z "${DISPLAY:-}" ]; then
  echo "zorvane: no X display to show Zorvane on (DISPLAY is not set); start it from an X11 session" >&2
  exit 1
fi
exec "$build/zorvane" "$@"
