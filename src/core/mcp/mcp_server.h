// MCPServer: the Model Context Protocol on a line stream (JSON-RPC 2.0, one message per
// line), for one agent. It knows the tool table and one handler; it knows nothing of
// windows or policy.
//
// `handle` maps one request line to one reply line (or none, for notifications) and is
// total: no input makes it throw. `serve` reads lines from a descriptor until end of
// input and writes each reply before reading on, so requests run strictly one after
// the other on the calling thread; a slow tool holds back the next request.
//
// A request line is at most `kMaxLineBytes` long. A longer one is never held whole: its
// bytes are dropped as they arrive, and it is answered with an "Invalid Request" error,
// under its id when that stands at the very start or the very end of the line (where
// clients put it), so the agent's call ends at once instead of at its own time limit.
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

  // The longest request line served. The largest request an agent has reason to send is
  // write_file with a whole file's content. A model writes at most some hundred thousand
  // tokens in one call, under 2 MB of text, and JSON escaping of ordinary text adds
  // little; 8 MiB leaves room for that. Reading and decoding a line costs several times
  // its size in memory, so the cap is also what bounds the tool server's memory.
  static constexpr size_t kMaxLineBytes = size_t{8} << 20;

  // Serves until `input` ends. Lines longer than `maxLineBytes` are refused, see above.
  void serve(int input, int output, size_t maxLineBytes = kMaxLineBytes) const;

 private:
  std::vector<ToolSpec> tools_;
  Handler handler_;
  JSONValue toolList_;  // tools/list result, built once
};

}  // namespace zorvane
