// MCPServer: the Model Context Protocol on a line stream (JSON-RPC 2.0, one message per
// line), for one agent. It knows the tool table and one handler; it knows nothing of
// windows or policy.
//
// `handle` maps one request line to one reply line (or none, for notifications) and is
// total: no input makes it throw. `serve` reads lines from a descriptor until end of
// input and writes each reply before reading on, so requests run strictly one after
// the other on the calling thread; a slow tool holds back the next request.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/json_value.h"
#include "core/mcp/tool_spec.h"

namespace zorvane {

class MCPServer {
 public:
  // Runs a tool: returns its content, or throws (MCPToolError for a failure the agent
  // should read; anything else is reported with its description).
  using Handler = std::function<std::vector<MCPContent>(const std::string& name, const JSONObject& arguments)>;

  MCPServer(std::vector<ToolSpec> tools, Handler handler);

  // One request line in, the bytes of one reply (with its line feed) out, or nothing.
  std::optional<std::string> handle(std::string_view line) const;

  // Serves until `input` ends. Lines longer than `maxLineBytes` are answered with a
  // parse error instead of being buffered whole.
  void serve(int input, int output, size_t maxLineBytes = 256u << 20) const;

 private:
  std::vector<ToolSpec> tools_;
  Handler handler_;
  JSONValue toolList_;  // tools/list result, built once
};

}  // namespace zorvane
