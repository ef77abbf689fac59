#include "core/agent/agent_factory.h"

#include "core/agent/agent_launch.h"
#include "core/agent/claude_session.h"
#include "core/agent/session_launch.h"
#include "core/agent/turn_session.h"
#include "core/base/file_io.h"
#include "core/base/json_value.h"
#include "core/base/log.h"
#include "core/base/paths.h"

namespace zorvane::AgentFactory {

std::optional<std::string> model(const AgentKind& kind) {
  auto bytes = readFile(Paths::settingsFile());
  if (!bytes) return std::nullopt;
  auto settings = parseJSON(*bytes);
  if (!settings) return std::nullopt;
  auto choice = stringValue(subscript(*settings, "model." + kind.id));
  if (!choice || choice->empty()) return std::nullopt;
  return choice;
}

static std::string inFolder(const std::string& folder, const std::string& name) {
  return folder + (folder.ends_with('/') ? "" : "/") + name;
}

Expected<std::shared_ptr<AgentTransport>> make(const Request& request, MainQueue& queue) {
  const AgentKind& kind = request.agent.kind;
  AgentLaunch launch{kind,
                     request.agent.path,
                     model(kind),
                     request.workDir,
                     request.sessionDir,
                     request.scopePath,
                     request.zorvaneExecutable,
                     request.systemPrompt};

  if (kind.id == AgentKind::codex().id) {
    return std::shared_ptr<AgentTransport>(TurnSession::create(
        kind, launch.executable, launch.workDir, request.externalID,
        [launch](const std::string& prompt, const std::optional<std::string>& resume) {
          return launch.codexArguments(prompt, resume);
        },
        queue));
  }

  if (kind.id == AgentKind::pi().id) {
    if (auto config = launch.piMCPConfig()) {
      if (auto written = writeFileAtomically(inFolder(request.sessionDir, ".mcp.json"), *config); !written) {
        Log::info("pi session: tool configuration not written: " + written.error());
      }
    }
    return std::shared_ptr<AgentTransport>(TurnSession::create(
        kind, launch.executable, launch.sessionDir, request.externalID,
        [launch](const std::string& prompt, const std::optional<std::string>& resume) {
          return launch.piArguments(prompt, resume);
        },
        queue));
  }

  if (kind.id == AgentKind::apple().id) {
    return Failure{"The on-device model isn't available on this system yet."};
  }

  // The resident tool: without a written configuration it runs without this program's
  // tools rather than not at all.
  std::optional<std::string> mcpPath;
  if (auto config = SessionLaunch::mcpConfig(request.zorvaneExecutable, request.scopePath)) {
    std::string path = inFolder(request.sessionDir, "mcp.json");
    if (writeFileAtomically(path, *config)) mcpPath = path;
  }
  auto arguments = SessionLaunch::arguments(request.sessionID, request.resume, request.systemPrompt,
                                            SessionLaunch::settingsJSON(), mcpPath, launch.model);
  return std::shared_ptr<AgentTransport>(
      ClaudeSession::create(launch.executable, std::move(arguments), request.workDir, queue));
}

Maker makerOn(MainQueue& queue) {
  return [&queue](const Request& request) { return make(request, queue); };
}

}  // namespace zorvane::AgentFactory
