// ScheduleTrigger: parsing, the canonical text and file-name matching.
#include <fnmatch.h>

#include <algorithm>

#include "core/base/paths.h"
#include "core/base/url.h"
#include "core/hub/schedule.h"
#include "core/hub/schedule_grammar.h"

namespace zorvane {

using namespace ScheduleGrammar;

static constexpr std::string_view kNewFilePrefix = "new file in ";
static constexpr std::string_view kAppOpensPrefix = "app opens ";
static constexpr std::string_view kPageChangesPrefix = "page changes ";
static constexpr std::string_view kMatching = " matching ";
static constexpr std::string_view kEvery = " every ";
static constexpr int64_t kDefaultPollMinutes = 30;
static constexpr int64_t kMinimumPollMinutes = 5;

ScheduleTrigger ScheduleTrigger::newFile(std::string folder, std::string glob) {
  return ScheduleTrigger(NewFile{std::move(folder), std::move(glob)});
}

ScheduleTrigger ScheduleTrigger::appOpens(std::string app) {
  return ScheduleTrigger(AppOpens{std::move(app)});
}

ScheduleTrigger ScheduleTrigger::pageChanges(std::string url, int64_t minutes) {
  return ScheduleTrigger(PageChanges{std::move(url), minutes});
}

// ---- parse -------------------------------------------------------------------------

// "~" and "~/..." name the home folder; "~user" is not expanded.
static std::string expandingHome(std::string_view path) {
  if (path == "~") return Paths::home();
  if (path.starts_with("~/")) {
    std::string home = Paths::home();
    if (home == "/") home.clear();  // "/" + "/Downloads" would double the slash
    return home + std::string(path.substr(1));
  }
  return std::string(path);
}

// Whether a glob is one fnmatch reads as written: every "[" closes (character classes
// such as "[:digit:]" included) and no "\" stands last with nothing to escape.
static bool isWellFormedGlob(std::string_view glob) {
  size_t i = 0;
  while (i < glob.size()) {
    char c = glob[i];
    if (c == '\\') {
      if (i + 1 >= glob.size()) return false;
      i += 2;
      continue;
    }
    if (c != '[') {
      ++i;
      continue;
    }
    // A bracket expression: "!" or "^" may negate, and a "]" right after the opening
    // (or the negation) is a member, not the end.
    size_t j = i + 1;
    if (j < glob.size() && (glob[j] == '!' || glob[j] == '^')) ++j;
    if (j < glob.size() && glob[j] == ']') ++j;
    bool closed = false;
    while (j < glob.size()) {
      if (glob[j] == ']') {
        closed = true;
        break;
      }
      if (glob[j] == '\\') {
        j += 2;
        continue;
      }
      if (glob[j] == '[' && j + 1 < glob.size() &&
          (glob[j + 1] == ':' || glob[j + 1] == '=' || glob[j + 1] == '.')) {
        char kind = glob[j + 1];
        size_t end = glob.find(std::string{kind, ']'}, j + 2);
        if (end == std::string_view::npos) return false;
        j = end + 2;
        continue;
      }
      ++j;
    }
    if (!closed) return false;
    i = j + 1;
  }
  return true;
}

static std::optional<ScheduleTrigger> parseNewFile(std::string_view rest) {
  size_t separator = rest.find(kMatching);
  std::string_view folderText = trimBlanks(rest.substr(0, separator));
  if (folderText.empty()) return std::nullopt;
  std::string folder = expandingHome(folderText);
  if (folder.empty() || folder.front() != '/') return std::nullopt;

  std::string glob = "*";
  if (separator != std::string_view::npos) {
    // Only the part up to a second " matching " counts.
    std::string_view after = rest.substr(separator + kMatching.size());
    std::string_view globText = trimBlanks(after.substr(0, after.find(kMatching)));
    if (globText.empty() || !isWellFormedGlob(globText)) return std::nullopt;
    glob = std::string(globText);
  }
  return ScheduleTrigger::newFile(std::move(folder), std::move(glob));
}

// A web page address: http:// or https://, one libcurl accepts, with a host.
static bool isPageURL(std::string_view text) {
  if (!text.starts_with("http://") && !text.starts_with("https://")) return false;
  std::optional<URL> url = URL::parse(text);
  if (!url) return false;
  std::optional<std::string> host = url->host();
  return host && !host->empty();
}

// The interval after " every ": "2h", "10m"; the last character is the unit, and any
// unit but "h" counts as minutes. A count that doesn't read gives the default; one too
// large for the clock refuses the trigger.
static std::optional<int64_t> parsePollInterval(std::string_view text) {
  std::string interval = lowercased(trimBlanks(text));
  LastCharacterSplit parts = splitLastCharacter(interval);
  IntegerReading count = readInteger(parts.head);
  if (count.status == IntegerReading::Status::overflow) return std::nullopt;
  if (count.status == IntegerReading::Status::invalid) return kDefaultPollMinutes;
  int64_t minutes = count.value;
  if (parts.last == "h" && __builtin_mul_overflow(count.value, int64_t{60}, &minutes)) {
    return std::nullopt;
  }
  return std::max(minutes, kMinimumPollMinutes);
}

static std::optional<ScheduleTrigger> parsePageChanges(std::string_view rest,
                                                       std::string_view lowerRest) {
  int64_t minutes = kDefaultPollMinutes;
  size_t every = lowerRest.find(kEvery);
  std::string_view urlText = rest;
  if (every != std::string_view::npos) {
    urlText = rest.substr(0, every);
    std::optional<int64_t> interval = parsePollInterval(rest.substr(every + kEvery.size()));
    if (!interval) return std::nullopt;
    minutes = *interval;
  }
  urlText = trimBlanks(urlText);
  if (!isPageURL(urlText)) return std::nullopt;
  return ScheduleTrigger::pageChanges(std::string(urlText), minutes);
}

std::optional<ScheduleTrigger> ScheduleTrigger::parse(std::string_view text) {
  std::string_view trimmed = trimBlanks(text);
  // Lowering keeps every byte's place, so a payload is cut from `trimmed` at the
  // offsets found in `lower` and keeps its case.
  std::string lower = lowercased(trimmed);
  std::string_view lowerView = lower;

  if (lowerView.starts_with(kNewFilePrefix))
    return parseNewFile(trimmed.substr(kNewFilePrefix.size()));
  if (lowerView.starts_with(kAppOpensPrefix)) {
    std::string_view app = trimBlanks(trimmed.substr(kAppOpensPrefix.size()));
    if (app.empty()) return std::nullopt;
    return appOpens(std::string(app));
  }
  if (lowerView.starts_with(kPageChangesPrefix)) {
    return parsePageChanges(trimmed.substr(kPageChangesPrefix.size()),
                            lowerView.substr(kPageChangesPrefix.size()));
  }
  return std::nullopt;
}

// ---- text and matching -------------------------------------------------------------

// The folder with the home folder written as "~".
static std::string abbreviatingHome(const std::string& folder) {
  std::string home = Paths::home();
  if (folder == home) return "~";
  if (home != "/" && folder.starts_with(home) && folder.size() > home.size() &&
      folder[home.size()] == '/') {
    return "~" + folder.substr(home.size());
  }
  return folder;
}

std::string ScheduleTrigger::text() const {
  if (const auto* newFile = std::get_if<NewFile>(&payload_)) {
    std::string text = std::string(kNewFilePrefix) + abbreviatingHome(newFile->folder);
    if (newFile->glob != "*") text += std::string(kMatching) + newFile->glob;
    return text;
  }
  if (const auto* appOpens = std::get_if<AppOpens>(&payload_)) {
    return std::string(kAppOpensPrefix) + appOpens->app;
  }
  const auto& page = std::get<PageChanges>(payload_);
  return std::string(kPageChangesPrefix) + page.url + std::string(kEvery) +
         intervalText(page.minutes);
}

bool ScheduleTrigger::matches(std::string_view name, std::string_view glob) {
  std::string pattern(glob);
  std::string string(name);
  return ::fnmatch(pattern.c_str(), string.c_str(), FNM_CASEFOLD) == 0;
}

}  // namespace zorvane
