// Fuzzes MCPServer::handle: any bytes, as one request line, with the real tool table.
//
// The handler has no side effects: by the tool's name it returns text (echoing its
// arguments), an image, or throws MCPToolError, another exception, or something that
// isn't one, so every branch of a tools/call is reachable. Each reply is checked against
// the wire rules: nothing, or exactly one line of JSON with the request's id and either
// a result or an error.
//
//   build-fuzz/mcp_handle_fuzz fuzz/corpus/mcp_handle -max_total_time=180
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/mcp/mcp_server.h"
#include "core/mcp/zorvane_tools.h"

using namespace zorvane;

static void require(bool condition, const char* what, std::string_view line, const std::string& reply) {
  if (condition) return;
  std::fprintf(stderr, "mcp_handle_fuzz: %s\n  request: %.*s\n  reply: %s\n", what, static_cast<int>(line.size()),
               line.data(), reply.c_str());
  std::abort();
}

// What the fake tool does, told by its name.
enum class Outcome { text, image, toolError, otherError, notAnException };

static Outcome outcome(const std::string& name) {
  if (ZorvaneTools::readOnly().count(name)) return Outcome::text;
  if (name == "image") return Outcome::image;
  if (name == "throw_runtime") return Outcome::otherError;
  if (name == "throw_int") return Outcome::notAnException;
  return Outcome::toolError;
}

static std::vector<MCPContent> fakeTool(const std::string& name, const JSONObject& arguments) {
  switch (outcome(name)) {
    case Outcome::text:
      return {MCPContent::text(name + " " + encodeCompact(JSONValue(arguments)))};
    case Outcome::image:
      return {MCPContent::image("iVBORw0KGgo=", "image/png"), MCPContent::text(std::to_string(arguments.size()))};
    case Outcome::otherError:
      throw std::runtime_error("runtime failure in " + name);
    case Outcome::notAnException:
      throw 42;
    case Outcome::toolError:
      break;
  }
  throw MCPToolError("Unknown tool " + name);
}

static const MCPServer& server() {
  static const MCPServer instance(ZorvaneTools::specs(), fakeTool);
  return instance;
}

// The request as an independent reader sees it; absent when it isn't JSON.
static std::optional<JSONValue> parsed(std::string_view line) {
  JSONValue value = JSONValue::parse(line.begin(), line.end(), nullptr, /*allow_exceptions=*/false);
  if (value.is_discarded()) return std::nullopt;
  return value;
}

// The value under `key`, or null when there is none (a const operator[] can't be used on
// a key that may be missing).
static const JSONValue& member(const JSONValue& value, std::string_view key) {
  static const JSONValue none;
  const JSONValue* found = subscript(value, key);
  return found != nullptr ? *found : none;
}

// How deep arrays and objects nest in `value`, counted without recursion.
static size_t nesting(const JSONValue& value) {
  size_t deepest = 0;
  std::vector<std::pair<const JSONValue*, size_t>> pending{{&value, 0}};
  while (!pending.empty()) {
    auto [node, depth] = pending.back();
    pending.pop_back();
    if (!node->is_structured()) continue;
    deepest = std::max(deepest, depth + 1);
    for (const JSONValue& child : *node) pending.emplace_back(&child, depth + 1);
  }
  return deepest;
}

// The server declines to read requests nested deeper than this (it would have to
// recurse through them); it answers them with a parse error.
static constexpr size_t kServerNestingLimit = 1000;

static void checkReply(std::string_view line, const std::optional<std::string>& reply) {
  std::optional<JSONValue> request = parsed(line);
  const JSONValue* id = request ? subscript(*request, "id") : nullptr;
  bool notification = request && (id == nullptr || id->is_null());
  if (!reply) {
    require(notification, "no reply to a request that has an id, or to a line that isn't JSON", line, "");
    return;
  }
  require(!notification, "a reply to a notification", line, *reply);
  require(!reply->empty() && reply->back() == '\n', "the reply doesn't end with a line feed", line, *reply);
  std::string_view body(reply->data(), reply->size() - 1);
  require(body.find('\n') == std::string_view::npos && body.find('\r') == std::string_view::npos,
          "the reply is more than one line", line, *reply);
  std::optional<JSONValue> answer = parsed(body);
  require(answer.has_value() && answer->is_object(), "the reply isn't a JSON object", line, *reply);
  require(stringValue(subscript(*answer, "jsonrpc")) == "2.0", "jsonrpc isn't \"2.0\"", line, *reply);
  const JSONValue* result = subscript(*answer, "result");
  const JSONValue* error = subscript(*answer, "error");
  require((result == nullptr) != (error == nullptr), "not exactly one of result and error", line, *reply);
  const JSONValue* answeredID = subscript(*answer, "id");
  require(answeredID != nullptr, "the reply has no id", line, *reply);

  if (!request) {
    require(answeredID->is_null() && error != nullptr && member(*error, "code") == -32700,
            "a line that isn't JSON isn't answered with a parse error", line, *reply);
    return;
  }
  if (nesting(*request) > kServerNestingLimit) {
    require(error != nullptr && member(*error, "code") == -32700,
            "a request nested too deep isn't answered with a parse error", line, *reply);
    require(answeredID->is_null() || *answeredID == *id, "the reply's id is neither null nor the request's", line,
            *reply);
    return;
  }
  require(*answeredID == *id, "the reply's id isn't the request's", line, *reply);
  if (error != nullptr) {
    require(error->is_object() && member(*error, "code").is_number_integer() &&
                member(*error, "message").is_string(),
            "an error without a numeric code and a message", line, *reply);
    return;
  }
  require(result->is_object(), "a result that isn't an object", line, *reply);

  auto method = stringValue(subscript(*request, "method"));
  const JSONValue* params = subscript(*request, "params");
  if (method == "initialize") {
    const JSONValue* asked = params != nullptr ? subscript(*params, "protocolVersion") : nullptr;
    require(member(*result, "protocolVersion") == (asked != nullptr ? *asked : JSONValue("2025-06-18")),
            "initialize doesn't echo the protocol version", line, *reply);
  } else if (method == "tools/list") {
    const JSONValue& tools = member(*result, "tools");
    require(tools.is_array() && tools.size() == 22, "tools/list hasn't the 22 tools", line,
            *reply);
  } else if (method == "tools/call") {
    auto name = params != nullptr ? stringValue(subscript(*params, "name")) : std::nullopt;
    require(name.has_value(), "tools/call without a name got a result", line, *reply);
    const JSONValue& content = member(*result, "content");
    require(content.is_array() && !content.empty(), "a tool result without content", line, *reply);
    Outcome expected = outcome(*name);
    bool failed = expected != Outcome::text && expected != Outcome::image;
    const JSONValue* isError = subscript(*result, "isError");
    require(failed ? (isError != nullptr && *isError == true) : isError == nullptr,
            "isError doesn't match how the tool ended", line, *reply);
  }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view line(reinterpret_cast<const char*>(data), size);
  checkReply(line, server().handle(line));
  return 0;
}
