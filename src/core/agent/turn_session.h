// TurnSession: a conversation with a turn-based agent, which starts one process per turn
// with the prompt on its command line and ends the turn when the process ends.
//
// The tool names its own conversation; that id (`externalSessionID`) is passed back on
// the next turn so the tool continues the same conversation, and callers store it to
// resume after a restart. Every turn ends in exactly one `Finished` event; there is no
// `Exited` event, the process being per turn. Permission requests don't come through
// here: such agents run read-only and their changes go through this program's tools.
//
// Lives on the main queue; owned by a std::shared_ptr (use `create`).
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/agent/agent_kind.h"
#include "core/agent/agent_transport.h"
#include "core/base/child_process.h"
#include "core/base/line_buffer.h"

namespace zorvane {

class TurnSession final : public AgentTransport, public std::enable_shared_from_this<TurnSession> {
 public:
  // Builds a turn's arguments from its prompt and the conversation id, if any.
  using Arguments = std::function<std::vector<std::string>(const std::string& prompt,
                                                           const std::optional<std::string>& resumeID)>;

  static std::shared_ptr<TurnSession> create(AgentKind kind, std::string executable,
                                             std::string workingDirectory,
                                             std::optional<std::string> resumeID, Arguments arguments,
                                             MainQueue& queue = MainQueue::main());

  bool isRunning() const override { return isRunning_; }
  std::optional<int32_t> processID() const override {
    if (!process_ || process_->pid() <= 0) return std::nullopt;
    return process_->pid();
  }
  std::optional<std::string> externalSessionID() const override { return externalSessionID_; }
  [[nodiscard]] Expected<void> start() override;
  void send(const std::string& text) override;
  void respond(const PermissionRequest&, bool) override {}
  void terminate() override;

  bool hasTurnRunning() const { return process_ != nullptr; }
  const AgentKind& kind() const { return kind_; }

 private:
  TurnSession(AgentKind kind, std::string executable, std::string workingDirectory,
              std::optional<std::string> resumeID, Arguments arguments, MainQueue& queue);
  void ingest(std::string_view bytes);
  void finishTurn(int status);

  AgentKind kind_;
  std::string executable_;
  std::string workingDirectory_;
  Arguments arguments_;
  MainQueue& queue_;
  std::optional<std::string> externalSessionID_;
  bool isRunning_ = false;
  std::shared_ptr<ChildProcess> process_;
  LineBuffer buffer_;
  std::optional<std::string> lastText_, lastError_;
  std::string stderrTail_;
};

}  // namespace zorvane
