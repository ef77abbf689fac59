// QtMainQueue on a real Qt event loop: posts in order from any thread, timers that run
// when due, in arming order, and never once cancelled, whichever thread cancels.
#include "ui/shell/qt_main_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "ui/shell/qt_test_support.h"

namespace zorvane {

using ::testing::UnorderedElementsAre;

TEST(QtMainQueue, PostsRunOnItsThreadInOrderFromAnyThread) {
  testing::ScopedCoreApplication app;
  QtMainQueue queue;
  std::vector<int> order;
  bool allHere = queue.isCurrent();
  auto post = [&](int n) { queue.post([&, n] { order.push_back(n), allHere = allHere && queue.isCurrent(); }); };
  post(0);
  std::thread([&] {
    allHere = allHere && !queue.isCurrent();
    for (int n = 1; n < 200; n++) post(n);
  }).join();
  post(200);

  ASSERT_TRUE(testing::waitFor([&] { return order.size() == 201; })) << order.size() << " of 201 ran";
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_TRUE(allHere);
}

TEST(QtMainQueue, TimersRunWhenDueInArmingOrderAndNeverOnceCancelled) {
  testing::ScopedCoreApplication app;
  QtMainQueue queue;
  std::vector<std::string> ran;
  auto record = [&](std::string name) { return [&ran, name] { ran.push_back(name); }; };

  // Due together: they run in arming order, and the first cancels the second, already due.
  TimerID second = 0;
  queue.after(0.02, [&] {
    ran.push_back("first");
    queue.cancel(second);
  });
  second = queue.after(0.02, record("second"));
  queue.after(0.02, record("third"));
  // Cancelled at once; cancelling again, or an unknown id, does nothing.
  TimerID dropped = queue.after(0.01, record("dropped"));
  queue.cancel(dropped);
  queue.cancel(dropped);
  queue.cancel(987654);
  // Repeats until it cancels itself on its third run; `settled` is due well after any
  // fourth run would have been.
  int ticks = 0;
  bool settled = false;
  TimerID ticker = queue.every(0.005, [&] {
    if (++ticks < 3) return;
    queue.cancel(ticker);
    queue.after(0.05, [&] { settled = true; });
  });
  // Armed on another thread: runs here. Armed and cancelled there before the hop to this
  // thread (it can't happen while this thread waits in join): never runs.
  std::thread worker([&] {
    queue.after(0.01, [&] { ran.push_back(queue.isCurrent() ? "from worker" : "from worker, elsewhere"); });
    queue.cancel(queue.after(0, record("cancelled on worker")));
  });
  worker.join();
  // Due at once, and cancelled from another thread before this thread could run it.
  TimerID due = queue.after(0, record("cancelled while due"));
  std::thread([&] { queue.cancel(due); }).join();
  bool done = false;
  queue.after(0.1, [&] { done = true; });

  ASSERT_TRUE(testing::waitFor([&] { return done && settled; }));
  EXPECT_THAT(ran, UnorderedElementsAre("first", "third", "from worker"));
  EXPECT_LT(std::find(ran.begin(), ran.end(), "first"), std::find(ran.begin(), ran.end(), "third"));
  EXPECT_EQ(ticks, 3);
}

}  // namespace zorvane
