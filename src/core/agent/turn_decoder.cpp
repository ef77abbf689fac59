#include "core/agent/turn_decoder.h"

#include "core/base/uuid.h"

namespace zorvane::TurnDecoder {

std::string piToolName(std::string_view name) {
  if (name == "read") return "Read";
  if (name.starts_with("zorvane_")) return "mcp__zorvane__" + std::string(name.substr(8));
  return std::string(name);
}

static JSONObject objectField(const JSONValue& value, std::string_view key) {
  const JSONValue* field = subscript(value, key);
  if (field != nullptr && field->is_object()) return field->get<JSONObject>();
  return {};
}

static Line decodePi(const JSONValue& value, const std::string& type) {
  Line line;
  if (type == "session") {
    line.sessionID = stringValue(subscript(value, "id"));
  } else if (type == "tool_execution_start") {
    std::string id = stringValue(subscript(value, "toolCallId")).value_or(UUID().uuidString());
    std::string name = piToolName(stringValue(subscript(value, "toolName")).value_or(""));
    line.events.push_back({StreamEvent::ToolUse{id, name, objectField(value, "args")}});
  } else if (type == "tool_execution_end") {
    line.events.push_back({StreamEvent::ToolResult{stringValue(subscript(value, "toolCallId")).value_or(""),
                                                   boolValue(subscript(value, "isError")).value_or(false)}});
  } else if (type == "message_end") {
    const JSONValue* message = subscript(value, "message");
    if (message == nullptr || stringValue(subscript(*message, "role")) != "assistant") return line;
    const JSONValue* content = subscript(*message, "content");
    if (content == nullptr || !content->is_array()) return line;
    std::string text;
    for (const JSONValue& block : *content) {
      if (stringValue(subscript(block, "type")) != "text") continue;
      text += stringValue(subscript(block, "text")).value_or("");
    }
    if (!text.empty()) {
      line.events.push_back({StreamEvent::Text{text}});
      line.finalText = text;
    }
    auto errorMessage = stringValue(subscript(*message, "errorMessage"));
    if (errorMessage && !errorMessage->empty()) line.error = errorMessage;
  }
  return line;
}

static Line decodeCodexItem(const JSONValue& item, bool completed) {
  Line line;
  auto type = stringValue(subscript(item, "type"));
  if (!type) return line;
  std::string id = stringValue(subscript(item, "id")).value_or(UUID().uuidString());
  bool failed = stringValue(subscript(item, "status")) == "failed";
  if (*type == "agent_message") {
    if (!completed) return line;
    auto text = stringValue(subscript(item, "text"));
    if (!text) return line;
    line.events.push_back({StreamEvent::Text{*text}});
    line.finalText = text;
  } else if (*type == "mcp_tool_call") {
    if (completed) {
      line.events.push_back({StreamEvent::ToolResult{id, failed}});
    } else {
      std::string tool = stringValue(subscript(item, "tool")).value_or("");
      line.events.push_back({StreamEvent::ToolUse{id, "mcp__zorvane__" + tool, objectField(item, "arguments")}});
    }
  } else if (*type == "command_execution") {
    if (completed) {
      line.events.push_back({StreamEvent::ToolResult{id, failed}});
    } else {
      JSONObject input{{"command", stringValue(subscript(item, "command")).value_or("")}};
      line.events.push_back({StreamEvent::ToolUse{id, "Bash", std::move(input)}});
    }
  } else if (*type == "file_change" && !completed) {
    line.events.push_back({StreamEvent::ToolUse{id, "Edit", {}}});
  } else if (*type == "web_search" && !completed) {
    line.events.push_back({StreamEvent::ToolUse{id, "WebSearch", {}}});
  }
  return line;
}

static Line decodeCodex(const JSONValue& value, const std::string& type) {
  Line line;
  if (type == "thread.started") {
    line.sessionID = stringValue(subscript(value, "thread_id"));
  } else if (type == "turn.failed") {
    const JSONValue* error = subscript(value, "error");
    line.error = (error ? stringValue(subscript(*error, "message")) : std::nullopt).value_or("Codex failed");
  } else if (type == "error") {
    line.error = stringValue(subscript(value, "message")).value_or("Codex error");
  } else if (type == "item.started" || type == "item.completed") {
    const JSONValue* item = subscript(value, "item");
    if (item != nullptr) return decodeCodexItem(*item, type == "item.completed");
  }
  return line;
}

Line decode(const AgentKind& kind, std::string_view text) {
  auto parsed = parseJSON(text);
  if (!parsed) return {};
  std::string type = stringValue(subscript(*parsed, "type")).value_or("");
  if (kind.id == AgentKind::pi().id) return decodePi(*parsed, type);
  if (kind.id == AgentKind::codex().id) return decodeCodex(*parsed, type);
  return {};
}

}  // namespace zorvane::TurnDecoder
