#include "core/mcp/zorvane_tools.h"

#include "core/base/platform_words.h"

namespace zorvane::ZorvaneTools {

static const std::string kTarget = "Which attached window: index or name from list_targets (default 0, the bonded window)";

std::vector<ToolSpec> specs() {
  using P = ToolSpec::Param;
  const P target{"?target", "string", kTarget};
  const std::string thisComputer(PlatformWords::thisComputer);
  return {
      {"list_targets", "List the windows this piece can see and drive (its own window first, then attached ones).", {}},
      {"get_target_info", "App, window title, frame and browser URL of a window.", {target}},
      {"screenshot", "Screenshot of a window. Image pixels equal window points: use the same x/y for click.", {target}},
      {"read_ui_tree",
       "Accessibility tree of a window: one line per element with a ref, role, label, value and frame. Prefer "
       "press/set_value with refs over coordinate clicks.",
       {target, {"?max_depth", "integer", "Depth limit (default 25)"}}},
      {"press", "Press (AXPress) the element with this ref from read_ui_tree.",
       {target, {"ref", "string", "Element ref, e.g. 0.3.1"}}},
      {"set_value", "Focus the element with this ref and set its text value.",
       {target, {"ref", "string", "Element ref"}, {"value", "string", "New value"}}},
      {"click", "Click at window-relative point (x, y) in screenshot coordinates.",
       {target,
        {"x", "number", "X in window points"},
        {"y", "number", "Y in window points"},
        {"?button", "string", "left (default) or right"},
        {"?double", "boolean", "Double-click"}}},
      {"type_text", "Bring the window forward and type text into its focused element.",
       {target, {"text", "string", "Text to type"}}},
      {"press_key",
       "Bring the window forward and press a key with optional modifiers, e.g. key=return, key=a modifiers=[cmd].",
       {target,
        {"key", "string",
         "return, tab, escape, delete, space, up, down, left, right, home, end, pageup, pagedown, f1-f12, or a "
         "single character"},
        {"?modifiers", "array", "Any of cmd, shift, option, control"}}},
      {"scroll", "Scroll a window at (x, y) by dy (positive = down) and dx points.",
       {target,
        {"dy", "number", "Vertical points"},
        {"?dx", "number", "Horizontal points"},
        {"?x", "number", "X in window points"},
        {"?y", "number", "Y in window points"}}},
      {"run_command",
       "Run a shell command on " + thisComputer + " (e.g. mv, mkdir, " + std::string(PlatformWords::openCommand) +
           "). The user approves it first.",
       {{"command", "string", "The command, run with " + std::string(PlatformWords::commandShell) + " in the working folder"},
        {"why", "string", "One short line saying what it does, shown to the user"}}},
      {"write_file", "Create or overwrite a text file. The user approves it first.",
       {{"path", "string", "Absolute path"}, {"content", "string", "Full file content"}}},
      {"run_applescript",
       "Run AppleScript (for scriptable apps). Returns the result as text. Not available on this Linux desktop: "
       "it says so and names the alternatives.",
       {{"source", "string", "AppleScript source"}}},
      {"browser_read_page", "Visible text, URL and title of a browser window's front tab.",
       {target, {"?max_chars", "integer", "Default 40000"}}},
      {"browser_eval", "Run JavaScript in a browser window's front tab and return the result as text.",
       {target, {"js", "string", "JavaScript expression"}}},
      {"browser_navigate", "Load a URL in a browser window's front tab.", {target, {"url", "string", "URL"}}},
      {"list_pieces",
       "List the other Zorvane agents (pieces) linked to this one, what each is bonded to, and whether it's busy.", {}},
      {"ask_piece",
       "Give a linked Zorvane agent a task or question and wait for its answer. It works with its own target and "
       "tools. Use this to split work across agents and combine results.",
       {{"piece", "string", "Name or index from list_pieces"},
        {"message", "string", "What you want it to do or answer"}}},
      {"tell_piece", "Send a linked Zorvane agent a message without waiting for a reply.",
       {{"piece", "string", "Name or index from list_pieces"}, {"message", "string", "The message"}}},
      {"list_schedules", "List Zorvane's scheduled tasks with their timing and last result.", {}},
      {"create_schedule",
       "Schedule a task for Zorvane to do later, repeatedly, or whenever something happens on " + thisComputer + ".",
       {{"title", "string", "Short name, e.g. Clock in"},
        {"when", "string",
         "A time: daily 09:30 | weekdays 09:30 | weekends 10:00 | mon,wed,fri 18:05 | every 30m | every 2h | once "
         "2026-10-25 14:00. Or an event: new file in ~/Downloads matching *.pdf | app opens Slack | page changes "
         "https://example.com/status every 30m"},
        {"prompt", "string", "Exactly what to do each time, written as an instruction to yourself"}}},
      {"delete_schedule", "Delete a scheduled task by title or id.",
       {{"schedule", "string", "Title or id from list_schedules"}}},
  };
}

const std::set<std::string>& readOnly() {
  static const std::set<std::string> tools = {
      "list_targets", "get_target_info", "screenshot",  "read_ui_tree",   "browser_read_page",
      "list_pieces",  "ask_piece",       "tell_piece",  "list_schedules",
  };
  return tools;
}

const std::vector<std::string>& names() {
  static const std::vector<std::string> tools = [] {
    std::vector<std::string> list;
    for (const ToolSpec& spec : specs()) list.push_back(spec.name);
    return list;
  }();
  return tools;
}

}  // namespace zorvane::ZorvaneTools
