#include "platform/x11/devtools_browser.h"

#include <nlohmann/json.hpp>

#include <cctype>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "platform/x11/devtools_port.h"
#include "platform/x11/websocket_client.h"

namespace zorvane {
namespace {

using Clock = std::chrono::steady_clock;
using json = nlohmann::json;

constexpr size_t kMaxListBytes = size_t(8) << 20;

struct PageTarget {
  std::string id, url, title;
};

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

// Sends one command to a page and waits for its reply, skipping the events in between.
// The reply's "result", or its error message as the failure.
Expected<json> callPage(uint16_t port, const PageTarget& page, const std::string& method, json parameters,
                        Clock::time_point deadline, std::chrono::milliseconds allowed) {
  std::string url = "ws://127.0.0.1:" + std::to_string(port) + "/devtools/page/" + page.id;
  auto client = WebSocketClient::connect(url, deadline);
  if (!client) return Failure{"Couldn't open the page's DevTools connection: " + client.error()};
  constexpr int kCallID = 1;
  json command = {{"id", kCallID}, {"method", method}, {"params", std::move(parameters)}};
  if (auto sent = (*client)->sendText(command.dump(), deadline); !sent)
    return Failure{"Couldn't send to the page: " + sent.error()};

  for (;;) {
    // Messages for other callers don't extend the time the page has to answer us.
    if (Clock::now() >= deadline) return Failure{"The page didn't answer within " + secondsText(allowed) + "."};
    auto message = (*client)->receiveText(deadline);
    if (!message) {
      if (Clock::now() >= deadline) return Failure{"The page didn't answer within " + secondsText(allowed) + "."};
      return Failure{"The page's DevTools connection broke: " + message.error()};
    }
    json reply = json::parse(*message, nullptr, false);
    if (reply.is_discarded() || !reply.is_object()) continue;
    auto id = reply.find("id");
    if (id == reply.end() || !id->is_number_integer() || id->get<int>() != kCallID) continue;
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

// The browser's port and front page, or why there is none.
struct FrontPage {
  uint16_t port = 0;
  PageTarget page;
};

Expected<FrontPage> findFrontPage(const BrowserWindow& window, const DevToolsBrowserScripting::Options& options) {
  auto port = findDevToolsPort(window.pid, window.app, options.procRoot);
  if (!port) return Failure{port.error()};
  auto list = httpGet(port->port, "/json/list", Clock::now() + options.listTimeout);
  if (!list) {
    // A DevToolsActivePort left behind by an earlier run names a port nobody serves.
    if (!port->fromCommandLine) return Failure{noDebuggingPortText(window.app)};
    return Failure{"Couldn't reach " + std::string(appName(window.app)) + "'s debugging port " +
                   std::to_string(port->port) + ": " + list.error()};
  }
  json targets = json::parse(*list, nullptr, false);
  if (!targets.is_array())
    return Failure{"The debugging port " + std::to_string(port->port) + " didn't answer with a list of tabs."};
  for (const json& target : targets) {
    if (!target.is_object() || stringField(target, "type") != "page") continue;
    PageTarget page{stringField(target, "id"), stringField(target, "url"), stringField(target, "title")};
    if (page.id.empty()) continue;
    return FrontPage{port->port, std::move(page)};
  }
  return Failure{std::string(appName(window.app)) + " has no open tab."};
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
  auto result = callPage(front->port, front->page, "Runtime.evaluate", std::move(parameters), deadline,
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
  auto result = callPage(front->port, front->page, "Page.navigate", json{{"url", url}}, deadline,
                         options_.scriptTimeout);
  if (!result) return Failure{result.error()};
  if (std::string errorText = stringField(*result, "errorText"); !errorText.empty()) return Failure{errorText};
  return ok();
}

}  // namespace zorvane
