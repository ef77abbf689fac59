#include "core/agent/session_launch.h"

#include <algorithm>

#include "core/base/engine_words.h"
#include "core/mcp/zorvane_tools.h"

namespace zorvane::SessionLaunch {

const std::string skillUpkeep =
    "After using a learned skill: if a step failed, needed a workaround, or the screen looked "
    "different, edit that skill's SKILL.md so the steps match what worked, and add a dated line "
    "under a '## Changelog' heading at the end (e.g. '- 2026-10-24: login button moved; now uses "
    "Sign in with SSO').";

std::vector<std::string> arguments(const UUID& sessionID, bool resume,
                                   const std::string& systemPrompt,
                                   const std::string& settingsJSON,
                                   const std::optional<std::string>& mcpConfigPath,
                                   const std::optional<std::string>& model) {
  std::vector<std::string> args;
  if (mcpConfigPath) args.insert(args.end(), {"--mcp-config", *mcpConfigPath, "--strict-mcp-config"});
  if (model && !model->empty()) args.insert(args.end(), {"--model", *model});
  args.insert(args.end(), {"-p", "--output-format", "stream-json", "--input-format", "stream-json",
                           "--verbose", "--permission-prompt-tool", "stdio"});
  args.insert(args.end(), {resume ? "--resume" : "--session-id", sessionID.lowercased()});
  args.insert(args.end(), {"--settings", settingsJSON});
  args.insert(args.end(), {"--append-system-prompt", systemPrompt});
  return args;
}

std::string settingsJSON() {
  JSONValue allow = JSONValue::array();
  for (const std::string& tool : ZorvaneTools::readOnly()) allow.push_back("mcp__zorvane__" + tool);
  for (const char* builtIn : {"Read", "Glob", "Grep", "LS", "WebFetch", "WebSearch"}) {
    allow.push_back(builtIn);
  }
  return encodeCompact({{"permissions", {{"allow", allow}}}});
}

std::optional<std::string> mcpConfig(const std::string& executable, const std::string& scopePath) {
  JSONValue config = {
      {"mcpServers",
       {{"zorvane", {{"command", executable}, {"args", {"--mcp", "--scope", scopePath}}}}}}};
  return encodeCompact(config);
}

// What a tentacle is, after its kind word: a path, a URL, or the window's identity.
static std::string tentacleDescription(const Target& target) {
  if (auto window = std::get_if<Target::Window>(&target.payload())) {
    return window->bundleID + " pid " + std::to_string(window->pid) + " window " +
           std::to_string(window->windowID);
  }
  return target.locator();
}

static bool isDrivable(const Target& target) {
  return target.kind() == Target::Kind::browserTab || target.kind() == Target::Kind::window;
}

std::string systemPrompt(const Target& target, const std::vector<Target>& tentacles) {
  std::vector<std::string> lines;
  lines.push_back("You are Zorvane, an agent bonded to " + target.displayName() + " (" +
                  target.kindLabel() + ": " + target.locator() + ").");
  lines.push_back("Work only on this target and its attached context:");
  if (tentacles.empty()) {
    lines.push_back("(none yet)");
  } else {
    std::string attached;
    for (const Target& tentacle : tentacles) {
      if (!attached.empty()) attached += "\n";
      attached += "- " + tentacle.kindLabel() + ": " + tentacleDescription(tentacle);
    }
    lines.push_back(attached);
  }
  lines.push_back(
      "Be brief: the answer is shown in a small card, not a terminal. Use short paragraphs or "
      "bullets.");
  lines.push_back(
      "When you state a fact from a file, cite it inline as [[cite: <file name> | <locator>]] "
      "(locator like p.4, row 12, line 30).");
  lines.push_back(
      "Destructive actions are fine to propose; the host shows the user an Allow/Deny chip for "
      "each one.");
  lines.push_back(skillUpkeep);
  if (target.controlWindow() || std::any_of(tentacles.begin(), tentacles.end(), isDrivable)) {
    lines.push_back(
        "You can see and drive windows with the zorvane MCP tools. list_targets shows them; pass "
        "target=<index or name> to act on an attached window (default is the bonded one). Start "
        "with screenshot (and read_ui_tree for apps). Prefer press/set_value on element refs; fall "
        "back to click at screenshot coordinates (window points). After acting, take another "
        "screenshot to verify. Tasks can span windows: e.g. find something in the browser window, "
        "then type it into the chat app window.");
  }
  if (target.kind() == Target::Kind::browserTab) {
    lines.push_back(
        "For web pages prefer browser_read_page, browser_eval and browser_navigate over clicking. "
        "Cite the page as [[cite: <page title> | <section>]].");
  }
  std::string prompt;
  for (const std::string& line : lines) {
    if (!prompt.empty()) prompt += "\n";
    prompt += line;
  }
  return prompt;
}

std::string desktopPrompt() {
  return "You are Zorvane, the user's agent for their whole computer, opened from " +
         std::string(PlatformWords::gooHome) +
         ". You are not bonded to one thing:\n"
         "list_targets shows every open app window, and you can see and drive any of them with the "
         "zorvane tools (pass target=<index or app/window name>).\n"
         "Start with screenshot (and read_ui_tree for apps). Prefer press/set_value on element "
         "refs; fall back to click at screenshot coordinates. Screenshot again to verify.\n"
         "You also manage the pieces on screen (agents bonded to files, folders and windows): "
         "list_pieces shows them; ask_piece hands one a task and waits for its answer, tell_piece "
         "just notifies. Split work across pieces when each has the right target.\n"
         "Learned skills live in ~/.claude/skills; use one when it matches the request. " +
         skillUpkeep +
         "\n"
         "For anything that should happen later, repeatedly, or when something happens, create a "
         "schedule with create_schedule (when: daily HH:MM, weekdays HH:MM, mon,wed HH:MM, every "
         "30m, every 2h, once YYYY-MM-DD HH:MM, or events: new file in <folder> matching <glob>, "
         "app opens <App>, page changes <url> every 30m).\n"
         "Be brief: answers show in a small chat panel at " + std::string(PlatformWords::gooHome) + ".";
}

std::string userMessage(const std::string& text) {
  return line({{"type", "user"}, {"message", {{"role", "user"}, {"content", text}}}});
}

std::string line(const JSONValue& value) {
  try {
    return encodeCompact(value) + "\n";
  } catch (...) {
    return "\n";
  }
}

}  // namespace zorvane::SessionLaunch
