// Desktop icons drawn by `pcmanfm --desktop` (GTK 2, with the accessibility bridge
// loaded), in the desktop that tests/desktop/file_manager_desktop.sh pcmanfm makes: a
// fresh HOME whose ~/Desktop holds "desk note.txt", "plan.md" and the folder "Projects".
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "app/resolver/drop_resolver.h"
#include "app/resolver/restorer.h"
#include "core/base/run_loop.h"
#include "desktop/desktop_apps.h"
#include "platform/desktop.h"
#include "platform/linux/file_manager_bus.h"
#include "platform/x11/x11_display.h"
#include "platform/x11/x11_window_service.h"

namespace zorvane {
namespace {

using namespace std::chrono_literals;

class PcmanfmDesktop : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* mode = std::getenv("ZORVANE_FILE_MANAGER_DESKTOP");
    if (!mode || std::string(mode) != "pcmanfm")
      GTEST_SKIP() << "run by tests/desktop/file_manager_desktop.sh pcmanfm (CTest: filemanager.pcmanfm.headless)";
    if (testing::findProgram("pcmanfm").empty()) GTEST_SKIP() << "pcmanfm is not installed";
    // pcmanfm 1.3.2 crashes in its desktop's accessibility code when a client listens to
    // the accessibility bus while it builds its icons (this process's AT-SPI runtime
    // listens from the start): its window comes up before this process connects.
    pcmanfm_ = testing::DesktopApp::start({"pcmanfm", "--desktop"}, {{"GTK_MODULES", "gail:atk-bridge"}});
    ASSERT_TRUE(pcmanfm_);
    {
      std::shared_ptr<X11Display> display = X11Display::open();
      ASSERT_TRUE(display) << "no X display";
      X11WindowService windows(display);
      ASSERT_TRUE(testing::waitForWindow(windows, pcmanfm_->pid(), 20s)) << "pcmanfm showed no desktop window";
    }
    desktop_ = Desktop::open();
    ASSERT_TRUE(desktop_->services().accessibility.trusted()) << "the accessibility bus isn't there";
  }
  DesktopServices& services() { return desktop_->services(); }

  // The frame of the desktop icon named `name`, once pcmanfm shows it.
  std::optional<Rect> iconFrame(const std::string& name) {
    std::optional<Rect> found;
    testing::waitUntil(
        [&] {
          for (auto& window : services().accessibility.windows(pcmanfm_->pid())) {
            auto icons = window->children();
            if (!icons) continue;
            for (auto& icon : *icons) {
              if (icon->title() != name) continue;
              found = icon->frame();
              if (found && !found->isEmpty()) return true;
            }
          }
          return false;
        },
        20s);
    return found;
  }
  static std::string desktopFolder() { return std::string(std::getenv("HOME")) + "/Desktop"; }

  std::unique_ptr<Desktop> desktop_;
  std::unique_ptr<testing::DesktopApp> pcmanfm_;
};

Point middleOf(const Rect& frame) { return {frame.x + frame.width / 2, frame.y + frame.height / 2}; }

// A point over a desktop icon is its file (or folder), anchored on the icon with no
// window; a point on the bare desktop is nothing; restoring a file of the desktop finds
// its icon, again with no window.
TEST_F(PcmanfmDesktop, ResolvesAndRestoresDesktopIcons) {
  std::optional<Rect> note = iconFrame("desk note.txt");
  ASSERT_TRUE(note) << "pcmanfm shows no icon for 'desk note.txt'";
  std::optional<Rect> projects = iconFrame("Projects");
  ASSERT_TRUE(projects);
  auto desktopWindow = testing::waitForWindow(services().windows, pcmanfm_->pid(), 20s);
  ASSERT_TRUE(desktopWindow);
  EXPECT_NE(desktopWindow->layer, 0) << "the desktop window should lie below the application windows";

  DropResolver resolver(services());
  URL noteURL = URL::fileURL(desktopFolder() + "/desk note.txt");
  std::optional<Resolved> onNote = resolver.resolve(middleOf(*note));
  ASSERT_TRUE(onNote) << "nothing over the icon of 'desk note.txt'";
  EXPECT_EQ(onNote->target, Target::file(noteURL)) << onNote->target.encode().dump();
  EXPECT_EQ(onNote->anchor->kindName(), "ElementAnchor");
  EXPECT_FALSE(onNote->anchor->windowID());
  EXPECT_EQ(onNote->anchor->frame(), *note);
  EXPECT_TRUE(onNote->anchor->tick());
  EXPECT_TRUE(onNote->anchor->isOnScreen());

  std::optional<Resolved> onProjects = resolver.resolve(middleOf(*projects));
  ASSERT_TRUE(onProjects);
  EXPECT_EQ(onProjects->target, Target::folder(URL::fileURL(desktopFolder() + "/Projects", true)))
      << onProjects->target.encode().dump();

  // The icons stand in a column at the left; the lower right of the screen is bare.
  Point bare{desktopWindow->x + desktopWindow->width - 40, desktopWindow->y + desktopWindow->height - 40};
  EXPECT_FALSE(resolver.resolve(bare));

  RunLoop queue;
  FileManagerBus bus(queue);
  Restorer restorer(services(), bus, queue);
  URL planURL = URL::fileURL(desktopFolder() + "/plan.md");
  std::optional<Rect> plan = iconFrame("plan.md");
  ASSERT_TRUE(plan);
  std::optional<Resolved> found = restorer.findIcon(planURL, Target::file(planURL));
  ASSERT_TRUE(found) << "findIcon missed plan.md on the desktop";
  EXPECT_EQ(found->target, Target::file(planURL));
  EXPECT_EQ(found->anchor->kindName(), "ElementAnchor");
  EXPECT_FALSE(found->anchor->windowID());
  EXPECT_EQ(found->anchor->frame(), *plan);

  // resolve finds the icon at once: no reveal, the completion runs before it returns.
  std::optional<std::optional<Resolved>> restored;
  restorer.resolve(Target::file(noteURL), [&](std::optional<Resolved> r) { restored = std::move(r); });
  ASSERT_TRUE(restored.has_value());
  ASSERT_TRUE(*restored);
  EXPECT_FALSE((*restored)->anchor->windowID());
  EXPECT_EQ((*restored)->anchor->frame(), *note);
}

}  // namespace
}  // namespace zorvane
