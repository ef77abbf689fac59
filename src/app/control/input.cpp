#include "app/control/input.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>

#include "core/mcp/tool_spec.h"

namespace zorvane {

void Input::realSleep(int microseconds) { usleep(static_cast<useconds_t>(microseconds)); }

const std::map<std::string, uint16_t>& Input::keys() {
  static const std::map<std::string, uint16_t> table = [] {
    std::map<std::string, uint16_t> t = {
        {"return", 36}, {"enter", 36},     {"tab", 48},     {"space", 49},   {"delete", 51},
        {"backspace", 51}, {"escape", 53}, {"esc", 53},     {"forwarddelete", 117},
        {"home", 115},  {"end", 119},      {"pageup", 116}, {"pagedown", 121},
        {"left", 123},  {"right", 124},    {"down", 125},   {"up", 126},
    };
    const uint16_t functionKeys[] = {122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111};
    for (int i = 0; i < 12; ++i) t["f" + std::to_string(i + 1)] = functionKeys[i];
    // The character keys in the order of their codes, starting at 0; blanks mark codes
    // that no name uses here.
    const char* characters[] = {"a", "s", "d", "f", "h", "g", "z", "x", "c", "v", nullptr, "b", "q", "w",
                                "e", "r", "y", "t", "1", "2", "3", "4", "6", "5", "=", "9", "7", "-",
                                "8", "0", "]", "o", "u", "[", "i", "p", nullptr, "l", "j", "'", "k", ";",
                                "\\", ",", "/", "n", "m", "."};
    for (uint16_t code = 0; code < std::size(characters); ++code)
      if (characters[code]) t[characters[code]] = code;
    t["`"] = 50;
    return t;
  }();
  return table;
}

static std::string lowercased(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

static int32_t wholeInt32(double value) {
  if (std::isnan(value)) return 0;
  value = std::clamp(value, double(std::numeric_limits<int32_t>::min()), double(std::numeric_limits<int32_t>::max()));
  return static_cast<int32_t>(value);
}

void Input::click(Point at, bool right, bool isDouble) {
  service_.mouseMoved(at);
  MouseButton button = right ? MouseButton::right : MouseButton::left;
  for (int n = 1; n <= (isDouble ? 2 : 1); ++n) {
    service_.mouseButton(at, button, true, n);
    sleep_(20000);
    service_.mouseButton(at, button, false, n);
    sleep_(20000);
  }
}

void Input::type(const std::string& text, const std::function<bool()>& stillAimed) {
  // Chunks of at most 16 UTF-16 code units; a character is never split, so each chunk
  // stays valid text.
  size_t start = 0, units = 0;
  auto characters = [&](size_t end) {
    size_t count = 0;
    for (size_t i = 0; i < end; ++i) count += (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80;
    return count;
  };
  auto flush = [&](size_t end) {
    if (end > start) {
      if (stillAimed && !stillAimed()) {
        throw MCPToolError("Typing stopped after " + std::to_string(characters(start)) + " of " +
                           std::to_string(characters(text.size())) +
                           " characters: the window is no longer the active one.");
      }
      service_.text(text.substr(start, end - start));
      sleep_(12000);
    }
    start = end;
    units = 0;
  };
  for (size_t i = 0; i < text.size();) {
    unsigned char lead = static_cast<unsigned char>(text[i]);
    size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    length = std::min(length, text.size() - i);
    size_t width = length == 4 ? 2 : 1;
    if (units + width > 16) flush(i);
    units += width;
    i += length;
  }
  flush(text.size());
}

void Input::key(const std::string& name, const std::vector<std::string>& modifiers) {
  auto found = keys().find(lowercased(name));
  if (found == keys().end()) throw MCPToolError("Unknown key " + name);
  uint64_t flags = 0;
  for (const std::string& modifier : modifiers) {
    std::string m = lowercased(modifier);
    if (m == "cmd" || m == "command") flags |= KeyFlags::command;
    else if (m == "shift") flags |= KeyFlags::shift;
    else if (m == "option" || m == "alt") flags |= KeyFlags::option;
    else if (m == "control" || m == "ctrl") flags |= KeyFlags::control;
  }
  service_.key(found->second, flags, true);
  sleep_(15000);
  service_.key(found->second, flags, false);
  sleep_(15000);
}

void Input::scroll(Point at, double dx, double dy) {
  service_.mouseMoved(at);
  service_.scroll(wholeInt32(-dy), wholeInt32(-dx));
}

}  // namespace zorvane
