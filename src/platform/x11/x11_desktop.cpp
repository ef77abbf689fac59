// Desktop::open on Linux: the X11 services of $DISPLAY, accessibility over AT-SPI and
// browser pages over the DevTools protocol; the headless desktop when no display can be
// reached, so that the tool server still answers every call.
#include "platform/desktop.h"
#include "platform/linux/atspi_accessibility.h"
#include "platform/linux/devtools_browser.h"
#include "platform/x11/x11_display.h"
#include "platform/x11/x11_input.h"
#include "platform/x11/x11_screen_capture.h"
#include "platform/x11/x11_window_service.h"

namespace zorvane {
namespace {

class X11Desktop final : public Desktop {
 public:
  explicit X11Desktop(std::shared_ptr<X11Display> display)
      : windows_(display), input_(display), capture_(display) {}
  DesktopServices& services() override { return services_; }

 private:
  X11WindowService windows_;
  AtspiAccessibility accessibility_;
  X11Input input_;
  X11ScreenCapture capture_;
  DevToolsBrowserScripting browsers_;
  DesktopServices services_{windows_, accessibility_, input_, capture_, browsers_};
};

}  // namespace

std::unique_ptr<Desktop> Desktop::open() {
  auto display = X11Display::open();
  if (!display) return headless();
  return std::make_unique<X11Desktop>(std::move(display));
}

}  // namespace zorvane
