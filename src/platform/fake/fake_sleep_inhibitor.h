// FakeSleepInhibitor: counts like the real one and answers at once: held, or
// unavailable when `grants` is false.
#pragma once

#include "platform/sleep_inhibitor.h"

namespace zorvane {

class FakeSleepInhibitor final : public SleepInhibitor {
 public:
  bool grants = true;
  int count = 0;
  std::string reason;  // of the request that is out

  void acquire(const std::string& why) override {
    if (++count > 1) return;
    reason = why;
    set(grants ? SleepHold::held : SleepHold::unavailable);
  }
  void release() override {
    if (count == 0 || --count > 0) return;
    reason.clear();
    set(SleepHold::released);
  }
  SleepHold state() const override { return hold_; }

 private:
  void set(SleepHold next) {
    if (hold_ == next) return;
    hold_ = next;
    if (onChange) onChange(next);
  }
  SleepHold hold_ = SleepHold::released;
};

}  // namespace zorvane
