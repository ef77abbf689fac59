#include "core/agent/friendly_error.h"

#include <gtest/gtest.h>

namespace zorvane {
namespace {

// The known causes, matched in any case and in their fixed order; anything else is
// shown trimmed, cut at 400 characters (never inside one) with bad bytes replaced.
TEST(FriendlyError, ExplainsKnownCausesWithANextStep) {
  const std::string ollama =
      "Claude Code is set to an Ollama model that needs an Ollama sign-in. Sign in to Ollama, "
      "or pick another model in Zorvane's panel at the top of the screen → Settings.";
  const std::string signIn =
      "Claude Code isn't signed in. Open a terminal, run `claude`, and sign in. Then try again.";
  const std::string limit =
      "Your Claude plan has hit its usage limit for now. Try again later, or check your plan.";
  const std::string offline =
      "Couldn't reach Claude. Check your internet connection and try again.";
  std::string accents;
  for (int i = 0; i < 600; ++i) accents += "é";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"Ollama: this model requires you to SIGN IN", ollama},
      {"ollama account required (not logged in)", ollama},
      {"ollama crashed, network down", offline},
      {"Invalid API key · Please run /login", signIn},
      {"Not Logged In", signIn},
      {"authentication_error: invalid x-api-key", signIn},
      {"OAuth token has expired", signIn},
      {"Could not use the refresh token", signIn},
      {"Please log out and sign in again", signIn},
      {"Credit balance is too low", limit},
      {"Claude AI usage limit reached|1760000000", limit},
      {"429 Rate Limit exceeded; also network trouble", limit},
      {"You exceeded your current QUOTA", limit},
      {"getaddrinfo ENOTFOUND api.anthropic.com", offline},
      {"connect ECONNREFUSED 127.0.0.1:443", offline},
      {"Request timed out.", offline},
      {"You appear to be offline", offline},
      {"No conversation found with session ID: 1234",
       "That earlier conversation can't be continued anymore. Ask again to start fresh."},
      {" \n\r\t ", "The agent stopped unexpectedly. Try again."},
      {"  \n\tSomething odd happened.\r\n", "Something odd happened."},
      {"  " + std::string(500, 'x') + "  ", std::string(400, 'x')},
      {accents, accents.substr(0, 800)},
      {"bad \xff bytes", "bad \xEF\xBF\xBD bytes"},
  };
  for (const auto& [raw, text] : cases) {
    SCOPED_TRACE(raw.substr(0, 60));
    EXPECT_EQ(FriendlyError::explain(raw, AgentKind::claude()), text);
  }
}

// Signing in names the agent and the command of its own tool.
TEST(FriendlyError, SignInNamesTheAgentsOwnCommand) {
  AgentKind piWithoutNames = AgentKind::pi();
  piWithoutNames.binaryNames.clear();
  const std::vector<std::pair<AgentKind, std::string>> cases = {
      {AgentKind::codex(), "codex"},
      {AgentKind::pi(), AgentKind::pi().binaryNames.front()},
      {piWithoutNames, "pi"},
      {AgentKind::apple(), "claude"},
  };
  for (const auto& [agent, command] : cases) {
    SCOPED_TRACE(agent.id);
    EXPECT_EQ(FriendlyError::explain("401 not logged in", agent),
              agent.displayName + " isn't signed in. Open a terminal, run `" + command +
                  "`, and sign in. Then try again.");
  }
}

}  // namespace
}  // namespace zorvane
