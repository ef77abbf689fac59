// UnixSignals: TERM, INT and HUP become calls on the GUI thread, one at a time, and the
// handlers from before come back when it goes.
#include "ui/shell/unix_signals.h"

#include <gtest/gtest.h>

#include <QThread>

#include <algorithm>
#include <csignal>
#include <thread>
#include <vector>

#include <unistd.h>

#include "ui/shell/qt_test_support.h"

namespace zorvane {

namespace {
volatile sig_atomic_t previousHandlerRan = 0;
extern "C" void previousHandler(int) { previousHandlerRan = 1; }
}  // namespace

TEST(UnixSignals, CallsBackOnTheGuiThreadOneSignalAtATimeAndRestoresTheHandlers) {
  testing::ScopedCoreApplication app;
  previousHandlerRan = 0;
  struct sigaction previous = {}, saved = {};
  previous.sa_handler = previousHandler;
  sigemptyset(&previous.sa_mask);
  sigaction(SIGHUP, &previous, &saved);
  {
    std::vector<int> received;
    int depth = 0, deepest = 0;
    bool onGuiThread = true;
    UnixSignals installed([&](int number) {
      deepest = std::max(deepest, ++depth);
      received.push_back(number);
      onGuiThread = onGuiThread && QThread::currentThread() == QCoreApplication::instance()->thread();
      if (number == SIGTERM) {
        // A second signal arrives while this one is handled, and events are processed.
        raise(SIGINT);
        for (int i = 0; i < 3; i++) QCoreApplication::processEvents();
      }
      depth--;
    });
    ASSERT_TRUE(installed.isInstalled());

    raise(SIGTERM);
    ASSERT_TRUE(testing::waitFor([&] { return received.size() == 2; }));
    EXPECT_EQ(received, (std::vector<int>{SIGTERM, SIGINT}));
    EXPECT_EQ(deepest, 1);

    // Sent to the process from another thread: still called here.
    std::thread([] { kill(getpid(), SIGHUP); }).join();
    ASSERT_TRUE(testing::waitFor([&] { return received.size() == 3; }));
    EXPECT_EQ(received.back(), SIGHUP);
    EXPECT_TRUE(onGuiThread);
    EXPECT_EQ(previousHandlerRan, 0);
  }
  raise(SIGHUP);
  EXPECT_EQ(previousHandlerRan, 1);
  sigaction(SIGHUP, &saved, nullptr);
}

}  // namespace zorvane
