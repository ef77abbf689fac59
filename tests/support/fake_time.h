// FakeTime: a fake clock and the run loop on it, for tests of what waits. `pass` moves the
// clock on in steps of `step` seconds (all at once when 0) and runs what falls due at each.
#pragma once

#include <memory>

#include "core/base/run_loop.h"

namespace zorvane::testing {

struct FakeTime {
  explicit FakeTime(double step = 0.05) : step(step) {}

  void pass(double seconds) {
    double by = step > 0 ? step : seconds;
    for (double done = 0; done < seconds; done += by) {
      clock->advance(by);
      queue.runUntilIdle();
    }
  }

  double step;
  std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
  RunLoop queue{clock};
};

}  // namespace zorvane::testing
