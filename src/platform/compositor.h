// Whether a composition manager runs on the desktop, so that transparent pixels of a
// window show what lies below it instead of black.
//
// Asks the display server afresh on each call, over a short-lived connection of its
// own: safe from any thread, costs a round trip or two. False when no display can be
// reached.
#pragma once

namespace zorvane {

bool compositorRunning();

}  // namespace zorvane
