// Drop resolution and restoration against the real Thunar, Chromium and X server, in the
// desktop that tests/desktop/file_manager_desktop.sh makes (Thunar alone on the bus, its
// details view chosen in a profile of the test's own).
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>

#include "app/resolver/drop_resolver.h"
#include "app/resolver/restorer.h"
#include "core/base/run_loop.h"
#include "desktop/browser_app_support.h"
#include "desktop/desktop_apps.h"
#include "desktop/file_manager_desktop_window.h"
#include "platform/desktop.h"
#include "platform/linux/file_manager_bus.h"

namespace zorvane {
namespace {

using namespace std::chrono_literals;
using testing::TempDir;

// Counts what the resolver asks of the accessibility bus and the browsers, passing the
// questions on to the real services.
class CountingAccessibility final : public AccessibilityService {
 public:
  explicit CountingAccessibility(AccessibilityService& real) : real_(real) {}
  int calls = 0;
  bool trusted() override { return real_.trusted(); }
  std::vector<std::shared_ptr<AccessibleElement>> windows(int32_t pid) override {
    ++calls;
    return real_.windows(pid);
  }
  std::shared_ptr<AccessibleElement> elementAt(int32_t pid, Point at) override {
    ++calls;
    return real_.elementAt(pid, at);
  }

 private:
  AccessibilityService& real_;
};
class CountingBrowsers final : public BrowserScripting {
 public:
  explicit CountingBrowsers(BrowserScripting& real) : real_(real) {}
  int calls = 0;
  Expected<std::string> frontTab(const BrowserWindow& window) override {
    ++calls;
    return real_.frontTab(window);
  }
  Expected<std::string> evaluate(const BrowserWindow& window, const std::string& js) override {
    ++calls;
    return real_.evaluate(window, js);
  }
  Expected<void> navigate(const BrowserWindow& window, const std::string& url) override {
    ++calls;
    return real_.navigate(window, url);
  }

 private:
  BrowserScripting& real_;
};

// The real window list, with `afterList` run once right after the first listing: the
// desktop changes between the list and what is asked next.
class ChangingWindows final : public WindowService {
 public:
  ChangingWindows(WindowService& real, std::function<void()> afterList) : real_(real), afterList_(std::move(afterList)) {}
  std::vector<WindowInfo> windows() override {
    std::vector<WindowInfo> list = real_.windows();
    if (auto change = std::exchange(afterList_, {})) change();
    return list;
  }
  std::optional<ApplicationInfo> application(int32_t pid) override { return real_.application(pid); }
  std::optional<WindowInfo> window(uint32_t id) override { return real_.window(id); }
  bool activate(uint32_t id) override { return real_.activate(id); }

 private:
  WindowService& real_;
  std::function<void()> afterList_;
};

class FileManagerDesktop : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* mode = std::getenv("ZORVANE_FILE_MANAGER_DESKTOP");
    if (!mode || std::string(mode) != "thunar")
      GTEST_SKIP() << "run by tests/desktop/file_manager_desktop.sh thunar (CTest: filemanager.headless)";
    if (testing::findProgram("thunar").empty()) GTEST_SKIP() << "thunar is not installed";
    desktop_ = Desktop::open();
    ASSERT_TRUE(desktop_->services().accessibility.trusted()) << "the accessibility bus isn't there";
  }
  DesktopServices& services() { return desktop_->services(); }

  // The first element, depth first, that `match` accepts, in the windows of `pid`.
  std::shared_ptr<AccessibleElement> findElement(int32_t pid,
                                                 const std::function<bool(AccessibleElement&)>& match) {
    std::function<std::shared_ptr<AccessibleElement>(const std::shared_ptr<AccessibleElement>&, int)> walk =
        [&](const std::shared_ptr<AccessibleElement>& element, int depth) -> std::shared_ptr<AccessibleElement> {
      if (match(*element)) return element;
      if (depth > 20) return nullptr;
      auto children = element->children();
      if (!children) return nullptr;
      for (auto& child : *children)
        if (auto found = walk(child, depth + 1)) return found;
      return nullptr;
    };
    for (auto& window : services().accessibility.windows(pid))
      if (auto found = walk(window, 1)) return found;
    return nullptr;
  }

  // A Thunar window on `folder` (a Thunar already running takes the request over) and the
  // frame of the row of `name` in it, once the row is on screen.
  struct ShownRow {
    std::unique_ptr<testing::DesktopApp> app;
    WindowInfo window;
    Rect row;
  };
  std::optional<ShownRow> showRow(const std::string& folder, const std::string& name) {
    ShownRow shown;
    shown.app = testing::DesktopApp::start({"thunar", folder});
    if (!shown.app) return std::nullopt;
    std::string title = URL::fileURL(folder, true).lastPathComponent() + " - Thunar";
    bool found = testing::waitUntil(
        [&] {
          for (const WindowInfo& window : services().windows.windows())
            if (window.title == title && window.onScreen) return shown.window = window, true;
          return false;
        },
        20s);
    if (!found) return std::nullopt;
    found = testing::waitUntil(
        [&] {
          auto cell = findElement(shown.window.ownerPID,
                                  [&](AccessibleElement& e) { return e.role() == "AXCell" && e.title() == name; });
          std::optional<Rect> frame = cell ? cell->frame() : std::nullopt;
          if (!frame || frame->isEmpty()) return false;
          shown.row = *frame;
          return true;
        },
        20s);
    if (!found) return std::nullopt;
    return shown;
  }

  std::unique_ptr<Desktop> desktop_;
};

Point middleOf(const Rect& frame) { return {frame.x + frame.width / 2, frame.y + frame.height / 2}; }

// A point over a file's row in Thunar's details view is that file, anchored on the row's
// cell in that window; a point over the rest of the window is the folder it shows.
TEST_F(FileManagerDesktop, ResolvesThunarRowsAndFolders) {
  TempDir root;
  for (const char* name : {"alpha.txt", "beta.txt", "gamma notes.txt"}) root.write(std::string("data/") + name, "x");
  std::string folder = root.file("data");
  auto thunar = testing::DesktopApp::start({"thunar", folder});
  ASSERT_TRUE(thunar);
  auto window = testing::waitForWindow(services().windows, thunar->pid(), 20s);
  ASSERT_TRUE(window) << "Thunar showed no window";

  std::shared_ptr<AccessibleElement> cell;
  ASSERT_TRUE(testing::waitUntil(
      [&] {
        cell = findElement(thunar->pid(), [](AccessibleElement& e) { return e.role() == "AXCell" && e.title() == "beta.txt"; });
        return cell && cell->frame() && !cell->frame()->isEmpty();
      },
      20s))
      << "no row for beta.txt: is the details view on?";
  Rect rowFrame = *cell->frame();

  DropResolver resolver(services());
  // The view settles a moment after its rows appear (its page only then says it is
  // showing): wait for the answer itself.
  std::optional<Resolved> onRow;
  testing::waitUntil(
      [&] {
        onRow = resolver.resolve(middleOf(rowFrame));
        return onRow && onRow->target.kind() == Target::Kind::file;
      },
      10s);
  ASSERT_TRUE(onRow);
  EXPECT_EQ(onRow->target, Target::file(URL::fileURL(folder + "/beta.txt"))) << onRow->target.encode().dump();
  EXPECT_EQ(onRow->anchor->kindName(), "ElementAnchor");
  EXPECT_EQ(onRow->anchor->frame(), rowFrame);
  EXPECT_EQ(onRow->anchor->windowID(), window->windowID);
  EXPECT_TRUE(onRow->anchor->tick());
  EXPECT_EQ(onRow->anchor->frame(), rowFrame);

  // Well below the three rows, inside the view.
  Point empty{rowFrame.x + 10, window->y + window->height - 60};
  auto onFolder = resolver.resolve(empty);
  ASSERT_TRUE(onFolder);
  EXPECT_EQ(onFolder->target, Target::folder(URL::fileURL(folder, true))) << onFolder->target.encode().dump();
  EXPECT_EQ(onFolder->anchor->kindName(), "WindowAnchor");
  EXPECT_EQ(onFolder->anchor->windowID(), window->windowID);

  // Off every screen: nothing.
  EXPECT_FALSE(resolver.resolve({-100000, -100000}));

  // The window closes: the anchors retire, with no X error that ends the process.
  thunar->stop();
  ASSERT_TRUE(testing::waitUntil([&] { return !services().windows.window(window->windowID); }, 10s));
  EXPECT_FALSE(onFolder->anchor->tick());
  EXPECT_FALSE(onRow->anchor->tick());
}

// A point over Chromium started with a debugging port is its front tab.
TEST_F(FileManagerDesktop, ResolvesChromiumTabs) {
  auto site = testing::PageServer::start({{"index.html", "<!doctype html><title>Drop here</title><h1>Hi</h1>"}});
  if (!site) GTEST_SKIP() << "python3 is not installed";
  auto browser = testing::TestChromium::start(site->url("/index.html"), testing::freeLoopbackPort());
  if (!browser) GTEST_SKIP() << "chromium is not installed or didn't start";
  auto window = testing::waitForWindow(services().windows, browser->pid(), 30s);
  ASSERT_TRUE(window);
  DropResolver resolver(services());
  Point inside = middleOf({window->x, window->y, window->width, window->height});
  Target expected = Target::browserTab(BrowserApp::chromium, window->windowID, *URL::parse(site->url("/index.html")),
                                       "Drop here");
  std::optional<Resolved> resolved;
  EXPECT_TRUE(testing::waitUntil(
      [&] {
        resolved = resolver.resolve(inside);
        return resolved && resolved->target == expected;
      },
      30s))
      << (resolved ? resolved->target.encode().dump() : "nothing");
}

// A window of a denied application (WM_CLASS of a password manager) gives nothing, and
// neither its accessibility tree nor any browser is asked.
TEST_F(FileManagerDesktop, DeniedWindowGivesNothing) {
  auto vault = testing::ClassedWindow::show("bitwarden", "com.bitwarden.desktop", "Vault", 100, 100, 400, 300);
  ASSERT_TRUE(vault);
  auto shown = testing::waitUntil(
      [&] {
        for (auto& w : services().windows.windows())
          if (w.windowID == vault->id() && w.onScreen) return true;
        return false;
      },
      10s);
  ASSERT_TRUE(shown);
  auto info = services().windows.window(vault->id());
  ASSERT_TRUE(info);

  CountingAccessibility accessibility(services().accessibility);
  CountingBrowsers browsers(services().browsers);
  DesktopServices counted{services().windows, accessibility, services().input, services().capture, browsers};
  // This process owns the window; a resolver of another process's point of view.
  DropResolver resolver(counted, -1);
  EXPECT_FALSE(resolver.resolve(middleOf({info->x, info->y, info->width, info->height})));
  EXPECT_EQ(accessibility.calls, 0);
  EXPECT_EQ(browsers.calls, 0);

  vault->destroy();
  EXPECT_FALSE(WindowAnchor(services().windows, vault->id(), {}, true).tick());
}

// A file in a folder no window shows: FileManager1 (Thunar, started on demand) shows it,
// and an attempt finds its row; the anchor is that row in the new window.
TEST_F(FileManagerDesktop, RestoresAFileThroughFileManager1) {
  TempDir root;
  for (const char* name : {"one.txt", "two.txt", "three.txt"}) root.write(std::string("kept/") + name, "x");
  std::string path = root.file("kept/two.txt");
  RunLoop queue;
  FileManagerBus bus(queue);
  Restorer restorer(services(), bus, queue);
  std::optional<std::optional<Resolved>> answer;
  restorer.resolve(Target::file(URL::fileURL(path)), [&](std::optional<Resolved> r) { answer = std::move(r); });
  ASSERT_TRUE(queue.runUntil([&] { return answer.has_value(); }, 30));
  ASSERT_TRUE(*answer) << "the file's row wasn't found";
  const Resolved& resolved = **answer;
  EXPECT_EQ(resolved.target, Target::file(URL::fileURL(path)));
  ASSERT_EQ(resolved.anchor->kindName(), "ElementAnchor");
  auto owner = bus.owner();
  ASSERT_TRUE(owner);
  ASSERT_TRUE(owner->app);
  EXPECT_EQ(owner->app->kind, FileManagerKind::thunar);
  auto element = std::static_pointer_cast<ElementAnchor>(resolved.anchor)->element();
  EXPECT_EQ(element->title(), "two.txt");
  ASSERT_TRUE(resolved.anchor->windowID());
  auto window = services().windows.window(*resolved.anchor->windowID());
  ASSERT_TRUE(window);
  EXPECT_EQ(window->ownerPID, owner->pid);
  EXPECT_EQ(window->title, "kept - Thunar");
}

// A Thunar window that closes between the window list and the questions about the point:
// nothing, or no more than a window target whose anchor retires at its first tick; no X
// error ends the process.
TEST_F(FileManagerDesktop, WindowClosingDuringResolve) {
  TempDir root;
  root.write("closing/leaving.txt", "x");
  auto shown = showRow(root.file("closing"), "leaving.txt");
  ASSERT_TRUE(shown) << "no Thunar window with the row of leaving.txt";
  uint32_t id = shown->window.windowID;
  bool gone = false;
  ChangingWindows windows(services().windows, [&] {
    ASSERT_TRUE(testing::closeWindow(id));
    gone = testing::waitUntil([&] { return !services().windows.window(id); }, 10s);
  });
  DesktopServices changing{windows, services().accessibility, services().input, services().capture,
                           services().browsers};
  DropResolver resolver(changing);
  std::optional<Resolved> answer = resolver.resolve(middleOf(shown->row));
  ASSERT_TRUE(gone) << "Thunar didn't close its window";
  if (answer) {
    EXPECT_NE(answer->target.kind(), Target::Kind::file) << answer->target.encode().dump();
    EXPECT_FALSE(answer->anchor->tick());
  }
}

// Thunar stopped (SIGSTOP) with its window on screen: a point over one of its rows is
// answered once the accessibility calls have run into their time-out, with the window
// alone (neither the file nor the folder can be read); a second point is answered
// without waiting again. Runs last: Thunar is then taken as not answering for a while.
TEST_F(FileManagerDesktop, StoppedThunarGivesItsWindow) {
  TempDir root;
  root.write("stopped/frozen.txt", "x");
  auto shown = showRow(root.file("stopped"), "frozen.txt");
  ASSERT_TRUE(shown) << "no Thunar window with the row of frozen.txt";
  pid_t pid = shown->window.ownerPID;
  ASSERT_EQ(::kill(pid, SIGSTOP), 0);
  struct Resume {
    pid_t pid;
    ~Resume() { ::kill(pid, SIGCONT); }
  } resume{pid};

  DropResolver resolver(services());
  for (Point at : {middleOf(shown->row), Point{shown->row.x + 5, shown->window.y + shown->window.height - 40}}) {
    auto started = std::chrono::steady_clock::now();
    std::optional<Resolved> answer = resolver.resolve(at);
    auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
    std::cout << "resolve over a stopped Thunar took " << took.count() << " ms\n";
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->target.kind(), Target::Kind::window) << answer->target.encode().dump();
    EXPECT_EQ(answer->anchor->windowID(), shown->window.windowID);
  }
}

}  // namespace
}  // namespace zorvane
