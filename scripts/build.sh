#!/usr/bin/env bash
# Configures (once) and builds Zorvane with Ninja into build/ (or $ZORVANE_BUILD_DIR).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZORVANE_BUILD_DIR:-$root/build}
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
  # Clones in other folders (CI's fresh one) share the cache: paths are hashed
  # relative to the repository, not with the absolute folder.
  export CCACHE_BASEDIR="$root" CCACHE_NOHASHDIR=1
fi
if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE="${ZORVANE_BUILD_TYPE:-RelWithDebInfo}" "${launcher[@]}"
fi
cmake --build "$build" -- -j"${ZORVANE_JOBS:-$(nproc)}"
