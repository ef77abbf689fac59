// DBusTestService: a stand-in for a desktop daemon on the session bus, for tests. It
// owns a bus name, serves one object whose interface is given as introspection XML,
// answers each method call through a handler, records the calls, and emits signals
// when told. It runs on a thread and connection of its own.
//
//   auto service = DBusTestService::start("org.freedesktop.Notifications",
//       "/org/freedesktop/Notifications", xml,
//       [](const std::string& method, GVariant*) { return g_variant_new("(u)", 7u); });
//   ASSERT_TRUE(service->waitForCall("Notify", 5s));
#pragma once

#include <gio/gio.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace zorvane::testing {

class DBusTestService {
 public:
  // The reply (a tuple of the method's out arguments), or null to answer with an error.
  using Handler = std::function<GVariant*(const std::string& method, GVariant* parameters)>;
  struct Call {
    std::string method;
    std::string parameters;  // g_variant_print of the argument tuple
  };

  // Nothing when there is no session bus or the name is taken.
  static std::unique_ptr<DBusTestService> start(const std::string& name, const std::string& path,
                                                const std::string& interfaceXML, Handler handler);
  ~DBusTestService();

  // The first call of `method` from index `from` on, waiting up to `timeout` for it.
  std::optional<Call> waitForCall(const std::string& method, std::chrono::milliseconds timeout, size_t from = 0);
  std::vector<Call> calls() const;

  // Emits a signal of the object; `parameters` is consumed.
  void emit(const std::string& interface, const std::string& signal, GVariant* parameters);

 private:
  DBusTestService() = default;
  void serve();

  std::string name_, path_, xml_;
  Handler handler_;
  GMainContext* context_ = nullptr;
  GMainLoop* loop_ = nullptr;
  GDBusConnection* connection_ = nullptr;
  std::thread thread_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Call> calls_;
  std::optional<bool> ready_;
};

}  // namespace zorvane::testing
