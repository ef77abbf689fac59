#include "app/pieces/piece_controller.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "core/agent/agent_launch.h"
#include "core/base/file_io.h"
#include "core/mcp/control_scope.h"
#include "support/piece_world.h"

namespace zorvane {
namespace {

using testing::PieceWorld;

Target folderTarget(const testing::TempDir& dir, const std::string& name) {
  std::string path = dir.path() + "/" + name;
  (void)createDirectories(path);
  return Target::folder(URL::fileURL(path, true));
}

// A question becomes one turn with the notes gathered since the last one in front; the
// answer is shown and stored, and the next drop on the same target offers to go on.
TEST(PieceController, AskRunsATurnAndKeepsTheConversation) {
  PieceWorld world;
  testing::TempDir dir;
  Target target = folderTarget(dir, "notes");
  auto piece = world.piece(target);
  ASSERT_EQ(world.agents.made.size(), 1u);
  ControlScope scope = ControlScope::load(piece->sessionDir() + "/scope.json");
  EXPECT_EQ(scope.pieceID, piece->pieceID());
  EXPECT_EQ(scope.gate, false) << "the resident agent asks through its own permission requests";
  EXPECT_EQ(scope.workDir, target.workingDirectory().path());

  auto other = world.piece(folderTarget(dir, "other"));
  piece->link(*other);
  piece->ask("What is in here?");
  auto& agent = *world.agents.made[0];
  ASSERT_EQ(agent.sent.size(), 1u);
  EXPECT_TRUE(agent.sent[0].starts_with("You are now linked with another Zorvane agent, \"other\""));
  EXPECT_TRUE(agent.sent[0].ends_with("\n\nWhat is in here?"));
  EXPECT_TRUE(piece->state().busy);
  EXPECT_EQ(piece->statusLine(), "busy");

  agent.answer("Three drafts [[cite: a.md]].");
  EXPECT_FALSE(piece->state().busy);
  ASSERT_TRUE(piece->state().answer);
  EXPECT_EQ(piece->state().answer->citations.size(), 1u);
  auto record = world.store.previous(target);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->turns, 1);
  EXPECT_EQ(record->lastPrompt, "What is in here?") << "the stored prompt never holds the notes";
  EXPECT_EQ(record->agent, "claude");

  piece->retire(true);
  EXPECT_TRUE(agent.terminated) << "no agent outlives its piece";
  auto again = world.piece(target, nullptr, AgentKind::claude(), world.store.previous(target));
  EXPECT_TRUE(again->state().resumeOffer);
  EXPECT_EQ(world.agents.made.size(), 2u) << "an offer starts no session";
}

// Gated agents ask through the policy: a deny never reaches the user, an irreversible
// act is always asked, trusting a piece lets its acts through, and every decision,
// the user's and the trusted ones, is in the audit log.
TEST(PieceController, ApprovalsFollowThePolicyAndAreAudited) {
  PieceWorld world;
  testing::TempDir dir;
  auto piece = world.piece(folderTarget(dir, "repo"), nullptr, AgentKind::codex());
  EXPECT_EQ(ControlScope::load(piece->sessionDir() + "/scope.json").gate, true);
  EXPECT_NE(world.agents.requests[0].systemPrompt.find(AgentLaunch::gatedNote), std::string::npos);
  piece->ask("clean up");

  std::vector<bool> verdicts;
  auto respond = [&verdicts](bool allow) { verdicts.push_back(allow); };
  piece->requestApproval("mcp__zorvane__run_command", {{"command", "rm -r build"}, {"why", "x"}}, "Tidy", respond);
  ASSERT_TRUE(piece->state().pending);
  EXPECT_EQ(piece->state().pending->cls, ActionClass::irreversible);
  EXPECT_EQ(piece->state().pending->detail, "rm -r build");
  EXPECT_EQ(piece->state().mood, Mood::needsApproval);
  EXPECT_EQ(piece->statusLine(), "waiting for the user's approval");
  piece->decide(false);
  EXPECT_EQ(verdicts, std::vector<bool>{false});
  piece->decide(true);  // nothing pending: no second verdict, no second line
  EXPECT_EQ(verdicts.size(), 1u);

  piece->requestApproval("mcp__zorvane__type_text", {{"text", "hi"}}, "", respond);
  ASSERT_TRUE(piece->state().pending);
  piece->trustAndAllow();
  piece->requestApproval("mcp__zorvane__type_text", {{"text", "again"}}, "", respond);
  EXPECT_FALSE(piece->state().pending) << "a trusted act passes without a card";
  piece->requestApproval("Bash", {{"command", "git push"}}, "", respond);
  EXPECT_TRUE(piece->state().pending) << "trust never covers the irreversible";
  EXPECT_EQ(verdicts, (std::vector<bool>{false, true, true}));

  std::string audit = testing::readAll(world.services.auditLogPath);
  EXPECT_EQ(std::count(audit.begin(), audit.end(), '\n'), 3);
  EXPECT_NE(audit.find("\"allowed\":false"), std::string::npos);
  EXPECT_NE(audit.find("\"byTrust\":true,\"class\":\"act\""), std::string::npos) << audit;
  EXPECT_NE(audit.find("\"class\":\"irreversible\""), std::string::npos);

  // The agent gives up: the open card goes, and its tool server hears no.
  world.agents.last().answer("done");
  EXPECT_FALSE(piece->state().pending);
  EXPECT_EQ(verdicts.back(), false);
}

// What the card shows is what will run: escaped, whole, cut in the middle; writes into
// Zorvane's own folders are refused and commands naming them are never trusted; a call
// the user allowed through the harness passes the tool server's check once.
TEST(PieceController, CardsShowWhatWillRunAndZorvaneFilesAreOffLimits) {
  PieceWorld world;
  testing::TempDir dir;
  auto piece = world.piece(folderTarget(dir, "p"));
  std::vector<bool> verdicts;
  auto respond = [&verdicts](bool allow) { verdicts.push_back(allow); };
  std::string sneaky = "ls\nrm -rf ~ \u202Etxt.exe";
  piece->requestApproval("mcp__zorvane__run_command", {{"command", sneaky}}, "List\nthe folder", respond);
  ASSERT_TRUE(piece->state().pending);
  EXPECT_EQ(piece->state().pending->summary.find('\n'), std::string::npos) << "one line";
  EXPECT_NE(piece->state().pending->summary.find("rm -rf"), std::string::npos) << "what runs, not only the agent's words";
  EXPECT_EQ(piece->state().pending->detail, "ls\\nrm -rf ~ \\u{202E}txt.exe");
  piece->decide(false);
  std::string longScript(2000, 'a');
  piece->requestApproval("mcp__zorvane__browser_eval", {{"js", longScript + "fetch('//x')"}}, "", respond);
  ASSERT_TRUE(piece->state().pending);
  EXPECT_TRUE(piece->state().pending->detailPreview->ends_with("fetch('//x')")) << "the tail stays in sight";
  EXPECT_EQ(piece->state().pending->detail->size(), 2012u);
  piece->decide(false);

  std::string scope = world.home.path() + "/data/sessions/x/scope.json";
  piece->requestApproval("mcp__zorvane__write_file", {{"path", scope}, {"content", "{}"}}, "", respond);
  piece->requestApproval("Write", {{"file_path", scope}}, "", respond);
  EXPECT_FALSE(piece->state().pending);
  EXPECT_EQ(verdicts, (std::vector<bool>{false, false, false, false}));
  piece->requestApproval("mcp__zorvane__type_text", {{"text", "x"}}, "", respond);
  piece->trustAndAllow();
  piece->requestApproval("Bash", {{"command", "sed -i s/a/b/ " + scope}}, "", respond);
  ASSERT_TRUE(piece->state().pending) << "trust never covers Zorvane's own files";
  EXPECT_EQ(piece->state().pending->cls, ActionClass::irreversible);
  piece->decide(false);

  // Allowed through the harness: the tool server's check of the same call passes once.
  auto fresh = world.piece(folderTarget(dir, "q"));
  fresh->ask("go");
  JSONObject call{{"command", "mkdir out"}, {"why", "Make a folder"}};
  world.agents.last().askPermission("mcp__zorvane__run_command", call);
  fresh->decide(true);
  verdicts.clear();
  fresh->approveToolServerCall("mcp__zorvane__run_command", call, "Make a folder", respond);
  EXPECT_EQ(verdicts, std::vector<bool>{true});
  fresh->approveToolServerCall("mcp__zorvane__run_command", call, "Make a folder", respond);
  EXPECT_TRUE(fresh->state().pending) << "a second, unasked call goes to the user";
}

// A Claude permission request travels to the card and its verdict back to the session.
TEST(PieceController, PermissionEventsAreAnsweredThroughTheSession) {
  PieceWorld world;
  testing::TempDir dir;
  auto piece = world.piece(folderTarget(dir, "proj"));
  piece->ask("list it");
  auto& agent = world.agents.last();
  agent.askPermission("Read", {{"file_path", dir.path() + "/proj/a.txt"}});
  EXPECT_EQ(agent.responses.size(), 1u) << "reading inside the target is allowed at once";
  agent.askPermission("Bash", {{"command", "ls"}}, "req-2");
  ASSERT_TRUE(piece->state().pending);
  piece->decide(true);
  ASSERT_EQ(agent.responses.size(), 2u);
  EXPECT_EQ(agent.responses[1].first.requestID, "req-2");
  EXPECT_TRUE(agent.responses[1].second);
}

// Peers' messages wait while the piece works and go one at a time, first in first out;
// retiring answers every one still waiting.
TEST(PieceController, InboxIsFirstInFirstOutAndRetiringAnswersEveryone) {
  PieceWorld world;
  testing::TempDir dir;
  auto piece = world.piece(folderTarget(dir, "docs"));
  auto& agent = world.agents.last();
  std::vector<std::pair<std::string, PeerResponse>> replies;
  auto replyTo = [&replies](std::string who) {
    return [&replies, who](const PeerResponse& r) { replies.emplace_back(who, r); };
  };
  piece->ask("mine first");
  piece->deliver("A", "folder: /a", "question one", replyTo("A"));
  piece->deliver("B", "folder: /b", "question two", replyTo("B"));
  EXPECT_EQ(agent.sent.size(), 1u);
  agent.answer("answer to mine");
  world.queue.runUntilIdle();
  ASSERT_EQ(agent.sent.size(), 2u);
  EXPECT_NE(agent.sent[1].find("question one"), std::string::npos);
  EXPECT_EQ(piece->state().lastQuestion, "From A: question one");
  agent.answer("one answered");
  world.queue.runUntilIdle();
  ASSERT_EQ(replies.size(), 1u);
  EXPECT_EQ(replies[0].first, "A");
  EXPECT_EQ(replies[0].second, (PeerResponse{true, "one answered"}));

  piece->deliver("C", "folder: /c", "question three", replyTo("C"));
  piece->retire(false);
  ASSERT_EQ(replies.size(), 3u);
  EXPECT_EQ(replies[1], std::make_pair(std::string("B"), PeerResponse{false, "That agent was retired before it answered."}));
  EXPECT_EQ(replies[2], std::make_pair(std::string("C"), PeerResponse{false, "That agent was retired."}));
  piece->deliver("D", "", "late", replyTo("D"));
  EXPECT_EQ(replies.back().second.text, "That agent was retired.");
}

// A piece that offers to resume takes the offer by itself when a peer writes to it.
TEST(PieceController, PeerMessageTakesTheResumeOffer) {
  PieceWorld world;
  testing::TempDir dir;
  Target target = folderTarget(dir, "old");
  SessionRecord record{target.targetKey(), std::nullopt, UUID(), "old", "before", "then", {}, 4, "codex", "thread-7"};
  auto piece = world.piece(target, nullptr, AgentKind::claude(), record);
  EXPECT_TRUE(world.agents.requests.empty());
  bool codexFound = false;
  piece->availableAgents = [&codexFound] {
    codexFound = true;
    return std::vector<InstalledAgent>{PieceWorld::agent(AgentKind::codex())};
  };
  piece->deliver("A", "", "hello", nullptr);
  ASSERT_EQ(world.agents.requests.size(), 1u);
  EXPECT_TRUE(codexFound);
  EXPECT_EQ(world.agents.requests[0].agent.kind.id, "codex") << "the record's agent is taken back";
  EXPECT_TRUE(world.agents.requests[0].resume);
  EXPECT_EQ(world.agents.requests[0].externalID, "thread-7");
  EXPECT_EQ(world.agents.requests[0].sessionID, record.sessionID);
  EXPECT_TRUE(piece->state().continued || piece->state().busy);
}

// The three failure roads: a taken session id restarts silently, a conversation that
// can't be resumed starts fresh, anything else is shown; an agent that can't start
// says so and is tried again at the next question.
TEST(PieceController, FailedTurnsAndAgentsThatCannotStart) {
  PieceWorld world;
  testing::TempDir dir;
  auto piece = world.piece(folderTarget(dir, "x"));
  piece->ask("q");
  world.agents.last().fail("Session ID abc is already in use.");
  EXPECT_EQ(world.agents.made.size(), 2u);
  EXPECT_EQ(world.agents.last().sent, std::vector<std::string>{"q"});
  EXPECT_FALSE(piece->state().error);
  world.agents.last().fail("Invalid API key · Please run /login");
  ASSERT_TRUE(piece->state().error);

  world.agents.refuse = "no such file";
  world.agents.last().running = false;
  piece->ask("again");
  EXPECT_EQ(piece->state().error, "Couldn't start Claude Code: no such file");
  EXPECT_FALSE(piece->state().busy);
  piece->ask("third");
  EXPECT_EQ(world.agents.last().sent, std::vector<std::string>{"third"});
}

// The piece follows its target: a closed window retires it, a hidden one hides its
// panels, and a file renamed on disk is followed.
TEST(PieceController, FollowsItsTargetWindowAndFile) {
  PieceWorld world;
  world.fakes.desktop.windows.windowList = {{77, 9, 100, 100, 400, 300, 0, "Editor", true}};
  auto anchor = std::make_shared<WindowAnchor>(world.fakes.desktop.windows, 77, Rect{100, 100, 400, 300}, true);
  auto piece = world.piece(Target::window(9, 77, "org.example.Editor", "Editor", "Editor"), anchor);
  world.pass(0.1);
  EXPECT_TRUE(piece->overlay().isVisible());
  EXPECT_EQ(piece->overlay().frame(), (Rect{56, 56, 488, 388}));
  world.fakes.desktop.windows.windowList[0].onScreen = false;
  world.pass(0.1);
  EXPECT_FALSE(piece->overlay().isVisible());
  EXPECT_FALSE(piece->isRetired()) << "a minimised window hides its piece";
  bool retiredByUser = true;
  piece->onRetire = [&retiredByUser](PieceController&, bool byUser) { retiredByUser = byUser; };
  world.fakes.desktop.windows.windowList.clear();
  world.pass(0.1);
  EXPECT_TRUE(piece->isRetired());
  EXPECT_FALSE(retiredByUser);
  EXPECT_TRUE(world.agents.made[0]->terminated);

  testing::TempDir dir;
  std::string before = dir.write("drafts/plan.txt", "x");
  auto filePiece = world.piece(Target::file(URL::fileURL(before)));
  std::string after = dir.path() + "/drafts/plan-v2.txt";
  ASSERT_EQ(std::rename(before.c_str(), after.c_str()), 0);
  world.pass(1.2);
  EXPECT_EQ(filePiece->target().fileURL()->path(), after);
  EXPECT_EQ(filePiece->state().targetName, "plan-v2.txt");
  EXPECT_EQ(world.registry.entry(filePiece->pieceID())->target, filePiece->target());
  ASSERT_FALSE(filePiece->pendingContext().empty());
  EXPECT_EQ(filePiece->pendingContext().back(), "Note: the target was renamed/moved to " + after + ".");
}

}  // namespace
}  // namespace zorvane
