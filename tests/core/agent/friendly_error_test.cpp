#include "core/agent/friendly_error.h"

#include <gtest/gtest.h>

#include "core/base/utf8.h"

namespace zorvane {
namespace {

const std::string kUsageLimit =
    "Your Claude plan has hit its usage limit for now. Try again later, or check your plan.";
const std::string kOffline = "Couldn't reach Claude. Check your internet connection and try again.";
const std::string kGone =
    "That earlier conversation can't be continued anymore. Ask again to start fresh.";
const std::string kStopped = "The agent stopped unexpectedly. Try again.";

struct Case {
  std::string raw;
  std::string text;
};

// The known causes, matched in any case and in their fixed order; anything else is
// shown trimmed.
TEST(FriendlyError, ExplainsKnownCausesWithANextStep) {
  const std::string signIn =
      "Claude Code isn't signed in. Open a terminal, run `claude`, and sign in. Then try again.";
  const std::vector<Case> cases = {
      {"Ollama: this model requires you to SIGN IN",
       "Claude Code is set to an Ollama model that needs an Ollama "
       "sign-in. Sign in to Ollama, or pick another model in Zorvane's "
       "panel at the top of the screen → Settings."},
      {"ollama account required (not logged in)",
       "Claude Code is set to an Ollama model that needs an Ollama "
       "sign-in. Sign in to Ollama, or pick another model in Zorvane's "
       "panel at the top of the screen → Settings."},
      {"ollama: model not found", "ollama: model not found"},
      {"ollama crashed, network down", kOffline},
      {"Invalid API key · Please run /login", signIn},
      {"Not Logged In", signIn},
      {"authentication_error: invalid x-api-key", signIn},
      {"OAuth token has expired", signIn},
      {"Could not use the refresh token", signIn},
      {"Please log out and sign in again", signIn},
      {"Credit balance is too low", kUsageLimit},
      {"Claude AI usage limit reached|1760000000", kUsageLimit},
      {"429 Rate Limit exceeded; also network trouble", kUsageLimit},
      {"You exceeded your current QUOTA", kUsageLimit},
      {"getaddrinfo ENOTFOUND api.anthropic.com", kOffline},
      {"Network error", kOffline},
      {"connect ECONNREFUSED 127.0.0.1:443", kOffline},
      {"Request timed out.", kOffline},
      {"You appear to be offline", kOffline},
      {"No conversation found with session ID: 1234", kGone},
      {"  \n\tSomething odd happened.\r\n", "Something odd happened."},
      {"", kStopped},
      {" \n\r\t ", kStopped},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.raw);
    EXPECT_EQ(FriendlyError::explain(c.raw, AgentKind::claude()), c.text);
  }
}

// Signing in names the agent and the command of its own tool.
TEST(FriendlyError, SignInNamesTheAgentsOwnCommand) {
  AgentKind piWithoutNames = AgentKind::pi();
  piWithoutNames.binaryNames.clear();
  struct AgentCase {
    AgentKind agent;
    std::string command;
  };
  const std::vector<AgentCase> cases = {
      {AgentKind::claude(), "claude"},
      {AgentKind::codex(), "codex"},
      {AgentKind::pi(), AgentKind::pi().binaryNames.front()},
      {piWithoutNames, "pi"},
      {AgentKind::apple(), "claude"},
  };
  for (const AgentCase& c : cases) {
    SCOPED_TRACE(c.agent.id);
    EXPECT_EQ(FriendlyError::explain("401 not logged in", c.agent),
              c.agent.displayName + " isn't signed in. Open a terminal, run `" + c.command +
                  "`, and sign in. Then try again.");
  }
}

// Other errors are cut at 400 characters, with no ellipsis and never inside a character.
TEST(FriendlyError, CutsLongErrorsAt400Characters) {
  std::string longError = "  " + std::string(500, 'x') + "  ";
  EXPECT_EQ(FriendlyError::explain(longError, AgentKind::codex()), std::string(400, 'x'));

  std::string accents;
  for (int i = 0; i < 300; ++i) accents += "é";
  std::string cut = FriendlyError::explain(accents + accents, AgentKind::claude());
  EXPECT_EQ(utf8Length(cut), 400u);
  EXPECT_TRUE(isValidUTF8(cut));

  std::string broken = FriendlyError::explain("bad \xff bytes", AgentKind::claude());
  EXPECT_EQ(broken, "bad \xEF\xBF\xBD bytes");
}

}  // namespace
}  // namespace zorvane
