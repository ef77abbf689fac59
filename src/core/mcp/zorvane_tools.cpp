#include "core/mcp/zorvane_tools.h"

#include "core/base/engine_words.h"

namespace zorvane::ZorvaneTools {

static const std::string kTarget = "Which attached window: index or name from list_targets (default 0, the bonded window)";

const std::vector<ZorvaneTool>& table() {
  static const std::vector<ZorvaneTool> rows = [] {
    using P = ToolSpec::Param;
    using R = ToolRoute;
    const P target{"?target", "string", kTarget};
    const P piece{"piece", "string", "Name or index from list_pieces"};
    const std::string thisComputer(PlatformWords::thisComputer);
    constexpr bool looks = false, changes = true;
    return std::vector<ZorvaneTool>{
        {{"list_targets", "List the windows this piece can see and drive (its own window first, then attached ones).",
          {}},
         looks, R::targets, "Getting oriented"},
        {{"get_target_info", "App, window title, frame and browser URL of a window.", {target}},
         looks, R::window, "Getting oriented"},
        {{"screenshot", "Screenshot of a window. Image pixels equal window points: use the same x/y for click.",
          {target}},
         looks, R::window, "Looking at the screen"},
        {{"read_ui_tree",
          "Accessibility tree of a window: one line per element with a ref, role, label, value and frame. Prefer "
          "press/set_value with refs over coordinate clicks.",
          {target, {"?max_depth", "integer", "Depth limit (default 25)"}}},
         looks, R::window, "Figuring out the layout"},
        {{"press", "Press (AXPress) the element with this ref from read_ui_tree.",
          {target, {"ref", "string", "Element ref, e.g. 0.3.1"}}},
         changes, R::window, "Clicking"},
        {{"set_value", "Focus the element with this ref and set its text value.",
          {target, {"ref", "string", "Element ref"}, {"value", "string", "New value"}}},
         changes, R::window, "Typing"},
        {{"click", "Click at window-relative point (x, y) in screenshot coordinates.",
          {target,
           {"x", "number", "X in window points"},
           {"y", "number", "Y in window points"},
           {"?button", "string", "left (default) or right"},
           {"?double", "boolean", "Double-click"}}},
         changes, R::window, "Clicking"},
        {{"type_text", "Bring the window forward and type text into its focused element.",
          {target, {"text", "string", "Text to type"}}},
         changes, R::window, "Typing"},
        {{"press_key",
          "Bring the window forward and press a key with optional modifiers, e.g. key=return, key=a modifiers=[cmd].",
          {target,
           {"key", "string",
            "return, tab, escape, delete, space, up, down, left, right, home, end, pageup, pagedown, f1-f12, or a "
            "single character"},
           {"?modifiers", "array", "Any of cmd, shift, option, control"}}},
         changes, R::window, "Pressing keys"},
        {{"scroll", "Scroll a window at (x, y) by dy (positive = down) and dx points.",
          {target,
           {"dy", "number", "Vertical points"},
           {"?dx", "number", "Horizontal points"},
           {"?x", "number", "X in window points"},
           {"?y", "number", "Y in window points"}}},
         changes, R::window, "Scrolling"},
        {{"run_command",
          "Run a shell command on " + thisComputer + " (e.g. mv, mkdir, " + std::string(PlatformWords::openCommand) +
              "). The user approves it first.",
          {{"command", "string",
            "The command, run with " + std::string(PlatformWords::commandShell) + " in the working folder"},
           {"why", "string", "One short line saying what it does, shown to the user"}}},
         changes, R::shell, "Working on it"},
        {{"write_file", "Create or overwrite a text file. The user approves it first.",
          {{"path", "string", "Absolute path"}, {"content", "string", "Full file content"}}},
         changes, R::file, "Writing"},
        {{"run_applescript",
          "Run AppleScript (for scriptable apps). Returns the result as text. Not available on this Linux desktop: "
          "it says so and names the alternatives.",
          {{"source", "string", "AppleScript source"}}},
         changes, R::unavailable, "Working in the app"},
        {{"browser_read_page", "Visible text, URL and title of a browser window's front tab.",
          {target, {"?max_chars", "integer", "Default 40000"}}},
         looks, R::window, "Reading the page"},
        {{"browser_eval", "Run JavaScript in a browser window's front tab and return the result as text.",
          {target, {"js", "string", "JavaScript expression"}}},
         changes, R::window, "Working in the app"},
        {{"browser_navigate", "Load a URL in a browser window's front tab.", {target, {"url", "string", "URL"}}},
         changes, R::window, "Opening a page"},
        {{"list_pieces",
          "List the other Zorvane agents (pieces) linked to this one, what each is bonded to, and whether it's busy.",
          {}},
         looks, R::peers, "Checking in with other agents"},
        {{"ask_piece",
          "Give a linked Zorvane agent a task or question and wait for its answer. It works with its own target and "
          "tools. Use this to split work across agents and combine results.",
          {piece, {"message", "string", "What you want it to do or answer"}}},
         looks, R::peers, "Asking another agent"},
        {{"tell_piece", "Send a linked Zorvane agent a message without waiting for a reply.",
          {piece, {"message", "string", "The message"}}},
         looks, R::peers, "Messaging another agent"},
        {{"list_schedules", "List Zorvane's scheduled tasks with their timing and last result.", {}},
         looks, R::schedules, "Checking the schedules"},
        {{"create_schedule",
          "Schedule a task for Zorvane to do later, repeatedly, or whenever something happens on " + thisComputer +
              ".",
          {{"title", "string", "Short name, e.g. Clock in"},
           {"when", "string",
            "A time: daily 09:30 | weekdays 09:30 | weekends 10:00 | mon,wed,fri 18:05 | every 30m | every 2h | once "
            "2026-10-25 14:00. Or an event: new file in ~/Downloads matching *.pdf | app opens Slack | page changes "
            "https://example.com/status every 30m"},
           {"prompt", "string", "Exactly what to do each time, written as an instruction to yourself"}}},
         changes, R::schedules, "Making a schedule"},
        {{"delete_schedule", "Delete a scheduled task by title or id.",
          {{"schedule", "string", "Title or id from list_schedules"}}},
         changes, R::schedules, "Removing a schedule"},
    };
  }();
  return rows;
}

const ZorvaneTool* find(std::string_view name) {
  for (const ZorvaneTool& tool : table())
    if (tool.spec.name == name) return &tool;
  return nullptr;
}

std::vector<ToolSpec> specs() {
  std::vector<ToolSpec> list;
  for (const ZorvaneTool& tool : table()) list.push_back(tool.spec);
  return list;
}

const std::set<std::string>& readOnly() {
  static const std::set<std::string> tools = [] {
    std::set<std::string> names;
    for (const ZorvaneTool& tool : table())
      if (!tool.changes) names.insert(tool.spec.name);
    return names;
  }();
  return tools;
}

const std::vector<std::string>& names() {
  static const std::vector<std::string> tools = [] {
    std::vector<std::string> list;
    for (const ZorvaneTool& tool : table()) list.push_back(tool.spec.name);
    return list;
  }();
  return tools;
}

}  // namespace zorvane::ZorvaneTools
