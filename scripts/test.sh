#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test through CTest.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh"
build=${ZORVANE_BUILD_DIR:-$root/build}
cd "$build"
ctest --output-on-failure -j"$(nproc)" --timeout 300
