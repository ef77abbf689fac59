// BubbleAdapter: one piece's bubble before Qt Quick. It reads the piece's state through
// BubbleModel after every change and publishes it as typed properties; the view's
// buttons call the piece's actions through it one to one. It decides nothing a test
// of the controller couldn't see.
//
// Main thread. It holds the piece weakly: once the piece is gone, actions do nothing.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QQuickWindow>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

#include <memory>

#include "app/pieces/bubble_model.h"
#include "ui/adapters/markdown_model.h"

namespace zorvane {

class PieceController;

class BubbleAdapter final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made for a piece by the card views")

  // Rows
  Q_PROPERTY(bool showsChips READ showsChips NOTIFY changed FINAL)
  Q_PROPERTY(bool showsResume READ showsResume NOTIFY changed FINAL)
  Q_PROPERTY(bool showsLearn READ showsLearn NOTIFY changed FINAL)
  Q_PROPERTY(bool showsNotice READ showsNotice NOTIFY changed FINAL)
  Q_PROPERTY(bool showsApproval READ showsApproval NOTIFY changed FINAL)
  Q_PROPERTY(bool showsWorking READ showsWorking NOTIFY changed FINAL)
  Q_PROPERTY(bool showsAnswer READ showsAnswer NOTIFY changed FINAL)
  Q_PROPERTY(bool showsError READ showsError NOTIFY changed FINAL)
  Q_PROPERTY(bool showsAsk READ showsAsk NOTIFY changed FINAL)
  // Header
  Q_PROPERTY(QString mood READ mood NOTIFY changed FINAL)
  Q_PROPERTY(QString targetName READ targetName NOTIFY changed FINAL)
  Q_PROPERTY(QString agentName READ agentName NOTIFY changed FINAL)
  Q_PROPERTY(QStringList agentNames READ agentNames NOTIFY changed FINAL)
  Q_PROPERTY(bool showsLearnButton READ showsLearnButton NOTIFY changed FINAL)
  // Chips and notice
  Q_PROPERTY(QStringList attached READ attached NOTIFY changed FINAL)
  Q_PROPERTY(QStringList links READ links NOTIFY changed FINAL)
  Q_PROPERTY(QString notice READ notice NOTIFY changed FINAL)
  // Resume card
  Q_PROPERTY(QString resumeQuestion READ resumeQuestion NOTIFY changed FINAL)
  Q_PROPERTY(QString resumeAsked READ resumeAsked NOTIFY changed FINAL)
  Q_PROPERTY(QString resumeAnswer READ resumeAnswer NOTIFY changed FINAL)
  Q_PROPERTY(QString resumeTurns READ resumeTurns NOTIFY changed FINAL)
  // Learn section
  Q_PROPERTY(QString learnPhase READ learnPhase NOTIFY changed FINAL)
  Q_PROPERTY(QString learnSteps READ learnSteps NOTIFY changed FINAL)
  Q_PROPERTY(QString learnHint READ learnHint NOTIFY changed FINAL)
  Q_PROPERTY(QString learnLabel READ learnLabel NOTIFY changed FINAL)
  // Approval
  Q_PROPERTY(QString approvalLabel READ approvalLabel NOTIFY changed FINAL)
  Q_PROPERTY(bool irreversible READ irreversible NOTIFY changed FINAL)
  Q_PROPERTY(bool offersTrust READ offersTrust NOTIFY changed FINAL)
  Q_PROPERTY(QString approvalSummary READ approvalSummary NOTIFY changed FINAL)
  Q_PROPERTY(QString approvalDetail READ approvalDetail NOTIFY changed FINAL)
  // Working, answer, error
  Q_PROPERTY(QString workingText READ workingText NOTIFY changed FINAL)
  Q_PROPERTY(QString questionLine READ questionLine NOTIFY changed FINAL)
  Q_PROPERTY(zorvane::MarkdownModel* answer READ answer CONSTANT FINAL)
  Q_PROPERTY(QString answerText READ answerText NOTIFY changed FINAL)
  Q_PROPERTY(QStringList citations READ citations NOTIFY changed FINAL)
  Q_PROPERTY(QString error READ error NOTIFY changed FINAL)
  // Ask section
  Q_PROPERTY(bool showsAskHeading READ showsAskHeading NOTIFY changed FINAL)
  Q_PROPERTY(QStringList skillNames READ skillNames NOTIFY changed FINAL)
  Q_PROPERTY(QStringList skillHelps READ skillHelps NOTIFY changed FINAL)
  Q_PROPERTY(QStringList suggestions READ suggestions NOTIFY changed FINAL)
  // Its own signal, sent at once: the field must not show an old draft for a frame.
  Q_PROPERTY(QString draft READ draft NOTIFY draftChanged FINAL)
  Q_PROPERTY(QString askPrompt READ askPrompt NOTIFY changed FINAL)
  Q_PROPERTY(QString transcript READ transcript NOTIFY changed FINAL)

 public:
  // Reads the piece at once and after each of its changes (see followWindow). `now`
  // gives the wall time for the relative dates.
  BubbleAdapter(std::weak_ptr<PieceController> piece, std::function<SystemTime()> now, QObject* parent = nullptr);

  bool showsChips() const { return model_.showsChips; }
  bool showsResume() const { return model_.showsResume; }
  bool showsLearn() const { return model_.showsLearn; }
  bool showsNotice() const { return model_.showsNotice; }
  bool showsApproval() const { return model_.showsApproval; }
  bool showsWorking() const { return model_.showsWorking; }
  bool showsAnswer() const { return model_.showsAnswer; }
  bool showsError() const { return model_.showsError; }
  bool showsAsk() const { return model_.showsAsk; }
  QString mood() const { return q(model_.mood); }
  QString targetName() const { return targetName_; }
  QString agentName() const { return agentName_; }
  QStringList agentNames() const { return agentNames_; }
  bool showsLearnButton() const { return model_.showsLearnButton; }
  QStringList attached() const { return attached_; }
  QStringList links() const { return links_; }
  QString notice() const { return notice_; }
  QString resumeQuestion() const { return q(model_.resumeQuestion); }
  QString resumeAsked() const { return q(model_.resumeAsked); }
  QString resumeAnswer() const { return q(model_.resumeAnswer); }
  QString resumeTurns() const { return q(model_.resumeTurns); }
  QString learnPhase() const { return q(model_.learnPhase); }
  QString learnSteps() const { return q(model_.learnSteps); }
  QString learnHint() const { return q(model_.learnHint); }
  QString learnLabel() const { return q(model_.learnLabel); }
  QString approvalLabel() const { return q(model_.approvalLabel); }
  bool irreversible() const { return model_.irreversible; }
  bool offersTrust() const { return model_.offersTrust; }
  QString approvalSummary() const { return q(model_.approvalSummary); }
  QString approvalDetail() const { return q(model_.approvalDetail); }
  QString workingText() const { return q(model_.workingText); }
  QString questionLine() const { return q(model_.questionLine); }
  MarkdownModel* answer() { return &answer_; }
  QString answerText() const { return answerText_; }
  QStringList citations() const { return citations_; }
  QString error() const { return error_; }
  bool showsAskHeading() const { return model_.showsAskHeading; }
  QStringList skillNames() const { return skillNames_; }
  QStringList skillHelps() const { return skillHelps_; }
  QStringList suggestions() const { return suggestions_; }
  QString draft() const { return draft_; }
  QString askPrompt() const { return q(model_.askPrompt); }
  QString transcript() const { return q(model_.transcriptTail); }

  // --- Actions ---
  Q_INVOKABLE void setDraft(const QString& text);
  // Return in the ask field: sends the draft, trimmed, unless nothing is left.
  Q_INVOKABLE void submit();
  Q_INVOKABLE void ask(const QString& text);
  Q_INVOKABLE void decide(bool allow);
  Q_INVOKABLE void trust();
  Q_INVOKABLE void resume(bool yes);
  Q_INVOKABLE void cite(int index);
  Q_INVOKABLE void switchAgent(int index);
  Q_INVOKABLE void armSkill(int index);
  Q_INVOKABLE void attachFiles();
  Q_INVOKABLE void pickWindow();
  Q_INVOKABLE void learnStart();
  Q_INVOKABLE void learnStop();
  Q_INVOKABLE void learnCancel();
  // "Learn it": an empty name is "Untitled skill".
  Q_INVOKABLE void learnSave(const QString& name, const QString& purpose);
  Q_INVOKABLE void retire();
  Q_INVOKABLE void close();
  // The view's content asks for this height, in points.
  Q_INVOKABLE void setContentHeight(double height);

  // Reads the piece again (after each of its changes).
  void refresh();
  // From now on changes are read on the next turn of the event loop, and at most every
  // kReadInterval: an agent that streams hundreds of lines a second would otherwise
  // keep the GUI thread and the renderer busy with frames the eye can't tell apart (or,
  // with the bubble closed, with bindings nobody sees), and a key press would wait
  // behind them. A change after a quiet spell (an answer, an approval) is read at once.
  // Without a window (in tests of the adapter alone) every change is read at once.
  void followWindow(QQuickWindow* window);
  static constexpr int kReadInterval = 33;  // milliseconds: 30 reads a second

 Q_SIGNALS:
  void changed();
  void draftChanged();

 private:
  static QString q(const std::string& text) { return QString::fromStdString(text); }

  void stateChanged();

  std::weak_ptr<PieceController> piece_;
  QPointer<QQuickWindow> window_;
  bool dirty_ = false;
  QElapsedTimer sinceRead_;
  std::function<SystemTime()> now_;
  BubbleModel model_;
  MarkdownModel answer_;
  QString targetName_, agentName_, notice_, error_, draft_, answerText_;
  QStringList agentNames_, agentIDs_, attached_, links_, citations_, skillNames_, skillHelps_, suggestions_;
};

}  // namespace zorvane
