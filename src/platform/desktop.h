// Desktop: the services of the desktop this process runs on, owned in one place. On X11
// the real ones; where no display can be reached, services that find no windows and
// say so, so that the tool server still answers every call.
#pragma once

#include <memory>

#include "platform/desktop_services.h"

namespace zorvane {

class Desktop {
 public:
  virtual ~Desktop() = default;
  virtual DesktopServices& services() = 0;

  // The X11 desktop of $DISPLAY, or the headless one when it can't be opened.
  static std::unique_ptr<Desktop> open();
  static std::unique_ptr<Desktop> headless();
};

}  // namespace zorvane
