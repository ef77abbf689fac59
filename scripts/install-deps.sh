#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, and only those that are
# missing, so a second run on a ready machine takes well under a second.
set -euo pipefail

packages=(
  build-essential cmake ninja-build ccache pkg-config git
  nlohmann-json3-dev libcurl4-openssl-dev uuid-dev libhowardhinnant-date-dev tzdata
  libgtest-dev libgmock-dev libbenchmark-dev
  python3
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${db:Status-Status}' "$p" 2>/dev/null || true)
  [ "$status" = "installed" ] || missing+=("$p")
done

[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
