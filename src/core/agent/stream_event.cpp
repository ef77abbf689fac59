#include "core/agent/stream_event.h"

#include "core/base/utf8.h"

namespace zorvane {

static std::vector<StreamEvent> unknownEvent() { return {StreamEvent{StreamEvent::Unknown{}}}; }

// One block of `message.content`; absent for a block this program doesn't read.
static std::optional<StreamEvent> decodeBlock(const JSONValue& block) {
  auto type = stringValue(subscript(block, "type"));
  if (!type) return std::nullopt;
  if (*type == "text") {
    auto text = stringValue(subscript(block, "text"));
    if (!text) return std::nullopt;
    return StreamEvent{StreamEvent::Text{*text}};
  }
  if (*type == "tool_use") {
    auto id = stringValue(subscript(block, "id"));
    auto name = stringValue(subscript(block, "name"));
    if (!id || !name) return std::nullopt;
    const JSONValue* input = subscript(block, "input");
    JSONObject fields = input != nullptr && input->is_object() ? input->get<JSONObject>() : JSONObject{};
    return StreamEvent{StreamEvent::ToolUse{*id, *name, std::move(fields)}};
  }
  if (*type == "tool_result") {
    auto id = stringValue(subscript(block, "tool_use_id"));
    if (!id) return std::nullopt;
    return StreamEvent{StreamEvent::ToolResult{*id, boolValue(subscript(block, "is_error")).value_or(false)}};
  }
  return std::nullopt;
}

std::vector<StreamEvent> StreamEvent::decode(std::string_view line) {
  auto parsed = parseJSON(line);
  if (!parsed) return unknownEvent();
  const JSONValue& value = *parsed;
  auto type = stringValue(subscript(value, "type"));
  if (!type) return unknownEvent();

  if (*type == "system") {
    auto subtype = stringValue(subscript(value, "subtype"));
    auto sessionID = stringValue(subscript(value, "session_id"));
    if (subtype != "init" || !sessionID) return unknownEvent();
    return {StreamEvent{Initialized{*sessionID}}};
  }

  if (*type == "result") {
    bool isError;
    auto subtype = stringValue(subscript(value, "subtype"));
    if (boolValue(subscript(value, "is_error")) == true) {
      isError = true;
    } else if (subtype) {
      isError = *subtype != "success";
    } else {
      // Neither flag nor subtype says it went well: count it as an error.
      isError = true;
    }
    return {StreamEvent{Result{stringValue(subscript(value, "result")).value_or(""), isError}}};
  }

  if (*type == "assistant" || *type == "user") {
    const JSONValue* message = subscript(value, "message");
    const JSONValue* content = message != nullptr ? subscript(*message, "content") : nullptr;
    if (content == nullptr || !content->is_array()) return unknownEvent();
    std::vector<StreamEvent> events;
    for (const JSONValue& block : *content) {
      if (auto event = decodeBlock(block)) events.push_back(std::move(*event));
    }
    if (events.empty()) return unknownEvent();
    return events;
  }

  return unknownEvent();
}

std::string Outcome::description() const {
  return (kind == Kind::answer ? "answer(" : "failure(") + text + ")";
}

std::optional<PermissionRequest> PermissionRequest::decode(std::string_view line) {
  auto parsed = parseJSON(line);
  if (!parsed) return std::nullopt;
  if (stringValue(subscript(*parsed, "type")) != "control_request") return std::nullopt;
  auto requestID = stringValue(subscript(*parsed, "request_id"));
  const JSONValue* request = subscript(*parsed, "request");
  if (!requestID || request == nullptr) return std::nullopt;
  if (stringValue(subscript(*request, "subtype")) != "can_use_tool") return std::nullopt;
  auto toolName = stringValue(subscript(*request, "tool_name"));
  if (!toolName) return std::nullopt;
  const JSONValue* input = subscript(*request, "input");
  return PermissionRequest{
      *requestID, *toolName,
      input != nullptr && input->is_object() ? input->get<JSONObject>() : JSONObject{},
      stringValue(subscript(*request, "description")).value_or("")};
}

std::string PermissionRequest::response(bool allow) const {
  JSONValue decision = allow ? JSONValue{{"behavior", "allow"}, {"updatedInput", JSONValue(input)}}
                             : JSONValue{{"behavior", "deny"}, {"message", kDeniedMessage}};
  JSONValue line = {{"type", "control_response"},
                    {"response", {{"subtype", "success"}, {"request_id", requestID}, {"response", decision}}}};
  return encodeCompact(line) + "\n";
}

void StreamAccumulator::feed(const StreamEvent& event) {
  if (auto result = event.as<StreamEvent::Result>()) {
    lastResult = LastResult{result->text, result->isError};
  } else if (auto initialized = event.as<StreamEvent::Initialized>()) {
    sessionID = initialized->sessionID;
  }
}

Outcome StreamAccumulator::finish(int exitCode, std::string_view stderrTail) const {
  if (lastResult) {
    if (!lastResult->isError) return Outcome::answer(lastResult->text);
    if (!lastResult->text.empty()) return Outcome::failure(lastResult->text);
    return Outcome::failure(std::string(stderrTail));
  }
  std::string tail = trimmed(stderrTail);
  if (!tail.empty()) return Outcome::failure(tail);
  return Outcome::failure("Agent exited with code " + std::to_string(exitCode));
}

}  // namespace zorvane
