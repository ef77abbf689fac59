// AgentTransport: what every agent session offers the rest of the program, whether it
// keeps one resident process (ClaudeSession) or starts one process per turn.
//
// Everything a session has to say leaves through `onEvent`, always on the main queue.
// Set `onEvent` before `start()`. All methods are called on the main queue.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "core/agent/stream_event.h"
#include "core/base/environment.h"
#include "core/base/expected.h"

namespace zorvane {

class AgentTransport {
 public:
  virtual ~AgentTransport() = default;

  std::function<void(const AgentEvent&)> onEvent;

  // The session can take a turn.
  virtual bool isRunning() const = 0;
  // The tool's own conversation id, where the tool names one.
  virtual std::optional<std::string> externalSessionID() const = 0;
  // The agent's process now, while one runs: the root of every process (its tool
  // servers included) that may speak for this session.
  virtual std::optional<int32_t> processID() const { return std::nullopt; }
  // Makes the session ready. A failure says why, and nothing was started.
  [[nodiscard]] virtual Expected<void> start() = 0;
  // Opens a turn with the user's text.
  virtual void send(const std::string& text) = 0;
  // Answers a permission request of the current turn.
  virtual void respond(const PermissionRequest& request, bool allow) = 0;
  // Ends the session.
  virtual void terminate() = 0;

 protected:
  void emit(AgentEvent event) {
    if (onEvent) onEvent(event);
  }
};

// The environment an agent tool runs in: `base` with the tool's own folder and the usual
// install folders ahead of PATH, so a tool finds its siblings (node next to a CLI, say)
// even when this program was started from the desktop with a short PATH.
Environment agentEnvironment(const std::string& executable, Environment base);

}  // namespace zorvane
