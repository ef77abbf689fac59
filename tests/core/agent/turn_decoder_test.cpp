#include "core/agent/turn_decoder.h"

#include <gtest/gtest.h>

namespace zorvane {
namespace {

using TurnDecoder::decode;

// Pi's lines: the session id, tool starts and ends with their names mapped, and the
// assistant's text as both an event and the candidate answer; an error message counts.
TEST(TurnDecoder, DecodesPiLines) {
  const AgentKind& pi = AgentKind::pi();
  EXPECT_EQ(decode(pi, R"({"type":"session","id":"s-1","cwd":"/x"})").sessionID, "s-1");

  auto start = decode(pi, R"({"type":"tool_execution_start","toolCallId":"c1","toolName":"read","args":{"path":"a"}})");
  ASSERT_EQ(start.events.size(), 1u);
  EXPECT_EQ(start.events[0], (StreamEvent{StreamEvent::ToolUse{"c1", "Read", {{"path", "a"}}}}));
  auto anonymous = decode(pi, R"({"type":"tool_execution_start","toolName":"zorvane_run_command","args":[]})");
  auto use = anonymous.events.at(0).as<StreamEvent::ToolUse>();
  EXPECT_EQ(use->name, "mcp__zorvane__run_command");
  EXPECT_EQ(use->id.size(), 36u) << "a missing id gets a fresh one";
  EXPECT_TRUE(use->input.empty());

  EXPECT_EQ(decode(pi, R"({"type":"tool_execution_end","isError":true})").events,
            (std::vector<StreamEvent>{{StreamEvent::ToolResult{"", true}}}));

  auto message = decode(pi, R"({"type":"message_end","message":{"role":"assistant","content":[)"
                            R"({"type":"text","text":"Hel"},{"type":"thinking","thinking":"x"},{"type":"text","text":"lo"}]}})");
  EXPECT_EQ(message.finalText, "Hello");
  EXPECT_EQ(message.events, (std::vector<StreamEvent>{{StreamEvent::Text{"Hello"}}}));
  EXPECT_FALSE(message.error);

  auto failed = decode(pi, R"({"type":"message_end","message":{"role":"assistant","content":[],)"
                           R"("stopReason":"error","errorMessage":"401 invalid key"}})");
  EXPECT_EQ(failed.error, "401 invalid key");
  EXPECT_FALSE(failed.finalText);
  EXPECT_TRUE(failed.events.empty());

  EXPECT_FALSE(decode(pi, R"({"type":"message_end","message":{"role":"user","content":[{"type":"text","text":"q"}]}})").finalText);
  EXPECT_TRUE(decode(pi, R"({"type":"thread.started","thread_id":"t"})").events.empty());
  EXPECT_EQ(TurnDecoder::piToolName("mcp__zorvane__click"), "mcp__zorvane__click");
}

// Codex's lines: thread id, failures with their fallbacks, and items by kind and phase.
TEST(TurnDecoder, DecodesCodexLines) {
  const AgentKind& codex = AgentKind::codex();
  EXPECT_EQ(decode(codex, R"({"type":"thread.started","thread_id":"th-7"})").sessionID, "th-7");
  EXPECT_EQ(decode(codex, R"({"type":"turn.failed","error":{"message":"rate limited"}})").error, "rate limited");
  EXPECT_EQ(decode(codex, R"({"type":"turn.failed"})").error, "Codex failed");
  EXPECT_EQ(decode(codex, R"({"type":"error","message":7})").error, "Codex error");

  struct Case {
    std::string line;
    std::vector<StreamEvent> events;
  };
  const std::vector<Case> cases = {
      {R"({"type":"item.started","item":{"id":"i1","type":"agent_message","text":"x"}})", {}},
      {R"({"type":"item.completed","item":{"id":"i1","type":"agent_message","text":"Done."}})", {{StreamEvent::Text{"Done."}}}},
      {R"({"type":"item.started","item":{"id":"i2","type":"mcp_tool_call","tool":"run_command","arguments":{"command":"mv a b"}}})",
       {{StreamEvent::ToolUse{"i2", "mcp__zorvane__run_command", {{"command", "mv a b"}}}}}},
      {R"({"type":"item.completed","item":{"id":"i2","type":"mcp_tool_call","status":"failed"}})", {{StreamEvent::ToolResult{"i2", true}}}},
      {R"({"type":"item.started","item":{"id":"i3","type":"command_execution"}})",
       {{StreamEvent::ToolUse{"i3", "Bash", {{"command", ""}}}}}},
      {R"({"type":"item.completed","item":{"id":"i3","type":"command_execution","status":"completed"}})", {{StreamEvent::ToolResult{"i3", false}}}},
      {R"({"type":"item.started","item":{"id":"i4","type":"file_change"}})", {{StreamEvent::ToolUse{"i4", "Edit", {}}}}},
      {R"({"type":"item.completed","item":{"id":"i4","type":"file_change"}})", {}},
      {R"({"type":"item.started","item":{"id":"i5","type":"web_search"}})", {{StreamEvent::ToolUse{"i5", "WebSearch", {}}}}},
      {R"({"type":"item.completed","item":{"type":"reasoning","text":"..."}})", {}},
      {R"({"type":"item.completed","item":{"id":"i6","type":7}})", {}},
      {R"({"type":"turn.completed","usage":{}})", {}},
      {"not json", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    EXPECT_EQ(decode(codex, c.line).events, c.events);
  }
  EXPECT_EQ(decode(codex, R"({"type":"item.completed","item":{"id":"i1","type":"agent_message","text":"Done."}})").finalText, "Done.");
  EXPECT_TRUE(decode(AgentKind::claude(), R"({"type":"thread.started","thread_id":"x"})").events.empty());
  EXPECT_FALSE(decode(AgentKind::claude(), R"({"type":"thread.started","thread_id":"x"})").sessionID);
}

}  // namespace
}  // namespace zorvane
