// ToolServerClient: a real `zorvane --mcp --scope <file>` child process, spoken to the way
// an agent does: newline-delimited JSON-RPC on its standard input and output.
#pragma once

#include <sys/types.h>

#include <string>

#include "core/base/json_value.h"

namespace zorvane::testing {

class ToolServerClient {
 public:
  // Starts the server and completes the initialize handshake; check `ready()`.
  explicit ToolServerClient(const std::string& scopePath);
  ~ToolServerClient();
  ToolServerClient(const ToolServerClient&) = delete;
  ToolServerClient& operator=(const ToolServerClient&) = delete;

  bool ready() const { return ready_; }
  pid_t pid() const { return pid_; }

  struct Result {
    bool isError = false;
    std::string text;        // the text items, joined by newlines
    std::string imageBase64;  // the first image item's data
    std::string imageMime;
  };
  // One tools/call; waits up to `timeout` seconds. A missing answer is an error result.
  Result call(const std::string& tool, const JSONValue& arguments, double timeout = 60);

 private:
  JSONValue request(const std::string& method, const JSONValue& params, double timeout);

  pid_t pid_ = -1;
  int toServer_ = -1, fromServer_ = -1;
  std::string buffered_;
  int nextID_ = 1;
  bool ready_ = false;
};

}  // namespace zorvane::testing
