#include "core/agent/action_policy.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <locale>
#include <regex>

#include "core/base/paths.h"
#include "core/base/url.h"
#include "core/base/utf8.h"
#include "core/mcp/zorvane_tools.h"

namespace zorvane {

// ---------------------------------------------------------------------------------------
// ActionClass and Decision

static constexpr std::array<ActionClass, 4> kAllActionClasses = {
    ActionClass::read, ActionClass::draft, ActionClass::act, ActionClass::irreversible};

std::string_view rawValue(ActionClass actionClass) {
  switch (actionClass) {
    case ActionClass::read:
      return "read";
    case ActionClass::draft:
      return "draft";
    case ActionClass::act:
      return "act";
    case ActionClass::irreversible:
      return "irreversible";
  }
  // Only a value cast from outside the enumeration lands here; name it as the gravest.
  return "irreversible";
}

template <>
std::span<const ActionClass> allCases<ActionClass>() {
  return kAllActionClasses;
}

template <>
std::optional<ActionClass> fromRawValue<ActionClass>(std::string_view text) {
  for (ActionClass actionClass : kAllActionClasses) {
    if (rawValue(actionClass) == text) return actionClass;
  }
  return std::nullopt;
}

std::string Decision::description() const {
  if (const Ask* ask = asAsk()) {
    return "ask(" + std::string(rawValue(ask->actionClass)) + ", " + ask->summary + ")";
  }
  if (const Deny* deny = asDeny()) return "deny(" + deny->reason + ")";
  return "allow";
}

// ---------------------------------------------------------------------------------------
// Patterns

namespace {

// One regular expression of the policy, searched anywhere in a text.
//
// libstdc++'s std::regex matches by recursion, one stack frame per character a
// repetition consumes, so ".*" over a long command overflows the stack (about 100 000
// characters are enough). Two measures keep every search shallow:
//
// - A pattern "A.*B" is kept as its two halves: it matches exactly when some match of B
//   starts at or after the end of the first match of A, and neither half repeats
//   anything but blanks.
// - Runs of blanks are shortened to kMaxBlankRun before searching (see boundedBlanks).
//
// The ".*" between the halves spans line breaks, unlike ECMAScript's ".". A command or
// a script is judged as a whole: in "osascript <<END" with "delete" three lines below,
// or a curl call continued with "\" onto the next line, the verb and the program that
// runs it sit on different lines, and a reader still sees a delete and a POST. Matching
// across lines can only make the class graver, never let something pass.
//
// The patterns are compiled in the classic locale, so "\s" is the ASCII blank set
// (space, tab, line feed, vertical tab, form feed, carriage return) and "\b" the
// boundary between [A-Za-z0-9_] and anything else, whatever locale the process has. A
// shell splits words at ASCII blanks only, never at a no-break space.
class Pattern {
 public:
  Pattern(const char* head, const char* tail, bool ignoreCase) : head_(compiled(head, ignoreCase)) {
    if (tail != nullptr) tail_ = compiled(tail, ignoreCase);
  }

  // Whether the pattern matches anywhere in `text`, whose blank runs are already
  // bounded. An engine failure counts as a match: the call is then asked as graver.
  bool isFoundIn(std::string_view text) const {
    try {
      std::cmatch match;
      const char* begin = text.data();
      const char* end = text.data() + text.size();
      if (!std::regex_search(begin, end, match, head_)) return false;
      if (!tail_) return true;
      const char* from = match[0].second;
      auto flags = from == begin ? std::regex_constants::match_default
                                 : std::regex_constants::match_prev_avail;
      return std::regex_search(from, end, *tail_, flags);
    } catch (const std::regex_error&) {
      return true;
    }
  }

 private:
  static std::regex compiled(const char* pattern, bool ignoreCase) {
    std::regex regex;
    regex.imbue(std::locale::classic());
    auto flags = std::regex::ECMAScript | std::regex::optimize;
    if (ignoreCase) flags |= std::regex::icase;
    regex.assign(pattern, flags);
    return regex;
  }

  std::regex head_;
  std::optional<std::regex> tail_;
};

}  // namespace

// No pattern below tells a run of this many blanks from a longer one: none has more
// than one literal blank in a row, "\s*" and "\s+" take any run, and each half of a
// split pattern uses at most one blank of a run it shares with the other half.
static constexpr size_t kMaxBlankRun = 4;

static bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// `text` with every run of blanks cut to its first kMaxBlankRun characters, so that
// "\s*" and "\s+" never repeat deeply. Search results are the same as on `text`.
static std::string boundedBlanks(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  size_t run = 0;
  for (char c : text) {
    run = isBlank(c) ? run + 1 : 0;
    if (run <= kMaxBlankRun) result.push_back(c);
  }
  return result;
}

// Shell commands asked as irreversible, tried in this order. Case matters: "RM" and
// "GIT PUSH" are not what a shell runs.
static const std::array<Pattern, 5>& irreversibleCommandPatterns() {
  static const std::array<Pattern, 5> patterns = {
      // rm after the start, a separator or a blank, and followed by a blank: "echo rm x"
      // and "a;rm x" match, "farm x" and a bare "echo rm" do not.
      Pattern(R"((^|[;&|\s])rm\s)", nullptr, false),
      Pattern(R"(git\s+push)", nullptr, false),
      // curl\s.*-X\s*(POST|PUT|DELETE)
      Pattern(R"(curl\s)", R"(-X\s*(POST|PUT|DELETE))", false),
      Pattern(R"((^|\s)(sudo|shutdown|diskutil|mkfs)\s)", nullptr, false),
      // osascript.*\b(send|delete|empty trash)\b
      Pattern(R"(osascript)", R"(\b(send|delete|empty trash)\b)", false),
  };
  return patterns;
}

// Scripts that delete, send or power off, in any letter case:
// \b(delete|send|empty trash|move .* to trash|shut ?down|restart)\b, kept as the
// alternatives without ".*" and the one with it.
static const std::array<Pattern, 2>& graveAppleScriptPatterns() {
  static const std::array<Pattern, 2> patterns = {
      Pattern(R"(\b(delete|send|empty trash|shut ?down|restart)\b)", nullptr, true),
      Pattern(R"(\bmove )", R"( to trash\b)", true),
  };
  return patterns;
}

template <size_t N>
static bool anyFoundIn(const std::array<Pattern, N>& patterns, std::string_view text) {
  std::string bounded = boundedBlanks(text);
  for (const Pattern& pattern : patterns) {
    if (pattern.isFoundIn(bounded)) return true;
  }
  return false;
}

// ---------------------------------------------------------------------------------------
// Inputs

static constexpr std::string_view kControlPrefix = "mcp__zorvane__";

static const JSONValue* member(const JSONObject& input, std::string_view key) {
  auto found = input.find(std::string(key));
  return found == input.end() ? nullptr : &found->second;
}

// The text under `key`; absent when the key is missing or holds another kind of value.
static std::optional<std::string> stringMember(const JSONObject& input, std::string_view key) {
  return stringValue(member(input, key));
}

// The first 60 characters of the text under `key`, "" when there is none.
static std::string first60(const JSONObject& input, std::string_view key) {
  return utf8Prefix(stringMember(input, key).value_or(""), 60);
}

// A coordinate as a whole number: a JSON number truncated toward zero, 0 for anything
// else. Values beyond the range of int64_t (a huge unsigned literal, 1e300, infinity)
// are clamped to its ends instead of being converted, which would be undefined; NaN,
// which JSON text cannot carry but a value built in code can, counts as 0.
static int64_t wholeNumber(const JSONValue* value) {
  if (value == nullptr || !value->is_number()) return 0;
  if (value->is_number_integer() && !value->is_number_unsigned()) {
    return value->get<int64_t>();
  }
  if (value->is_number_unsigned()) {
    uint64_t number = value->get<uint64_t>();
    constexpr uint64_t kMax = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    return number > kMax ? std::numeric_limits<int64_t>::max() : static_cast<int64_t>(number);
  }
  double number = std::trunc(value->get<double>());
  if (std::isnan(number)) return 0;
  // 2^63 is exact as a double; every double below it and at or above -2^63 converts.
  constexpr double kLimit = 9223372036854775808.0;
  if (number >= kLimit) return std::numeric_limits<int64_t>::max();
  if (number < -kLimit) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(number);
}

// The last component of a path as the agent wrote it: "c.txt" for "/a/b/c.txt", "b" for
// "/a/b/", "/" for the root and "" for an empty path.
static std::string lastPathComponent(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  if (path == "/") return "/";
  size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

// ---------------------------------------------------------------------------------------
// Paths

// `path` made absolute against the current directory, with "." and ".." resolved and
// repeated slashes folded, without a trailing "/" (but for the root). Symbolic links are
// not followed. Targets' paths go through the same URL form, so both sides compare
// alike. An empty path names no file and gives "".
static std::string standardizedPath(std::string_view path) {
  if (path.empty()) return {};
  return URL::fileURL(path).standardized().path();
}

// Whether `path` lies strictly inside `folder` (both standardised).
static bool isInside(std::string_view path, std::string_view folder) {
  if (folder.empty()) return false;
  // The root is the only standardised folder ending in "/", and holds every path.
  if (folder.back() == '/') return path.size() > folder.size() && path.starts_with(folder);
  return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

bool ActionPolicy::isSkillPath(std::string_view path) {
  std::string standardized = standardizedPath(path);
  if (standardized.empty()) return false;
  return isInside(standardized, standardizedPath(Paths::claudeSkillsDirectory()));
}

bool ActionPolicy::inScope(std::string_view path) const {
  std::string p = standardizedPath(path);
  if (p.empty()) return false;
  for (const Target& target : scope) {
    std::optional<URL> url = target.fileURL();
    if (!url) continue;
    std::string t = url->standardized().path();
    if (t.empty()) continue;
    if (p == t) return true;
    if (target.kind() == Target::Kind::folder && isInside(p, t)) return true;
  }
  // No "/" is required behind the scratch folder's path: anything whose path begins
  // with it is free to read, a sibling named "scratch-old" included.
  std::string scratch = Target::scratchDirectory().standardized().path();
  if (!scratch.empty() && p.starts_with(scratch)) return true;
  return isSkillPath(path);
}

// ---------------------------------------------------------------------------------------
// Decisions

const std::set<std::string>& ActionPolicy::readTools() {
  static const std::set<std::string> tools = {
      "Read", "Glob", "Grep", "LS", "WebFetch", "WebSearch", "TodoWrite", "NotebookRead",
  };
  return tools;
}

static bool isWriteTool(std::string_view tool) {
  return tool == "Write" || tool == "Edit" || tool == "MultiEdit" || tool == "NotebookEdit";
}

// The number of times `needle` occurs in `text` without overlapping.
static size_t occurrences(std::string_view text, std::string_view needle) {
  size_t count = 0;
  for (size_t at = text.find(needle); at != std::string_view::npos;
       at = text.find(needle, at + needle.size())) {
    ++count;
  }
  return count;
}

static Decision decideBash(const JSONObject& input) {
  std::string command = stringMember(input, "command").value_or("");
  std::string summary = stringMember(input, "description").value_or("Run a command");

  if (anyFoundIn(irreversibleCommandPatterns(), command)) {
    return Decision::ask(ActionClass::irreversible, summary);
  }
  // Six moves or more in one command are a bulk move, and so is any loop of moves.
  if (occurrences(command, "mv ") >= 6) return Decision::ask(ActionClass::irreversible, summary);
  if (command.find("for ") != std::string::npos && command.find("mv ") != std::string::npos) {
    return Decision::ask(ActionClass::irreversible, summary);
  }
  return Decision::ask(ActionClass::act, summary);
}

Decision ActionPolicy::decide(std::string_view tool, const JSONObject& input) const {
  if (tool.starts_with(kControlPrefix))
    return decideControl(tool.substr(kControlPrefix.size()), input);

  std::optional<std::string> path;
  for (std::string_view key : {"file_path", "path", "notebook_path"}) {
    path = stringMember(input, key);
    if (path) break;
  }

  if (readTools().contains(std::string(tool))) {
    if (!path || inScope(*path)) return Decision::allow();
    return Decision::ask(ActionClass::read, "Read " + lastPathComponent(*path));
  }

  // Being in scope frees reading only; writing is free in the skill folder alone.
  if (isWriteTool(tool)) {
    if (path && isSkillPath(*path)) return Decision::allow();
    std::string verb = tool == "Write" ? "Write" : "Edit";
    std::string name = path ? lastPathComponent(*path) : "a file";
    return Decision::ask(ActionClass::act, verb + " " + name);
  }

  // Every other tool, those of other tool servers included, is an action.
  if (tool != "Bash") return Decision::ask(ActionClass::act, std::string(tool));
  return decideBash(input);
}

Decision ActionPolicy::decideControl(std::string_view tool, const JSONObject& input) const {
  std::string name(tool);
  // Looking, talking to other pieces and listing schedules never ask. What another
  // piece then does is judged by that piece's own policy.
  if (ZorvaneTools::readOnly().contains(name)) return Decision::allow();

  auto act = [](std::string summary) {
    return Decision::ask(ActionClass::act, std::move(summary));
  };

  if (name == "click") {
    return act("Click at (" + std::to_string(wholeNumber(member(input, "x"))) + ", " +
               std::to_string(wholeNumber(member(input, "y"))) + ")");
  }
  if (name == "type_text") return act("Type \u201C" + first60(input, "text") + "\u201D");
  if (name == "press_key") return act("Press " + stringMember(input, "key").value_or("a key"));
  if (name == "press") return act("Press element " + stringMember(input, "ref").value_or(""));
  if (name == "set_value") return act("Set a field to \u201C" + first60(input, "value") + "\u201D");
  if (name == "scroll") return act("Scroll");
  if (name == "run_command") {
    // The tool's "why" line is the summary a shell command is asked with.
    JSONObject bash = input;
    if (!bash.contains("description")) {
      if (const JSONValue* why = member(input, "why")) bash["description"] = *why;
    }
    return decide("Bash", bash);
  }
  if (name == "write_file") {
    JSONObject write = {{"file_path", stringMember(input, "path").value_or("")}};
    return decide("Write", write);
  }
  if (name == "create_schedule") {
    return act("Schedule \u201C" + stringMember(input, "title").value_or("a task") + "\u201D (" +
               stringMember(input, "when").value_or("") + ")");
  }
  if (name == "delete_schedule") {
    return act("Delete schedule \u201C" + stringMember(input, "schedule").value_or("") + "\u201D");
  }
  if (name == "browser_navigate")
    return act("Open " + stringMember(input, "url").value_or("a page"));
  if (name == "browser_eval") return act("Run JavaScript in the page");
  if (name == "run_applescript") {
    if (anyFoundIn(graveAppleScriptPatterns(), stringMember(input, "source").value_or(""))) {
      return Decision::ask(ActionClass::irreversible, "Run AppleScript that deletes or sends");
    }
    return act("Run AppleScript");
  }
  return act(name);
}

}  // namespace zorvane
