#include "platform/linux/atspi_runtime.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "platform/linux/dbus_connect.h"

namespace zorvane {
namespace {

// What libatspi keeps of each application. Children are left out (see the header).
constexpr auto kCacheMask = AtspiCache(ATSPI_CACHE_NAME | ATSPI_CACHE_DESCRIPTION | ATSPI_CACHE_ROLE |
                                       ATSPI_CACHE_STATES | ATSPI_CACHE_INTERFACES);

// Events whose signals keep that cache current. Toolkits built on ATK send them anyway;
// Qt sends only what some client has asked for.
constexpr const char* kCacheEvents[] = {
    "object:state-changed",
    "object:property-change:accessible-name",
    "object:property-change:accessible-description",
    "object:property-change:accessible-role",
};

constexpr int kSessionCallTimeoutMs = 1500;
constexpr int kConnectTimeoutMs = 2000;
// The registry lists every application on the desktop; more than this is not a desktop.
constexpr int kMaxApplications = 1000;

std::string messageOf(const GError* error) { return error && error->message ? error->message : "unknown error"; }

}  // namespace

AtspiRuntime& AtspiRuntime::shared() {
  static AtspiRuntime runtime;
  return runtime;
}

GDBusConnection* AtspiRuntime::sessionBus() {
  if (session_ && !g_dbus_connection_is_closed(session_.get())) return session_.get();
  session_.reset();
  std::string address = DBusConnect::sessionBusAddress();
  if (address.empty()) return nullptr;
  std::string failure;
  session_.reset(DBusConnect::connectWithin(address, kConnectTimeoutMs, failure));
  return session_.get();
}

Expected<void> AtspiRuntime::checkBusReachable() {
  std::string address;
  if (const char* fromEnvironment = std::getenv("AT_SPI_BUS_ADDRESS"); fromEnvironment && *fromEnvironment) {
    address = fromEnvironment;
  } else {
    GDBusConnection* session = sessionBus();
    if (!session) return Failure{"the session bus can't be reached"};
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(session, "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus",
                                                  "GetAddress", nullptr, G_VARIANT_TYPE("(s)"),
                                                  G_DBUS_CALL_FLAGS_NONE, kSessionCallTimeoutMs, nullptr, &error);
    if (!reply) {
      std::string text = "the accessibility bus launcher doesn't answer: " + messageOf(error);
      if (error) g_error_free(error);
      return Failure{text};
    }
    const char* text = nullptr;
    g_variant_get(reply, "(&s)", &text);
    address = text ? text : "";
    g_variant_unref(reply);
  }
  if (address.empty()) return Failure{"the accessibility bus has no address"};
  std::string failure;
  GObjectPtr<GDBusConnection> bus(DBusConnect::connectWithin(address, kConnectTimeoutMs, failure));
  if (!bus) return Failure{"the accessibility bus can't be reached: " + failure};
  g_dbus_connection_close_sync(bus.get(), nullptr, nullptr);
  return ok();
}

Expected<void> AtspiRuntime::start() {
  if (started_) return ok();
  if (broken_) return Failure{"libatspi couldn't connect to the accessibility bus"};
  if (auto reachable = checkBusReachable(); !reachable) return reachable;
  int status = atspi_init();
  // 1: someone else in this process initialised libatspi already, which is fine.
  if (status != 0 && status != 1) {
    broken_ = true;
    return Failure{"libatspi couldn't connect to the accessibility bus"};
  }

  context_ = g_main_context_new();
  atspi_set_main_context(context_);
  // New applications get longer for their first answers: building a big tree takes time.
  atspi_set_timeout(int(callTimeout_.count()), 3000);

  GObjectPtr<AtspiAccessible> desktop(atspi_get_desktop(0));
  if (desktop) atspi_accessible_set_cache_mask(desktop.get(), kCacheMask);

  listener_ = atspi_event_listener_new_simple([](const AtspiEvent*) {}, nullptr);
  for (const char* event : kCacheEvents) {
    GErrorSlot error;
    atspi_event_listener_register(listener_, event, error.out());
  }
  started_ = true;
  return ok();
}

bool AtspiRuntime::ensureAccessibilityEnabled() {
  GDBusConnection* session = sessionBus();
  if (!session) return false;
  auto readEnabled = [&]() -> std::optional<bool> {
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        session, "org.a11y.Bus", "/org/a11y/bus", "org.freedesktop.DBus.Properties", "Get",
        g_variant_new("(ss)", "org.a11y.Status", "IsEnabled"), G_VARIANT_TYPE("(v)"), G_DBUS_CALL_FLAGS_NONE,
        kSessionCallTimeoutMs, nullptr, &error);
    if (!reply) {
      if (error) g_error_free(error);
      return std::nullopt;
    }
    GVariant* boxed = nullptr;
    g_variant_get(reply, "(v)", &boxed);
    std::optional<bool> enabled;
    if (boxed && g_variant_is_of_type(boxed, G_VARIANT_TYPE_BOOLEAN)) enabled = g_variant_get_boolean(boxed);
    if (boxed) g_variant_unref(boxed);
    g_variant_unref(reply);
    return enabled;
  };

  std::optional<bool> enabled = readEnabled();
  if (!enabled) return false;
  if (*enabled) return true;
  GError* error = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(
      session, "org.a11y.Bus", "/org/a11y/bus", "org.freedesktop.DBus.Properties", "Set",
      g_variant_new("(ssv)", "org.a11y.Status", "IsEnabled", g_variant_new_boolean(TRUE)), nullptr,
      G_DBUS_CALL_FLAGS_NONE, kSessionCallTimeoutMs, nullptr, &error);
  if (!reply) {
    if (error) g_error_free(error);
    return false;
  }
  g_variant_unref(reply);
  return readEnabled().value_or(false);
}

void AtspiRuntime::pump() {
  if (!context_) return;
  // Bounded: an application that signals without pause can't keep the caller here.
  for (int round = 0; round < 100000 && g_main_context_iteration(context_, FALSE); ++round) {
  }
}

bool AtspiRuntime::desktopAnswers() {
  if (!started_) return false;
  GObjectPtr<AtspiAccessible> desktop(atspi_get_desktop(0));
  if (!desktop) return false;
  GErrorSlot error;
  int count = atspi_accessible_get_child_count(desktop.get(), error.out());
  return !error.failed() && count >= 0;
}

std::vector<std::shared_ptr<AtspiApp>> AtspiRuntime::applicationsFor(int32_t pid) {
  std::vector<std::shared_ptr<AtspiApp>> found;
  if (!started_) return found;
  pump();
  GObjectPtr<AtspiAccessible> desktop(atspi_get_desktop(0));
  if (!desktop) return found;
  GErrorSlot error;
  int count = atspi_accessible_get_child_count(desktop.get(), error.out());
  if (error.failed() || count <= 0) return found;

  std::unordered_map<std::string, std::shared_ptr<AtspiApp>> present;
  for (int index = 0; index < std::min(count, kMaxApplications); ++index) {
    GObjectPtr<AtspiAccessible> root(atspi_accessible_get_child_at_index(desktop.get(), index, error.out()));
    if (error.failed() || !root) continue;
    AtspiApplication* application = ATSPI_OBJECT(root.get())->app;
    if (!application || !application->bus_name) continue;
    std::string busName = application->bus_name;
    std::shared_ptr<AtspiApp> app;
    if (auto known = apps_.find(busName); known != apps_.end()) {
      app = known->second;
    } else {
      guint processID = atspi_accessible_get_process_id(root.get(), error.out());
      if (error.failed()) continue;
      if (application->root == root.get()) atspi_accessible_set_cache_mask(root.get(), kCacheMask);
      app = std::make_shared<AtspiApp>(std::move(root), int32_t(processID), callTimeout_, quietPeriod_);
    }
    if (app->pid() == pid) found.push_back(app);
    present.emplace(std::move(busName), std::move(app));
  }
  apps_ = std::move(present);
  return found;
}

}  // namespace zorvane
