#include "platform/linux/dbus_sleep_inhibitor.h"

#include <gio/gunixfdlist.h>
#include <unistd.h>

#include <optional>
#include <utility>

#include "core/base/log.h"
#include "platform/linux/dbus_worker.h"

namespace zorvane {

namespace {

constexpr const char* kScreenSaverPath = "/org/freedesktop/ScreenSaver";
constexpr const char* kScreenSaverInterface = "org.freedesktop.ScreenSaver";
constexpr const char* kLogin = "org.freedesktop.login1";
constexpr const char* kLoginPath = "/org/freedesktop/login1";
constexpr const char* kLoginInterface = "org.freedesktop.login1.Manager";

// What a service granted: a screen saver cookie or logind's descriptor.
struct Grant {
  std::optional<uint32_t> cookie;
  int descriptor = -1;
};

}  // namespace

struct DBusSleepInhibitor::Impl {
  MainQueue& queue;
  Options options;
  DBusSleepInhibitor* owner = nullptr;

  // Main queue.
  std::shared_ptr<int> alive = std::make_shared<int>(0);
  const std::weak_ptr<int> aliveToken = alive;
  int count = 0;
  uint64_t request = 0;  // the request answers must belong to
  SleepHold hold = SleepHold::released;
  std::optional<Grant> grant;
  bool saidUnavailable = false;

  std::unique_ptr<DBusWorker> session, system;

  Impl(MainQueue& queue, Options options) : queue(queue), options(std::move(options)) {}

  void set(SleepHold next) {
    if (hold == next) return;
    hold = next;
    auto callback = owner->onChange;  // a copy: it may drop the owner
    if (callback) callback(next);
  }

  DBusWorker& sessionWorker() {
    if (!session)
      session = std::make_unique<DBusWorker>("keep awake", DBusWorker::Bus::session, options.sessionBusAddress);
    return *session;
  }
  DBusWorker& systemWorker() {
    if (!system)
      system = std::make_unique<DBusWorker>("keep awake", DBusWorker::Bus::system, options.systemBusAddress);
    return *system;
  }

  // Main queue, from the workers' threads.
  void answer(uint64_t id, std::optional<Grant> granted, std::string why) {
    queue.post([weak = aliveToken, this, id, granted, why = std::move(why)] {
      if (weak.expired()) {
        if (granted && granted->descriptor >= 0) ::close(granted->descriptor);
        return;  // a cookie dies with the connection, which the owner's end closed
      }
      answered(id, granted, why);
    });
  }

  void answered(uint64_t id, std::optional<Grant> granted, const std::string& why) {
    if (id != request || count == 0) {
      if (granted) giveBack(*granted);
      return;
    }
    if (!granted) {
      if (!saidUnavailable) Log::info("keep awake: nothing keeps the machine awake (" + why + ")");
      saidUnavailable = true;
      return set(SleepHold::unavailable);
    }
    saidUnavailable = false;
    grant = granted;
    set(SleepHold::held);
  }

  void giveBack(const Grant& granted) {
    if (granted.descriptor >= 0) ::close(granted.descriptor);
    if (!granted.cookie) return;
    uint32_t cookie = *granted.cookie;
    DBusWorker* worker = &sessionWorker();
    std::string service = options.screenSaverService;
    int timeout = options.callTimeoutMilliseconds;
    worker->post([worker, service, cookie, timeout](GDBusConnection* connection, const std::string&) {
      if (!connection) return;  // the connection that held it is gone, and the request with it
      worker->call(connection, service.c_str(), kScreenSaverPath, kScreenSaverInterface, "UnInhibit",
                   g_variant_new("(u)", cookie), nullptr, timeout, nullptr);
    });
  }

  void ask(uint64_t id, const std::string& reason) {
    DBusWorker* worker = &sessionWorker();
    std::string service = options.screenSaverService;
    int timeout = options.callTimeoutMilliseconds;
    worker->post([this, worker, service, timeout, id, reason](GDBusConnection* connection,
                                                              const std::string& problem) {
      if (!connection) return askLogind(id, reason, problem);
      worker->call(connection, service.c_str(), kScreenSaverPath, kScreenSaverInterface, "Inhibit",
                   g_variant_new("(ss)", "Zorvane", reason.c_str()), "(u)", timeout,
                   [this, id, reason](GVariant* reply, GError* error, GUnixFDList*) {
                     if (error && g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED))
                       return answer(id, std::nullopt, "stopped");
                     if (error) return askLogind(id, reason, "screen saver: " + std::string(error->message));
                     uint32_t cookie = 0;
                     g_variant_get(reply, "(u)", &cookie);
                     answer(id, Grant{cookie, -1}, "");
                   });
    });
  }

  // On the session worker's thread; hands over to the system worker. `system` was made
  // on the main queue before the first ask, so it is only read here.
  void askLogind(uint64_t id, const std::string& reason, const std::string& before) {
    DBusWorker* worker = system.get();
    int timeout = options.callTimeoutMilliseconds;
    worker->post([this, worker, timeout, id, reason, before](GDBusConnection* connection,
                                                             const std::string& problem) {
      if (!connection) return answer(id, std::nullopt, before + "; " + problem);
      worker->call(connection, kLogin, kLoginPath, kLoginInterface, "Inhibit",
                   g_variant_new("(ssss)", "sleep:idle", "Zorvane", reason.c_str(), "block"), "(h)", timeout,
                   [this, id, before](GVariant* reply, GError* error, GUnixFDList* descriptors) {
                     if (error) return answer(id, std::nullopt, before + "; logind: " + error->message);
                     int32_t index = -1;
                     g_variant_get(reply, "(h)", &index);
                     int descriptor = descriptors ? g_unix_fd_list_get(descriptors, index, nullptr) : -1;
                     if (descriptor < 0) return answer(id, std::nullopt, before + "; logind sent no descriptor");
                     answer(id, Grant{std::nullopt, descriptor}, "");
                   });
    });
  }
};

DBusSleepInhibitor::DBusSleepInhibitor(MainQueue& queue) : DBusSleepInhibitor(queue, Options{}) {}

DBusSleepInhibitor::DBusSleepInhibitor(MainQueue& queue, Options options)
    : impl_(std::make_unique<Impl>(queue, std::move(options))) {
  impl_->owner = this;
}

DBusSleepInhibitor::~DBusSleepInhibitor() {
  if (impl_->grant) impl_->giveBack(*impl_->grant);
  impl_->alive.reset();
  // Each worker closes its connection after what was sent (an UnInhibit) is written.
  impl_->session.reset();
  impl_->system.reset();
}

void DBusSleepInhibitor::acquire(const std::string& reason) {
  if (++impl_->count > 1) return;
  uint64_t id = ++impl_->request;
  impl_->sessionWorker();
  impl_->systemWorker();
  impl_->set(SleepHold::asking);
  impl_->ask(id, reason);
}

void DBusSleepInhibitor::release() {
  if (impl_->count == 0 || --impl_->count > 0) return;
  ++impl_->request;
  if (auto granted = std::exchange(impl_->grant, std::nullopt)) impl_->giveBack(*granted);
  impl_->set(SleepHold::released);
}

SleepHold DBusSleepInhibitor::state() const { return impl_->hold; }

}  // namespace zorvane
