// AgentFactory: the one place that picks and builds the session for an agent, and reads
// the user's model choice for it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "core/agent/agent_kind.h"
#include "core/agent/agent_transport.h"
#include "core/base/expected.h"
#include "core/base/main_queue.h"
#include "core/base/uuid.h"

namespace zorvane::AgentFactory {

struct Request {
  InstalledAgent agent;
  UUID sessionID;                              // the resident tool's conversation id
  bool resume = false;                         // continue that conversation
  std::optional<std::string> externalID;       // a turn-based tool's own conversation id
  std::string workDir;                         // the target's working folder
  std::string sessionDir;                      // the session folder
  std::string scopePath;                       // the scope file in it
  std::string systemPrompt;                    // with the gated note where it belongs
  std::string zorvaneExecutable;               // this program
};

// The session for the agent: a TurnSession for Codex (in the working folder) and Pi (in
// the session folder, after writing its tool configuration there), else a resident
// session started with this program's tool server configured. Fails for kinds that
// have no session on this system.
[[nodiscard]] Expected<std::shared_ptr<AgentTransport>> make(const Request& request,
                                                             MainQueue& queue = MainQueue::main());

// What builds a session from a request: `make` on the application's queue in the
// product, an in-memory transport in a controller test.
using Maker = std::function<Expected<std::shared_ptr<AgentTransport>>(const Request&)>;

// `make` on `queue`.
Maker makerOn(MainQueue& queue);

// The user's model choice for a kind: "model.<id>" in the settings file; absent when
// missing or empty.
std::optional<std::string> model(const AgentKind& kind);

}  // namespace zorvane::AgentFactory
