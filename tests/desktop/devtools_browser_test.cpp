#include "platform/x11/devtools_browser.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "desktop/browser_app_support.h"
#include "platform/x11/devtools_port.h"

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

// A window of the browser, as the window service would describe it.
BrowserWindow windowOf(pid_t pid) { return BrowserWindow{1, int32_t(pid), BrowserApp::chromium}; }

// The front tab of a real Chromium is read, scripted and sent elsewhere over its
// debugging port, and every kind of result comes back in its string form.
TEST(DevToolsBrowserScripting, ScriptsTheFrontTabOfARealChromium) {
  auto site = testing::PageServer::start(kSite);
  if (!site) GTEST_SKIP() << "python3 is not installed";
  auto browser = testing::TestChromium::start(site->url("/index.html"), testing::freeLoopbackPort());
  if (!browser) GTEST_SKIP() << "chromium is not installed or didn't start";
  DevToolsBrowserScripting scripting(DevToolsBrowserScripting::Options{3s, 1s});
  BrowserWindow window = windowOf(browser->pid());

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
// a sentence that says what is wrong.
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
}

// The debugging port is found from any process of the browser, in the forms browsers
// leave it: a flag, a port the browser chose and wrote down, a command line rewritten
// into one string; and the failures name the cause.
TEST(DevToolsPort, FindsThePortFromTheProcessTree) {
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
  };
  process(100, 1, "/usr/lib/chromium/chromium|--remote-debugging-port=9333|--user-data-dir=/p", "chromium");
  process(101, 100, "/usr/lib/chromium/chromium|--type=zygote", "chromium");
  process(102, 101, "/usr/lib/chromium/chromium|--type=renderer", "chromium");
  process(200, 1, "/opt/browser/bin --remote-debugging-port=0 --user-data-dir=" + profile.file("my profile") + " about:blank",
          "browser");
  profile.write("my profile/DevToolsActivePort", "41234\n/devtools/browser/abc\n");
  process(201, 200, "/opt/browser/bin --type=renderer", "browser");
  process(300, 1, "/usr/lib/chromium/chromium|--user-data-dir=" + profile.file("none"), "chromium");
  process(301, 300, "/usr/lib/chromium/chromium|--type=gpu-process", "chromium");
  process(400, 1, "/usr/bin/gtk3-widget-factory", "gtk3-widget-fac");

  struct Case {
    int pid;
    std::optional<int> port;
    std::string failure;
  };
  const Case cases[] = {
      {100, 9333, ""},
      {102, 9333, ""},  // from a renderer, two levels down
      {201, 41234, ""},
      {301, std::nullopt, "Chromium wasn't started with a debugging port"},
      {400, std::nullopt, "This window's process (gtk3-widget-fac, pid 400) isn't a Chromium-family browser"},
      {500, std::nullopt, "The browser's process 500 is gone."},
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

}  // namespace
}  // namespace zorvane
