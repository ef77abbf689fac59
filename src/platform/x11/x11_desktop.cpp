// Desktop::open: the X11 desktop when $DISPLAY can be reached; the headless one otherwise.
// Temporary until the X11 services are assembled here.
#include "platform/desktop.h"

namespace zorvane {

std::unique_ptr<Desktop> Desktop::open() { return headless(); }

}  // namespace zorvane
