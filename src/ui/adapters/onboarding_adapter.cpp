#include "ui/adapters/onboarding_adapter.h"

#include <QPointer>

namespace zorvane {

namespace {

QString text(const std::string& value) { return QString::fromStdString(value); }
QString text(const std::optional<std::string>& value) { return QString::fromStdString(value.value_or("")); }

QString agentStateName(OnboardingAgentRow::Kind kind) {
  switch (kind) {
    case OnboardingAgentRow::Kind::notFound:
      return "notFound";
    case OnboardingAgentRow::Kind::tooOld:
      return "tooOld";
    case OnboardingAgentRow::Kind::ready:
      return "ready";
    case OnboardingAgentRow::Kind::looking:
      break;
  }
  return "looking";
}

bool sameRow(const OnboardingPermissionRow& a, const OnboardingPermissionRow& b) {
  return a.title == b.title && a.text == b.text && a.granted == b.granted && a.image == b.image &&
         a.button == b.button && a.action == b.action && a.help == b.help;
}

}  // namespace

// --- The permission rows ---

int OnboardingPermissionRows::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : int(rows_.size());
}

QVariant OnboardingPermissionRows::data(const QModelIndex& index, int role) const {
  const OnboardingPermissionRow* row = at(index.isValid() ? index.row() : -1);
  if (!row) return {};
  switch (role) {
    case TitleRole:
      return text(row->title);
    case TextRole:
      return text(row->text);
    case GrantedRole:
      return row->granted;
    case ImageRole:
      return text(row->image);
    case ButtonRole:
      return text(row->button);
    case HelpRole:
      return text(row->help);
    default:
      return {};
  }
}

QHash<int, QByteArray> OnboardingPermissionRows::roleNames() const {
  return {{TitleRole, "title"},   {TextRole, "text"},     {GrantedRole, "granted"},
          {ImageRole, "image"},   {ButtonRole, "button"}, {HelpRole, "help"}};
}

void OnboardingPermissionRows::update(std::vector<OnboardingPermissionRow> rows) {
  if (rows.size() != rows_.size()) {
    beginResetModel();
    rows_ = std::move(rows);
    endResetModel();
    return;
  }
  for (size_t i = 0; i < rows.size(); ++i) {
    if (sameRow(rows_[i], rows[i])) continue;
    rows_[i] = std::move(rows[i]);
    QModelIndex changed = index(int(i));
    Q_EMIT dataChanged(changed, changed);
  }
}

const OnboardingPermissionRow* OnboardingPermissionRows::at(int row) const {
  if (row < 0 || size_t(row) >= rows_.size()) return nullptr;
  return &rows_[size_t(row)];
}

// --- The adapter ---

OnboardingAdapter::OnboardingAdapter(std::weak_ptr<OnboardingController> guide, QObject* parent)
    : QObject(parent), guide_(std::move(guide)), permissions_(this) {
  for (const OnboardingTip& tip : OnboardingModel::tips()) {
    tipTitles_ << text(tip.title);
    tipTexts_ << text(tip.text);
  }
  if (auto g = guide_.lock()) {
    QPointer<OnboardingAdapter> self(this);
    g->model().onChange = [self] {
      if (self) self->refresh();
    };
  }
  refresh();
}

void OnboardingAdapter::refresh() {
  auto guide = guide_.lock();
  if (!guide) return;
  const OnboardingModel& model = guide->model();
  const OnboardingPage& page = model.page();
  step_ = model.step;
  page_ = page.step;
  title_ = text(page.title);
  paragraphs_.clear();
  for (const std::string& paragraph : page.paragraphs) paragraphs_ << text(paragraph);

  OnboardingAgentRow agent = model.agentRow();
  agentState_ = agentStateName(agent.kind);
  agentTitle_ = text(agent.title);
  agentText_ = text(agent.text);
  copyText_ = text(agent.copyText);
  checkAgain_ = agent.checkAgain;
  alsoFound_ = text(agent.alsoFound);

  permissions_.update(model.permissionRows());
  relaunchNote_ = text(model.relaunchNote());
  showsBack_ = model.showsBack();
  forwardTitle_ = text(model.forwardTitle());
  Q_EMIT changed();
}

void OnboardingAdapter::forward() {
  auto guide = guide_.lock();
  if (!guide) return;
  if (guide->model().forwardFinishes()) {
    guide->finish();
  } else {
    guide->next();
  }
}

void OnboardingAdapter::back() {
  if (auto guide = guide_.lock()) guide->back();
}

void OnboardingAdapter::recheck() {
  if (auto guide = guide_.lock()) guide->recheck();
}

void OnboardingAdapter::copyInstall() {
  if (auto guide = guide_.lock()) guide->copyInstall();
}

void OnboardingAdapter::grant(int row) {
  auto guide = guide_.lock();
  const OnboardingPermissionRow* permission = permissions_.at(row);
  if (!guide || !permission) return;
  switch (permission->action) {
    case OnboardingAction::grantAX:
      guide->grantAX();
      break;
    case OnboardingAction::grantScreen:
      guide->grantScreen();
      break;
    case OnboardingAction::grantAutomation:
      guide->grantAutomation();
      break;
  }
}

void OnboardingAdapter::relaunch() {
  if (auto guide = guide_.lock()) guide->relaunch();
}

}  // namespace zorvane
