#include "platform/linux/devtools_browser.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <set>
#include <string_view>
#include <thread>

#include "platform/linux/devtools_port.h"
#include "platform/linux/websocket_client.h"

namespace zorvane {
namespace {

using Clock = std::chrono::steady_clock;
using json = nlohmann::json;

constexpr size_t kMaxListBytes = size_t(8) << 20;

// Chromium rounds its bounds to whole units of its own: one unit of slack.
constexpr double kBoundsSlack = 1;
constexpr double kMinScale = 1, kMaxScale = 4;
constexpr auto kRetitlePause = std::chrono::milliseconds(50);

std::string secondsText(std::chrono::milliseconds duration) {
  auto tenths = (duration.count() + 50) / 100;
  std::string text = std::to_string(tenths / 10);
  if (tenths % 10) text += "." + std::to_string(tenths % 10);
  return text + (tenths == 10 ? " second" : " seconds");
}

// GET over HTTP/1.1 on loopback. The DevTools server doesn't answer HTTP/1.0; its answers
// carry a Content-Length (a close-delimited body is accepted too).
Expected<std::string> httpGet(uint16_t port, std::string_view path, Clock::time_point deadline) {
  auto connection = LoopbackConnection::open("127.0.0.1", port, deadline);
  if (!connection) return Failure{connection.error()};
  std::string request = "GET " + std::string(path) + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                        "\r\nAccept: application/json\r\nConnection: close\r\n\r\n";
  if (auto sent = (*connection)->sendAll(request, deadline); !sent) return Failure{sent.error()};

  std::string received;
  size_t headerEnd;
  while ((headerEnd = received.find("\r\n\r\n")) == std::string::npos) {
    if (received.size() > 64 * 1024) return Failure{"the answer's header is too long"};
    if (auto more = (*connection)->receiveSome(received, deadline); !more) return Failure{more.error()};
  }
  std::string header = received.substr(0, headerEnd);
  for (char& c : header) c = char(std::tolower(static_cast<unsigned char>(c)));
  if (header.rfind("http/1.1 200", 0) != 0 && header.rfind("http/1.0 200", 0) != 0)
    return Failure{"the server answered \"" + received.substr(0, received.find("\r\n")) + "\""};
  if (header.find("transfer-encoding: chunked") != std::string::npos) return Failure{"unexpected chunked answer"};

  std::optional<size_t> contentLength;
  if (size_t at = header.find("\r\ncontent-length:"); at != std::string::npos)
    contentLength = size_t(std::strtoull(header.c_str() + at + 17, nullptr, 10));
  if (contentLength && *contentLength > kMaxListBytes) return Failure{"the answer is too long"};

  std::string body = received.substr(headerEnd + 4);
  while (!contentLength || body.size() < *contentLength) {
    if (body.size() > kMaxListBytes) return Failure{"the answer is too long"};
    auto more = (*connection)->receiveSome(body, deadline);
    if (!more && !contentLength && more.error().find("closed by the other side") != std::string::npos) break;
    if (!more) return Failure{more.error()};
  }
  if (contentLength) body.resize(*contentLength);
  return body;
}

std::string stringField(const json& object, const char* name) {
  auto found = object.find(name);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

// One DevTools WebSocket connection, to the browser or to one page: commands go out with
// ids of their own and each waits for its reply, skipping the events in between.
class DevToolsConnection {
 public:
  // `path` is "/devtools/page/<id>" or "/devtools/browser/<id>"; `what` names the end
  // in failures ("the page", "the browser").
  static Expected<DevToolsConnection> open(uint16_t port, const std::string& path, const std::string& what,
                                           Clock::time_point deadline) {
    auto client = WebSocketClient::connect("ws://127.0.0.1:" + std::to_string(port) + path, deadline);
    if (!client) return Failure{"Couldn't open " + what + "'s DevTools connection: " + client.error()};
    return DevToolsConnection(std::move(*client), what);
  }

  // The reply's "result", or its error message as the failure.
  Expected<json> call(const std::string& method, json parameters, Clock::time_point deadline,
                      std::chrono::milliseconds allowed) {
    const int id = nextID_++;
    json command = {{"id", id}, {"method", method}, {"params", std::move(parameters)}};
    if (auto sent = client_->sendText(command.dump(), deadline); !sent)
      return Failure{"Couldn't send to " + what_ + ": " + sent.error()};
    std::string late = capitalized(what_) + " didn't answer within " + secondsText(allowed) + ".";
    for (;;) {
      // Messages for other callers don't extend the time the other end has to answer us.
      if (Clock::now() >= deadline) return Failure{late};
      auto message = client_->receiveText(deadline);
      if (!message) {
        if (Clock::now() >= deadline) return Failure{late};
        return Failure{capitalized(what_) + "'s DevTools connection broke: " + message.error()};
      }
      json reply = json::parse(*message, nullptr, false);
      if (reply.is_discarded() || !reply.is_object()) continue;
      auto replyID = reply.find("id");
      if (replyID == reply.end() || !replyID->is_number_integer() || replyID->get<int>() != id) continue;
      if (auto error = reply.find("error"); error != reply.end()) {
        std::string text = error->is_object() ? stringField(*error, "message") : std::string();
        std::string data = error->is_object() ? stringField(*error, "data") : std::string();
        if (!data.empty()) text += (text.empty() ? "" : ": ") + data;
        return Failure{text.empty() ? "the browser refused " + method : text};
      }
      auto result = reply.find("result");
      return result != reply.end() ? *result : json::object();
    }
  }

 private:
  DevToolsConnection(std::unique_ptr<WebSocketClient> client, std::string what)
      : client_(std::move(client)), what_(std::move(what)) {}
  static std::string capitalized(std::string text) {
    if (!text.empty()) text[0] = char(std::toupper(static_cast<unsigned char>(text[0])));
    return text;
  }

  std::unique_ptr<WebSocketClient> client_;
  std::string what_;
  int nextID_ = 1;
};

// One command to a page, on a connection of its own.
Expected<json> callPage(uint16_t port, const std::string& pageID, const std::string& method, json parameters,
                        Clock::time_point deadline, std::chrono::milliseconds allowed) {
  auto connection = DevToolsConnection::open(port, "/devtools/page/" + pageID, "the page", deadline);
  if (!connection) return Failure{connection.error()};
  return connection->call(method, std::move(parameters), deadline, allowed);
}

// The string form of a Runtime.evaluate result.
std::string resultText(const json& remote) {
  std::string type = stringField(remote, "type");
  std::string subtype = stringField(remote, "subtype");
  if (type == "undefined" || subtype == "null") return "(no result)";
  if (auto value = remote.find("value"); value != remote.end()) {
    if (value->is_null()) return "(no result)";
    if (value->is_string()) return value->get<std::string>();
    return value->dump();
  }
  // NaN, Infinity, -0, big integers ("12n").
  if (std::string unserializable = stringField(remote, "unserializableValue"); !unserializable.empty())
    return unserializable;
  if (std::string description = stringField(remote, "description"); !description.empty()) return description;
  return "(no result)";
}

std::string exceptionText(const json& details) {
  if (auto exception = details.find("exception"); exception != details.end() && exception->is_object()) {
    if (std::string description = stringField(*exception, "description"); !description.empty()) return description;
    if (auto value = exception->find("value"); value != exception->end() && !value->is_null())
      return value->is_string() ? value->get<std::string>() : value->dump();
  }
  std::string text = stringField(details, "text");
  return text.empty() ? "the script threw an exception" : text;
}

// The page targets (most recently active first), each with its browser window, read
// through one connection to the browser. Pages that have no browser window (yet, or any
// more) are left out.
Expected<std::vector<DevToolsPage>> listPages(uint16_t port, BrowserApp app, Clock::time_point deadline,
                                              std::chrono::milliseconds allowed) {
  std::string portText = std::to_string(port);
  auto unreachable = [&](const std::string& why) {
    return Failure{"Couldn't reach " + std::string(appName(app)) + "'s debugging port " + portText + ": " + why};
  };
  auto list = httpGet(port, "/json/list", deadline);
  if (!list) return unreachable(list.error());
  json targets = json::parse(*list, nullptr, false);
  if (!targets.is_array()) return Failure{"The debugging port " + portText + " didn't answer with a list of tabs."};
  std::vector<DevToolsPage> pages;
  for (const json& target : targets) {
    if (!target.is_object() || stringField(target, "type") != "page") continue;
    DevToolsPage page{stringField(target, "id"), stringField(target, "url"), stringField(target, "title")};
    if (!page.id.empty()) pages.push_back(std::move(page));
  }
  if (pages.empty()) return pages;

  auto version = httpGet(port, "/json/version", deadline);
  if (!version) return unreachable(version.error());
  json about = json::parse(*version, nullptr, false);
  std::string browserURL = about.is_object() ? stringField(about, "webSocketDebuggerUrl") : std::string();
  size_t pathAt = browserURL.find("/devtools/browser/");
  if (pathAt == std::string::npos)
    return Failure{"The debugging port " + portText + " didn't say where the browser itself answers."};
  auto browser = DevToolsConnection::open(port, browserURL.substr(pathAt), "the browser", deadline);
  if (!browser) return Failure{browser.error()};

  std::vector<DevToolsPage> placed;
  for (DevToolsPage& page : pages) {
    auto window = browser->call("Browser.getWindowForTarget", json{{"targetId", page.id}}, deadline, allowed);
    if (!window) {
      if (Clock::now() >= deadline) return Failure{window.error()};
      continue;  // a tab that closed meanwhile, or one in no window
    }
    auto id = window->find("windowId");
    auto bounds = window->find("bounds");
    if (id == window->end() || !id->is_number_integer() || bounds == window->end() || !bounds->is_object()) continue;
    auto number = [&](const char* name) {
      auto value = bounds->find(name);
      return value != bounds->end() && value->is_number() ? value->get<double>() : 0.0;
    };
    page.browserWindowID = id->get<int64_t>();
    page.bounds = Rect{number("left"), number("top"), number("width"), number("height")};
    placed.push_back(std::move(page));
  }
  return placed;
}

// The browser's port and the window's front page, or why there is none.
struct FrontPage {
  uint16_t port = 0;
  DevToolsPage page;
};

Expected<FrontPage> findFrontPage(const BrowserWindow& window, const DevToolsBrowserScripting::Options& options) {
  auto port = findDevToolsPort(window.pid, window.app, options.procRoot);
  if (!port) return Failure{port.error()};
  std::string browserName(appName(window.app));
  BrowserWindow current = window;
  const Clock::time_point lookUntil = Clock::now() + options.retitleWait;
  for (;;) {
    auto pages = listPages(port->port, window.app, Clock::now() + options.listTimeout, options.listTimeout);
    if (!pages) return Failure{pages.error()};
    if (pages->empty()) return Failure{browserName + " has no open tab."};
    DevToolsPageMatch match = matchWindowPage(current.frame, current.title, *pages);
    if (match.kind == DevToolsPageMatch::Kind::found) return FrontPage{port->port, std::move((*pages)[match.index])};
    if (match.kind == DevToolsPageMatch::Kind::several) {
      return Failure{"Several " + browserName + " windows have this window's place, size and title (\"" +
                     current.title + "\"), so which one it is can't be told; no page was touched. Move or resize "
                     "one of them, then retry."};
    }
    // The title bar may still show the page's previous title: look again shortly.
    if (!current.reread || Clock::now() + kRetitlePause > lookUntil) break;
    std::this_thread::sleep_for(kRetitlePause);
    if (!current.reread(current)) return Failure{"The browser window is gone."};
  }
  return Failure{"Couldn't tell which of " + browserName + "'s tabs shows in this window: none of its windows has "
                 "this window's place, size and title (\"" + current.title + "\"), so no page was touched. For a "
                 "window that shows no web page (settings, developer tools), use screenshot or read_ui_tree."};
}

// The title of the window's front tab as the window manager shows it: the tab's title
// alone, or followed by " - " and the browser's name (and a profile's, for some).
bool titleFits(const std::string& windowTitle, const std::string& pageTitle) {
  if (pageTitle.empty()) return false;
  if (windowTitle == pageTitle) return true;
  return windowTitle.size() > pageTitle.size() + 3 && windowTitle.compare(0, pageTitle.size(), pageTitle) == 0 &&
         windowTitle.compare(pageTitle.size(), 3, " - ") == 0;
}

// The browser's bounds, in its units, are the X11 client area divided by one scale.
bool boundsFit(const Rect& frame, const Rect& bounds) {
  if (bounds.width <= 0 || bounds.height <= 0 || frame.width <= 0 || frame.height <= 0) return false;
  double scale = frame.width / bounds.width;
  if (!(scale >= kMinScale - 0.01 && scale <= kMaxScale)) return false;
  double slack = kBoundsSlack * std::max(1.0, scale);
  return std::fabs(bounds.x * scale - frame.x) <= slack && std::fabs(bounds.y * scale - frame.y) <= slack &&
         std::fabs(bounds.height * scale - frame.height) <= slack;
}

}  // namespace

DevToolsBrowserScripting::DevToolsBrowserScripting() : DevToolsBrowserScripting(Options{}) {}

DevToolsBrowserScripting::DevToolsBrowserScripting(Options options) : options_(std::move(options)) {}

Expected<std::string> DevToolsBrowserScripting::frontTab(const BrowserWindow& window) {
  auto front = findFrontPage(window, options_);
  if (!front) return Failure{front.error()};
  return front->page.url + "\n" + front->page.title;
}

Expected<std::string> DevToolsBrowserScripting::evaluate(const BrowserWindow& window, const std::string& javaScript) {
  Clock::time_point deadline = Clock::now() + options_.scriptTimeout;
  auto front = findFrontPage(window, options_);
  if (!front) return Failure{front.error()};
  json parameters = {{"expression", javaScript}, {"returnByValue", true}, {"awaitPromise", true}};
  auto result = callPage(front->port, front->page.id, "Runtime.evaluate", std::move(parameters), deadline,
                         options_.scriptTimeout);
  if (!result) return Failure{result.error()};
  if (auto details = result->find("exceptionDetails"); details != result->end() && details->is_object())
    return Failure{exceptionText(*details)};
  auto remote = result->find("result");
  if (remote == result->end() || !remote->is_object()) return std::string("(no result)");
  return resultText(*remote);
}

Expected<void> DevToolsBrowserScripting::navigate(const BrowserWindow& window, const std::string& url) {
  Clock::time_point deadline = Clock::now() + options_.scriptTimeout;
  auto front = findFrontPage(window, options_);
  if (!front) return Failure{front.error()};
  auto result = callPage(front->port, front->page.id, "Page.navigate", json{{"url", url}}, deadline,
                         options_.scriptTimeout);
  if (!result) return Failure{result.error()};
  if (std::string errorText = stringField(*result, "errorText"); !errorText.empty()) return Failure{errorText};
  return ok();
}

DevToolsPageMatch matchWindowPage(const Rect& frame, const std::string& title, const std::vector<DevToolsPage>& pages) {
  DevToolsPageMatch match;
  std::set<int64_t> seen;
  for (size_t i = 0; i < pages.size(); ++i) {
    // Only a window's first page (its front tab) speaks for it.
    if (!seen.insert(pages[i].browserWindowID).second) continue;
    if (!boundsFit(frame, pages[i].bounds) || !titleFits(title, pages[i].title)) continue;
    if (match.kind == DevToolsPageMatch::Kind::found) return {DevToolsPageMatch::Kind::several, 0};
    match = {DevToolsPageMatch::Kind::found, i};
  }
  return match;
}

}  // namespace zorvane
