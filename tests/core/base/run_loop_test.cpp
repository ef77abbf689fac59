#include "core/base/run_loop.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace zorvane {
namespace {

// Posted tasks run in order, timers by due time then arming order, and a cancelled
// timer never runs, with time moved only by the fake clock.
TEST(RunLoop, OrdersTasksAndTimersOnAFakeClock) {
  auto clock = std::make_shared<FakeClock>();
  RunLoop loop(clock);
  std::vector<std::string> ran;
  loop.after(2, [&] { ran.push_back("t2"); });
  loop.after(1, [&] { ran.push_back("t1a"); });
  loop.after(1, [&] { ran.push_back("t1b"); });
  TimerID cancelled = loop.after(1, [&] { ran.push_back("cancelled"); });
  loop.post([&] { ran.push_back("p1"); });
  loop.post([&] { ran.push_back("p2"); });
  loop.cancel(cancelled);

  EXPECT_EQ(loop.runUntilIdle(), 2u);
  EXPECT_EQ(ran, (std::vector<std::string>{"p1", "p2"})) << "no timer is due before the clock moves";

  clock->advance(1.5);
  loop.runUntilIdle();
  EXPECT_EQ(ran, (std::vector<std::string>{"p1", "p2", "t1a", "t1b"}));

  clock->advance(1);
  loop.runUntilIdle();
  EXPECT_EQ(ran.back(), "t2");
  EXPECT_EQ(ran.size(), 5u);
}

// A repeating timer runs once per interval, can cancel itself from inside, and doesn't
// burst to catch up after a long pause.
TEST(RunLoop, RepeatingTimerBeatsAndCancels) {
  auto clock = std::make_shared<FakeClock>();
  RunLoop loop(clock);
  int beats = 0;
  TimerID timer = 0;
  timer = loop.every(10, [&] {
    if (++beats == 3) loop.cancel(timer);
  });
  for (int i = 0; i < 2; ++i) {
    clock->advance(10);
    loop.runUntilIdle();
  }
  EXPECT_EQ(beats, 2);
  clock->advance(1000);  // a long sleep: one beat, not a hundred
  loop.runUntilIdle();
  EXPECT_EQ(beats, 3);
  clock->advance(100);
  loop.runUntilIdle();
  EXPECT_EQ(beats, 3) << "the timer cancelled itself";
}

// Work posted from other threads reaches the loop's thread; run() returns on quit().
TEST(RunLoop, RunsPostsFromOtherThreadsUntilQuit) {
  RunLoop loop;
  std::vector<int> seen;
  std::thread::id loopThread;
  std::thread poster([&] {
    for (int i = 0; i < 100; ++i) loop.post([&, i] { seen.push_back(i); });
    loop.post([&] {
      loopThread = std::this_thread::get_id();
      EXPECT_TRUE(loop.isCurrent());
      loop.quit();
    });
  });
  loop.run();
  poster.join();
  ASSERT_EQ(seen.size(), 100u);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(seen[i], i);
  EXPECT_EQ(loopThread, std::this_thread::get_id());
  EXPECT_FALSE(RunLoop().isCurrent()) << "a loop that never ran owns no thread";
}

// runUntil stops when the condition holds and reports a time-out otherwise.
TEST(RunLoop, RunUntilWaitsForConditionOrTimesOut) {
  RunLoop loop;
  bool fired = false;
  loop.after(0.01, [&] { fired = true; });
  EXPECT_TRUE(loop.runUntil([&] { return fired; }, 5));
  EXPECT_FALSE(loop.runUntil([] { return false; }, 0.05));
}

}  // namespace
}  // namespace zorvane
