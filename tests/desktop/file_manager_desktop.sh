#!/usr/bin/env bash
# Runs one group of the file-manager desktop tests inside a private headless desktop
# whose session bus activates only the services that group needs, so that the file
# manager under test, and no other one installed here, answers FileManager1.
#
#   tests/desktop/file_manager_desktop.sh MODE scripts/headless-desktop.sh zorvane_desktop_tests
#
# MODE         bus services (besides org.a11y.Bus and dconf)       tests
#   thunar     Xfconf, Thunar, Thunar's FileManager1                FileManagerDesktop.*
#   pcmanfm    none (PCManFM has no D-Bus service)                  PcmanfmDesktop.*
#   none       none: no file manager at all                         FileManagerBusFaults.*
# (dconf is needed once HOME is a fresh folder: the accessibility bus keeps its on/off
# switch in GSettings, and without dconf the switch can't be read.)
#
# HOME and the XDG folders point at a fresh folder, removed at the end, whose desktop
# folder (~/Desktop) holds a few files, and in which Thunar's settings choose its details
# view (the view that shows items to the accessibility bus). Tests read the mode from
# ZORVANE_FILE_MANAGER_DESKTOP.
# Exit status: the tests'; 77 (skip) when the file manager or a service file is missing.
set -u
[ $# -ge 3 ] || { echo "usage: $0 thunar|pcmanfm|none headless-desktop.sh test-binary [args...]" >&2; exit 2; }
mode=$1
desktop_script=$2
tests=$3
shift 3

skip() {
  echo "file-manager tests ($mode): $1; skipping" >&2
  exit 77
}

system_services=/usr/share/dbus-1/services
wanted="org.a11y.Bus ca.desrt.dconf"
case "$mode" in
  thunar)
    command -v thunar >/dev/null || skip "thunar is not installed"
    wanted="$wanted org.xfce.Xfconf org.xfce.Thunar org.xfce.Thunar.FileManager1"
    filter='FileManagerDesktop.*' ;;
  pcmanfm)
    command -v pcmanfm >/dev/null || skip "pcmanfm is not installed"
    # GTK 2 shows nothing to the accessibility bus without the bridge module.
    ls /usr/lib/*/gtk-2.0/modules/libatk-bridge.so >/dev/null 2>&1 ||
      skip "the GTK 2 accessibility bridge (libatk-adaptor) is not installed"
    filter='PcmanfmDesktop.*' ;;
  none)
    filter='FileManagerBusFaults.*' ;;
  *)
    echo "$0: unknown mode '$mode'" >&2
    exit 2 ;;
esac
for name in $wanted; do
  [ -f "$system_services/$name.service" ] || skip "$system_services/$name.service is missing"
done

work=$(mktemp -d "${TMPDIR:-/tmp}/zorvane-filemanager.XXXXXX") || exit 1
trap 'rm -rf "$work"' EXIT
home=$work/home
mkdir -p "$work/services" "$home/.config/xfce4/xfconf/xfce-perchannel-xml" "$home/.local/share" "$home/.cache" \
  "$home/Desktop"
for name in $wanted; do ln -s "$system_services/$name.service" "$work/services/"; done
cat >"$home/.config/user-dirs.dirs" <<'DIRS'
XDG_DESKTOP_DIR="$HOME/Desktop"
DIRS
printf 'on the desktop\n' >"$home/Desktop/desk note.txt"
printf 'x\n' >"$home/Desktop/plan.md"
mkdir -p "$home/Desktop/Projects"
# PCManFM's desktop settings, written ahead: started on a fresh profile, pcmanfm 1.3.2
# --desktop writes this file itself and then crashes. No Trash icon (it is no file).
mkdir -p "$home/.config/pcmanfm/default"
cat >"$home/.config/pcmanfm/default/desktop-items-0.conf" <<'CONF'
[*]
wallpaper_mode=color
desktop_bg=#000000
desktop_fg=#ffffff
desktop_shadow=#000000
show_wm_menu=0
sort=name;ascending;
show_documents=0
show_trash=0
show_mounts=0
CONF
cat >"$home/.config/xfce4/xfconf/xfce-perchannel-xml/thunar.xml" <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<channel name="thunar" version="1.0">
  <property name="last-view" type="string" value="ThunarDetailsView"/>
  <property name="last-window-width" type="int" value="900"/>
  <property name="last-window-height" type="int" value="600"/>
</channel>
XML

export HOME=$home XDG_CONFIG_HOME=$home/.config XDG_DATA_HOME=$home/.local/share XDG_CACHE_HOME=$home/.cache \
  ZORVANE_FILE_MANAGER_DESKTOP=$mode
"$desktop_script" --services-dir "$work/services" "$tests" --gtest_filter="$filter" "$@"
