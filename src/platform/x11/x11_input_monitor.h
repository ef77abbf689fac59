// X11InputMonitor: the global input monitor from XInput 2 raw events (key and button
// presses and releases, motion) selected on the root window of a connection and reader
// thread of its own (EventConnection). Raw events reach every client that asks, whoever
// has the focus or a grab, and include what XTest makes.
//
// Raw events carry no pointer position and no modifier state. The modifiers are followed
// through the raw key events themselves (so keys are read whenever the monitor runs, and
// reported only when asked for), starting from the server's state at `start`; an event
// carries those held before it. The position is asked of the server (one pointer query)
// when a key or button is handed over, and once per batch of motion.
//
// `start` and `stop` wait for the reader thread (one round trip). `start` fails with a
// clear text when the server has no XInput 2.2. Lives on the main queue; see
// platform/input_monitor.h.
#pragma once

#include <memory>
#include <string>

#include "core/base/main_queue.h"
#include "platform/input_monitor.h"

namespace zorvane {

class X11InputMonitor final : public InputMonitor {
 public:
  // Opens a connection to `displayName` (or $DISPLAY); fails when none can be opened.
  [[nodiscard]] static Expected<std::unique_ptr<X11InputMonitor>> create(MainQueue& queue = MainQueue::main(),
                                                                         const std::string& displayName = "");
  ~X11InputMonitor() override;

  [[nodiscard]] Expected<void> start(InputInterest interest) override;
  void stop() override;

 private:
  struct Impl;
  explicit X11InputMonitor(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace zorvane
