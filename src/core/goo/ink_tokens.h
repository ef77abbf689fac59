// The design tokens of the goo: its colours and the slow-motion factor for watching an
// animation frame by frame.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "core/ink/goo_scene.h"

namespace zorvane::Ink {

namespace Surface {
// Near-black body colour of the goo (red, green, blue).
inline constexpr std::array<float, 3> voidColor{0.01f, 0.01f, 0.014f};
// Pure black, so that goo merges with the notch.
inline constexpr std::array<float, 3> notchVoid{0.0f, 0.0f, 0.0f};
// The dark grey of the application's panels: what goo is drawn on where the desktop
// can't show what lies below a window (no composition manager).
inline constexpr std::array<float, 3> panelBackdrop{0.16f, 0.16f, 0.18f};
}  // namespace Surface

namespace Timing {
// The value of `--slow <number>` among the arguments (the program name first, as in
// argv): 1.0 when the option is absent, has no value, or its value is not a positive
// finite number.
double parseSlowMotion(const std::vector<std::string>& arguments);

// The process-wide slow-motion factor: 1.0 until set. Animations divide their clock's
// pace by it. A value that is not a positive finite number sets 1.0.
double slowMotion();
void setSlowMotion(double factor);
}  // namespace Timing

// An empty scene in the goo's own look: dark body, soft shadow, gloss and a faint sheen,
// with shapes melting together over `blend` points.
GooScene glossyScene(double blend);

}  // namespace zorvane::Ink
