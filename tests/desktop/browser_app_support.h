// Browsers and pages for the desktop tests: a folder served over HTTP on 127.0.0.1, and
// Debian's chromium started with a profile, a HOME and (optionally) a debugging port of
// its own. Both end their process by pid when they go out of scope (see DesktopApp).
//
//   auto site = PageServer::start({{"index.html", "<title>Hi</title>"}});
//   auto browser = TestChromium::start(site->url("/index.html"), freeLoopbackPort());
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "desktop/desktop_apps.h"
#include "support/test_support.h"

namespace zorvane::testing {

// A TCP port on 127.0.0.1 that nothing listened on a moment ago.
uint16_t freeLoopbackPort();

class PageServer {
 public:
  // Writes the files into a fresh folder and serves it (python3 -m http.server) on a
  // port of its choosing; nothing when python3 is missing or the server doesn't come up.
  static std::unique_ptr<PageServer> start(const std::map<std::string, std::string>& files);
  std::string url(const std::string& path) const;
  pid_t pid() const { return app_->pid(); }

 private:
  PageServer() = default;
  TempDir folder_;
  std::unique_ptr<DesktopApp> app_;
  uint16_t port_ = 0;
};

class TestChromium {
 public:
  // Starts chromium on `url`, without sandbox, GPU, first-run pages or background
  // networking, with its own profile and HOME. With a debugging port, returns once the
  // browser listens on it; without, once the browser's own executable runs (the wrapper
  // script has handed over). Nothing when chromium isn't installed or doesn't come up.
  static std::unique_ptr<TestChromium> start(const std::string& url, std::optional<uint16_t> debuggingPort);
  pid_t pid() const { return app_->pid(); }
  // The browser's profile folder (its DevToolsActivePort goes there).
  std::string profile() const { return home_.file("profile"); }
  // Opens `url` in a new window of this browser the way a user's second
  // `chromium --new-window` does: that process hands the URL over and exits.
  bool openWindow(const std::string& url) const;

 private:
  TestChromium() = default;
  TempDir home_;
  std::unique_ptr<DesktopApp> app_;
};

}  // namespace zorvane::testing
