#include "core/mcp/mcp_server.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>
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

// The id of a request whose line was too long to read, found in what was kept of it:
// `head` (its first bytes) and `tail` (its last). Only an id that is surely the
// top-level one is taken: at the start, after nothing but scalar members; or as the
// last member, right before the closing brace (where the TypeScript SDK writes it).
// Inside a JSON string every quote is escaped, so a bare `"id":` is always a key.
static JSONValue idOfOversizedLine(std::string_view head, std::string_view tail) {
  auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  auto scalarAt = [](std::string_view text) -> std::optional<JSONValue> {
    auto value = parseJSON(text);
    if (!value || !(value->is_number() || value->is_string())) return std::nullopt;
    return value;
  };

  // From the start: `{ "key": scalar, ... "id": scalar`.
  size_t at = 0;
  auto skipBlanks = [&] {
    while (at < head.size() && isBlank(head[at])) ++at;
  };
  auto skipString = [&]() -> bool {  // `at` on the opening quote; leaves it past the closing one
    for (++at; at < head.size(); ++at) {
      if (head[at] == '\\') {
        ++at;
      } else if (head[at] == '"') {
        ++at;
        return true;
      }
    }
    return false;
  };
  skipBlanks();
  if (at < head.size() && head[at] == '{') {
    ++at;
    for (;;) {
      skipBlanks();
      size_t keyStart = at;
      if (at >= head.size() || head[at] != '"' || !skipString()) break;
      std::string_view key = head.substr(keyStart, at - keyStart);
      skipBlanks();
      if (at >= head.size() || head[at] != ':') break;
      ++at;
      skipBlanks();
      size_t valueStart = at;
      if (at < head.size() && head[at] == '"') {
        if (!skipString()) break;
      } else {
        if (at < head.size() && (head[at] == '{' || head[at] == '[')) break;  // the rest is the tail's to say
        while (at < head.size() && head[at] != ',' && head[at] != '}' && !isBlank(head[at])) ++at;
      }
      std::string_view value = head.substr(valueStart, at - valueStart);
      if (key == "\"id\"") {
        if (auto id = scalarAt(value)) return *id;
        break;
      }
      skipBlanks();
      if (at >= head.size() || head[at] != ',') break;
      ++at;
    }
  }

  // From the end: `[,{] "id" : scalar }`.
  while (!tail.empty() && isBlank(tail.back())) tail.remove_suffix(1);
  if (tail.empty() || tail.back() != '}') return nullptr;
  tail.remove_suffix(1);
  while (!tail.empty() && isBlank(tail.back())) tail.remove_suffix(1);
  size_t valueEnd = tail.size();
  size_t valueStart = valueEnd;
  if (!tail.empty() && tail.back() == '"') {
    // Back to the opening quote: one not preceded by an odd run of backslashes.
    for (size_t i = tail.size() - 1; i-- > 0;) {
      if (tail[i] != '"') continue;
      size_t slashes = 0;
      while (i > slashes && tail[i - 1 - slashes] == '\\') ++slashes;
      if (slashes % 2 == 0) {
        valueStart = i;
        break;
      }
    }
  } else {
    while (valueStart > 0 && std::string_view("0123456789+-.eE").find(tail[valueStart - 1]) != std::string_view::npos) {
      --valueStart;
    }
  }
  if (valueStart == valueEnd) return nullptr;
  std::string_view value = tail.substr(valueStart, valueEnd - valueStart);
  tail = tail.substr(0, valueStart);
  while (!tail.empty() && isBlank(tail.back())) tail.remove_suffix(1);
  if (tail.empty() || tail.back() != ':') return nullptr;
  tail.remove_suffix(1);
  while (!tail.empty() && isBlank(tail.back())) tail.remove_suffix(1);
  if (!tail.ends_with("\"id\"")) return nullptr;
  tail.remove_suffix(4);
  while (!tail.empty() && isBlank(tail.back())) tail.remove_suffix(1);
  if (tail.empty() || (tail.back() != ',' && tail.back() != '{')) return nullptr;
  if (auto id = scalarAt(value)) return *id;
  return nullptr;
}

// "8 MiB", or the bytes when they aren't whole mebibytes.
static std::string sizeText(size_t bytes) {
  if (bytes % (size_t{1} << 20) == 0) return std::to_string(bytes >> 20) + " MiB";
  return std::to_string(bytes) + " bytes";
}

void MCPServer::serve(int input, int output, size_t maxLineBytes) const {
  // The first and last bytes of the line being received, kept beside the buffer (which
  // drops an oversized line) so that a refusal can name the request's id.
  constexpr size_t kKeptBytes = 4096;
  LineBuffer buffer(maxLineBytes);
  std::string head, tail;
  size_t lineBytes = 0;

  const std::string tooLarge = "Request too large: a request may be at most " + sizeText(maxLineBytes) +
                               ". Write a large file in parts.";
  auto answer = [&](const LineBuffer::Line& line) {
    if (line.oversized) {
      writeAll(output, errorReply(idOfOversizedLine(head, tail), -32600, tooLarge.c_str()));
      return;
    }
    std::string_view text = line.text;
    if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
    if (text.empty()) return;
    if (auto reply = handle(text)) writeAll(output, *reply);
  };
  // Feeds bytes that hold at most one line feed, at their end.
  auto feed = [&](std::string_view piece) {
    if (lineBytes < kKeptBytes) head.append(piece.substr(0, kKeptBytes - lineBytes));
    lineBytes += piece.size();
    tail.append(piece.substr(piece.size() - std::min(piece.size(), kKeptBytes)));
    if (tail.size() > 2 * kKeptBytes) tail.erase(0, tail.size() - kKeptBytes);
    buffer.append(piece);
    // Taken after every piece, so a line past the cap is dropped as it grows.
    while (auto line = buffer.takeLine()) {
      answer(*line);
      head.clear();
      tail.clear();
      lineBytes = 0;
    }
  };

  std::string chunk(65536, '\0');
  for (;;) {
    ssize_t n = ::read(input, chunk.data(), chunk.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    std::string_view data(chunk.data(), static_cast<size_t>(n));
    while (!data.empty()) {
      size_t end = data.find('\n');
      end = end == std::string_view::npos ? data.size() : end + 1;
      feed(data.substr(0, end));
      data.remove_prefix(end);
    }
  }
  // A last line without its line feed still counts.
  if (lineBytes > 0) feed("\n");
}

}  // namespace zorvane
