#!/usr/bin/env bash
# Runs the file-manager desktop tests (FileManagerDesktop.*) inside a private headless
# desktop whose session bus activates only the accessibility bus, Xfconf, dconf and
# Thunar, so that Thunar, and no other file manager installed here, answers
# FileManager1. (dconf is needed once HOME is a fresh folder: the accessibility bus
# keeps its on/off switch in GSettings, and without dconf the switch can't be read.)
#
#   tests/desktop/file_manager_desktop.sh scripts/headless-desktop.sh zorvane_desktop_tests
#
# HOME and the XDG folders point at a fresh folder, removed at the end, in which Thunar's
# settings choose its details view (the view that shows items to the accessibility bus).
# Exit status: the tests'; 77 (skip) when Thunar or one of the service files is missing.
set -u
[ $# -ge 2 ] || { echo "usage: $0 headless-desktop.sh test-binary [args...]" >&2; exit 2; }
desktop_script=$1
tests=$2
shift 2

system_services=/usr/share/dbus-1/services
wanted="org.a11y.Bus org.xfce.Xfconf ca.desrt.dconf org.xfce.Thunar org.xfce.Thunar.FileManager1"
command -v thunar >/dev/null || { echo "file-manager tests: thunar is not installed; skipping" >&2; exit 77; }
for name in $wanted; do
  [ -f "$system_services/$name.service" ] ||
    { echo "file-manager tests: $system_services/$name.service is missing; skipping" >&2; exit 77; }
done

work=$(mktemp -d "${TMPDIR:-/tmp}/zorvane-filemanager.XXXXXX") || exit 1
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/services" "$work/home/.config/xfce4/xfconf/xfce-perchannel-xml" "$work/home/.local/share" \
  "$work/home/.cache" "$work/home/Desktop"
for name in $wanted; do ln -s "$system_services/$name.service" "$work/services/"; done
cat >"$work/home/.config/xfce4/xfconf/xfce-perchannel-xml/thunar.xml" <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<channel name="thunar" version="1.0">
  <property name="last-view" type="string" value="ThunarDetailsView"/>
  <property name="last-window-width" type="int" value="900"/>
  <property name="last-window-height" type="int" value="600"/>
</channel>
XML

export HOME=$work/home XDG_CONFIG_HOME=$work/home/.config XDG_DATA_HOME=$work/home/.local/share \
  XDG_CACHE_HOME=$work/home/.cache ZORVANE_FILE_MANAGER_DESKTOP=1
"$desktop_script" --services-dir "$work/services" "$tests" --gtest_filter='FileManagerDesktop.*' "$@"
