#include "app/pieces/window_layout.h"

#include <gtest/gtest.h>

#include "platform/fake/fake_surfaces.h"
#include "platform/fake/fake_window_service.h"
#include "support/fake_time.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

using Move = FakeWindowService::MoveResize;

struct LayoutWorld : testing::FakeTime {
  testing::TempDir dir;
  testing::ScopedLogFile log{dir.file("zorvane.log")};
  FakeWindowService windows;
  FakeSurfaces surfaces;  // one 1920x1080 screen, its work area below a 28-point bar
  std::optional<WindowLayout> layout{std::in_place, windows, queue, surfaces};
  int completions = 0;

  std::shared_ptr<Anchor> window(uint32_t id, Rect frame) {
    windows.windowList.push_back(
        {.windowID = id, .x = frame.x, .y = frame.y, .width = frame.width, .height = frame.height});
    return std::make_shared<WindowAnchor>(windows, id, frame, true);
  }
  void makeRoom(const std::shared_ptr<Anchor>& anchor) {
    layout->makeRoom(anchor, 414, [this] { completions++; });
  }
};

// 414 points free on either side is room enough; 413 on both is not, and the window
// goes to the left edge of its own screen's work area, cut to leave the panel room.
TEST(WindowLayout, MovesOnlyWindowsWithoutRoomOnTheirOwnScreen) {
  LayoutWorld world;
  world.surfaces.screenList.push_back({{1920, 0, 1280, 800}, {1920, 0, 1280, 760}, false});
  world.makeRoom(world.window(1, {100, 50, 1406, 600}));    // 414 free on the right
  world.makeRoom(world.window(2, {414, 50, 1506, 600}));    // 414 free on the left
  world.makeRoom(world.window(3, {413, 50, 1094, 600}));    // 413 on each side
  world.makeRoom(world.window(4, {2000, 100, 1100, 500}));  // on the second screen
  world.surfaces.screenList[0].visibleFrame = {0, 28, 400, 1052};
  world.makeRoom(world.window(5, {10, 10, 380, 1200}));  // a work area narrower than the panel
  EXPECT_EQ(world.completions, 5);
  EXPECT_EQ(
      world.windows.moveResizes,
      (std::vector<Move>{{3, 8, 50, 1490, 600}, {4, 1928, 100, 850, 500}, {5, 8, 32, 380, 1040}}));
  EXPECT_TRUE(world.windows.leftFullScreen.empty());
}

// A too-wide window keeps its height when it fits below the top margin and is cut above
// the bottom margin when it doesn't; each resize is logged with both frames.
TEST(WindowLayout, KeepsTheHeightWhenItFits) {
  LayoutWorld world;
  world.makeRoom(world.window(1, {50, 20, 1800, 900}));
  world.makeRoom(world.window(2, {50, 100, 1800, 1000}));
  EXPECT_EQ(world.windows.moveResizes,
            (std::vector<Move>{{1, 8, 32, 1490, 900}, {2, 8, 100, 1490, 972}}));
  EXPECT_EQ(world.windows.window(2)->height, 972) << "the window service sees the new frame";
  EXPECT_NE(
      world.log.text().find("resizing window to make room for the chat: (50, 20, 1800, 900) → "
                            "(8, 32, 1490, 900)\n"),
      std::string::npos);
}

// A full-screen window leaves full screen at once and is fitted, with the completion,
// 1.1 seconds later, as the window manager has restored it by then.
TEST(WindowLayout, FullScreenIsLeftFirstAndFittedLater) {
  LayoutWorld world;
  auto anchor = world.window(7, {0, 0, 1920, 1080});
  world.windows.fullScreen.insert(7);
  world.makeRoom(anchor);
  EXPECT_EQ(world.windows.leftFullScreen, std::vector<uint32_t>{7});
  EXPECT_NE(
      world.log.text().find("window 7 is full screen; leaving full screen to dock the chat\n"),
      std::string::npos);
  world.windows.windowList[0] = {.windowID = 7, .x = 0, .y = 60, .width = 1900, .height = 700};
  world.clock->advance(1.05);
  world.queue.runUntilIdle();
  EXPECT_EQ(world.completions, 0);
  EXPECT_TRUE(world.windows.moveResizes.empty());
  world.clock->advance(0.1);
  world.queue.runUntilIdle();
  EXPECT_EQ(world.completions, 1);
  EXPECT_EQ(world.windows.moveResizes, (std::vector<Move>{{7, 8, 60, 1490, 700}}));
  EXPECT_EQ(anchor->frame().y, 60) << "the anchor was refreshed before the fit";

  // An anchor gone during the wait: nothing is fitted, the completion still runs.
  world.windows.fullScreen.insert(8);
  world.makeRoom(world.window(8, {0, 0, 1920, 1080}));  // the anchor dies at once
  world.clock->advance(1.2);
  world.queue.runUntilIdle();
  EXPECT_EQ(world.completions, 2);
  EXPECT_EQ(world.windows.moveResizes.size(), 1u);

  // A layout gone during the wait: nothing at all.
  world.windows.fullScreen.insert(7);
  world.makeRoom(anchor);
  world.layout.reset();
  world.clock->advance(1.2);
  world.queue.runUntilIdle();
  EXPECT_EQ(world.completions, 2);
}

// No window number, a window that is gone, no anchor: only the completion, silently.
TEST(WindowLayout, WithoutAWindowOnlyCompletes) {
  LayoutWorld world;
  world.makeRoom(std::make_shared<HiddenAnchor>(Rect{0, 0, 1900, 900}));
  world.makeRoom(std::make_shared<WindowAnchor>(world.windows, 42, Rect{0, 0, 1900, 900}, true));
  world.makeRoom(nullptr);
  EXPECT_EQ(world.completions, 3);
  EXPECT_TRUE(world.windows.moveResizes.empty());
  EXPECT_EQ(world.log.text(), "");
}

}  // namespace
}  // namespace zorvane
