// OnboardingAdapter: the first-start guide before Qt Quick. It reads OnboardingModel after
// every change and publishes the step's page, the agent row, the permission rows (a list
// model of three that says which row changed) and the footer as typed properties; the
// view's buttons call the guide's actions through it.
//
// Main thread. It holds the guide weakly: once the guide is gone, actions do nothing.
#pragma once

#include <QAbstractListModel>
#include <QObject>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

#include <memory>
#include <vector>

#include "app/shell/onboarding_controller.h"

namespace zorvane {

// Accessibility, Screen Recording, Automation: rows that change in place.
class OnboardingPermissionRows final : public QAbstractListModel {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("the guide adapter's rows")

 public:
  // Named like the row delegate's required properties.
  enum Role {
    TitleRole = Qt::UserRole + 1,  // title: "Accessibility"...
    TextRole,                      // text: what it is for
    GrantedRole,                   // granted: bool
    ImageRole,                     // image: "checkmark.circle.fill" or "circle.dashed"
    ButtonRole,                    // button: "Grant" or "Allow"; "" once granted
    HelpRole,                      // help: what to do after a try that didn't take; "" if none
  };

  explicit OnboardingPermissionRows(QObject* parent) : QAbstractListModel(parent) {}

  int rowCount(const QModelIndex& parent = QModelIndex()) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;

  // Brings the rows to `rows`: changed rows say so; a different count replaces them all.
  void update(std::vector<OnboardingPermissionRow> rows);
  [[nodiscard]] const OnboardingPermissionRow* at(int row) const;

 private:
  std::vector<OnboardingPermissionRow> rows_;
};

class OnboardingAdapter final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made for the guide by the card views")

  // The page
  Q_PROPERTY(int step READ step NOTIFY changed FINAL)
  Q_PROPERTY(int stepCount READ stepCount CONSTANT FINAL)
  Q_PROPERTY(QString title READ title NOTIFY changed FINAL)
  Q_PROPERTY(QStringList paragraphs READ paragraphs NOTIFY changed FINAL)
  Q_PROPERTY(bool showsAgent READ showsAgent NOTIFY changed FINAL)
  Q_PROPERTY(bool showsPermissions READ showsPermissions NOTIFY changed FINAL)
  Q_PROPERTY(bool showsTips READ showsTips NOTIFY changed FINAL)
  // The agent row
  Q_PROPERTY(QString agentState READ agentState NOTIFY changed FINAL)
  Q_PROPERTY(QString agentTitle READ agentTitle NOTIFY changed FINAL)
  Q_PROPERTY(QString agentText READ agentText NOTIFY changed FINAL)
  Q_PROPERTY(QString copyText READ copyText NOTIFY changed FINAL)
  Q_PROPERTY(bool showsCheckAgain READ showsCheckAgain NOTIFY changed FINAL)
  Q_PROPERTY(QString alsoFound READ alsoFound NOTIFY changed FINAL)
  // The permissions
  Q_PROPERTY(zorvane::OnboardingPermissionRows* permissions READ permissions CONSTANT FINAL)
  Q_PROPERTY(QString relaunchNote READ relaunchNote NOTIFY changed FINAL)
  Q_PROPERTY(QString relaunchTitle READ relaunchTitle CONSTANT FINAL)
  // The tips
  Q_PROPERTY(QStringList tipTitles READ tipTitles CONSTANT FINAL)
  Q_PROPERTY(QStringList tipTexts READ tipTexts CONSTANT FINAL)
  // The footer
  Q_PROPERTY(bool showsBack READ showsBack NOTIFY changed FINAL)
  Q_PROPERTY(QString forwardTitle READ forwardTitle NOTIFY changed FINAL)

 public:
  // Reads the guide's model at once and after each of its changes.
  explicit OnboardingAdapter(std::weak_ptr<OnboardingController> guide, QObject* parent = nullptr);

  int step() const { return step_; }
  static int stepCount() { return OnboardingModel::kStepCount; }
  QString title() const { return title_; }
  QStringList paragraphs() const { return paragraphs_; }
  bool showsAgent() const { return page_ == OnboardingStep::agent; }
  bool showsPermissions() const { return page_ == OnboardingStep::permissions; }
  bool showsTips() const { return page_ == OnboardingStep::howTo; }
  QString agentState() const { return agentState_; }
  QString agentTitle() const { return agentTitle_; }
  QString agentText() const { return agentText_; }
  QString copyText() const { return copyText_; }
  bool showsCheckAgain() const { return checkAgain_; }
  QString alsoFound() const { return alsoFound_; }
  OnboardingPermissionRows* permissions() { return &permissions_; }
  QString relaunchNote() const { return relaunchNote_; }
  static QString relaunchTitle() { return q(OnboardingModel::relaunchTitle); }
  QStringList tipTitles() const { return tipTitles_; }
  QStringList tipTexts() const { return tipTexts_; }
  bool showsBack() const { return showsBack_; }
  QString forwardTitle() const { return forwardTitle_; }

  // --- Actions ---
  // The forward button: the next step, or on the last the end of the guide.
  Q_INVOKABLE void forward();
  Q_INVOKABLE void back();
  Q_INVOKABLE void recheck();
  Q_INVOKABLE void copyInstall();
  // A permission row's button: asks for that row's permission.
  Q_INVOKABLE void grant(int row);
  Q_INVOKABLE void relaunch();

  // Reads the guide's model again (after each of its changes).
  void refresh();

 Q_SIGNALS:
  void changed();

 private:
  static QString q(std::string_view text) { return QString::fromUtf8(text.data(), qsizetype(text.size())); }

  std::weak_ptr<OnboardingController> guide_;
  OnboardingPermissionRows permissions_;
  int step_ = 0;
  OnboardingStep page_ = OnboardingStep::welcome;
  bool checkAgain_ = false;
  bool showsBack_ = false;
  QString title_, agentState_, agentTitle_, agentText_, copyText_, alsoFound_, relaunchNote_, forwardTitle_;
  QStringList paragraphs_, tipTitles_, tipTexts_;
};

}  // namespace zorvane
