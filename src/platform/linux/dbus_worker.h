// DBusWorker: one D-Bus connection and the thread that uses it, for the services that
// talk to desktop daemons (notices, the sleep inhibitor). GDBus delivers replies and
// signals to a GLib main loop; this thread runs one of its own, so nothing here depends
// on the main queue's toolkit iterating GLib.
//
// The connection is made on first use and again after the bus closed it. The address is
// the one given, else the environment's: for the session bus DBUS_SESSION_BUS_ADDRESS,
// else $XDG_RUNTIME_DIR/bus when that socket exists (never GLib's autolaunch, which would
// start a bus of its own); for the system bus DBUS_SYSTEM_BUS_ADDRESS, else the standard
// socket. Connecting gives up after `kConnectTimeoutSeconds`.
//
// Work handed to `post` runs on the worker thread, in order, with the connection, or with
// none and the reason. Calls made with `call` time out after their own limit and are
// cancelled when the worker stops; their replies come back on the worker thread. The
// destructor cancels what is under way, closes the connection (after what was sent is
// written) and joins the thread, bounded by about a second.
#pragma once

#include <gio/gio.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace zorvane {

class DBusWorker {
 public:
  enum class Bus { session, system };
  static constexpr double kConnectTimeoutSeconds = 5.0;

  // `name` names the user in log lines ("notices").
  DBusWorker(std::string name, Bus bus, std::string address = "");
  ~DBusWorker();
  DBusWorker(const DBusWorker&) = delete;
  DBusWorker& operator=(const DBusWorker&) = delete;

  // Runs once on the worker thread for each new connection (to subscribe to signals).
  // Set before the first `post`.
  std::function<void(GDBusConnection*)> onConnect;

  using Work = std::function<void(GDBusConnection* connection, const std::string& problem)>;
  // `connection` is null when there is no bus; `problem` then says why.
  void post(Work work);

  // For work on the worker thread: calls a method; `done` gets the reply or the error
  // (one of them null) and, for calls that return descriptors, the descriptor list.
  using Reply = std::function<void(GVariant* reply, GError* error, GUnixFDList* descriptors)>;
  void call(GDBusConnection* connection, const char* destination, const char* path, const char* interface,
            const char* method, GVariant* parameters, const char* replyType, int timeoutMilliseconds, Reply done);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  std::thread thread_;
};

}  // namespace zorvane
