#include "platform/linux/dbus_worker.h"

#include <gio/gunixfdlist.h>
#include <sys/stat.h>

#include <cstdlib>
#include <deque>

#include "core/base/log.h"
#include "platform/linux/dbus_connect.h"

namespace zorvane {

namespace {

// The address of a bus from the environment, or "" when there is none to try.
std::string addressOf(DBusWorker::Bus bus) {
  if (bus == DBusWorker::Bus::system) {
    const char* address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    return address && *address ? address : "unix:path=/var/run/dbus/system_bus_socket";
  }
  return DBusConnect::sessionBusAddress();
}

}  // namespace

struct DBusWorker::Impl {
  std::string name;
  std::string busName;  // "session bus", "system bus"
  std::string address;
  DBusWorker* owner = nullptr;

  GMainContext* context = g_main_context_new();
  GMainLoop* loop = g_main_loop_new(context, FALSE);
  GCancellable* calls = g_cancellable_new();

  // Worker thread.
  GDBusConnection* connection = nullptr;
  gulong closedHandler = 0;
  bool connecting = false;
  GCancellable* connectCancellable = nullptr;
  GSource* connectTimeout = nullptr;
  std::deque<Work> waiting;
  int pendingCalls = 0;
  bool stopping = false;
  bool closing = false;

  ~Impl() {
    if (connection) {
      if (closedHandler) g_signal_handler_disconnect(connection, closedHandler);
      g_object_unref(connection);
    }
    if (connectCancellable) g_object_unref(connectCancellable);
    if (connectTimeout) g_source_unref(connectTimeout);
    g_object_unref(calls);
    g_main_loop_unref(loop);
    g_main_context_unref(context);
  }

  void invoke(std::function<void()> function) {
    auto* heap = new std::function<void()>(std::move(function));
    g_main_context_invoke_full(
        context, G_PRIORITY_DEFAULT,
        [](gpointer data) -> gboolean {
          (*static_cast<std::function<void()>*>(data))();
          return G_SOURCE_REMOVE;
        },
        heap, [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
  }

  void run(Work work) {
    if (stopping) return work(nullptr, name + ": stopping");
    if (connection && !g_dbus_connection_is_closed(connection)) return work(connection, "");
    waiting.push_back(std::move(work));
    if (!connecting) connect();
  }

  void connect() {
    if (address.empty()) return flush(name + ": there is no " + busName);
    connecting = true;
    if (connectCancellable) g_object_unref(connectCancellable);
    connectCancellable = g_cancellable_new();
    connectTimeout = g_timeout_source_new(static_cast<guint>(kConnectTimeoutSeconds * 1000));
    g_source_set_callback(
        connectTimeout,
        [](gpointer data) -> gboolean {
          auto* self = static_cast<Impl*>(data);
          g_cancellable_cancel(self->connectCancellable);
          return G_SOURCE_REMOVE;
        },
        this, nullptr);
    g_source_attach(connectTimeout, context);
    auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                   G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_dbus_connection_new_for_address(
        address.c_str(), flags, nullptr, connectCancellable,
        [](GObject*, GAsyncResult* result, gpointer data) { static_cast<Impl*>(data)->connected(result); }, this);
  }

  void connected(GAsyncResult* result) {
    connecting = false;
    if (connectTimeout) {
      g_source_destroy(connectTimeout);
      g_source_unref(connectTimeout);
      connectTimeout = nullptr;
    }
    GError* error = nullptr;
    GDBusConnection* made = g_dbus_connection_new_for_address_finish(result, &error);
    if (!made) {
      std::string why = error ? error->message : "unknown error";
      if (error && g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) && !stopping)
        why = "no answer within " + std::to_string(int(kConnectTimeoutSeconds)) + " s";
      if (error) g_error_free(error);
      return flush(name + ": couldn't connect to the " + busName + " (" + why + ")");
    }
    g_dbus_connection_set_exit_on_close(made, FALSE);
    connection = made;
    closedHandler = g_signal_connect(made, "closed", G_CALLBACK(+[](GDBusConnection*, gboolean, GError*, gpointer data) {
                                       static_cast<Impl*>(data)->lost();
                                     }),
                                     this);
    if (stopping) return flush(name + ": stopping");
    if (owner->onConnect) owner->onConnect(connection);
    flush("");
  }

  // The bus closed the connection: the next work makes a new one.
  void lost() {
    if (!connection || closing) return;
    Log::info(name + ": the " + busName + " closed the connection");
    g_signal_handler_disconnect(connection, closedHandler);
    closedHandler = 0;
    g_object_unref(connection);
    connection = nullptr;
  }

  // Runs the waiting work with the connection, or with none and `problem`.
  void flush(const std::string& problem) {
    std::deque<Work> ready;
    ready.swap(waiting);
    for (auto& work : ready) work(problem.empty() ? connection : nullptr, problem);
    quitWhenIdle();
  }

  void stop() {
    stopping = true;
    g_cancellable_cancel(calls);
    if (connecting) g_cancellable_cancel(connectCancellable);
    // Never more than about a second, whatever the bus does.
    GSource* deadline = g_timeout_source_new(1000);
    g_source_set_callback(
        deadline,
        [](gpointer data) -> gboolean {
          g_main_loop_quit(static_cast<Impl*>(data)->loop);
          return G_SOURCE_REMOVE;
        },
        this, nullptr);
    g_source_attach(deadline, context);
    g_source_unref(deadline);
    if (connection && !g_dbus_connection_is_closed(connection)) {
      closing = true;
      // Closing writes out what was sent before (an UnInhibit, say) first.
      g_dbus_connection_close(
          connection, nullptr,
          [](GObject*, GAsyncResult*, gpointer data) {
            auto* self = static_cast<Impl*>(data);
            self->closing = false;
            self->quitWhenIdle();
          },
          this);
    }
    quitWhenIdle();
  }

  void quitWhenIdle() {
    if (stopping && !closing && !connecting && pendingCalls == 0) g_main_loop_quit(loop);
  }
};

DBusWorker::DBusWorker(std::string name, Bus bus, std::string address) : impl_(std::make_unique<Impl>()) {
  impl_->name = std::move(name);
  impl_->busName = bus == Bus::session ? "session bus" : "system bus";
  impl_->address = address.empty() ? addressOf(bus) : std::move(address);
  impl_->owner = this;
  Impl* state = impl_.get();
  thread_ = std::thread([state] {
    g_main_context_push_thread_default(state->context);
    g_main_loop_run(state->loop);
    g_main_context_pop_thread_default(state->context);
  });
}

DBusWorker::~DBusWorker() {
  Impl* state = impl_.get();
  state->invoke([state] { state->stop(); });
  thread_.join();
}

void DBusWorker::post(Work work) {
  Impl* state = impl_.get();
  state->invoke([state, work = std::move(work)]() mutable { state->run(std::move(work)); });
}

void DBusWorker::call(GDBusConnection* connection, const char* destination, const char* path, const char* interface,
                      const char* method, GVariant* parameters, const char* replyType, int timeoutMilliseconds,
                      Reply done) {
  struct Pending {
    Impl* impl;
    Reply done;
  };
  ++impl_->pendingCalls;
  g_dbus_connection_call_with_unix_fd_list(
      connection, destination, path, interface, method, parameters,
      replyType ? G_VARIANT_TYPE(replyType) : nullptr, G_DBUS_CALL_FLAGS_NONE, timeoutMilliseconds, nullptr,
      impl_->calls,
      [](GObject* source, GAsyncResult* result, gpointer data) {
        auto* pending = static_cast<Pending*>(data);
        GError* error = nullptr;
        GUnixFDList* descriptors = nullptr;
        GVariant* reply = g_dbus_connection_call_with_unix_fd_list_finish(G_DBUS_CONNECTION(source), &descriptors,
                                                                          result, &error);
        if (pending->done) pending->done(reply, error, descriptors);
        if (reply) g_variant_unref(reply);
        if (error) g_error_free(error);
        if (descriptors) g_object_unref(descriptors);
        Impl* impl = pending->impl;
        delete pending;
        --impl->pendingCalls;
        impl->quitWhenIdle();
      },
      new Pending{impl_.get(), std::move(done)});
}

}  // namespace zorvane
