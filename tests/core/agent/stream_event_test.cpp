#include "core/agent/stream_event.h"

#include <gtest/gtest.h>

namespace zorvane {
namespace {

using Events = std::vector<StreamEvent>;
const StreamEvent kUnknown{StreamEvent::Unknown{}};

// Each kind of output line decodes to its events; everything else is one Unknown.
TEST(StreamEvent, DecodesEveryLineKind) {
  struct Case {
    std::string line;
    Events expected;
  };
  const std::vector<Case> cases = {
      {R"({"type":"system","subtype":"init","session_id":"abc"})", {{StreamEvent::Initialized{"abc"}}}},
      {R"({"type":"system","subtype":"other","session_id":"abc"})", {kUnknown}},
      {R"({"type":"system","subtype":"init","session_id":7})", {kUnknown}},
      {R"({"type":"assistant","message":{"content":[{"type":"text","text":"Hi"},)"
       R"({"type":"tool_use","id":"t1","name":"Bash","input":{"command":"ls"}}]}})",
       {{StreamEvent::Text{"Hi"}}, {StreamEvent::ToolUse{"t1", "Bash", {{"command", "ls"}}}}}},
      {R"({"type":"assistant","message":{"content":[{"type":"tool_use","id":"t","name":"X","input":[1,2]}]}})",
       {{StreamEvent::ToolUse{"t", "X", {}}}}},
      {R"({"type":"user","message":{"content":[{"type":"tool_result","tool_use_id":"t1","is_error":true},)"
       R"({"type":"tool_result","tool_use_id":"t2","is_error":"yes"},{"type":"tool_result","tool_use_id":"t3"}]}})",
       {{StreamEvent::ToolResult{"t1", true}}, {StreamEvent::ToolResult{"t2", false}},
        {StreamEvent::ToolResult{"t3", false}}}},
      // Unusable blocks are skipped; a line with none left is Unknown.
      {R"({"type":"assistant","message":{"content":[7,{"type":"image"},{"type":"text"},{"type":"text","text":"ok"}]}})",
       {{StreamEvent::Text{"ok"}}}},
      {R"({"type":"assistant","message":{"content":[{"type":"thinking","thinking":"..."}]}})", {kUnknown}},
      {R"({"type":"assistant","message":{"content":"plain"}})", {kUnknown}},
      {R"({"type":"result","subtype":"success","result":"Done"})", {{StreamEvent::Result{"Done", false}}}},
      {R"({"type":"result","subtype":"success","is_error":true,"result":"Bad"})", {{StreamEvent::Result{"Bad", true}}}},
      {R"({"type":"result","subtype":"error_max_turns","is_error":false})", {{StreamEvent::Result{"", true}}}},
      {R"({"type":"result","is_error":false,"result":"?"})", {{StreamEvent::Result{"?", true}}}},
      {R"({"type":"result","subtype":"success","result":42})", {{StreamEvent::Result{"", false}}}},
      {R"({"type":"control_request","request_id":"r","request":{"subtype":"interrupt"}})", {kUnknown}},
      {R"({"type":7})", {kUnknown}},
      {R"([1,2,3])", {kUnknown}},
      {"not json at all", {kUnknown}},
      {"", {kUnknown}},
      {"{\"type\":\"assistant\",\"message\":{\"content\":[{\"type\":\"text\",\"text\":\"\xff\xfe\"}]}}", {kUnknown}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    EXPECT_EQ(StreamEvent::decode(c.line), c.expected);
  }
}

// Deeply nested or huge input is just Unknown: the decoder never throws or crashes.
TEST(StreamEvent, SurvivesHostileInput) {
  EXPECT_EQ(StreamEvent::decode(std::string(100000, '[') + std::string(100000, ']')), Events{kUnknown});
  EXPECT_EQ(StreamEvent::decode(std::string(100000, '[')), Events{kUnknown});
  std::string big = R"({"type":"assistant","message":{"content":[{"type":"text","text":")" +
                    std::string(5'000'000, 'a') + R"("}]}})";
  auto events = StreamEvent::decode(big);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].as<StreamEvent::Text>()->text.size(), 5'000'000u);
}

// A tool-use request decodes with defaults for the optional parts; every other line is
// no request.
TEST(PermissionRequest, DecodesOnlyToolUseRequests) {
  auto request = PermissionRequest::decode(
      R"({"type":"control_request","request_id":"r1","request":{"subtype":"can_use_tool",)"
      R"("tool_name":"Bash","input":{"command":"mv a b","n":1.5},"description":"Rename"}})");
  ASSERT_TRUE(request);
  EXPECT_EQ(*request, (PermissionRequest{"r1", "Bash", {{"command", "mv a b"}, {"n", 1.5}}, "Rename"}));

  auto bare = PermissionRequest::decode(
      R"({"type":"control_request","request_id":"r2","request":{"subtype":"can_use_tool","tool_name":"X","input":"?"}})");
  ASSERT_TRUE(bare);
  EXPECT_TRUE(bare->input.empty());
  EXPECT_EQ(bare->description, "");

  for (const char* line : {
           R"({"type":"control_request","request_id":"r","request":{"subtype":"interrupt","tool_name":"X"}})",
           R"({"type":"control_request","request_id":5,"request":{"subtype":"can_use_tool","tool_name":"X"}})",
           R"({"type":"control_request","request_id":"r","request":{"subtype":"can_use_tool"}})",
           R"({"type":"control_request","request_id":"r"})",
           R"({"type":"assistant","request_id":"r","request":{"subtype":"can_use_tool","tool_name":"X"}})",
           "garbage"}) {
    SCOPED_TRACE(line);
    EXPECT_FALSE(PermissionRequest::decode(line));
  }
}

// A turn's outcome: the last result wins; without one, the error tail, else the exit code.
TEST(StreamAccumulator, FinishesTurnsByTheRules) {
  StreamAccumulator turn;
  turn.feed({StreamEvent::Initialized{"s1"}});
  EXPECT_EQ(turn.sessionID, "s1");
  EXPECT_EQ(turn.finish(0, "  boom \n"), Outcome::failure("boom"));
  EXPECT_EQ(turn.finish(137, " \n\t"), Outcome::failure("Agent exited with code 137"));

  turn.feed({StreamEvent::Result{"first", true}});
  turn.feed({StreamEvent::Text{"ignored"}});
  turn.feed({StreamEvent::Result{"All done", false}});
  EXPECT_EQ(turn.finish(1, "tail"), Outcome::answer("All done"));

  turn.feed({StreamEvent::Result{"Quota exceeded", true}});
  EXPECT_EQ(turn.finish(0, "tail"), Outcome::failure("Quota exceeded"));
  turn.feed({StreamEvent::Result{"", true}});
  EXPECT_EQ(turn.finish(0, " raw tail \n"), Outcome::failure(" raw tail \n")) << "kept untrimmed";
}

}  // namespace
}  // namespace zorvane
