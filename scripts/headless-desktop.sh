#!/usr/bin/env bash
# Runs one command inside a private headless X11 desktop and exits with its status.
#
#   scripts/headless-desktop.sh [--no-wm] [--compositor] [--services-dir DIR] command [args...]
#
# The desktop: Xvfb on a display it picks itself (-displayfd, never a fixed number),
# screen 1280x800x24 unless ZORVANE_SCREEN=WxHxD; a private XDG_RUNTIME_DIR; a session
# D-Bus; the xfwm4 window manager with its compositor off (left out with --no-wm).
#
# --compositor (or ZORVANE_DESKTOP_COMPOSITOR=1 in the environment): xcompmgr composites
# the screen, so windows with an alpha channel show what lies below them (the
# compositor's pid is in $ZORVANE_COMPOSITOR_PID, for tests that stop it).
# HOME is left as the caller set it.
#
# --services-dir DIR: the session bus activates only the D-Bus services whose
# .service files are in DIR (none of the system's), for tests that bring their own.
#
# Every process of the desktop is ended at exit, including the ones D-Bus started on
# demand and that were reparented to init (the accessibility bus and registry, xfconfd,
# gvfsd, ...): each carries ZORVANE_HEADLESS_DESKTOP=<its runtime dir> in its
# environment, inherited from the bus, and is found by it in /proc/*/environ. So two
# runs side by side never see or end each other's processes.
#
# Exit status: the command's; 77 (CTest's skip) when Xvfb, dbus-daemon or the window
# manager is missing; 1 when the desktop could not be started.
set -u

usage() {
  echo "usage: $0 [--no-wm] [--compositor] [--services-dir DIR] command [args...]" >&2
  exit 2
}

with_wm=1
with_compositor=${ZORVANE_DESKTOP_COMPOSITOR:-0}
services_dir=""
while [ $# -gt 0 ]; do
  case "$1" in
    --no-wm) with_wm=0; shift ;;
    --compositor) with_compositor=1; shift ;;
    --services-dir)
      [ $# -ge 2 ] || usage
      services_dir=$2; shift 2 ;;
    --) shift; break ;;
    -*) usage ;;
    *) break ;;
  esac
done
[ $# -gt 0 ] || usage

skip() {
  echo "headless-desktop: $1; skipping (install the Debian packages xvfb dbus xfwm4 x11-utils)" >&2
  exit 77
}
command -v Xvfb >/dev/null || skip "Xvfb is not installed"
command -v dbus-daemon >/dev/null || skip "dbus-daemon is not installed"
if [ "$with_wm" = 1 ]; then
  command -v xfwm4 >/dev/null || skip "xfwm4 is not installed"
  command -v xprop >/dev/null || skip "xprop is not installed"
fi
if [ "$with_compositor" = 1 ]; then
  command -v xcompmgr >/dev/null || skip "xcompmgr is not installed"
  command -v xwininfo >/dev/null || skip "xwininfo is not installed"
fi
if [ -n "$services_dir" ] && [ ! -d "$services_dir" ]; then
  echo "headless-desktop: --services-dir $services_dir is not a folder" >&2
  exit 2
fi

screen=${ZORVANE_SCREEN:-1280x800x24}
if ! [[ "$screen" =~ ^[0-9]+x[0-9]+x[0-9]+$ ]]; then
  echo "headless-desktop: ZORVANE_SCREEN must look like 1280x800x24, not '$screen'" >&2
  exit 2
fi

runtime=$(mktemp -d "${TMPDIR:-/tmp}/zorvane-desktop.XXXXXX") || exit 1
chmod 700 "$runtime"
export XDG_RUNTIME_DIR=$runtime
# The mark every process of this desktop inherits; teardown ends exactly these.
export ZORVANE_HEADLESS_DESKTOP=$runtime
unset NO_AT_BRIDGE AT_SPI_BUS_ADDRESS WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS DBUS_STARTER_ADDRESS \
  DBUS_STARTER_BUS_TYPE SESSION_MANAGER XAUTHORITY
export QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1
export QT_QPA_PLATFORM=xcb
export GDK_BACKEND=x11

command_pid=""
status=0

# True while the process exists and is not a zombie waiting to be reaped.
alive() {
  local stat state
  { stat=$(<"/proc/$1/stat"); } 2>/dev/null || return 1
  state=${stat##*) }
  state=${state%% *}
  [ -n "$state" ] && [ "$state" != Z ] && [ "$state" != X ]
}

# The pids whose environment carries this desktop's mark, this shell (and the subshell
# running this) excluded.
marked_pids() {
  local f pid
  for f in /proc/[0-9]*/environ; do
    pid=${f#/proc/}; pid=${pid%/environ}
    [ "$pid" = $$ ] || [ "$pid" = "$BASHPID" ] && continue
    grep -qzxF "ZORVANE_HEADLESS_DESKTOP=$runtime" "$f" 2>/dev/null && echo "$pid"
  done
}

# TERM, then KILL whatever is still there after up to 3 s; repeated while processes
# ended this way start new ones (a bus activating a service as a client leaves).
end_marked() {
  local round pids pid waited
  for round in 1 2 3; do
    pids=$(marked_pids)
    [ -n "$pids" ] || return 0
    for pid in $pids; do kill -TERM "$pid" 2>/dev/null; done
    for waited in $(seq 60); do
      local any=0
      for pid in $pids; do alive "$pid" && any=1; done
      [ "$any" = 0 ] && break
      sleep 0.05
    done
    for pid in $pids; do alive "$pid" && kill -KILL "$pid" 2>/dev/null; done
  done
}

teardown() {
  trap - EXIT INT TERM HUP
  end_marked
  wait 2>/dev/null
  rm -rf "$runtime"
}
on_signal() {
  status=$((128 + $1))
  exit "$status"
}
trap 'teardown' EXIT
trap 'on_signal 2' INT
trap 'on_signal 15' TERM
trap 'on_signal 1' HUP

fail() {
  echo "headless-desktop: $1" >&2
  exit 1
}

# --- the X server -------------------------------------------------------------------
mkfifo "$runtime/displayfd" || fail "could not make a fifo in $runtime"
Xvfb -displayfd 5 -screen 0 "$screen" -nolisten tcp -noreset 5>"$runtime/displayfd" \
  >"$runtime/xvfb.log" 2>&1 &
xvfb_pid=$!
display=""
read -r -t 15 display <"$runtime/displayfd"
if [ -z "$display" ] || ! alive "$xvfb_pid"; then
  cat "$runtime/xvfb.log" >&2
  fail "Xvfb did not start"
fi
export DISPLAY=":$display"

# --- the session bus ----------------------------------------------------------------
bus_args=(--session)
if [ -n "$services_dir" ]; then
  services_dir=$(cd "$services_dir" && pwd)
  cat >"$runtime/session-bus.conf" <<EOF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <keep_umask/>
  <listen>unix:dir=$runtime</listen>
  <auth>EXTERNAL</auth>
  <servicedir>$services_dir</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
EOF
  bus_args=(--config-file="$runtime/session-bus.conf")
fi
# Not forked: the bus, and every service it starts on demand, stay descendants of this
# script, so a caller that kills the whole process tree (CTest on a time-out) ends them
# too, even when this script gets no chance to tear down.
mkfifo "$runtime/bus.address" || fail "could not make a fifo in $runtime"
dbus-daemon "${bus_args[@]}" --nofork --print-address=3 3>"$runtime/bus.address" \
  >"$runtime/bus.log" 2>&1 &
bus_pid=$!
DBUS_SESSION_BUS_ADDRESS=""
read -r -t 10 DBUS_SESSION_BUS_ADDRESS <"$runtime/bus.address"
if [ -z "$DBUS_SESSION_BUS_ADDRESS" ] || ! alive "$bus_pid"; then
  cat "$runtime/bus.log" >&2
  fail "dbus-daemon did not start"
fi
export DBUS_SESSION_BUS_ADDRESS
if command -v dbus-update-activation-environment >/dev/null; then
  dbus-update-activation-environment DISPLAY XDG_RUNTIME_DIR ZORVANE_HEADLESS_DESKTOP \
    QT_LINUX_ACCESSIBILITY_ALWAYS_ON >/dev/null 2>&1 ||
    fail "dbus-update-activation-environment failed"
fi

# --- the window manager -------------------------------------------------------------
if [ "$with_wm" = 1 ]; then
  xfwm4 --compositor=off --sm-client-disable >"$runtime/wm.log" 2>&1 &
  wm_pid=$!
  ready=0
  for _ in $(seq 200); do   # up to 10 s
    if xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q "window id"; then
      ready=1; break
    fi
    alive "$wm_pid" || break
    sleep 0.05
  done
  if [ "$ready" = 0 ]; then
    cat "$runtime/wm.log" >&2
    fail "xfwm4 did not take over the display"
  fi
fi

# --- the compositor -----------------------------------------------------------------
if [ "$with_compositor" = 1 ]; then
  xcompmgr -n >"$runtime/compositor.log" 2>&1 &
  export ZORVANE_COMPOSITOR_PID=$!
  ready=0
  for _ in $(seq 200); do   # up to 10 s: it owns the selection through its own window
    if xwininfo -root -children 2>/dev/null | grep -q '"xcompmgr"'; then
      ready=1; break
    fi
    alive "$ZORVANE_COMPOSITOR_PID" || break
    sleep 0.05
  done
  if [ "$ready" = 0 ]; then
    cat "$runtime/compositor.log" >&2
    fail "xcompmgr did not start"
  fi
fi

# --- the command ---------------------------------------------------------------------
# In the background, so the traps run at once on a signal; stdin stays the caller's.
"$@" <&0 &
command_pid=$!
wait "$command_pid"
status=$?
exit "$status"
