// Views: what the toolkit draws on the application's panels. Each function is handed a
// controller once it exists and binds a view to its model and actions for as long as
// the controller's panel lives. An empty function draws nothing, which is what the
// headless tests want.
#pragma once

#include <functional>

namespace zorvane {

class OnboardingController;
class PieceController;
class TrayController;

struct Views {
  // The bubble beside a piece's target, on the piece's bubble panel.
  std::function<void(PieceController&)> bubble;
  // The tray under the goo, on the tray's panel; called once, at launch.
  std::function<void(TrayController&)> tray;
  // The first-start guide, on the guide's panel; called once, at launch.
  std::function<void(OnboardingController&)> onboarding;
};

}  // namespace zorvane
