// CardViews: the Qt Quick cards on the application's panels. It owns the one QML engine
// of the views and makes, for each controller it is handed, the adapter and the card
// on that controller's panel; the card lives as long as the panel's window, and its
// adapter as long as the card.
//
//   CardViews cards(clock);
//   context.views = cards.views();
//
// Main thread.
#pragma once

#include <QQmlEngine>

#include <map>
#include <memory>
#include <string>

#include "app/shell/views.h"
#include "core/base/clock.h"

class QQuickWindow;
class QQmlComponent;
class QQuickItem;

namespace zorvane {

class BubbleAdapter;

class CardViews {
 public:
  explicit CardViews(const Clock& clock);
  ~CardViews();

  // The functions to hand to the application; they call into this object, which must
  // outlive them.
  [[nodiscard]] Views views();

  void bubble(PieceController& piece);
  void tray(TrayController& tray);
  void onboarding(OnboardingController& guide);

  // Makes the card of the module's file `path` ("bubble/Bubble.qml") with `properties`
  // on `window`, filling its width; logs QML errors and gives null on failure.
  QQuickItem* show(QQuickWindow* window, const char* path, const QVariantMap& properties);
  // The same with one adapter as the card's `property`; the card takes the adapter over
  // (deleted at once when the card can't be made).
  QQuickItem* show(QQuickWindow* window, const char* path, const char* property, QObject* adapter);
  // The bubble's card over `adapter`, which it takes over and which follows the
  // window (see BubbleAdapter::followWindow).
  QQuickItem* showBubble(QQuickWindow* window, BubbleAdapter* adapter);

 private:
  const Clock& clock_;
  QQmlEngine engine_;
  std::map<std::string, std::unique_ptr<QQmlComponent>> components_;
};

}  // namespace zorvane
