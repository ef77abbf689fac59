// FakeInput: records the low-level events a test's actions produce, one line each.
#pragma once

#include <cstdio>
#include <vector>

#include "platform/input_service.h"

namespace zorvane {

class FakeInput final : public InputService {
 public:
  std::vector<std::string> events;

  void mouseMoved(Point at) override { events.push_back("move " + xy(at)); }
  void mouseButton(Point at, MouseButton button, bool down, int clickState) override {
    events.push_back(std::string(button == MouseButton::right ? "right " : "left ") + (down ? "down " : "up ") +
                     xy(at) + " #" + std::to_string(clickState));
  }
  void key(uint16_t virtualKey, uint64_t flags, bool down) override {
    char line[64];
    std::snprintf(line, sizeof line, "key %u %s flags=0x%llx", virtualKey, down ? "down" : "up",
                  static_cast<unsigned long long>(flags));
    events.push_back(line);
  }
  void text(const std::string& chunk) override { events.push_back("text " + chunk); }
  void scroll(int32_t vertical, int32_t horizontal) override {
    events.push_back("scroll " + std::to_string(vertical) + "," + std::to_string(horizontal));
  }

 private:
  static std::string xy(Point p) {
    char line[64];
    std::snprintf(line, sizeof line, "%g,%g", p.x, p.y);
    return line;
  }
};

}  // namespace zorvane
