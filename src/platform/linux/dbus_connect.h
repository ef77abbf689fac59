// Reaching a D-Bus bus without ever hanging or starting one: the session bus's address
// from the environment (never GLib's autolaunch, which would start a bus of its own
// that outlives us), and a connection whose handshake is bounded in time.
#pragma once

#include <gio/gio.h>

#include <string>

namespace zorvane::DBusConnect {

// $DBUS_SESSION_BUS_ADDRESS, else $XDG_RUNTIME_DIR/bus when that socket exists, else "".
std::string sessionBusAddress();

// A private connection to the bus at `address`, made within `timeoutMs` (a daemon that
// accepts but never finishes the handshake would block a plain connect for good). The
// caller owns it (g_object_unref); a closed bus closes it, never the process. Null on
// failure, with `failure` saying why. Runs its own main context on the calling thread.
GDBusConnection* connectWithin(const std::string& address, int timeoutMs, std::string& failure);

}  // namespace zorvane::DBusConnect
