#include "platform/linux/file_manager_bus.h"

#include <gio/gio.h>

#include <cstdlib>
#include <mutex>
#include <thread>

#include "core/base/log.h"
#include "platform/linux/dbus_connect.h"
#include "platform/linux/file_managers.h"

namespace zorvane {
namespace {

constexpr const char* kFileManagerName = "org.freedesktop.FileManager1";
constexpr const char* kFileManagerPath = "/org/freedesktop/FileManager1";
constexpr int kConnectTimeoutMs = 2000;

std::string textOf(GError* error) { return error && error->message ? error->message : "unknown error"; }

// Calls a method of the bus daemon and hands back its reply (null on failure).
GVariant* callBus(GDBusConnection* bus, const char* method, GVariant* parameters, const char* replyType,
                  int timeoutMilliseconds, GError** error) {
  return g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                     method, parameters, G_VARIANT_TYPE(replyType), G_DBUS_CALL_FLAGS_NO_AUTO_START,
                                     timeoutMilliseconds, nullptr, error);
}

bool isActivatable(GDBusConnection* bus, int timeoutMilliseconds) {
  GError* error = nullptr;
  GVariant* reply = callBus(bus, "ListActivatableNames", nullptr, "(as)", timeoutMilliseconds, &error);
  if (!reply) {
    g_clear_error(&error);
    return false;
  }
  bool found = false;
  GVariantIter* names = nullptr;
  const char* name = nullptr;
  g_variant_get(reply, "(as)", &names);
  while (g_variant_iter_loop(names, "&s", &name)) found = found || std::string_view(name) == kFileManagerName;
  g_variant_iter_free(names);
  g_variant_unref(reply);
  return found;
}

// Opens the folder holding `url` with the desktop's opener; the opener runs detached.
Expected<void> openFolder(const URL& url) {
  std::string folder = url.deletingLastPathComponent().absoluteString();
  std::vector<std::vector<std::string>> openers = {{"xdg-open", folder}, {"gio", "open", folder}};
  std::string problem;
  for (auto& opener : openers) {
    std::vector<char*> argv;
    for (auto& word : opener) argv.push_back(word.data());
    argv.push_back(nullptr);
    GError* error = nullptr;
    // Without G_SPAWN_DO_NOT_REAP_CHILD GLib forks twice, so no child is left to reap.
    if (g_spawn_async(nullptr, argv.data(), nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr, nullptr, &error))
      return ok();
    problem = textOf(error);
    g_clear_error(&error);
  }
  return Failure{"no file manager answers " + std::string(kFileManagerName) + " and the folder could not be opened: " +
                 problem};
}

}  // namespace

// What the reveal threads share with the object: the connection and the queue, which
// is forgotten when the object ends.
struct FileManagerBus::Shared {
  std::mutex mutex;
  MainQueue* queue;
  GDBusConnection* bus = nullptr;
  bool connectFailed = false;

  explicit Shared(MainQueue& q) : queue(&q) {}
  ~Shared() {
    if (bus) g_object_unref(bus);
  }

  // The connection, made on first use; null when there is no bus. Call under `mutex`.
  GDBusConnection* connection() {
    if (bus && !g_dbus_connection_is_closed(bus)) return bus;
    if (bus) g_object_unref(std::exchange(bus, nullptr));
    std::string address = DBusConnect::sessionBusAddress();
    if (address.empty()) return nullptr;
    std::string failure;
    bus = DBusConnect::connectWithin(address, kConnectTimeoutMs, failure);
    if (!bus && !connectFailed) Log::info("file manager: can't reach the session bus: " + failure);
    connectFailed = !bus;
    return bus;
  }

  void post(Task task) {
    std::lock_guard lock(mutex);
    if (queue) queue->post(std::move(task));
  }
};

FileManagerBus::FileManagerBus(MainQueue& queue) : FileManagerBus(queue, Options{}) {}

FileManagerBus::FileManagerBus(MainQueue& queue, Options options)
    : shared_(std::make_shared<Shared>(queue)), options_(options) {}

FileManagerBus::~FileManagerBus() {
  std::lock_guard lock(shared_->mutex);
  shared_->queue = nullptr;
}

std::optional<FileManagerOwner> FileManagerBus::owner() {
  GDBusConnection* bus;
  {
    std::lock_guard lock(shared_->mutex);
    bus = shared_->connection();
    if (bus) g_object_ref(bus);
  }
  if (!bus) return std::nullopt;
  int timeout = int(options_.busTimeout.count());
  GError* error = nullptr;
  std::optional<FileManagerOwner> found;
  if (GVariant* unique = callBus(bus, "GetNameOwner", g_variant_new("(s)", kFileManagerName), "(s)", timeout, &error)) {
    const char* name = nullptr;
    g_variant_get(unique, "(&s)", &name);
    if (GVariant* pid = callBus(bus, "GetConnectionUnixProcessID", g_variant_new("(s)", name), "(u)", timeout, &error)) {
      guint32 number = 0;
      g_variant_get(pid, "(u)", &number);
      g_variant_unref(pid);
      found = FileManagerOwner{int32_t(number), FileManagers::ofProcess(int32_t(number))};
    }
    g_variant_unref(unique);
  }
  // No owner is the usual answer when no file manager runs: not worth a log line.
  g_clear_error(&error);
  g_object_unref(bus);
  return found;
}

void FileManagerBus::reveal(const URL& url, std::function<void(Expected<void>)> done) {
  std::thread([shared = shared_, url, done = std::move(done), options = options_]() mutable {
    GDBusConnection* bus;
    {
      std::lock_guard lock(shared->mutex);
      bus = shared->connection();
      if (bus) g_object_ref(bus);
    }
    Expected<void> answer = ok();
    int busTimeout = int(options.busTimeout.count());
    bool owned = false;
    if (bus) {
      GError* error = nullptr;
      GVariant* has = callBus(bus, "NameHasOwner", g_variant_new("(s)", kFileManagerName), "(b)", busTimeout, &error);
      if (has) {
        gboolean value = FALSE;
        g_variant_get(has, "(b)", &value);
        owned = value;
        g_variant_unref(has);
      }
      g_clear_error(&error);
    }
    if (bus && (owned || isActivatable(bus, busTimeout))) {
      GVariantBuilder uris;
      g_variant_builder_init(&uris, G_VARIANT_TYPE("as"));
      g_variant_builder_add(&uris, "s", url.absoluteString().c_str());
      GError* error = nullptr;
      GVariant* reply = g_dbus_connection_call_sync(
          bus, kFileManagerName, kFileManagerPath, kFileManagerName, "ShowItems", g_variant_new("(ass)", &uris, ""),
          nullptr, G_DBUS_CALL_FLAGS_NONE, int(options.revealTimeout.count()), nullptr, &error);
      if (reply) {
        g_variant_unref(reply);
      } else if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT)) {
        answer = Failure{"file manager: ShowItems got no answer within " +
                         std::to_string(options.revealTimeout.count()) + " ms"};
      } else {
        answer = Failure{"file manager: ShowItems failed: " + textOf(error)};
      }
      g_clear_error(&error);
    } else {
      answer = openFolder(url);
    }
    if (bus) g_object_unref(bus);
    shared->post([done = std::move(done), answer = std::move(answer)]() mutable { done(std::move(answer)); });
  }).detach();
}

}  // namespace zorvane
