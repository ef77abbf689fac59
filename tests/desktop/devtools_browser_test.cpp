#include "platform/linux/devtools_browser.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "desktop/browser_app_support.h"
#include "platform/linux/devtools_port.h"
#include "platform/x11/x11_display.h"
#include "platform/x11/x11_window_service.h"

namespace zorvane {
namespace {

using namespace std::chrono_literals;
using testing::TempDir;

const std::map<std::string, std::string> kSite = {
    {"index.html", "<!doctype html><title>Zorvane test page</title><h1>Hello</h1>"},
    {"second.html", "<!doctype html><title>Second page</title><p>two</p>"},
};

// The value, or the failure marked as such, so that a mismatch shows the browser's text.
std::string textOf(const Expected<std::string>& result) { return result ? *result : "failed: " + result.error(); }

// A window of the browser process, for the failures that come before any page is looked
// for.
BrowserWindow windowOf(pid_t pid) { return BrowserWindow{1, int32_t(pid), BrowserApp::chromium}; }

// The browser's window as the window manager shows it, read again on request: what the
// window tools pass. Nothing without a display or a window.
std::optional<BrowserWindow> shownWindowOf(pid_t pid) {
  auto display = X11Display::open();
  if (!display) return std::nullopt;
  auto service = std::make_shared<X11WindowService>(display);
  auto found = testing::waitForWindow(*service, pid, 30s);
  if (!found) return std::nullopt;
  BrowserWindow window{found->windowID, int32_t(pid), BrowserApp::chromium};
  window.reread = [service](BrowserWindow& again) {
    auto now = service->window(again.windowID);
    if (!now) return false;
    again.frame = Rect{now->x, now->y, now->width, now->height};
    again.title = now->title;
    return true;
  };
  if (!window.reread(window)) return std::nullopt;
  return window;
}

// The front tab of a real Chromium is read, scripted and sent elsewhere over its
// debugging port, and every kind of result comes back in its string form.
TEST(DevToolsBrowserScripting, ScriptsTheFrontTabOfARealChromium) {
  auto site = testing::PageServer::start(kSite);
  if (!site) GTEST_SKIP() << "python3 is not installed";
  auto browser = testing::TestChromium::start(site->url("/index.html"), testing::freeLoopbackPort());
  if (!browser) GTEST_SKIP() << "chromium is not installed or didn't start";
  DevToolsBrowserScripting scripting(DevToolsBrowserScripting::Options{3s, 1s});
  auto shown = shownWindowOf(browser->pid());
  ASSERT_TRUE(shown) << "no window of the browser on the display";
  BrowserWindow window = *shown;

  // The page may still be loading when the port opens: wait for its title.
  std::string expectedTab = site->url("/index.html") + "\nZorvane test page";
  ASSERT_TRUE(testing::waitUntil([&] { return textOf(scripting.frontTab(window)) == expectedTab; }, 20s))
      << textOf(scripting.frontTab(window));

  EXPECT_EQ(textOf(scripting.evaluate(window, "document.title")), "Zorvane test page");
  EXPECT_EQ(textOf(scripting.evaluate(window, "1+1")), "2");
  EXPECT_EQ(textOf(scripting.evaluate(window, "undefined")), "(no result)");
  EXPECT_EQ(textOf(scripting.evaluate(window, "null")), "(no result)");
  EXPECT_EQ(textOf(scripting.evaluate(window, "({a: 1, b: [true, 'x']})")), R"({"a":1,"b":[true,"x"]})");
  EXPECT_EQ(textOf(scripting.evaluate(window, "Promise.resolve('later')")), "later");
  // Bigger than one 16-bit WebSocket frame.
  EXPECT_EQ(textOf(scripting.evaluate(window, "'y'.repeat(200000)")).size(), 200000u);

  auto thrown = scripting.evaluate(window, "throw new Error('boom')");
  ASSERT_FALSE(thrown);
  EXPECT_EQ(thrown.error().rfind("Error: boom", 0), 0u) << thrown.error();

  auto stuck = scripting.evaluate(window, "new Promise(() => {})");
  ASSERT_FALSE(stuck);
  EXPECT_EQ(stuck.error(), "The page didn't answer within 1 second.");

  ASSERT_TRUE(scripting.navigate(window, site->url("/second.html")));
  std::string secondTab = site->url("/second.html") + "\nSecond page";
  EXPECT_TRUE(testing::waitUntil([&] { return textOf(scripting.frontTab(window)) == secondTab; }, 20s))
      << textOf(scripting.frontTab(window));

  // Nothing listens on that port: the browser's own error comes back.
  auto refused = scripting.navigate(window, "http://127.0.0.1:" + std::to_string(testing::freeLoopbackPort()) + "/");
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error(), "net::ERR_CONNECTION_REFUSED");
}

// A browser without a debugging port, and a window whose process is no browser, each get
// a sentence that says what is wrong; a DevToolsActivePort in the browser's profile that
// names a port this test listens on gets no script, and the failure names who holds it.
TEST(DevToolsBrowserScripting, ExplainsWhyAWindowCantBeScripted) {
  auto site = testing::PageServer::start(kSite);
  if (!site) GTEST_SKIP() << "python3 is not installed";
  auto browser = testing::TestChromium::start(site->url("/index.html"), std::nullopt);
  if (!browser) GTEST_SKIP() << "chromium is not installed or didn't start";
  DevToolsBrowserScripting scripting;

  auto noPort = scripting.evaluate(windowOf(browser->pid()), "1");
  ASSERT_FALSE(noPort);
  EXPECT_EQ(noPort.error(),
            "Chromium wasn't started with a debugging port, so its pages can't be scripted. Quit it and start it "
            "with --remote-debugging-port=9222 (for example: chromium --remote-debugging-port=9222).");

  auto notBrowser = scripting.frontTab(windowOf(site->pid()));
  ASSERT_FALSE(notBrowser);
  EXPECT_NE(notBrowser.error().find("pid " + std::to_string(site->pid()) + ") isn't a Chromium-family browser"),
            std::string::npos)
      << notBrowser.error();

  int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_GE(listener, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(listener, 4), 0);
  ASSERT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
  std::filesystem::create_directories(browser->profile());  // the browser may not have made it yet
  std::ofstream(browser->profile() + "/DevToolsActivePort") << ntohs(address.sin_port) << "\n/devtools/browser/stale\n";

  std::ifstream commFile("/proc/self/comm");
  std::string comm;
  std::getline(commFile, comm);
  auto refused = scripting.evaluate(windowOf(browser->pid()), "document.cookie");
  ASSERT_FALSE(refused);
  EXPECT_NE(refused.error().find("is held by " + comm + " (pid " + std::to_string(::getpid()) +
                                 "), not by the browser (pid " + std::to_string(browser->pid()) + ")"),
            std::string::npos)
      << refused.error();
  pollfd pending{listener, POLLIN, 0};
  EXPECT_EQ(::poll(&pending, 1, 0), 0) << "nothing connected to the port";
  ::close(listener);
}

// The debugging port is found from any process of the browser, in the forms browsers
// leave it: a flag, a port the browser chose and wrote down, a command line rewritten
// into one string; it is given out only while the browser itself listens on it; and the
// failures name the cause.
TEST(DevToolsPort, FindsThePortTheBrowserHolds) {
  TempDir proc;
  TempDir profile;
  // One process below a fake /proc: its command line (NUL-separated words, or one
  // string), its parent, and its name.
  auto process = [&](int pid, int parent, std::string commandLine, const std::string& name) {
    for (char& c : commandLine)
      if (c == '|') c = '\0';
    proc.write(std::to_string(pid) + "/cmdline", commandLine);
    proc.write(std::to_string(pid) + "/stat", std::to_string(pid) + " (" + name + ") S " + std::to_string(parent) + " 1");
    proc.write(std::to_string(pid) + "/comm", name + "\n");
    std::filesystem::create_directories(proc.file(std::to_string(pid) + "/fd"));
  };
  // A socket of `pid` (an open file) in a state on an address of net/tcp or net/tcp6.
  std::map<std::string, std::string> tables = {{"tcp", "  sl  local_address rem_address   st ...\n"},
                                                {"tcp6", "  sl  local_address remote_address st ...\n"}};
  int nextInode = 5000;
  auto socket = [&](int pid, const std::string& table, const std::string& address, int port, const char* state) {
    int inode = nextInode++;
    char line[256];
    std::snprintf(line, sizeof line, "0: %s:%04X 00000000:0000 %s 00000000:00000000 00:00000000 0 1000 0 %d\n",
                  address.c_str(), port, state, inode);
    tables[table] += line;
    std::filesystem::create_symlink("socket:[" + std::to_string(inode) + "]",
                                    proc.file(std::to_string(pid) + "/fd/" + std::to_string(inode)));
  };
  const std::string loopback = "0100007F", anyIPv4 = "00000000", anyIPv6 = std::string(32, '0');
  process(100, 1, "/usr/lib/chromium/chromium|--remote-debugging-port=9333|--user-data-dir=/p", "chromium");
  process(101, 100, "/usr/lib/chromium/chromium|--type=zygote", "chromium");
  process(102, 101, "/usr/lib/chromium/chromium|--type=renderer", "chromium");
  socket(100, "tcp", loopback, 9333, "0A");
  process(200, 1, "/opt/browser/bin --remote-debugging-port=0 --user-data-dir=" + profile.file("my profile") + " about:blank",
          "browser");
  profile.write("my profile/DevToolsActivePort", "41234\n/devtools/browser/abc\n");
  process(201, 200, "/opt/browser/bin --type=renderer", "browser");
  socket(200, "tcp6", anyIPv6, 41234, "0A");
  process(300, 1, "/usr/lib/chromium/chromium|--user-data-dir=" + profile.file("none"), "chromium");
  process(301, 300, "/usr/lib/chromium/chromium|--type=gpu-process", "chromium");
  process(400, 1, "/usr/bin/gtk3-widget-factory", "gtk3-widget-fac");
  process(700, 1, "/usr/bin/python3|-m|http.server", "python3");
  // The port on the command line is another program's.
  process(600, 1, "/usr/lib/chromium/chromium|--remote-debugging-port=9400", "chromium");
  socket(700, "tcp", loopback, 9400, "0A");
  // A DevToolsActivePort left by an earlier run; on that port only a listener on another
  // address and a connection that isn't listening.
  process(800, 1, "/usr/lib/chromium/chromium|--user-data-dir=" + profile.file("stale"), "chromium");
  profile.write("stale/DevToolsActivePort", "9500\n/devtools/browser/old\n");
  socket(700, "tcp", "0200007F", 9500, "0A");
  socket(700, "tcp", loopback, 9500, "01");
  process(900, 1, "/usr/lib/chromium/chromium|--remote-debugging-port=9600", "chromium");
  // The browser listens, and so does another program on every address.
  process(1000, 1, "/usr/lib/chromium/chromium|--remote-debugging-port=9700", "chromium");
  socket(1000, "tcp", loopback, 9700, "0A");
  socket(700, "tcp", anyIPv4, 9700, "0A");
  for (const auto& [table, contents] : tables) proc.write("net/" + table, contents);

  struct Case {
    int pid;
    std::optional<int> port;
    std::string failure;
  };
  const std::string heldBy = "is held by python3 (pid 700), not by the browser";
  const Case cases[] = {
      {100, 9333, ""},
      {102, 9333, ""},  // from a renderer, two levels down
      {201, 41234, ""},
      {301, std::nullopt, "Chromium wasn't started with a debugging port"},
      {400, std::nullopt, "This window's process (gtk3-widget-fac, pid 400) isn't a Chromium-family browser"},
      {500, std::nullopt, "The browser's process 500 is gone."},
      {600, std::nullopt, "Port 9400, where Chromium's debugging server should be, " + heldBy + " (pid 600)"},
      {800, std::nullopt, "Chromium wasn't started with a debugging port"},
      {900, std::nullopt, "Chromium was started with --remote-debugging-port=9600 but nothing listens on port 9600"},
      {1000, std::nullopt, "Port 9700, where Chromium's debugging server should be, " + heldBy + " (pid 1000)"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.pid);
    auto found = findDevToolsPort(test.pid, BrowserApp::chromium, proc.path());
    if (test.port) {
      ASSERT_TRUE(found) << found.error();
      EXPECT_EQ(found->port, *test.port);
    } else {
      ASSERT_FALSE(found);
      EXPECT_EQ(found.error().rfind(test.failure, 0), 0u) << found.error();
    }
  }
}

// Which page shows in an X11 window: the front tab of the one browser window with the
// same place, size (at one scale) and title; a background tab doesn't speak for its
// window, and two windows alike are refused.
TEST(DevToolsBrowserScripting, MatchesAWindowToItsFrontTab) {
  using Kind = DevToolsPageMatch::Kind;
  const std::vector<DevToolsPage> pages = {
      {"b1", "", "Beta page", 2, {20, 20, 1050, 780}},
      {"a2", "", "Alpha background", 1, {10, 10, 1050, 780}},
      {"a1", "", "Alpha page", 1, {10, 10, 1050, 780}},
      {"g1", "", "Gamma", 3, {5, 5, 620, 380}},
  };
  std::vector<DevToolsPage> twins = pages;
  twins.push_back({"b2", "", "Beta page", 4, {20, 20, 1050, 780}});
  struct Case {
    Rect frame;
    std::string title;
    bool withTwin;
    Kind kind;
    size_t index;
  };
  const Case cases[] = {
      {{10, 10, 1050, 780}, "Alpha background - Chromium", false, Kind::found, 1},
      {{10, 10, 1050, 780}, "Alpha background", false, Kind::found, 1},
      {{11, 9, 1050, 781}, "Alpha background - Chromium", false, Kind::found, 1},
      {{20, 20, 1050, 780}, "Beta page - Chromium", false, Kind::found, 0},
      {{10, 10, 1240, 760}, "Gamma - Chromium", false, Kind::found, 3},  // at a scale of 2
      {{10, 10, 1050, 780}, "Alpha page - Chromium", false, Kind::none, 0},  // a background tab
      {{20, 20, 1050, 780}, "Alpha background - Chromium", false, Kind::none, 0},
      {{13, 10, 1050, 780}, "Alpha background - Chromium", false, Kind::none, 0},
      {{10, 10, 1050, 780}, "Alpha backgrounds", false, Kind::none, 0},
      {{10, 10, 525, 390}, "Alpha background - Chromium", false, Kind::none, 0},  // a scale below 1
      {{20, 20, 1050, 780}, "Beta page - Chromium", true, Kind::several, 0},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.title + " at " + std::to_string(test.frame.x) + "," + std::to_string(test.frame.width));
    DevToolsPageMatch match = matchWindowPage(test.frame, test.title, test.withTwin ? twins : pages);
    EXPECT_EQ(match.kind, test.kind);
    if (test.kind == Kind::found) {
      EXPECT_EQ(match.index, test.index);
    }
  }
}

}  // namespace
}  // namespace zorvane
