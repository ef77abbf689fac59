// FakeInputMonitor: input events a test makes, delivered at once when started and of a
// kind the monitor listens to.
#pragma once

#include "platform/input_monitor.h"

namespace zorvane {

class FakeInputMonitor final : public InputMonitor {
 public:
  bool started = false;
  InputInterest interest;

  Expected<void> start(InputInterest wanted) override {
    started = true;
    interest = wanted;
    return ok();
  }
  void stop() override { started = false; }

  void send(const InputEvent& event) {
    if (!started || !onEvent) return;
    using Kind = InputEvent::Kind;
    bool isKey = event.kind == Kind::keyDown || event.kind == Kind::keyUp;
    bool isButton = event.kind == Kind::buttonDown || event.kind == Kind::buttonUp;
    if ((isKey && interest.keys) || (isButton && interest.buttons) || (event.kind == Kind::pointerMoved && interest.motion))
      onEvent(event);
  }
};

}  // namespace zorvane
