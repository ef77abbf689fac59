#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, and only those that are
# missing: a second run on a ready machine asks dpkg once, prints nothing and takes well
# under a second.
#
# Each step prints one line: what it installs and what for. apt's own output goes to a
# log (${XDG_STATE_HOME:-~/.local/state}/zorvane/install-deps.log, or a file in
# ${TMPDIR:-/tmp} where that can't be written); a step that fails prints its last lines
# and the log's path, and the script exits with the step's status. Works as root (CI)
# and through sudo, and never reads standard input.
set -euo pipefail

# One step per group: what it is for, then its packages.
purposes=()
groups=()
all=()
group() {
  purposes+=("$1")
  shift
  groups+=("$*")
  all+=("$@")
}

group "the build tools" \
  build-essential cmake ninja-build ccache pkg-config git python3
group "the libraries (JSON, HTTP, UUIDs, dates, tests, benchmarks)" \
  nlohmann-json3-dev libcurl4-openssl-dev uuid-dev libhowardhinnant-date-dev tzdata \
  libgtest-dev libgmock-dev libbenchmark-dev
# X11, XTest, XInput2, Composite, XRes, XFixes, AT-SPI (brings GLib and D-Bus), JPEG and
# PNG.
group "the desktop layer (X11, accessibility, JPEG, PNG)" \
  libx11-dev libxcb1-dev libxtst-dev libxi-dev libxcomposite-dev libxres-dev libxfixes-dev \
  libatspi2.0-dev libglib2.0-dev libturbojpeg0-dev libpng-dev
# Qt 6 with Qt Quick, Mesa's OpenGL for the GPU ink renderer.
group "the Qt views and the GPU ink (Qt Quick, OpenGL)" \
  qt6-base-dev qt6-declarative-dev libgl-dev libegl-dev libgl1-mesa-dri \
  qml6-module-qtquick qml6-module-qtquick-window
# Qt Quick Controls on their templates, layouts, the delegate chooser; the QML linter
# (qmllint) and Qt Quick Test's QML side; DejaVu, with the symbols the small icons are
# drawn from.
group "the cards (Qt Quick Controls, QML linter, Qt Quick Test)" \
  qml6-module-qtquick-controls qml6-module-qtquick-templates qml6-module-qtquick-layouts \
  qml6-module-qtqml qml6-module-qtqml-models qml6-module-qtqml-workerscript \
  qml6-module-qt-labs-qmlmodels qt6-declarative-dev-tools qml6-module-qttest \
  fonts-dejavu-core
group "the tests' headless desktop and the apps they drive" \
  xvfb xauth xfwm4 xcompmgr dbus dbus-x11 at-spi2-core x11-utils xdotool \
  gtk-3-examples chromium thunar xfconf
group "imaging, to compare the tests' screenshots" \
  python3-pil
# PCManFM's desktop icons are GTK 2: their accessibility needs the GTK 2 bridge module.
group "PCManFM and its accessibility bridge" \
  pcmanfm libatk-adaptor

# One dpkg call for every package: a call a package took about a second in all.
declare -A installed=()
while read -r name status; do
  if [ "$status" = installed ]; then installed[$name]=1; fi
done < <(dpkg-query -W -f='${Package} ${db:Status-Status}\n' "${all[@]}" 2>/dev/null || true)

missing=()  # per group, the names joined by blanks
absent=()
for i in "${!groups[@]}"; do
  read -ra names <<<"${groups[i]}"
  missing[i]=""
  for p in "${names[@]}"; do
    [ -n "${installed[$p]:-}" ] && continue
    missing[i]+="${missing[i]:+ }$p"
    absent+=("$p")
  done
done
[ ${#absent[@]} -gt 0 ] || exit 0

as_root=(env DEBIAN_FRONTEND=noninteractive)
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null 2>&1; then
    echo "install-deps: installing what is missing needs root or sudo: ${absent[*]}" >&2
    exit 1
  fi
  # sudo asks for a password on the terminal, not on standard input.
  as_root=(sudo "${as_root[@]}")
fi

# Under the state folder when there is one (a missing home is never made, not even by
# root), else in the temporary folder.
log=""
if [ -n "${XDG_STATE_HOME:-}" ] || { [ -n "${HOME:-}" ] && [ -d "$HOME" ]; }; then
  state_dir=${XDG_STATE_HOME:-$HOME/.local/state}/zorvane
  if { mkdir -p "$state_dir" && : >"$state_dir/install-deps.log"; } 2>/dev/null; then
    log=$state_dir/install-deps.log
  fi
fi
[ -n "$log" ] || log=$(mktemp "${TMPDIR:-/tmp}/zorvane-install-deps.XXXXXX")

# At most about 40 characters of the names, then how many more.
some() {
  local text="" count=0 p
  for p; do
    if [ -n "$text" ] && [ $((${#text} + ${#p})) -gt 40 ]; then
      echo "$text and $(($# - count)) more"
      return
    fi
    text+="${text:+ }$p"
    count=$((count + 1))
  done
  echo "$text"
}

# Runs one step: its line on standard output, the command's output into the log; on
# failure the step's last lines and the log's path on standard error, and exits.
step() {
  local line=$1 start status=0
  shift
  echo "$line"
  printf '\n== %s\n$ %s\n' "$line" "$*" >>"$log"
  start=$(wc -l <"$log")
  "$@" </dev/null >>"$log" 2>&1 || status=$?
  [ "$status" -ne 0 ] || return 0
  {
    echo "install-deps: that step failed (exit status $status); its last lines:"
    tail -n +"$((start + 1))" "$log" | tail -n 15 | sed 's/^/  /'
    echo "install-deps: the whole output is in $log"
  } >&2
  exit "$status"
}

apt=(apt-get -q -y -o Dpkg::Use-Pty=0 -o DPkg::Lock::Timeout=120)
step "Updating the package lists" "${as_root[@]}" "${apt[@]}" update
for i in "${!groups[@]}"; do
  [ -n "${missing[i]}" ] || continue
  read -ra names <<<"${missing[i]}"
  step "Installing ${purposes[i]}: $(some "${names[@]}")" \
    "${as_root[@]}" "${apt[@]}" install --no-install-recommends "${names[@]}"
done
echo "Done; apt's output is in $log"
