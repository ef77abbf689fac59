// InkView inside a real Qt Quick window: where the goo lands, the clearing frame, idling,
// pausing and clip rectangles.
#include "ui/ink_view.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QQuickWindow>

#include <functional>

#include "ink_test_scenes.h"

namespace zorvane {

namespace {

// Processes events until `done` holds; false after `timeoutMs`.
bool waitFor(const std::function<bool()>& done, int timeoutMs = 10000) {
  QElapsedTimer clock;
  clock.start();
  while (!done()) {
    if (clock.elapsed() > timeoutMs) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 50);
  }
  return true;
}

bool near(QRgb pixel, int r, int g, int b) {
  return std::abs(qRed(pixel) - r) <= 3 && std::abs(qGreen(pixel) - g) <= 3 && std::abs(qBlue(pixel) - b) <= 3;
}

std::string describe(QRgb pixel) {
  return std::to_string(qRed(pixel)) + "," + std::to_string(qGreen(pixel)) + "," + std::to_string(qBlue(pixel));
}

}  // namespace

TEST(InkView, DrawsInItsWindowClearsIdlesPausesAndClips) {
  std::string why;
  if (!testing::ensureGuiApplication(why)) GTEST_SKIP() << why;

  QQuickWindow window;
  window.setColor(QColor(0x40, 0x60, 0x80));
  window.resize(320, 200);
  bool shapes = true;
  // A flat red blob at (60, 30) of a view placed at (40, 30): (100, 60) in the window,
  // off the middle so that a flipped y or a lost offset would show.
  auto* view = new InkView(60, [&](double, Size) {
    GooScene scene;
    if (shapes) scene.blobs = {{{60, 30}, 25}};
    scene.voidColor = {0.8f, 0.1f, 0.1f};
    return scene;
  }, window.contentItem());
  view->setPosition(QPointF(40, 30));
  view->setSize(QSizeF(240, 140));
  window.show();
  ASSERT_TRUE(waitFor([&] { return window.isExposed(); })) << "the window was never exposed";
  if (window.rendererInterface()->graphicsApi() != QSGRendererInterface::OpenGL)
    GTEST_SKIP() << "Qt Quick doesn't render with OpenGL here";
  ASSERT_TRUE(waitFor([&] { return view->stats().draws > 0; })) << "no frame was drawn";

  double dpr = window.effectiveDevicePixelRatio();
  auto at = [&](const QImage& image, double x, double y) { return image.pixel(int(x * dpr), int(y * dpr)); };
  QImage frame = window.grabWindow();
  EXPECT_TRUE(near(at(frame, 100, 60), 204, 26, 26)) << describe(at(frame, 100, 60));
  EXPECT_TRUE(near(at(frame, 100, 140), 0x40, 0x60, 0x80)) << "mirrored: " << describe(at(frame, 100, 140));
  EXPECT_TRUE(near(at(frame, 60, 30), 0x40, 0x60, 0x80)) << "offset lost: " << describe(at(frame, 60, 30));

  // The empty scene is handed off once, which clears the goo; then the view idles.
  uint64_t handOffs = view->stats().handOffs;
  shapes = false;
  ASSERT_TRUE(waitFor([&] { return view->stats().handOffs > handOffs && !view->isInFlight(); }));
  frame = window.grabWindow();
  EXPECT_TRUE(near(at(frame, 100, 60), 0x40, 0x60, 0x80)) << "not cleared: " << describe(at(frame, 100, 60));
  InkView::Stats idle = view->stats();
  ASSERT_TRUE(waitFor([&] { return view->stats().ticks >= idle.ticks + 20; }));
  window.grabWindow();  // Qt Quick renders again; an empty node draws nothing
  InkView::Stats after = view->stats();
  EXPECT_EQ(after.handOffs, idle.handOffs);
  EXPECT_EQ(after.draws, idle.draws);
  EXPECT_EQ(after.allocations, idle.allocations);

  view->setPaused(true);
  EXPECT_FALSE(view->isTicking());
  view->setPaused(false);
  EXPECT_TRUE(view->isTicking());

  // Clipped to the left half of the blob.
  view->setClipRects(std::vector<Rect>{{0, 0, 60, 140}});
  shapes = true;
  handOffs = view->stats().handOffs;
  ASSERT_TRUE(waitFor([&] { return view->stats().handOffs > handOffs && !view->isInFlight(); }));
  frame = window.grabWindow();
  EXPECT_TRUE(near(at(frame, 90, 60), 204, 26, 26)) << describe(at(frame, 90, 60));
  EXPECT_TRUE(near(at(frame, 110, 60), 0x40, 0x60, 0x80)) << "outside the clip: " << describe(at(frame, 110, 60));

  window.close();
}

}  // namespace zorvane
