#include "ui/adapters/bubble_adapter.h"

#include <QFileDialog>
#include <QTimer>

#include <algorithm>
#include <cmath>

#include "app/pieces/piece_controller.h"
#include "core/agent/suggestions.h"

namespace zorvane {

namespace {

QStringList listOf(const std::vector<std::string>& texts) {
  QStringList out;
  for (const std::string& text : texts) out << QString::fromStdString(text);
  return out;
}

}  // namespace

BubbleAdapter::BubbleAdapter(std::weak_ptr<PieceController> piece, std::function<SystemTime()> now, QObject* parent)
    : QObject(parent), piece_(std::move(piece)), now_(std::move(now)), answer_(this) {
  if (auto p = piece_.lock()) {
    QPointer<BubbleAdapter> self(this);
    p->mutableState().onChange = [self] {
      if (self) self->stateChanged();
    };
  }
  refresh();
}

void BubbleAdapter::followWindow(QQuickWindow* window) { window_ = window; }

void BubbleAdapter::stateChanged() {
  if (!window_) {
    refresh();
    return;
  }
  if (dirty_) return;  // a read is on its way
  dirty_ = true;
  qint64 wait = sinceRead_.isValid() ? std::max<qint64>(0, kReadInterval - sinceRead_.elapsed()) : 0;
  QTimer::singleShot(int(wait), this, [this] {
    if (dirty_) refresh();
  });
}

void BubbleAdapter::refresh() {
  dirty_ = false;
  sinceRead_.start();
  auto piece = piece_.lock();
  if (!piece) return;
  const PieceState& state = piece->state();
  model_ = BubbleModel::of(state, now_());
  targetName_ = q(state.targetName);
  agentName_ = q(state.agentName);
  attached_ = listOf(state.attached);
  links_ = listOf(state.links);
  notice_ = q(state.notice.value_or(""));
  error_ = q(state.error.value_or(""));
  if (QString draft = q(state.draft); draft != draft_) {
    draft_ = draft;
    Q_EMIT draftChanged();
  }
  citations_ = listOf(model_.citationLabels);
  // A keystroke in the field refreshes too: the answer is read again only when it changed.
  if (answer_.setMarkdown(model_.answerMarkdown, 13)) {
    answerText_.clear();
    for (int i = 0; i < answer_.rowCount(); ++i)
      answerText_ += (i == 0 ? "" : "\n") + answer_.data(answer_.index(i), MarkdownModel::PlainRole).toString();
  }
  skillNames_.clear();
  skillHelps_.clear();
  for (const LearnedSkill& skill : state.skills) {
    skillNames_ << q(skill.name);
    skillHelps_ << q(skill.purpose.empty() ? "Learned skill" : skill.purpose);
  }
  suggestions_.clear();
  for (std::string_view text : zorvane::suggestions(piece->target())) suggestions_ << QString::fromUtf8(text.data(), qsizetype(text.size()));
  agentNames_.clear();
  agentIDs_.clear();
  if (piece->availableAgents) {
    for (const InstalledAgent& agent : piece->availableAgents()) {
      agentNames_ << q(agent.kind.displayName);
      agentIDs_ << q(agent.kind.id);
    }
  }
  Q_EMIT changed();
}

void BubbleAdapter::setDraft(const QString& text) {
  auto piece = piece_.lock();
  if (!piece || draft_ == text) return;
  draft_ = text;
  piece->mutableState().draft = text.toStdString();
  Q_EMIT draftChanged();
}

void BubbleAdapter::submit() {
  auto piece = piece_.lock();
  if (!piece) return;
  QString text = draft_.trimmed();
  if (text.isEmpty()) return;
  piece->mutableState().draft.clear();
  draft_.clear();
  Q_EMIT draftChanged();
  piece->ask(text.toStdString());
  refresh();
}

void BubbleAdapter::ask(const QString& text) {
  if (auto piece = piece_.lock(); piece && !text.trimmed().isEmpty()) piece->ask(text.toStdString());
}

void BubbleAdapter::decide(bool allow) {
  if (auto piece = piece_.lock()) piece->decide(allow);
}

void BubbleAdapter::trust() {
  if (auto piece = piece_.lock()) piece->trustAndAllow();
}

void BubbleAdapter::resume(bool yes) {
  if (auto piece = piece_.lock()) piece->chooseResume(yes);
}

void BubbleAdapter::cite(int index) {
  auto piece = piece_.lock();
  if (!piece || !piece->state().answer) return;
  const auto& citations = piece->state().answer->citations;
  if (index >= 0 && size_t(index) < citations.size()) piece->flare(citations[size_t(index)]);
}

void BubbleAdapter::switchAgent(int index) {
  auto piece = piece_.lock();
  if (piece && index >= 0 && index < agentIDs_.size()) piece->switchAgent(agentIDs_[index].toStdString());
}

void BubbleAdapter::armSkill(int index) {
  auto piece = piece_.lock();
  if (!piece || index < 0 || size_t(index) >= piece->state().skills.size()) return;
  PieceState& state = piece->mutableState();
  state.armedSkill = state.skills[size_t(index)];
  state.draft = state.armedSkill->name + ": ";
  refresh();
}

void BubbleAdapter::attachFiles() {
  auto piece = piece_.lock();
  if (!piece) return;
  QStringList picked = QFileDialog::getOpenFileNames(nullptr, "Attach files");
  std::vector<std::string> paths;
  for (const QString& path : picked) paths.push_back(path.toStdString());
  if (auto still = piece_.lock(); still && !paths.empty()) still->attachFiles(paths);
}

void BubbleAdapter::pickWindow() {
  if (auto piece = piece_.lock()) piece->pickWindow();
}

void BubbleAdapter::learnStart() {
  if (auto piece = piece_.lock()) piece->startLearning();
}

void BubbleAdapter::learnStop() {
  if (auto piece = piece_.lock()) piece->stopLearning();
}

void BubbleAdapter::learnCancel() {
  if (auto piece = piece_.lock()) piece->cancelLearning();
}

void BubbleAdapter::learnSave(const QString& name, const QString& purpose) {
  auto piece = piece_.lock();
  if (!piece) return;
  QString trimmed = name.trimmed();
  piece->saveSkill(trimmed.isEmpty() ? "Untitled skill" : trimmed.toStdString(), purpose.trimmed().toStdString());
}

void BubbleAdapter::retire() {
  if (auto piece = piece_.lock()) piece->retire(true);
}

void BubbleAdapter::close() {
  if (auto piece = piece_.lock()) piece->closeBubble();
}

void BubbleAdapter::setContentHeight(double height) {
  if (auto piece = piece_.lock()) piece->setBubbleHeight(std::ceil(height));
}

}  // namespace zorvane
