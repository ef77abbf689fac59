#include "desktop/browser_app_support.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "platform/linux/websocket_client.h"

namespace zorvane::testing {

using namespace std::chrono_literals;

uint16_t freeLoopbackPort() {
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return 0;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  uint16_t port = 0;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
    port = ntohs(address.sin_port);
  ::close(fd);
  return port;
}

std::unique_ptr<PageServer> PageServer::start(const std::map<std::string, std::string>& files) {
  std::string python = ::access("/usr/bin/python3", X_OK) == 0 ? "/usr/bin/python3" : findProgram("python3");
  if (python.empty()) return nullptr;
  std::unique_ptr<PageServer> server(new PageServer());
  for (const auto& [name, contents] : files) server->folder_.write(name, contents);
  // Port 0: the server picks a free one and names it in its first line.
  server->app_ = DesktopApp::start(
      {python, "-u", "-m", "http.server", "0", "--bind", "127.0.0.1", "--directory", server->folder_.path()});
  if (!server->app_) return nullptr;
  auto line = server->app_->waitForLine("Serving HTTP on ", 20s);
  if (!line) return nullptr;
  auto at = line->find(" port ");
  if (at == std::string::npos) return nullptr;
  server->port_ = uint16_t(std::atoi(line->c_str() + at + 6));
  if (server->port_ == 0) return nullptr;
  return server;
}

std::string PageServer::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::unique_ptr<TestChromium> TestChromium::start(const std::string& url, std::optional<uint16_t> debuggingPort) {
  std::string chromium = findProgram("chromium");
  if (chromium.empty()) return nullptr;
  std::unique_ptr<TestChromium> browser(new TestChromium());
  std::string profile = browser->profile();
  // The shell only drops chromium's chatter on standard error; `exec` keeps the pid.
  std::vector<std::string> argv = {"/bin/sh",
                                   "-c",
                                   "exec \"$0\" \"$@\" 2>/dev/null",
                                   chromium,
                                   "--no-sandbox",
                                   "--disable-gpu",
                                   "--no-first-run",
                                   "--no-default-browser-check",
                                   "--disable-background-networking",
                                   "--disable-component-update",
                                   "--disable-sync",
                                   "--password-store=basic",
                                   "--user-data-dir=" + profile};
  if (debuggingPort) argv.push_back("--remote-debugging-port=" + std::to_string(*debuggingPort));
  argv.push_back(url);
  // Chromium writes below HOME even with a profile folder of its own.
  browser->app_ = DesktopApp::start(argv, {{"HOME", browser->home_.path()},
                                           {"XDG_CONFIG_HOME", browser->home_.file("config")},
                                           {"XDG_CACHE_HOME", browser->home_.file("cache")}});
  if (!browser->app_) return nullptr;
  pid_t pid = browser->app_->pid();
  bool up = waitUntil(
      [&] {
        if (debuggingPort) {
          auto deadline = std::chrono::steady_clock::now() + 1s;
          return LoopbackConnection::open("127.0.0.1", *debuggingPort, deadline).hasValue();
        }
        std::error_code error;
        auto executable = std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", error);
        return !error && executable.filename() == "chromium";
      },
      30s);
  if (!up) return nullptr;
  return browser;
}

bool TestChromium::openWindow(const std::string& url) const {
  auto second = DesktopApp::start({"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>/dev/null", findProgram("chromium"),
                                   "--no-sandbox", "--user-data-dir=" + profile(), "--new-window", url},
                                  {{"HOME", home_.path()},
                                   {"XDG_CONFIG_HOME", home_.file("config")},
                                   {"XDG_CACHE_HOME", home_.file("cache")}});
  return second && waitUntil([&] { return !second->running(); }, 30s);
}

}  // namespace zorvane::testing
