#include "ui/cards/card_views.h"

#include <QQmlComponent>
#include <QQuickItem>
#include <QQuickWindow>

#include "app/notch/tray_controller.h"
#include "app/pieces/piece_controller.h"
#include "app/shell/onboarding_controller.h"
#include "core/base/log.h"
#include "ui/adapters/bubble_adapter.h"
#include "ui/adapters/onboarding_adapter.h"
#include "ui/adapters/tray_adapter.h"
#include "ui/shell/qt_surfaces.h"

namespace zorvane {

CardViews::CardViews(const Clock& clock) : clock_(clock) {
  // The module's qmldir sits at the root of the resources, under its URI.
  engine_.addImportPath("qrc:/");
}

CardViews::~CardViews() = default;

Views CardViews::views() {
  Views views;
  views.bubble = [this](PieceController& piece) { bubble(piece); };
  views.tray = [this](TrayController& tray) { this->tray(tray); };
  views.onboarding = [this](OnboardingController& guide) { onboarding(guide); };
  return views;
}

QQuickItem* CardViews::show(QQuickWindow* window, const char* path, const QVariantMap& properties) {
  auto& component = components_[path];
  if (!component) {
    component = std::make_unique<QQmlComponent>(&engine_, QUrl(QString("qrc:/Zorvane/Ui/qml/") + path),
                                                QQmlComponent::PreferSynchronous);
  }
  if (component->isError()) {
    Log::info(std::string("card ") + path + ": " + component->errorString().toStdString());
    return nullptr;
  }
  QObject* object = component->createWithInitialProperties(properties);
  auto* item = qobject_cast<QQuickItem*>(object);
  if (!item) {
    Log::info(std::string("card ") + path + ": " + component->errorString().toStdString());
    delete object;
    return nullptr;
  }
  item->setParent(window);
  item->setParentItem(window->contentItem());
  item->setFocus(true);
  return item;
}

QQuickItem* CardViews::show(QQuickWindow* window, const char* path, const char* property, QObject* adapter) {
  QQuickItem* card = show(window, path, {{property, QVariant::fromValue(adapter)}});
  // The card owns its adapter, so that the adapter goes after the card's bindings: owned
  // by the window beside the card, it could go first and leave them reading null.
  if (card)
    adapter->setParent(card);
  else
    delete adapter;
  return card;
}

QQuickItem* CardViews::showBubble(QQuickWindow* window, BubbleAdapter* adapter) {
  QQuickItem* card = show(window, "bubble/Bubble.qml", "bubble", adapter);
  if (card) adapter->followWindow(window);
  return card;
}

void CardViews::bubble(PieceController& piece) {
  QQuickWindow* window = static_cast<const QtPanel&>(piece.bubble()).window();
  const Clock& clock = clock_;
  auto* adapter = new BubbleAdapter(piece.weak_from_this(), [&clock] { return clock.wallNow(); }, window);
  showBubble(window, adapter);
}

void CardViews::tray(TrayController& tray) {
  QQuickWindow* window = static_cast<const QtPanel&>(tray.panel()).window();
  auto* adapter = new TrayAdapter(tray.weak_from_this(), window);
  show(window, "tray/Tray.qml", "tray", adapter);
}

void CardViews::onboarding(OnboardingController& guide) {
  QQuickWindow* window = static_cast<const QtPanel&>(guide.panel()).window();
  auto* adapter = new OnboardingAdapter(guide.weak_from_this(), window);
  show(window, "guide/Guide.qml", "guide", adapter);
}

}  // namespace zorvane
