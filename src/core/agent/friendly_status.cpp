#include "core/agent/friendly_status.h"

#include "core/mcp/zorvane_tools.h"

#include <optional>

namespace zorvane {

static constexpr std::string_view kOwnToolPrefix = "mcp__zorvane__";

static std::optional<std::string> textField(const JSONObject& input, const std::string& key) {
  auto found = input.find(key);
  if (found == input.end() || !found->second.is_string()) return std::nullopt;
  return found->second.get<std::string>();
}

// "/a/b/report.pdf" and "/a/b/report.pdf/" give "report.pdf"; a path that names no file
// ("", "/") gives nothing.
static std::optional<std::string> lastPathComponent(std::string_view path) {
  size_t end = path.find_last_not_of('/');
  if (end == std::string_view::npos) return std::nullopt;
  path = path.substr(0, end + 1);
  size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

static std::optional<std::string> fileName(const JSONObject& input) {
  for (const char* key : {"file_path", "path", "notebook_path"}) {
    if (auto path = textField(input, key)) return lastPathComponent(*path);
  }
  return std::nullopt;
}

// "7", "-2" and "+3" are whole numbers; "7b" and "" are not.
static bool isWholeNumber(std::string_view text) {
  if (text.starts_with('+') || text.starts_with('-')) text.remove_prefix(1);
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

static std::optional<std::string> pieceName(const JSONObject& input) {
  auto piece = textField(input, "piece");
  if (!piece || piece->empty() || isWholeNumber(*piece)) return std::nullopt;
  return piece;
}

static std::string withObject(std::string_view verb, const std::optional<std::string>& object,
                              std::string_view withoutObject) {
  if (!object) return std::string(withoutObject);
  return std::string(verb) + " " + *object;
}

std::string FriendlyStatus::describe(std::string_view tool, const JSONObject& input) {
  std::string_view name = tool;
  if (name.starts_with(kOwnToolPrefix)) name.remove_prefix(kOwnToolPrefix.size());

  if (name == "Read") return withObject("Reading", fileName(input), "Reading");
  if (name == "Write") return withObject("Writing", fileName(input), "Writing");
  if (name == "Edit") return withObject("Editing", fileName(input), "Editing");
  if (name == "ask_piece") return withObject("Asking", pieceName(input), "Asking another agent");
  if (name == "tell_piece")
    return withObject("Messaging", pieceName(input), "Messaging another agent");

  struct Row {
    std::string_view name;
    std::string_view text;
  };
  static constexpr Row kTable[] = {
      {"Glob", "Looking around"},
      {"Grep", "Searching"},
      {"WebSearch", "Searching the web"},
      {"WebFetch", "Reading a web page"},
      {"Bash", "Working on it"},
      {"Skill", "Recalling how to do this"},
      {"TodoWrite", "Planning"},
      {"Task", "Planning"},
      {"Agent", "Planning"},
  };
  for (const Row& row : kTable) {
    if (row.name == name) return std::string(row.text);
  }
  if (const ZorvaneTool* own = ZorvaneTools::find(name)) return std::string(own->status);
  return "Figuring it out";
}

}  // namespace zorvane
