// ClaudeSession: one resident agent process kept alive for a whole conversation.
//
// Prompts go in as one JSON line each on the child's standard input; its standard
// output comes back as JSON lines, each reported as a `Raw` event and then either as a
// `Permission` (for a tool-use request, answered with `respond`) or as its decoded
// `Stream` events. A turn ends with exactly one `Finished` event: at the `result` line,
// or, if the process dies first, at its termination, always before `Exited`.
//
// Lives on the main queue. Owned by a std::shared_ptr (use `create`): the pipe and exit
// handlers hold it weakly, so a session its callers dropped is freed (and its child
// terminated) even while output is still on the way.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/agent/agent_transport.h"
#include "core/base/child_process.h"
#include "core/base/line_buffer.h"

namespace zorvane {

class ClaudeSession final : public AgentTransport,
                            public std::enable_shared_from_this<ClaudeSession> {
 public:
  using Event = AgentEvent;

  // Prepares the child: `arguments` are passed exactly as given; nothing starts yet.
  static std::shared_ptr<ClaudeSession> create(const std::string& executable,
                                               std::vector<std::string> arguments,
                                               const std::string& workingDirectory,
                                               MainQueue& queue = MainQueue::main());

  bool isRunning() const override;
  std::optional<int32_t> processID() const override {
    if (!process_ || process_->pid() <= 0) return std::nullopt;
    return process_->pid();
  }
  std::optional<std::string> externalSessionID() const override { return std::nullopt; }
  [[nodiscard]] Expected<void> start() override;
  void send(const std::string& text) override;
  void respond(const PermissionRequest& request, bool allow) override;
  void terminate() override;

  bool isBusy() const { return isBusy_; }
  // At most the last 2048 characters the child wrote on standard error.
  const std::string& stderrTail() const { return stderrTail_; }
  // The environment the child gets: this process's, with the executable's folder and
  // the usual tool folders ahead of PATH, and MCP_TOOL_TIMEOUT defaulted.
  static Environment childEnvironment(const std::string& executable, Environment base);

 private:
  ClaudeSession(const std::string& executable, std::vector<std::string> arguments,
                const std::string& workingDirectory, MainQueue& queue);
  void handleOutput(std::string chunk);
  void handleLine(const std::string& line);
  void handleExit(int code);

  std::shared_ptr<ChildProcess> process_;
  std::string workingDirectory_;
  LineBuffer buffer_;
  StreamAccumulator turn_;
  bool isBusy_ = false;
  bool outputClosed_ = false;
  std::string stderrTail_;
};

}  // namespace zorvane
