// The desktop of a process that reaches no display: no windows, no accessibility bus,
// and input and capture that fail with a reason.
#include "platform/desktop.h"

namespace zorvane {
namespace {

class NoAccessibility final : public AccessibilityService {
 public:
  bool trusted() override { return false; }
  std::vector<std::shared_ptr<AccessibleElement>> windows(int32_t) override { return {}; }
  std::shared_ptr<AccessibleElement> elementAt(int32_t, Point) override { return nullptr; }
};

class NoInput final : public InputService {
 public:
  void mouseMoved(Point) override {}
  void mouseButton(Point, MouseButton, bool, int) override {}
  void key(uint16_t, uint64_t, bool) override {}
  void text(const std::string&) override {}
  void scroll(int32_t, int32_t) override {}
};

class NoCapture final : public ScreenCapture {
 public:
  Expected<RGBImage> capture(uint32_t) override { return Failure{"No X display can be reached."}; }
};

class NoBrowsers final : public BrowserScripting {
 public:
  Expected<std::string> frontTab(const BrowserWindow&) override { return Failure{"No X display can be reached."}; }
  Expected<std::string> evaluate(const BrowserWindow&, const std::string&) override {
    return Failure{"No X display can be reached."};
  }
  Expected<void> navigate(const BrowserWindow&, const std::string&) override {
    return Failure{"No X display can be reached."};
  }
};

class HeadlessDesktop final : public Desktop {
 public:
  DesktopServices& services() override { return services_; }

 private:
  HeadlessWindowService windows_;
  NoAccessibility accessibility_;
  NoInput input_;
  NoCapture capture_;
  NoBrowsers browsers_;
  DesktopServices services_{windows_, accessibility_, input_, capture_, browsers_};
};

}  // namespace

std::unique_ptr<Desktop> Desktop::headless() { return std::make_unique<HeadlessDesktop>(); }

}  // namespace zorvane
