#include "ui/cards/card_views.h"

#include <QQmlComponent>
#include <QQuickItem>
#include <QQuickWindow>

#include "app/pieces/piece_controller.h"
#include "core/base/log.h"
#include "ui/adapters/bubble_adapter.h"
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

void CardViews::bubble(PieceController& piece) {
  QQuickWindow* window = static_cast<const QtPanel&>(piece.bubble()).window();
  const Clock& clock = clock_;
  auto* adapter = new BubbleAdapter(piece.weak_from_this(), [&clock] { return clock.wallNow(); }, window);
  if (!show(window, "bubble/Bubble.qml", {{"bubble", QVariant::fromValue(adapter)}})) delete adapter;
}

}  // namespace zorvane
