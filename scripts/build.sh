#!/usr/bin/env bash
# Configures (once) and builds Zorvane with Ninja into build/ (or $ZORVANE_BUILD_DIR).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZORVANE_BUILD_DIR:-$root/build}
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE="${ZORVANE_BUILD_TYPE:-RelWithDebInfo}" "${launcher[@]}"
fi
cmake --build "$build" -- -j"${ZORVANE_JOBS:-$(nproc)}"
