#include "core/mcp/mcp_server.h"

#include <errno.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "core/base/line_buffer.h"

namespace zorvane {

MCPServer::MCPServer(std::vector<ToolSpec> tools, Handler handler)
    : tools_(std::move(tools)), handler_(std::move(handler)) {
  JSONValue list = JSONValue::array();
  for (const ToolSpec& tool : tools_) list.push_back(tool.json());
  toolList_ = {{"tools", list}};
}

static std::string replyLine(const JSONValue& reply) {
  try {
    return encodeCompact(reply) + "\n";
  } catch (...) {
    return "\n";
  }
}

static std::string errorReply(const JSONValue& id, int code, const char* message) {
  return replyLine({{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}});
}

// Parsing a JSON value takes no stack, but copying and encoding one recurse once per
// level: a line of a few hundred thousand brackets would overflow the stack. No real
// request comes near this depth, so one that goes past it isn't read at all.
static constexpr size_t kMaxNesting = 1000;

// Whether `value` nests arrays and objects at most `limit` deep (a scalar is depth 0).
// Walks with a stack of its own, for the reason above.
static bool nestsWithin(const JSONValue& value, size_t limit) {
  std::vector<std::pair<const JSONValue*, size_t>> pending{{&value, 0}};
  while (!pending.empty()) {
    auto [node, depth] = pending.back();
    pending.pop_back();
    if (!node->is_structured()) continue;
    if (depth + 1 > limit) return false;
    for (const JSONValue& child : *node) pending.emplace_back(&child, depth + 1);
  }
  return true;
}

std::optional<std::string> MCPServer::handle(std::string_view line) const {
  auto request = parseJSON(line);
  if (!request) return errorReply(nullptr, -32700, "Parse error");
  const JSONValue* id = subscript(*request, "id");
  if (id == nullptr || id->is_null()) return std::nullopt;  // a notification: no reply, no effect
  if (!nestsWithin(*request, kMaxNesting)) {
    // Refused like a line that doesn't parse; the id goes back if it is itself sane, so
    // the agent's pending request ends at once.
    return errorReply(nestsWithin(*id, kMaxNesting) ? *id : JSONValue(nullptr), -32700, "Parse error");
  }
  const JSONValue* params = subscript(*request, "params");
  auto method = stringValue(subscript(*request, "method"));
  if (!method) return errorReply(*id, -32601, "Method not found");

  auto result = [&](JSONValue value) {
    return replyLine({{"jsonrpc", "2.0"}, {"id", *id}, {"result", std::move(value)}});
  };

  if (*method == "initialize") {
    const JSONValue* version = params != nullptr ? subscript(*params, "protocolVersion") : nullptr;
    return result({{"protocolVersion", version != nullptr ? *version : JSONValue("2025-06-18")},
                   {"capabilities", {{"tools", JSONValue::object()}}},
                   {"serverInfo", {{"name", "zorvane"}, {"version", "0.2.0"}}}});
  }
  if (*method == "ping") return result(JSONValue::object());
  if (*method == "tools/list") return result(toolList_);
  if (*method != "tools/call") return errorReply(*id, -32601, "Method not found");

  auto name = params != nullptr ? stringValue(subscript(*params, "name")) : std::nullopt;
  if (!name) return errorReply(*id, -32602, "Missing tool name");
  JSONObject arguments = objectOrEmpty(subscript(*params, "arguments")).get<JSONObject>();
  auto failure = [&](const std::string& text) {
    return result({{"content", JSONValue::array({MCPContent::text(text).json()})}, {"isError", true}});
  };
  try {
    JSONValue content = JSONValue::array();
    for (const MCPContent& item : handler_(*name, arguments)) content.push_back(item.json());
    return result({{"content", std::move(content)}});
  } catch (const MCPToolError& error) {
    return failure(error.message());
  } catch (const std::exception& error) {
    return failure(error.what());
  } catch (...) {
    return failure("The tool failed.");
  }
}

static void writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return;  // the agent went away; the read side will see the end soon
    }
    bytes.remove_prefix(static_cast<size_t>(n));
  }
}

void MCPServer::serve(int input, int output, size_t maxLineBytes) const {
  LineBuffer buffer(maxLineBytes);
  std::string chunk(65536, '\0');
  for (;;) {
    while (auto line = buffer.takeLine()) {
      std::string_view text = line->text;
      if (!line->oversized && !text.empty() && text.back() == '\r') text.remove_suffix(1);
      if (line->oversized) {
        writeAll(output, errorReply(nullptr, -32700, "Parse error"));
        continue;
      }
      if (text.empty()) continue;
      if (auto reply = handle(text)) writeAll(output, *reply);
    }
    ssize_t n = ::read(input, chunk.data(), chunk.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    buffer.append(std::string_view(chunk.data(), static_cast<size_t>(n)));
  }
  // A last line without its line feed still counts.
  buffer.append("\n");
  while (auto line = buffer.takeLine()) {
    if (line->oversized || line->text.empty()) continue;
    if (auto reply = handle(line->text)) writeAll(output, *reply);
  }
}

}  // namespace zorvane
