#include "core/agent/turn_session.h"

#include <gtest/gtest.h>

#include "core/agent/agent_factory.h"
#include "core/base/file_io.h"
#include "core/base/run_loop.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

const std::string kFixtures = ZORVANE_FIXTURES_DIR;

// Drives turn-based sessions made by the factory against the stand-in tools.
class TurnSessionTest : public ::testing::Test {
 protected:
  void SetUp() override { MainQueue::setMain(&loop_); }
  void TearDown() override { MainQueue::setMain(nullptr); }

  std::shared_ptr<AgentTransport> make(const AgentKind& kind, std::optional<std::string> externalID = std::nullopt,
                                       std::string executable = "") {
    if (executable.empty()) executable = kFixtures + "/bin/" + kind.id;
    std::string sessionDir = home_.path() + "/sessions/S1";
    EXPECT_TRUE(createDirectories(sessionDir));
    AgentFactory::Request request{{kind, executable}, UUID(), false, std::move(externalID), work_.path(),
                                  sessionDir, sessionDir + "/scope.json", "SYSTEM PROMPT", ZORVANE_EXECUTABLE};
    auto made = AgentFactory::make(request, loop_);
    EXPECT_TRUE(made) << made.error();
    auto session = *made;
    session->onEvent = [this](const AgentEvent& event) {
      if (auto finished = event.as<AgentEvent::Finished>()) outcomes_.push_back(finished->outcome);
      if (auto stream = event.as<AgentEvent::Stream>()) {
        if (auto text = stream->event.as<StreamEvent::Text>()) texts_.push_back(text->text);
        if (auto use = stream->event.as<StreamEvent::ToolUse>()) texts_.push_back("tool:" + use->name);
      }
      if (event.as<AgentEvent::Exited>()) ADD_FAILURE() << "a turn-based session has no exit event";
    };
    EXPECT_TRUE(session->start());
    return session;
  }

  Outcome turn(AgentTransport& session, const std::string& prompt) {
    size_t before = outcomes_.size();
    session.send(prompt);
    EXPECT_TRUE(loop_.runUntil([&] { return outcomes_.size() > before; }, 30)) << "no outcome";
    loop_.runUntilIdle();
    EXPECT_EQ(outcomes_.size(), before + 1) << "exactly one outcome per turn";
    return outcomes_.empty() ? Outcome::failure("none") : outcomes_.back();
  }

  void useScenario(const std::string& json) { scenario_.emplace("STANDIN_SCENARIO", work_.write(".scenario.json", json)); }

  RunLoop loop_;
  testing::TempHome home_;
  testing::TempDir work_;
  testing::ScopedEnv state_{"STANDIN_STATE_DIR", std::nullopt};
  std::optional<testing::ScopedEnv> scenario_;
  std::vector<Outcome> outcomes_;
  std::vector<std::string> texts_;
};

// Codex: the first turn reports the thread, the second passes it back and continues
// the same conversation; a session rebuilt from the stored id resumes it too.
TEST_F(TurnSessionTest, CodexContinuesItsThread) {
  auto session = make(AgentKind::codex());
  EXPECT_TRUE(session->isRunning());
  EXPECT_EQ(turn(*session, "first"), Outcome::answer("echo: first (turn 1)"));
  auto thread = session->externalSessionID();
  ASSERT_TRUE(thread);
  EXPECT_EQ(turn(*session, "-second"), Outcome::answer("echo: -second (turn 2)"));
  EXPECT_EQ(session->externalSessionID(), thread);

  auto restored = make(AgentKind::codex(), thread);
  EXPECT_EQ(turn(*restored, "third"), Outcome::answer("echo: third (turn 3)"));
  session->terminate();
  EXPECT_FALSE(session->isRunning());
}

// Pi: the tool configuration lands in the session folder, the session id comes back on
// the next turn, and the extension path and tool list satisfy the strict stand-in.
TEST_F(TurnSessionTest, PiContinuesItsSession) {
  auto session = make(AgentKind::pi());
  EXPECT_EQ(turn(*session, "hello"), Outcome::answer("echo: hello (turn 1)"));
  ASSERT_TRUE(session->externalSessionID());
  EXPECT_EQ(turn(*session, "again"), Outcome::answer("echo: again (turn 2)"));
  auto config = parseJSON(testing::readAll(home_.path() + "/sessions/S1/.mcp.json"));
  ASSERT_TRUE(config);
  EXPECT_EQ((*config)["mcpServers"]["zorvane"]["args"][2], home_.path() + "/sessions/S1/scope.json");
}

// How a turn ends: a reported error wins over an answer only with a failing status;
// a last line without a line feed still counts; silence names the exit code; a tool
// that can't start says so by name; Pi's model error inside a clean exit is a failure.
TEST_F(TurnSessionTest, EndsTurnsByTheRules) {
  useScenario(R"({"turns":[
    [{"threadStarted":true},{"agentMessage":"partial"},{"turnFailed":"stream disconnected"},{"exit":1}],
    [{"agentMessage":"fine"},{"error":"reconnecting"},{"exit":0}],
    [{"command":"ls"},{"raw":"{\"type\":\"item.completed\",\"item\":{\"id\":\"x\",\"type\":\"agent_message\",\"text\":\"tail\"}}"}],
    [{"stderr":"  \n"},{"exit":3}],
    [{"stderr":"panic: boom\n"},{"exit":101}]
  ]})");
  auto session = make(AgentKind::codex());
  EXPECT_EQ(turn(*session, "a"), Outcome::failure("stream disconnected"));
  EXPECT_EQ(turn(*session, "b"), Outcome::answer("fine"));
  EXPECT_EQ(turn(*session, "c"), Outcome::answer("tail"));
  EXPECT_EQ(turn(*session, "d"), Outcome::failure("Codex exited with code 3"));
  EXPECT_EQ(turn(*session, "e"), Outcome::failure("panic: boom"));
  EXPECT_NE(std::find(texts_.begin(), texts_.end(), "tool:Bash"), texts_.end());

  auto missing = make(AgentKind::pi(), std::nullopt, "/nonexistent/pi");
  EXPECT_EQ(turn(*missing, "x"), Outcome::failure("Couldn't start Pi: No such file or directory"));

  useScenario(R"({"turns":[[{"error":"Connection error."}]]})");
  auto pi = make(AgentKind::pi());
  EXPECT_EQ(turn(*pi, "x"), Outcome::failure("Connection error.")) << "Pi's model error inside a clean exit";
}

// Terminating mid-turn ends the running child, and the turn still closes once.
TEST_F(TurnSessionTest, TerminateEndsARunningTurn) {
  useScenario(R"({"turns":[[{"threadStarted":true},{"sleep":30}]]})");
  auto session = make(AgentKind::codex());
  session->send("wait");
  ASSERT_TRUE(loop_.runUntil([&] { return session->externalSessionID().has_value(); }, 20));
  session->terminate();
  ASSERT_TRUE(loop_.runUntil([&] { return !outcomes_.empty(); }, 20));
  EXPECT_EQ(outcomes_[0].kind, Outcome::Kind::failure);
}

}  // namespace
}  // namespace zorvane
