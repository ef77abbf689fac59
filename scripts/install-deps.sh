#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, and only those that are
# missing, so a second run on a ready machine takes well under a second.
set -euo pipefail

packages=(
  build-essential cmake ninja-build ccache pkg-config git
  nlohmann-json3-dev libcurl4-openssl-dev uuid-dev libhowardhinnant-date-dev tzdata
  libgtest-dev libgmock-dev libbenchmark-dev
  python3
  # The desktop layer: X11, XTest, XInput2, Composite, XRes, XFixes, AT-SPI (brings
  # GLib and D-Bus), JPEG and PNG.
  libx11-dev libxcb1-dev libxtst-dev libxi-dev libxcomposite-dev libxres-dev libxfixes-dev
  libatspi2.0-dev libglib2.0-dev libturbojpeg0-dev libpng-dev
  # The views and the GPU ink renderer: Qt 6 with Qt Quick, Mesa's OpenGL.
  qt6-base-dev qt6-declarative-dev libgl-dev libegl-dev libgl1-mesa-dri
  qml6-module-qtquick qml6-module-qtquick-window
  # The cards: Qt Quick Controls on their templates, layouts, the delegate chooser; the
  # QML linter (qmllint) and Qt Quick Test's QML side.
  qml6-module-qtquick-controls qml6-module-qtquick-templates qml6-module-qtquick-layouts
  qml6-module-qtqml qml6-module-qtqml-models qml6-module-qtqml-workerscript
  qml6-module-qt-labs-qmlmodels qt6-declarative-dev-tools qml6-module-qttest
  # The cards' type: DejaVu, with the symbols their small icons are drawn from.
  fonts-dejavu-core
  # The headless desktop the desktop and GL tests run in, and the real applications
  # they drive.
  xvfb xauth xfwm4 xcompmgr dbus dbus-x11 at-spi2-core x11-utils xdotool
  gtk-3-examples chromium thunar xfconf
  # The integration tests capture and compare the screen with Python's imaging module.
  python3-pil
  # PCManFM's desktop icons (GTK 2: its accessibility needs the GTK 2 bridge module).
  pcmanfm libatk-adaptor
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
