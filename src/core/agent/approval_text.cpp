#include "core/agent/approval_text.h"

#include <cstdio>

#include "core/base/utf8.h"

namespace zorvane::ApprovalText {

static bool mustEscape(char32_t c) {
  if (c < 0x20 || c == 0x7f || (c >= 0x80 && c < 0xa0)) return true;
  // Direction marks, embeddings and overrides, isolates, the Arabic letter mark, and
  // the line and paragraph separators.
  return c == 0x200e || c == 0x200f || (c >= 0x202a && c <= 0x202e) || (c >= 0x2066 && c <= 0x2069) ||
         c == 0x061c || c == 0x2028 || c == 0x2029;
}

std::string escaped(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char32_t c : codePoints(text)) {
    if (!mustEscape(c)) {
      out += encodeUTF8(c);
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\r') {
      out += "\\r";
    } else {
      char code[16];
      std::snprintf(code, sizeof code, "\\u{%04X}", static_cast<unsigned>(c));
      out += code;
    }
  }
  return out;
}

std::string cutInMiddle(std::string_view text, size_t maxCharacters) {
  size_t length = utf8Length(text);
  if (length <= maxCharacters || maxCharacters < 8) return std::string(text);
  size_t keep = maxCharacters - 3;
  size_t head = keep - keep / 2;
  return utf8Prefix(text, head) + " … " + utf8Suffix(text, keep / 2);
}

static std::optional<std::string> text(const JSONObject& input, const char* key) {
  auto it = input.find(key);
  if (it == input.end()) return std::nullopt;
  if (it->second.is_string()) return it->second.get<std::string>();
  if (it->second.is_null()) return std::nullopt;
  return it->second.dump(-1, ' ', false, JSONValue::error_handler_t::replace);
}

static std::optional<std::string> raw(std::string_view tool, const JSONObject& input) {
  if (tool.starts_with("mcp__zorvane__")) tool.remove_prefix(14);
  if (tool == "run_command" || tool == "Bash") return text(input, "command");
  if (tool == "write_file") return text(input, "path");
  if (tool == "Write" || tool == "Edit" || tool == "MultiEdit" || tool == "NotebookEdit")
    return text(input, "file_path") ? text(input, "file_path") : text(input, "notebook_path");
  if (tool == "browser_eval") return text(input, "js");
  if (tool == "run_applescript") return text(input, "source");
  if (tool == "browser_navigate") return text(input, "url");
  if (tool == "type_text") return text(input, "text");
  if (tool == "set_value") return "element " + text(input, "ref").value_or("?") + ": " + text(input, "value").value_or("");
  if (tool == "press_key") {
    std::string keys = text(input, "modifiers").value_or("");
    return (keys.empty() || keys == "[]" ? "" : keys + " + ") + text(input, "key").value_or("");
  }
  if (tool == "click") {
    return "(" + text(input, "x").value_or("?") + ", " + text(input, "y").value_or("?") + ")" +
           (text(input, "button").value_or("left") == "right" ? " right button" : "") +
           (text(input, "double").value_or("false") == "true" ? " double" : "");
  }
  if (tool == "create_schedule") {
    return "“" + text(input, "title").value_or("") + "” " + text(input, "when").value_or("") +
           ": " + text(input, "prompt").value_or("");
  }
  if (tool == "delete_schedule") return text(input, "schedule");
  if (tool == "press") return "element " + text(input, "ref").value_or("?");
  for (const char* key : {"command", "path", "file_path", "source", "url", "text"})
    if (auto value = text(input, key)) return value;
  return std::nullopt;
}

std::optional<std::string> detail(std::string_view tool, const JSONObject& input) {
  auto found = raw(tool, input);
  if (!found) return std::nullopt;
  return escaped(*found);
}

}  // namespace zorvane::ApprovalText
