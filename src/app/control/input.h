// Input: mouse and keyboard actions as sequences of low-level events, paced as the
// receiving applications need. Key names follow the US layout table of the tool texts;
// "cmd" is the Super key on Linux.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/input_service.h"

namespace zorvane {

class Input {
 public:
  // Blocks the calling thread for so many microseconds: the tool server's pacing.
  using Sleeper = std::function<void(int microseconds)>;
  static void realSleep(int microseconds);

  explicit Input(InputService& service, Sleeper sleeper = realSleep)
      : service_(service), sleep_(std::move(sleeper)) {}

  // The 76 key names and their virtual key codes.
  static const std::map<std::string, uint16_t>& keys();

  void click(Point at, bool right, bool isDouble);
  // Types in chunks; `stillAimed`, when given, is asked before each chunk whether the
  // keys still reach their window, and typing stops with MCPToolError "Typing stopped
  // after N of M characters ..." once it says no.
  void type(const std::string& text, const std::function<bool()>& stillAimed = {});
  // Throws MCPToolError "Unknown key <name>" for a name outside keys().
  void key(const std::string& name, const std::vector<std::string>& modifiers);
  void scroll(Point at, double dx, double dy);

 private:
  InputService& service_;
  Sleeper sleep_;
};

}  // namespace zorvane
