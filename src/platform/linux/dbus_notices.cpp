#include "platform/linux/dbus_notices.h"

#include <optional>
#include <set>

#include "core/base/log.h"
#include "platform/linux/dbus_worker.h"

namespace zorvane {

namespace {

constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kInterface = "org.freedesktop.Notifications";

}  // namespace

struct DBusNotices::Impl {
  MainQueue& queue;
  Options options;
  DBusNotices* owner = nullptr;
  // Main queue.
  std::shared_ptr<int> alive = std::make_shared<int>(0);
  const std::weak_ptr<int> aliveToken = alive;

  // Worker thread.
  std::set<uint32_t> shown;         // ids of our notices the service still shows
  std::optional<bool> readsMarkup;  // asked once per connection
  bool failing = false;             // the last notice failed (and the log said so)

  std::unique_ptr<DBusWorker> worker;

  Impl(MainQueue& queue, Options options) : queue(queue), options(std::move(options)) {}

  void answer(std::function<void(Expected<void>)> done, Expected<void> result) {
    if (result) {
      if (failing) Log::info("notices: shown again");
      failing = false;
    } else if (!failing) {
      failing = true;
      Log::info(result.error() + "; notices are not shown until it works");
    }
    if (!done) return;
    queue.post([weak = aliveToken, done = std::move(done), result = std::move(result)] {
      if (!weak.expired()) done(result);
    });
  }

  void subscribe(GDBusConnection* connection) {
    readsMarkup.reset();
    shown.clear();
    auto onSignal = [](GDBusConnection*, const char*, const char*, const char*, const char* signal,
                       GVariant* parameters, gpointer data) {
      auto* self = static_cast<Impl*>(data);
      uint32_t id = 0;
      if (g_strcmp0(signal, "ActionInvoked") == 0 && g_variant_is_of_type(parameters, G_VARIANT_TYPE("(us)"))) {
        const char* action = nullptr;
        g_variant_get(parameters, "(u&s)", &id, &action);
        if (self->shown.count(id)) self->activated();
      } else if (g_strcmp0(signal, "NotificationClosed") == 0 &&
                 g_variant_is_of_type(parameters, G_VARIANT_TYPE("(uu)"))) {
        uint32_t reason = 0;
        g_variant_get(parameters, "(uu)", &id, &reason);
        self->shown.erase(id);
      }
    };
    // Subscriptions end with the connection; the worker makes a new one after a loss.
    g_dbus_connection_signal_subscribe(connection, options.service.c_str(), kInterface, nullptr, kPath, nullptr,
                                       G_DBUS_SIGNAL_FLAGS_NONE, onSignal, this, nullptr);
  }

  void activated() {
    queue.post([weak = aliveToken, owner = owner] {
      if (weak.expired()) return;
      auto callback = owner->onActivated;  // a copy: it may drop the owner
      if (callback) callback();
    });
  }

  // Worker thread.
  void send(GDBusConnection* connection, std::string title, std::string body,
            std::function<void(Expected<void>)> done) {
    if (!readsMarkup) {
      worker->call(connection, options.service.c_str(), kPath, kInterface, "GetCapabilities", nullptr, "(as)",
                   options.callTimeoutMilliseconds,
                   [this, connection, title = std::move(title), body = std::move(body),
                    done = std::move(done)](GVariant* reply, GError* error, GUnixFDList*) mutable {
                     if (error) return answer(std::move(done), Failure{"notices: " + std::string(error->message)});
                     bool markup = false;
                     GVariantIter* capabilities = nullptr;
                     g_variant_get(reply, "(as)", &capabilities);
                     const char* capability = nullptr;
                     while (g_variant_iter_next(capabilities, "&s", &capability))
                       markup = markup || g_strcmp0(capability, "body-markup") == 0;
                     g_variant_iter_free(capabilities);
                     readsMarkup = markup;
                     send(connection, std::move(title), std::move(body), std::move(done));
                   });
      return;
    }
    if (*readsMarkup) {
      char* escaped = g_markup_escape_text(body.c_str(), -1);
      body = escaped;
      g_free(escaped);
    }
    GVariantBuilder actions;
    g_variant_builder_init(&actions, G_VARIANT_TYPE("as"));
    g_variant_builder_add(&actions, "s", "default");
    g_variant_builder_add(&actions, "s", "Open");
    GVariantBuilder hints;
    g_variant_builder_init(&hints, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&hints, "{sv}", "desktop-entry", g_variant_new_string("zorvane"));
    GVariant* parameters = g_variant_new("(susssasa{sv}i)", "Zorvane", 0u, "", title.c_str(), body.c_str(), &actions,
                                         &hints, -1);
    worker->call(connection, options.service.c_str(), kPath, kInterface, "Notify", parameters, "(u)",
                 options.callTimeoutMilliseconds,
                 [this, done = std::move(done)](GVariant* reply, GError* error, GUnixFDList*) mutable {
                   if (error) return answer(std::move(done), Failure{"notices: " + std::string(error->message)});
                   uint32_t id = 0;
                   g_variant_get(reply, "(u)", &id);
                   shown.insert(id);
                   answer(std::move(done), ok());
                 });
  }
};

DBusNotices::DBusNotices(MainQueue& queue) : DBusNotices(queue, Options{}) {}

DBusNotices::DBusNotices(MainQueue& queue, Options options) : impl_(std::make_unique<Impl>(queue, std::move(options))) {
  impl_->owner = this;
  impl_->worker = std::make_unique<DBusWorker>("notices", DBusWorker::Bus::session, impl_->options.busAddress);
  Impl* state = impl_.get();
  impl_->worker->onConnect = [state](GDBusConnection* connection) { state->subscribe(connection); };
}

DBusNotices::~DBusNotices() {
  impl_->alive.reset();
  impl_->worker.reset();  // joins its thread before the state it uses goes
}

void DBusNotices::notify(const std::string& title, const std::string& body,
                         std::function<void(Expected<void>)> done) {
  Impl* state = impl_.get();
  state->worker->post([state, title, body, done = std::move(done)](GDBusConnection* connection,
                                                                    const std::string& problem) mutable {
    if (!connection) return state->answer(std::move(done), Failure{problem});
    state->send(connection, std::move(title), std::move(body), std::move(done));
  });
}

}  // namespace zorvane
