// StatusItem: the application's icon in the desktop's status area (the system tray, as
// a StatusNotifierItem or an XEmbed tray icon) and the menu it opens.
//
// The menu holds no state of its own: each time it opens it is rebuilt from the rows a
// provider returns, so it always shows what is true at that moment. A click on the icon
// opens it as well as the context click does. When the desktop has no status area the
// item logs one line and shows nothing, ever.
//
// The icon is drawn here (a small dark glossy drop); its tooltip and the menu's title
// name the application.
//
// Needs a QApplication (the menu is a widget); lives on the GUI thread, and the rows'
// actions are called there, from the menu.
#pragma once

#include <QMenu>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/shell/status_menu.h"

class QIcon;
class QSystemTrayIcon;

namespace zorvane {

using StatusMenuProvider = std::function<std::vector<StatusMenuRow>()>;

// A menu that asks its provider for its rows each time it is about to open.
class StatusMenu final : public QMenu {
 public:
  explicit StatusMenu(StatusMenuProvider provider, QWidget* parent = nullptr);

 private:
  void rebuild();

  StatusMenuProvider provider_;
};

class StatusItem final {
 public:
  explicit StatusItem(StatusMenuProvider provider);
  ~StatusItem();
  StatusItem(const StatusItem&) = delete;
  StatusItem& operator=(const StatusItem&) = delete;

  // Whether the desktop had a status area to show the icon in.
  bool isShown() const { return tray_ != nullptr; }

  // The drawn icon, at the sizes status areas ask for.
  static QIcon icon();

 private:
  std::unique_ptr<StatusMenu> menu_;
  std::unique_ptr<QSystemTrayIcon> tray_;
};

}  // namespace zorvane
