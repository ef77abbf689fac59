#include "core/agent/claude_session.h"

#include <gtest/gtest.h>

#include "core/base/run_loop.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

const std::string kStandIn = std::string(ZORVANE_FIXTURES_DIR) + "/bin/claude";

// Runs the stand-in agent with a scenario and records every event in order.
class ClaudeSessionTest : public ::testing::Test {
 protected:
  void SetUp() override { MainQueue::setMain(&loop_); }
  void TearDown() override {
    if (session_) {
      session_->terminate();
      loop_.runUntil([&] { return exited_; }, 10);
    }
    MainQueue::setMain(nullptr);
  }

  void startWith(const std::string& scenarioJSON) {
    scenario_.emplace("STANDIN_SCENARIO", dir_.write("scenario.json", scenarioJSON));
    log_.emplace("STANDIN_LOG_DIR", dir_.path());
    session_ = ClaudeSession::create(
        kStandIn,
        {"-p", "--output-format", "stream-json", "--input-format", "stream-json", "--verbose",
         "--permission-prompt-tool", "stdio", "--session-id", "e621e1f8-c36c-495a-93fc-0c247a3e6e5f",
         "--settings", R"({"permissions":{"allow":[]}})", "--append-system-prompt", "x"},
        dir_.file("work dir"), loop_);
    session_->onEvent = [this](const AgentEvent& event) { record(event); };
    auto started = session_->start();
    ASSERT_TRUE(started) << started.error();
  }

  void record(const AgentEvent& event) {
    if (auto raw = event.as<AgentEvent::Raw>()) {
      log("raw");
      rawLines_.push_back(raw->line);
    } else if (auto stream = event.as<AgentEvent::Stream>()) {
      const auto& e = stream->event;
      if (auto text = e.as<StreamEvent::Text>()) log("text:" + text->text);
      else if (auto use = e.as<StreamEvent::ToolUse>()) log("toolUse:" + use->name);
      else if (auto result = e.as<StreamEvent::ToolResult>()) log(std::string("toolResult:") + (result->isError ? "error" : "ok"));
      else if (auto r = e.as<StreamEvent::Result>()) log("result:" + r->text);
      else if (e.as<StreamEvent::Initialized>()) log("init");
      else log("unknown");
    } else if (auto permission = event.as<AgentEvent::Permission>()) {
      log("permission:" + permission->request.toolName);
      if (onPermission) onPermission(permission->request);
    } else if (auto finished = event.as<AgentEvent::Finished>()) {
      log("outcome:" + finished->outcome.description());
      outcomes_.push_back(finished->outcome);
    } else if (auto exited = event.as<AgentEvent::Exited>()) {
      log("exited:" + std::to_string(exited->code));
      exited_ = true;
    }
  }
  void log(const std::string& entry) { events_.push_back(entry); }

  bool waitFor(size_t outcomes) {
    return loop_.runUntil([&] { return outcomes_.size() >= outcomes; }, 20);
  }
  // The events after the raw lines are taken out, to compare meaning not framing.
  std::vector<std::string> meaningful() const {
    std::vector<std::string> result;
    for (const auto& e : events_) if (e != "raw") result.push_back(e);
    return result;
  }

  RunLoop loop_;
  testing::TempDir dir_;
  std::optional<testing::ScopedEnv> scenario_, log_;
  std::shared_ptr<ClaudeSession> session_;
  std::vector<std::string> events_, rawLines_;
  std::vector<Outcome> outcomes_;
  bool exited_ = false;
  std::function<void(const PermissionRequest&)> onPermission;
};

// A turn whose lines arrive split across writes, with a blank line, non-JSON and a
// two-block line, comes out as the right events in order and one answer; the prompt
// reaches the agent whole, whatever it holds; a second turn on the same process works too.
TEST_F(ClaudeSessionTest, RunsTurnsFromSplitAndMessyOutput) {
  startWith(R"({"turns":[[
    {"init":true},
    {"chunks":["{\"type\":\"assistant\",\"message\":{\"con", "tent\":[{\"type\":\"text\",\"text\":\"Hi\"},", "{\"type\":\"tool_use\",\"id\":\"t1\",\"name\":\"Read\",\"input\":{}}]}}\n\n"],"pause":0.02},
    {"raw":"this is not json\n"},
    {"toolResult":{"id":"t1","isError":true}},
    {"echoPrompt":true}
  ]]})");
  const std::string prompt = "line one\nline \"two\" \\ \xF0\x9F\x90\x99";
  session_->send(prompt);
  EXPECT_TRUE(session_->isBusy());
  ASSERT_TRUE(waitFor(1));
  EXPECT_FALSE(session_->isBusy());
  EXPECT_EQ(meaningful(), (std::vector<std::string>{"init", "text:Hi", "toolUse:Read", "unknown",
                                                    "toolResult:error", "result:echo: " + prompt,
                                                    "outcome:answer(echo: " + prompt + ")"}));
  EXPECT_EQ(std::count(rawLines_.begin(), rawLines_.end(), ""), 0) << "blank lines give no raw event";
  EXPECT_EQ(rawLines_.size(), 5u);

  session_->send("second");
  ASSERT_TRUE(waitFor(2));
  EXPECT_EQ(outcomes_[1], Outcome::answer("echo: second"));
  EXPECT_TRUE(session_->isRunning()) << "the process stays between turns";

  auto started = testing::readAll(dir_.file("start-1.json"));
  EXPECT_NE(started.find("900000"), std::string::npos) << "MCP_TOOL_TIMEOUT defaults for the child";
}

// Permission requests reach the caller and its answers reach the agent: allow echoes
// the input, deny sends the refusal, and neither line is decoded as a stream event.
TEST_F(ClaudeSessionTest, ForwardsPermissionRequestsAndAnswers) {
  startWith(R"({"turns":[[
    {"init":true},
    {"permission":{"tool":"Bash","input":{"command":"mv a.txt b.txt","n":3},"description":"Rename"}},
    {"permission":{"tool":"Write","input":{"file_path":"/x"}}},
    {"result":"done","isError":false}
  ]]})");
  int asked = 0;
  onPermission = [&](const PermissionRequest& request) {
    EXPECT_EQ(request.description, asked == 0 ? "Rename" : "");
    session_->respond(request, asked++ == 0);
  };
  session_->send("go");
  ASSERT_TRUE(waitFor(1));
  EXPECT_EQ(meaningful(), (std::vector<std::string>{"init", "permission:Bash", "toolUse:Bash",
                                                    "toolResult:ok", "permission:Write",
                                                    "toolResult:error", "result:done",
                                                    "outcome:answer(done)"}));
  auto decisions = testing::readAll(dir_.file("decisions.jsonl"));
  auto first = parseJSON(decisions.substr(0, decisions.find('\n')));
  ASSERT_TRUE(first);
  EXPECT_EQ((*first)["response"]["response"]["updatedInput"], (JSONValue{{"command", "mv a.txt b.txt"}, {"n", 3}}));
  EXPECT_NE(decisions.find("The user denied this action."), std::string::npos);
}

// A process that dies mid-turn closes the turn once, before the exit event: with its
// error output as the failure text; nothing is written to it afterwards.
TEST_F(ClaudeSessionTest, DeathMidTurnGivesOneFailureBeforeExit) {
  startWith(R"({"turns":[[{"init":true},{"stderr":"fatal: out of tokens\n"},{"exit":3}]]})");
  session_->send("go");
  ASSERT_TRUE(loop_.runUntil([&] { return exited_; }, 20));
  loop_.runUntilIdle();
  EXPECT_EQ(meaningful(), (std::vector<std::string>{"init", "outcome:failure(fatal: out of tokens)", "exited:3"}));
  EXPECT_EQ(session_->stderrTail(), "fatal: out of tokens\n");
  session_->send("again");
  loop_.runUntilIdle();
  EXPECT_EQ(outcomes_.size(), 1u);
}

// Dying silently names the exit code; bytes after the last line feed are dropped.
TEST_F(ClaudeSessionTest, SilentDeathNamesTheExitCode) {
  startWith(R"({"turns":[[{"raw":"{\"type\":\"system\",\"subtype\":\"init\",\"session_id\":\"s\"}\n{\"type\":\"res"},{"exit":0}]]})");
  session_->send("go");
  ASSERT_TRUE(loop_.runUntil([&] { return exited_; }, 20));
  EXPECT_EQ(meaningful(), (std::vector<std::string>{"init", "outcome:failure(Agent exited with code 0)", "exited:0"}));
}

// A result that arrives while no turn is open is reported but closes nothing; an error
// result closes the turn as a failure with its text.
TEST_F(ClaudeSessionTest, ResultsOutsideATurnDontCloseOne) {
  startWith(R"({"turns":[[{"result":"Usage limit reached","isError":true},{"result":"late","isError":false}]]})");
  session_->send("go");
  ASSERT_TRUE(loop_.runUntil([&] { return !events_.empty() && events_.back() == "result:late"; }, 20));
  EXPECT_EQ(meaningful(), (std::vector<std::string>{"result:Usage limit reached",
                                                    "outcome:failure(Usage limit reached)",
                                                    "result:late"}));
}

// A start that can't happen fails with a reason and emits nothing.
TEST(ClaudeSession, StartFailureIsReportedNotThrown) {
  RunLoop loop;
  auto session = ClaudeSession::create("/nonexistent/claude", {}, "/tmp", loop);
  bool anyEvent = false;
  session->onEvent = [&](const AgentEvent&) { anyEvent = true; };
  auto started = session->start();
  ASSERT_FALSE(started);
  EXPECT_EQ(started.error(), "Couldn't start /nonexistent/claude: No such file or directory");
  session->send("hello");
  loop.runUntilIdle();
  EXPECT_FALSE(anyEvent);
}

// The child's PATH starts with the tool's own folder, and a set MCP_TOOL_TIMEOUT stays.
TEST(ClaudeSession, ChildEnvironmentPutsToolFolderFirst) {
  Environment base;
  base.set("PATH", "/usr/bin");
  base.set("MCP_TOOL_TIMEOUT", "5");
  Environment env = ClaudeSession::childEnvironment("/opt/tools/bin/claude", base);
  EXPECT_TRUE(env.get("PATH")->starts_with("/opt/tools/bin:"));
  EXPECT_TRUE(env.get("PATH")->ends_with(":/usr/local/bin:/usr/bin"));
  EXPECT_EQ(env.get("MCP_TOOL_TIMEOUT"), "5");
  Environment bare = ClaudeSession::childEnvironment("/x/claude", Environment());
  EXPECT_TRUE(bare.get("PATH")->ends_with(":/usr/bin:/bin:/usr/sbin:/sbin"));
  EXPECT_EQ(bare.get("MCP_TOOL_TIMEOUT"), "900000");
}

}  // namespace
}  // namespace zorvane
