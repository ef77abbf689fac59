#include "desktop/dbus_test_service.h"

#include <cstdlib>

namespace zorvane::testing {

std::unique_ptr<DBusTestService> DBusTestService::start(const std::string& name, const std::string& path,
                                                        const std::string& interfaceXML, Handler handler) {
  const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (!address || !*address) return nullptr;
  std::unique_ptr<DBusTestService> service(new DBusTestService());
  service->name_ = name;
  service->path_ = path;
  service->xml_ = interfaceXML;
  service->handler_ = std::move(handler);
  service->context_ = g_main_context_new();
  service->loop_ = g_main_loop_new(service->context_, FALSE);
  service->thread_ = std::thread([raw = service.get()] { raw->serve(); });
  std::unique_lock lock(service->mutex_);
  service->changed_.wait(lock, [&] { return service->ready_.has_value(); });
  bool ready = *service->ready_;
  lock.unlock();
  if (!ready) return nullptr;
  return service;
}

DBusTestService::~DBusTestService() {
  g_main_context_invoke(
      context_,
      [](gpointer loop) -> gboolean {
        g_main_loop_quit(static_cast<GMainLoop*>(loop));
        return G_SOURCE_REMOVE;
      },
      loop_);
  thread_.join();
  if (connection_) {
    g_dbus_connection_close_sync(connection_, nullptr, nullptr);
    g_object_unref(connection_);
  }
  g_main_loop_unref(loop_);
  g_main_context_unref(context_);
}

void DBusTestService::serve() {
  g_main_context_push_thread_default(context_);
  auto finish = [this](bool ok) {
    std::lock_guard lock(mutex_);
    ready_ = ok;
    changed_.notify_all();
  };
  GError* error = nullptr;
  connection_ = g_dbus_connection_new_for_address_sync(
      std::getenv("DBUS_SESSION_BUS_ADDRESS"),
      GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error);
  GDBusNodeInfo* node = connection_ ? g_dbus_node_info_new_for_xml(xml_.c_str(), &error) : nullptr;
  bool registered = false;
  if (node) {
    static const GDBusInterfaceVTable vtable = {
        [](GDBusConnection*, const char*, const char*, const char*, const char* method, GVariant* parameters,
           GDBusMethodInvocation* invocation, gpointer data) {
          auto* self = static_cast<DBusTestService*>(data);
          gchar* printed = g_variant_print(parameters, FALSE);
          GVariant* reply = self->handler_(method, parameters);
          {
            std::lock_guard lock(self->mutex_);
            self->calls_.push_back({method, printed});
            self->changed_.notify_all();
          }
          g_free(printed);
          if (reply)
            g_dbus_method_invocation_return_value(invocation, reply);
          else
            g_dbus_method_invocation_return_dbus_error(invocation, "org.zorvane.Test.Refused", "refused");
        },
        nullptr, nullptr, {}};
    registered = g_dbus_connection_register_object(connection_, path_.c_str(), node->interfaces[0], &vtable, this,
                                                   nullptr, &error) > 0;
    g_dbus_node_info_unref(node);
  }
  GVariant* owned = registered ? g_dbus_connection_call_sync(
                                     connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                     "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", name_.c_str(), 4u),
                                     G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, &error)
                               : nullptr;
  guint32 answer = 0;
  if (owned) {
    g_variant_get(owned, "(u)", &answer);
    g_variant_unref(owned);
  }
  if (error) g_error_free(error);
  finish(answer == 1);  // the primary owner
  if (answer == 1) g_main_loop_run(loop_);
  g_main_context_pop_thread_default(context_);
}

std::optional<DBusTestService::Call> DBusTestService::waitForCall(const std::string& method,
                                                                  std::chrono::milliseconds timeout, size_t from) {
  std::unique_lock lock(mutex_);
  std::optional<Call> found;
  changed_.wait_for(lock, timeout, [&] {
    for (size_t i = from; i < calls_.size() && !found; ++i)
      if (calls_[i].method == method) found = calls_[i];
    return found.has_value();
  });
  return found;
}

std::vector<DBusTestService::Call> DBusTestService::calls() const {
  std::lock_guard lock(mutex_);
  return calls_;
}

void DBusTestService::emit(const std::string& interface, const std::string& signal, GVariant* parameters) {
  g_dbus_connection_emit_signal(connection_, nullptr, path_.c_str(), interface.c_str(), signal.c_str(), parameters,
                                nullptr);
  g_dbus_connection_flush_sync(connection_, nullptr, nullptr);
}

}  // namespace zorvane::testing
