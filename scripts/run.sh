#!/usr/bin/env bash
# Installs what is missing, builds, and runs Zorvane with the given arguments.
# Without arguments it lists the agent tools found on this machine, the most useful
# mode that needs no display until the desktop application lands.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" >/dev/null
build=${ZORVANE_BUILD_DIR:-$root/build}
if [ $# -eq 0 ]; then
  echo "zorvane: no desktop application mode yet; listing agent tools (--discover)" >&2
  set -- --discover
fi
exec "$build/zorvane" "$@"
