// AtspiRuntime: libatspi for this process, set up once and shared by every user.
//
// libatspi keeps process-wide state: one connection to the accessibility bus, one cache
// of remote objects, one GLib main context on which the bus's messages are dispatched.
// This type owns that setup:
//   - `start()` connects, but only after checking on its own that the accessibility bus
//     answers: libatspi aborts the process when it can't reach the bus, and a failed
//     start can't be retried inside libatspi. Until the check passes, `start()` fails
//     and may be called again later.
//   - Messages are dispatched on a private main context, never the default one, so
//     pumping it runs libatspi's bookkeeping and nothing of the host's event loop.
//     `pump()` dispatches what has arrived without blocking. It must run before
//     cached properties are read, so that the change signals of the applications have
//     landed in the cache.
//   - Names, descriptions, roles, states and interfaces are cached (bulk-loaded from
//     each application, then kept current by its change signals, which this runtime
//     subscribes to). Children are never cached: toolkits report an object's index in
//     its parent inconsistently with their child order (GTK 3 header bars), and a cached
//     child list built from those indices shows the wrong tree.
//   - Each remote call waits at most `callTimeout`. An application that lets a call run
//     into that limit is taken as not answering for a quiet period; calls to it fail at
//     once meanwhile (see AtspiApp), so a hung application costs one time-out per
//     operation, not one per element.
//   - The switch that tells toolkits to expose their trees (org.a11y.Status.IsEnabled
//     on the session bus) is read and set here, over a private session connection.
//
// Everything here runs on one thread, the thread that called `start()` first; libatspi
// is not thread-safe.
#pragma once

#include <atspi/atspi.h>
#include <gio/gio.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/base/expected.h"
#include "platform/linux/atspi_app.h"

namespace zorvane {

class AtspiRuntime {
 public:
  // The process's one runtime.
  static AtspiRuntime& shared();

  // Connects to the accessibility bus if that hasn't happened yet. A failure says why
  // (no session bus, no accessibility bus) and leaves libatspi untouched.
  [[nodiscard]] Expected<void> start();
  bool started() const { return started_; }

  // Reads org.a11y.Status.IsEnabled and switches it on when it is off. True when it is
  // on afterwards; false when it can't be read or set.
  bool ensureAccessibilityEnabled();

  // Dispatches whatever the bus has delivered, without waiting.
  void pump();

  // The applications of the process `pid` on the desktop (usually one; none when not
  // started). Each root's cache mask is set before anything else is read from it.
  std::vector<std::shared_ptr<AtspiApp>> applicationsFor(int32_t pid);

  // Whether the registry (the desktop) answers.
  bool desktopAnswers();

  std::chrono::milliseconds callTimeout() const { return callTimeout_; }

 private:
  AtspiRuntime() = default;
  Expected<void> checkBusReachable();
  // The private session-bus connection, opened (again) when needed; null when the
  // session bus can't be reached.
  GDBusConnection* sessionBus();

  bool started_ = false;
  // libatspi's own start failed; it can't be started again in this process.
  bool broken_ = false;
  std::chrono::milliseconds callTimeout_{2000};
  std::chrono::milliseconds quietPeriod_{10000};
  GMainContext* context_ = nullptr;
  AtspiEventListener* listener_ = nullptr;
  GObjectPtr<GDBusConnection> session_;
  // Unique bus names are never reused on a bus, so what was learnt about one holds.
  std::unordered_map<std::string, std::shared_ptr<AtspiApp>> apps_;
};

}  // namespace zorvane
