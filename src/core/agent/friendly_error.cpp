#include "core/agent/friendly_error.h"

#include <initializer_list>

#include "core/base/engine_words.h"
#include "core/base/utf8.h"

namespace zorvane {

static constexpr size_t kLongestShown = 400;

static std::string lowercasedASCII(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

static bool containsAny(std::string_view text, std::initializer_list<std::string_view> phrases) {
  for (std::string_view phrase : phrases) {
    if (text.find(phrase) != std::string_view::npos) return true;
  }
  return false;
}

// The command that signs the user in to the agent's tool.
static std::string signInCommand(const AgentKind& agent) {
  if (agent.id == AgentKind::codex().id) return "codex";
  if (agent.id == AgentKind::pi().id)
    return agent.binaryNames.empty() ? "pi" : agent.binaryNames.front();
  return "claude";
}

std::string FriendlyError::explain(std::string_view raw, const AgentKind& agent) {
  std::string lower = lowercasedASCII(raw);
  if (containsAny(lower, {"ollama"}) && containsAny(lower, {"sign in", "account"})) {
    return agent.displayName +
           " is set to an Ollama model that needs an Ollama sign-in. Sign in to Ollama, or pick "
           "another model in " +
           std::string(PlatformWords::settingsPlace) + ".";
  }
  if (containsAny(lower, {"/login", "not logged in", "authenticat", "oauth", "refresh token",
                          "log out and sign in"})) {
    return agent.displayName + " isn't signed in. Open " + std::string(PlatformWords::terminal) +
           ", run `" + signInCommand(agent) + "`, and sign in. Then try again.";
  }
  if (containsAny(lower, {"credit balance", "usage limit", "rate limit", "quota"})) {
    return "Your Claude plan has hit its usage limit for now. Try again later, or check your plan.";
  }
  if (containsAny(lower, {"enotfound", "network", "econnrefused", "timed out", "offline"})) {
    return "Couldn't reach Claude. Check your internet connection and try again.";
  }
  if (containsAny(lower, {"no conversation found"})) {
    return "That earlier conversation can't be continued anymore. Ask again to start fresh.";
  }
  std::string shown = trimmed(raw);
  if (shown.empty()) return "The agent stopped unexpectedly. Try again.";
  return repairUTF8(utf8Prefix(shown, kLongestShown));
}

}  // namespace zorvane
