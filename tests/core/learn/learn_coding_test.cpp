#include <gtest/gtest.h>

#include "core/learn/demo_step.h"
#include "core/learn/raw_event.h"

namespace zorvane {
namespace {

// Events keep the recorder's JSON form: one key naming the case, absent fields left out,
// and they read back equal.
TEST(RawEvent, CodesAsOneKeyObjects) {
  ElementInfo field{"AXTextField", "Search", "Mo", {"Chats", ""}};
  struct Case {
    RawEvent event;
    std::string json;
  };
  const std::vector<Case> cases = {
      {{RawEvent::Click{1, 2, true, std::nullopt, std::nullopt, 3}},
       R"({"click":{"at":3.0,"right":true,"x":1.0,"y":2.0}})"},
      {{RawEvent::Key{"M", std::nullopt, {"shift"}, false, 0.5}},
       R"({"key":{"at":0.5,"modifiers":["shift"],"secure":false,"text":"M"}})"},
      {{RawEvent::Key{std::nullopt, "return", {}, true, 5}},
       R"({"key":{"at":5.0,"key":"return","modifiers":[],"secure":true}})"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    EXPECT_EQ(encodeCompact(c.event.encode()), c.json);
    auto decoded = RawEvent::decode(*parseJSON(c.json));
    ASSERT_TRUE(decoded) << decoded.error();
    EXPECT_EQ(*decoded, c.event);
  }
  auto integers = RawEvent::decode(*parseJSON(R"({"scroll":{"at":1,"dx":0,"dy":2,"extra":true}})"));
  ASSERT_TRUE(integers) << integers.error();
  EXPECT_EQ(*integers, (RawEvent{RawEvent::Scroll{0, 2, 1}}));
}

// What isn't an event is refused with the key at fault.
TEST(RawEvent, RefusesWhatIsntAnEvent) {
  struct Case {
    std::string json;
    std::string error;
  };
  const std::vector<Case> cases = {
      {"[]", "expected an object, found array"},
      {"{}", "expected one key naming the event, found 0"},
      {R"({"drag":{}})", "unknown event \"drag\""},
      {R"({"click":{"y":1,"right":false,"at":0}})", "click.x: missing"},
      {R"({"click":{"x":1,"y":1,"right":false,"at":0,"element":{"role":"AXButton","label":"x"}}})",
       "click.element.context: missing"},
      {R"({"key":{"modifiers":["cmd",3],"secure":false,"at":0}})",
       "key.modifiers: expected a list of text, found number"},
      {R"({"scroll":{"dx":0,"dy":1}})", "scroll.at: missing"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    auto decoded = RawEvent::decode(*parseJSON(c.json));
    ASSERT_FALSE(decoded);
    EXPECT_EQ(decoded.error(), c.error);
  }
}

// Steps as "recording.json" keeps them: kind by raw value, only the fields there are.
TEST(DemoStep, CodesWithRawKindsAndOnlyPresentFields) {
  DemoStep click{DemoStep::Kind::doubleClick,
                 4,
                 5,
                 std::nullopt,
                 ElementInfo{"AXCell", "Mom", std::nullopt, {}},
                 "step-02.jpg"};
  DemoStep typing{DemoStep::Kind::type, std::nullopt, std::nullopt, "Reached",
                  std::nullopt,         std::nullopt};
  EXPECT_EQ(
      encodeCompact(click.encode()),
      R"({"element":{"context":[],"label":"Mom","role":"AXCell"},"frame":"step-02.jpg","kind":"doubleClick","x":4.0,"y":5.0})");
  EXPECT_EQ(encodeCompact(typing.encode()), R"({"kind":"type","text":"Reached"})");
  for (const DemoStep& step : {click, typing}) {
    auto decoded = DemoStep::decode(step.encode());
    ASSERT_TRUE(decoded) << decoded.error();
    EXPECT_EQ(*decoded, step);
  }
  EXPECT_EQ(DemoStep::decode(*parseJSON(R"({"kind":"drag"})")).error(),
            "kind: unknown kind \"drag\"");
  EXPECT_EQ(DemoStep::decode(*parseJSON(R"({"kind":"key","text":4})")).error(),
            "text: expected text, found number");
  EXPECT_TRUE(DemoStep::decode(*parseJSON(R"({"kind":"key","text":null,"x":null})")));
}

}  // namespace
}  // namespace zorvane
