#include "app/shell/command_line.h"

#include <sys/stat.h>

#include <charconv>

#include "core/base/url.h"
#include "core/targets/browser_app.h"

namespace zorvane {

CommandLine::CommandLine(int argc, char** argv) {
  for (int i = 0; i < argc; ++i) arguments_.emplace_back(argv[i]);
}

std::optional<size_t> CommandLine::indexOf(std::string_view flag) const {
  for (size_t i = 0; i < arguments_.size(); ++i) {
    if (arguments_[i] == flag) return i;
  }
  return std::nullopt;
}

bool CommandLine::has(std::string_view flag) const { return indexOf(flag).has_value(); }

std::optional<std::string> CommandLine::value(std::string_view flag) const {
  auto index = indexOf(flag);
  if (!index || *index + 1 >= arguments_.size()) return std::nullopt;
  return arguments_[*index + 1];
}

RunMode CommandLine::mode() const {
  if (has("--mcp")) return RunMode::toolServer;
  if (has("--cloud-test")) return RunMode::cloudTest;
  if (has("--discover")) return RunMode::discover;
  if (has("--selftest") || has("--selftest-window")) return RunMode::selftest;
  return RunMode::application;
}

static std::optional<uint32_t> parseWindowID(const std::string& text) {
  uint32_t value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 10);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
  return value;
}

// The element at `index` if there is one and it isn't another flag.
static std::optional<std::string> promptAt(const std::vector<std::string>& args, size_t index) {
  if (index >= args.size() || args[index].starts_with("--")) return std::nullopt;
  return args[index];
}

Expected<SelftestPlan> makeSelftestPlan(const CommandLine& commandLine) {
  const auto& args = commandLine.arguments();
  std::string agentID = commandLine.value("--agent").value_or("claude");
  std::optional<std::string> outPath = commandLine.value("--out");

  if (auto w = commandLine.indexOf("--selftest-window"); w && *w + 2 < args.size()) {
    if (auto windowID = parseWindowID(args[*w + 1])) {
      const std::string& owner = args[*w + 2];
      Target target = [&] {
        if (auto browser = fromRawValue<BrowserApp>(owner)) {
          return Target::browserTab(*browser, *windowID, *URL::parse("about:blank"), "");
        }
        return Target::window(0, *windowID, owner, owner, "");
      }();
      std::string prompt = promptAt(args, *w + 3).value_or(std::string(kSelftestWindowPrompt));
      return SelftestPlan{std::move(target), std::move(prompt), agentID, outPath};
    }
  }

  auto i = commandLine.indexOf("--selftest");
  if (!i || *i + 1 >= args.size()) {
    return Failure{"selftest: nothing to work on: give --selftest <folder> [prompt] or "
                   "--selftest-window <windowID> <browser-or-app> [prompt]"};
  }
  const std::string& folder = args[*i + 1];
  struct stat info {};
  if (::stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    return Failure{"selftest: the folder " + folder + " doesn't exist"};
  }
  std::string prompt = promptAt(args, *i + 2).value_or(std::string(kSelftestFolderPrompt));
  return SelftestPlan{Target::folder(URL::fileURL(folder, true)), std::move(prompt), agentID,
                      outPath};
}

}  // namespace zorvane
