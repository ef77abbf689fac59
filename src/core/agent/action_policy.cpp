#include "core/agent/action_policy.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <locale>
#include <regex>
#include <vector>

#include "core/agent/shell_verdict.h"
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

// Patterns on the raw text of a shell command, asked as irreversible with the reason
// beside them. They predate the reading of the command as a shell does (shell_verdict.h)
// and are kept as a second net: what they catch, such as "echo rm x", stays graver even
// where the reading finds nothing. Case matters: "RM" and "GIT PUSH" are not what a
// shell runs.
struct TextPattern {
  Pattern pattern;
  std::string_view reason;
};

static const std::array<TextPattern, 5>& irreversibleCommandPatterns() {
  static const std::array<TextPattern, 5> patterns = {{
      // rm after the start, a separator or a blank, and followed by a blank: "echo rm x"
      // and "a;rm x" match, "farm x" and a bare "echo rm" do not.
      {Pattern(R"((^|[;&|\s])rm\s)", nullptr, false), "mentions rm"},
      {Pattern(R"(git\s+push)", nullptr, false), "mentions git push"},
      // curl\s.*-X\s*(POST|PUT|DELETE)
      {Pattern(R"(curl\s)", R"(-X\s*(POST|PUT|DELETE))", false),
       "mentions a curl request that changes data"},
      {Pattern(R"((^|\s)(sudo|shutdown|diskutil|mkfs)\s)", nullptr, false),
       "mentions sudo, shutdown, diskutil or mkfs"},
      // osascript.*\b(send|delete|empty trash)\b
      {Pattern(R"(osascript)", R"(\b(send|delete|empty trash)\b)", false),
       "mentions AppleScript that deletes or sends"},
  }};
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

// Paths longer than this cannot be opened by any program, so no link inside them can
// be followed either.
static constexpr size_t kLongestOpenablePath = PATH_MAX;

// As many links as the kernel follows for one path before it gives up.
static constexpr int kMaxLinkHops = 40;

// The components of an absolute path, without empty ones and ".".
static std::vector<std::string> componentsOf(std::string_view path) {
  std::vector<std::string> components;
  for (size_t start = 1; start <= path.size();) {
    size_t slash = std::min(path.find('/', start), path.size());
    std::string_view component = path.substr(start, slash - start);
    if (!component.empty() && component != ".") components.emplace_back(component);
    start = slash + 1;
  }
  return components;
}

// An absolute `path` as the kernel would open it: every symbolic link in its longest
// existing prefix resolved (and ".." after a link taken from the link's target, as the
// kernel does), the rest standardised as text, without a trailing "/" but for the root.
// A link inside a bonded folder or the skill folder that points elsewhere is therefore
// judged where it points, and so is a link whose target does not exist yet, which a
// write would create. "" for a path that cannot be resolved (a link loop, a folder that
// cannot be searched), and for a relative or empty path: the agent's harness runs in a
// working folder of its own, not this process's.
static std::string resolvedPath(std::string_view path) {
  if (path.empty() || path.front() != '/') return {};
  std::string current(path);
  for (int hop = 0; hop <= kMaxLinkHops; ++hop) {
    if (current.size() >= kLongestOpenablePath) return URL::fileURL(current).standardized().path();
    std::vector<std::string> components = componentsOf(current);
    std::string existing;
    size_t resolvedCount = 0;
    for (; resolvedCount < components.size(); ++resolvedCount) {
      std::string candidate = existing + "/" + components[resolvedCount];
      struct stat info {};
      if (::lstat(candidate.c_str(), &info) != 0) break;
      existing = std::move(candidate);
    }
    char buffer[PATH_MAX];
    std::string rest;
    for (size_t i = resolvedCount; i < components.size(); ++i) rest += "/" + components[i];
    if (::realpath(existing.empty() ? "/" : existing.c_str(), buffer) != nullptr) {
      return URL::fileURL(std::string(buffer) + rest).standardized().path();
    }
    // Every prefix exists, so the last one is a link to nothing (yet): follow it by hand.
    ssize_t length = ::readlink(existing.c_str(), buffer, sizeof buffer);
    if (length <= 0) return {};
    std::string target(buffer, static_cast<size_t>(length));
    if (target.front() != '/') target = existing.substr(0, existing.rfind('/')) + "/" + target;
    current = target + rest;
  }
  return {};
}

// Whether `path` lies strictly inside `folder` (both resolved).
static bool isInside(std::string_view path, std::string_view folder) {
  if (folder.empty()) return false;
  // The root is the only resolved folder ending in "/", and holds every path.
  if (folder.back() == '/') return path.size() > folder.size() && path.starts_with(folder);
  return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

bool ActionPolicy::isSkillPath(std::string_view path) {
  std::string resolved = resolvedPath(path);
  if (resolved.empty()) return false;
  return isInside(resolved, resolvedPath(Paths::claudeSkillsDirectory()));
}

bool ActionPolicy::inScope(std::string_view path) const {
  std::string p = resolvedPath(path);
  if (p.empty()) return false;
  for (const Target& target : scope) {
    std::optional<URL> url = target.fileURL();
    if (!url) continue;
    std::string t = resolvedPath(url->path());
    if (t.empty()) continue;
    if (p == t) return true;
    if (target.kind() == Target::Kind::folder && isInside(p, t)) return true;
  }
  // No "/" is required behind the scratch folder's path: anything whose path begins
  // with it is free to read, a sibling named "scratch-old" included.
  std::string scratch = resolvedPath(Target::scratchDirectory().path());
  if (!scratch.empty() && p.starts_with(scratch)) return true;
  return isSkillPath(path);
}

// The folder a glob pattern can reach: its components up to the first one with a
// wildcard. A ".." behind a wildcard climbs out of any folder, so it reaches the root.
// "/a/b/*.md" → "/a/b"; "src/**" → "src"; "/a/*/../../x" → "/".
static std::string globBase(std::string_view pattern) {
  std::string base = pattern.starts_with("/") ? "/" : "";
  bool wild = false;
  for (size_t start = 0; start <= pattern.size();) {
    size_t slash = std::min(pattern.find('/', start), pattern.size());
    std::string_view component = pattern.substr(start, slash - start);
    start = slash + 1;
    if (component.empty()) continue;
    if (wild) {
      if (component == "..") return "/";
      continue;
    }
    if (component.find_first_of("*?[{\\") != std::string_view::npos) {
      wild = true;
      continue;
    }
    if (!base.empty() && base.back() != '/') base += '/';
    base += component;
  }
  return base.empty() ? "." : base;
}

static bool hasParentComponent(std::string_view pattern) {
  return pattern == ".." || pattern.starts_with("../") || pattern.ends_with("/..") ||
         pattern.find("/../") != std::string_view::npos;
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

// Why the raw text of `command` alone makes it irreversible, if it does: one of the
// patterns above, or a bulk move (six moves or more, or any loop of moves).
static std::optional<std::string_view> textualGravity(std::string_view command) {
  std::string bounded = boundedBlanks(command);
  for (const TextPattern& entry : irreversibleCommandPatterns()) {
    if (entry.pattern.isFoundIn(bounded)) return entry.reason;
  }
  if (occurrences(command, "mv ") >= 6) return "moves many files";
  if (command.find("for ") != std::string_view::npos &&
      command.find("mv ") != std::string_view::npos) {
    return "moves files in a loop";
  }
  return std::nullopt;
}

// Characters that would break a summary's single line or reorder what it shows: C0 and
// C1 controls, Unicode line and paragraph separators, bidirectional overrides and
// isolates, and zero-width characters that hide a split inside a word.
static bool isHiddenOrBreaking(char32_t point) {
  return point < 0x20 || (point >= 0x7F && point <= 0x9F) || point == 0x061C || point == 0x2028 ||
         point == 0x2029 || (point >= 0x200B && point <= 0x200F) ||
         (point >= 0x202A && point <= 0x202E) || (point >= 0x2060 && point <= 0x2069) ||
         point == 0xFEFF;
}

// `text` on one line: every hidden or breaking character becomes a blank, runs of
// blanks become one, and the ends are trimmed.
static std::string oneLine(std::string_view text) {
  std::string line;
  line.reserve(text.size());
  bool pendingBlank = false;
  for (char32_t point : codePoints(text)) {
    if (point == U' ' || isHiddenOrBreaking(point)) {
      pendingBlank = !line.empty();
      continue;
    }
    if (pendingBlank) line += ' ';
    pendingBlank = false;
    line += encodeUTF8(point);
  }
  return line;
}

// Commands and descriptions longer than this many characters are shortened.
static constexpr size_t kShownCharacters = 80;

// What a summary quotes of a command: all of it when it is short; otherwise the part the
// verdict is about, so that a grave tail cannot hide behind a harmless head.
static std::string shownCommand(const std::string& line, const ShellVerdict& verdict) {
  if (utf8Length(line) <= kShownCharacters) return line;
  std::string evidence = oneLine(verdict.evidence);
  if (evidence.empty()) return utf8Prefix(line, kShownCharacters - 1) + "\u2026";
  std::string shown = utf8Prefix(evidence, kShownCharacters - 2);
  bool cut = shown.size() < evidence.size();
  if (cut || !line.ends_with(evidence)) shown += "\u2026";
  if (!line.starts_with(evidence)) shown = "\u2026" + shown;
  return shown;
}

// The summary of a shell command is made from the command: "Run “<command>”", the
// reason when it is irreversible, and the agent's own description behind a dash. The
// description is the agent's claim; it never stands in for the command.
static std::string commandSummary(std::string_view command, const ShellVerdict& verdict,
                                  const std::optional<std::string>& description) {
  std::string line = oneLine(command);
  std::string summary =
      line.empty() ? "Run a command" : "Run \u201C" + shownCommand(line, verdict) + "\u201D";
  if (verdict.actionClass == ActionClass::irreversible && !verdict.reason.empty()) {
    summary += " (" + verdict.reason + ")";
  }
  std::string said = description ? oneLine(*description) : std::string();
  if (!said.empty()) {
    summary += " \u2014 " + utf8Prefix(said, kShownCharacters);
    if (utf8Length(said) > kShownCharacters) summary += "\u2026";
  }
  return summary;
}

static Decision decideBash(const JSONObject& input) {
  std::string command = stringMember(input, "command").value_or("");
  ShellVerdict verdict = judgeShellCommand(command);
  if (verdict.actionClass != ActionClass::irreversible) {
    if (std::optional<std::string_view> reason = textualGravity(command)) {
      verdict = {ActionClass::irreversible, std::string(*reason), {}};
    }
  }
  return Decision::ask(verdict.actionClass,
                       commandSummary(command, verdict, stringMember(input, "description")));
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
    // Every place the call reaches must be free to read. A relative path is judged
    // against nothing, so it is asked.
    std::vector<std::string> reached;
    if (path) reached.push_back(*path);
    if (std::optional<std::string> pattern =
            tool == "Glob" ? stringMember(input, "pattern") : std::nullopt) {
      if (pattern->starts_with("/")) {
        reached.push_back(globBase(*pattern));
      } else if (hasParentComponent(*pattern)) {
        reached.push_back(globBase(path ? *path + "/" + *pattern : *pattern));
      }
    }
    for (const std::string& place : reached) {
      if (!inScope(place)) {
        return Decision::ask(ActionClass::read, "Read " + lastPathComponent(place));
      }
    }
    return Decision::allow();
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
