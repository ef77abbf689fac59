#include "core/agent/agent_kind.h"

namespace zorvane {

const std::vector<AgentKind>& AgentKind::all() {
  static const std::vector<AgentKind> kinds = {
      {"claude", "Claude Code", {"claude"}, true, "curl -fsSL https://claude.ai/install.sh | bash"},
      {"codex", "Codex", {"codex"}, true, "npm i -g @openai/codex"},
      {"pi", "Pi", {"pi", "omp"}, true, "npm i -g @mariozechner/pi-coding-agent"},
      {"opencode", "OpenCode", {"opencode"}, false, "curl -fsSL https://opencode.ai/install | bash"},
      {"gemini", "Gemini CLI", {"gemini"}, false, "npm i -g @google/gemini-cli"},
      {"cursor-agent", "Cursor Agent", {"cursor-agent"}, false, "curl https://cursor.com/install -fsS | bash"},
      {"copilot", "GitHub Copilot CLI", {"copilot"}, false, "npm i -g @github/copilot"},
      {"qwen", "Qwen Code", {"qwen"}, false, "npm i -g @qwen-code/qwen-code"},
      {"aider", "Aider", {"aider"}, false, "pipx install aider-chat"},
      {"amp", "Amp", {"amp"}, false, "npm i -g @sourcegraph/amp"},
      {"goose", "Goose", {"goose"}, false,
       "curl -fsSL https://github.com/block/goose/releases/download/stable/download_cli.sh | bash"},
  };
  return kinds;
}

const AgentKind& AgentKind::apple() {
  static const AgentKind kind{"apple", "Apple Intelligence (on-device)", {}, true,
                              "Start a local model server (an OpenAI-compatible endpoint on this machine)"};
  return kind;
}

const AgentKind& AgentKind::claude() { return all()[0]; }
const AgentKind& AgentKind::codex() { return all()[1]; }
const AgentKind& AgentKind::pi() { return all()[2]; }

std::optional<AgentKind> AgentKind::withID(std::string_view id) {
  for (const AgentKind& kind : all()) {
    if (kind.id == id) return kind;
  }
  if (apple().id == id) return apple();
  return std::nullopt;
}

namespace AgentModels {
std::vector<std::string> suggestions(std::string_view agentID) {
  if (agentID == "claude") return {"opus", "sonnet", "haiku"};
  if (agentID == "codex") return {"gpt-5-codex", "gpt-5", "gpt-5-mini"};
  if (agentID == "pi") return {"opus", "sonnet", "gpt-5.2", "gemini-2.5-pro"};
  return {};
}
}  // namespace AgentModels

}  // namespace zorvane
