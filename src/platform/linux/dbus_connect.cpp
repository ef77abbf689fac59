#include "platform/linux/dbus_connect.h"

#include <sys/stat.h>

#include <cstdlib>

namespace zorvane::DBusConnect {

namespace {

std::string messageOf(const GError* error) { return error && error->message ? error->message : "unknown error"; }

}  // namespace

std::string sessionBusAddress() {
  if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address) return address;
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (!runtime || !*runtime) return "";
  std::string socket = std::string(runtime) + "/bus";
  struct stat info {};
  if (::stat(socket.c_str(), &info) != 0 || !S_ISSOCK(info.st_mode)) return "";
  return "unix:path=" + socket;
}

struct PendingConnection {
  GDBusConnection* connection = nullptr;
  GError* error = nullptr;
  bool done = false;
};

GDBusConnection* connectWithin(const std::string& address, int timeoutMs, std::string& failure) {
  GMainContext* context = g_main_context_new();
  g_main_context_push_thread_default(context);
  GCancellable* cancellable = g_cancellable_new();
  PendingConnection pending;
  g_dbus_connection_new_for_address(
      address.c_str(),
      GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                           G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, cancellable,
      [](GObject*, GAsyncResult* result, gpointer data) {
        auto* state = static_cast<PendingConnection*>(data);
        state->connection = g_dbus_connection_new_for_address_finish(result, &state->error);
        state->done = true;
      },
      &pending);
  GSource* timer = g_timeout_source_new(guint(timeoutMs));
  g_source_set_callback(
      timer,
      [](gpointer data) -> gboolean {
        g_cancellable_cancel(static_cast<GCancellable*>(data));
        return G_SOURCE_REMOVE;
      },
      cancellable, nullptr);
  g_source_attach(timer, context);
  while (!pending.done) g_main_context_iteration(context, TRUE);
  g_source_destroy(timer);
  g_source_unref(timer);
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
  g_object_unref(cancellable);

  if (!pending.connection) {
    bool timedOut = g_error_matches(pending.error, G_IO_ERROR, G_IO_ERROR_CANCELLED);
    failure = timedOut ? "no answer within " + std::to_string(timeoutMs) + " ms" : messageOf(pending.error);
    if (pending.error) g_error_free(pending.error);
    return nullptr;
  }
  // A private connection: when the bus goes away, it is closed, not the process.
  g_dbus_connection_set_exit_on_close(pending.connection, FALSE);
  return pending.connection;
}


}  // namespace zorvane::DBusConnect
