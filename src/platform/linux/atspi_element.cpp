#include "platform/linux/atspi_element.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <string_view>

#include "platform/linux/atspi_roles.h"
#include "platform/linux/atspi_runtime.h"
#include "platform/linux/file_managers.h"

namespace zorvane {
namespace {

using Clock = std::chrono::steady_clock;

// Times one call to the application and reports it when the call is over.
class CallTimer {
 public:
  explicit CallTimer(AtspiApp& app) : app_(app), started_(Clock::now()) {}
  CallTimer(const CallTimer&) = delete;
  CallTimer& operator=(const CallTimer&) = delete;
  ~CallTimer() { app_.noteCall(started_); }

 private:
  AtspiApp& app_;
  Clock::time_point started_;
};

// Takes a string libatspi returns (transfer full); "" for none.
std::string takeString(char* text) {
  GCharsPtr owned(text);
  return owned ? std::string(owned.get()) : std::string();
}

bool contains(AtspiStateSet* states, AtspiStateType state) {
  return states && atspi_state_set_contains(states, state);
}

// A disabled control: the toolkits (GTK, Qt, Chromium) mark enabled ones with both.
// GTK even reports success for an action on a disabled check box, which does nothing.
bool isDisabled(AtspiStateSet* states) {
  return states && !atspi_state_set_contains(states, ATSPI_STATE_DEFUNCT) &&
         !atspi_state_set_contains(states, ATSPI_STATE_ENABLED) &&
         !atspi_state_set_contains(states, ATSPI_STATE_SENSITIVE);
}

bool isCheckRole(AtspiRole role) {
  return role == ATSPI_ROLE_CHECK_BOX || role == ATSPI_ROLE_RADIO_BUTTON || role == ATSPI_ROLE_TOGGLE_BUTTON ||
         role == ATSPI_ROLE_CHECK_MENU_ITEM || role == ATSPI_ROLE_RADIO_MENU_ITEM;
}

bool isNumberRole(AtspiRole role) {
  return role == ATSPI_ROLE_SLIDER || role == ATSPI_ROLE_SPIN_BUTTON || role == ATSPI_ROLE_SCROLL_BAR ||
         role == ATSPI_ROLE_PROGRESS_BAR || role == ATSPI_ROLE_LEVEL_BAR || role == ATSPI_ROLE_DIAL;
}

// Roles whose text is their value. Other roles may carry a Text interface too (a
// button's label, a paragraph whose pieces are children of their own), but there the
// text repeats what the name or the children say.
bool isTextRole(AtspiRole role) {
  switch (role) {
    case ATSPI_ROLE_ENTRY:
    case ATSPI_ROLE_PASSWORD_TEXT:
    case ATSPI_ROLE_TEXT:
    case ATSPI_ROLE_TERMINAL:
    case ATSPI_ROLE_EDITBAR:
    case ATSPI_ROLE_AUTOCOMPLETE:
    case ATSPI_ROLE_DOCUMENT_TEXT:
      return true;
    default:
      return false;
  }
}

// The shortest text that reads back as the same number: 1 not 1.000000, 0.25, 1e+21.
std::optional<std::string> formatNumber(double number) {
  if (!std::isfinite(number)) return std::nullopt;
  if (number == 0) number = 0;  // no "-0"
  std::array<char, 64> buffer{};
  auto [end, status] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
  if (status != std::errc()) return std::nullopt;
  return std::string(buffer.data(), end);
}

std::optional<double> parseNumber(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  if (text.empty()) return std::nullopt;
  double number = 0;
  auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (status != std::errc() || end != text.data() + text.size() || !std::isfinite(number)) return std::nullopt;
  return number;
}

// Embedded objects (links inside a paragraph, say) stand in a text as U+FFFC; they are
// children of their own, so their placeholders are left out of the value.
std::string withoutObjectReplacements(std::string text) {
  static constexpr std::string_view kReplacement = "\xEF\xBF\xBC";
  std::string::size_type at = 0;
  while ((at = text.find(kReplacement, at)) != std::string::npos) text.erase(at, kReplacement.size());
  return text;
}

// Extents the toolkits report for things that aren't on screen: GTK's closed menus give
// INT_MIN corners, some containers -1 everywhere.
bool isPlausible(const AtspiRect& rect) {
  if (rect.width < 0 || rect.height < 0) return false;
  if (rect.x == INT_MIN || rect.y == INT_MIN) return false;
  return true;
}

}  // namespace

AtspiElement::AtspiElement(GObjectPtr<AtspiAccessible> object, std::shared_ptr<AtspiApp> app, bool topLevel)
    : object_(std::move(object)), app_(std::move(app)), topLevel_(topLevel) {}

AtspiRole AtspiElement::atspiRole() {
  if (role_) return *role_;
  if (!app_->answering()) return ATSPI_ROLE_INVALID;
  GErrorSlot error;
  AtspiRole role;
  {
    CallTimer timer(*app_);
    role = atspi_accessible_get_role(object_.get(), error.out());
  }
  // Not kept: a later read may succeed.
  if (error.failed() || role == ATSPI_ROLE_INVALID) return ATSPI_ROLE_INVALID;
  role_ = role;
  return role;
}

GObjectPtr<AtspiStateSet> AtspiElement::states() {
  if (!app_->answering()) return nullptr;
  AtspiRuntime::shared().pump();
  CallTimer timer(*app_);
  return GObjectPtr<AtspiStateSet>(atspi_accessible_get_state_set(object_.get()));
}

bool AtspiElement::hasEditableChild() {
  auto list = children();
  if (!list) return false;
  for (const auto& child : *list) {
    auto* element = static_cast<AtspiElement*>(child.get());
    AtspiRole role = element->atspiRole();
    if (role == ATSPI_ROLE_ENTRY || role == ATSPI_ROLE_TEXT) return true;
  }
  return false;
}

std::string AtspiElement::role() {
  if (axRole_) return *axRole_;
  if (topLevel_) return *(axRole_ = "AXWindow");
  AtspiRole role = atspiRole();
  if (role == ATSPI_ROLE_INVALID) return "";

  AtspiRoleHints hints;
  if (atspiRoleNeedsStates(role)) {
    auto stateSet = states();
    hints.multiLine = contains(stateSet.get(), ATSPI_STATE_MULTI_LINE);
    hints.expandable = contains(stateSet.get(), ATSPI_STATE_EXPANDABLE);
    hints.hasPopup = contains(stateSet.get(), ATSPI_STATE_HAS_POPUP);
    hints.editable = contains(stateSet.get(), ATSPI_STATE_EDITABLE);
  }
  if (atspiRoleNeedsEditableCheck(role) && !hints.editable) hints.editable = hasEditableChild();
  if (atspiRoleNeedsAttributes(role) && app_->answering()) {
    GErrorSlot error;
    GHashTable* attributes;
    {
      CallTimer timer(*app_);
      attributes = atspi_accessible_get_attributes(object_.get(), error.out());
    }
    if (attributes) {
      // Chromium marks <input type=search> by its input type, role=searchbox by its role.
      auto* inputType = static_cast<const char*>(g_hash_table_lookup(attributes, "text-input-type"));
      auto* xmlRoles = static_cast<const char*>(g_hash_table_lookup(attributes, "xml-roles"));
      hints.searchBox = (inputType && std::strcmp(inputType, "search") == 0) ||
                        (xmlRoles && std::strstr(xmlRoles, "searchbox"));
      g_hash_table_unref(attributes);
    }
  }

  std::string roleName;
  if (role == ATSPI_ROLE_EXTENDED) {
    GErrorSlot error;
    CallTimer timer(*app_);
    roleName = takeString(atspi_accessible_get_role_name(object_.get(), error.out()));
  } else {
    roleName = takeString(atspi_role_get_name(role));
  }
  axRole_ = axRoleName(role, roleName, hints);
  return *axRole_;
}

std::string AtspiElement::title() {
  if (!app_->answering()) return "";
  AtspiRuntime::shared().pump();
  GErrorSlot error;
  CallTimer timer(*app_);
  return takeString(atspi_accessible_get_name(object_.get(), error.out()));
}

std::string AtspiElement::description() {
  if (!app_->answering()) return "";
  AtspiRuntime::shared().pump();
  GErrorSlot error;
  CallTimer timer(*app_);
  return takeString(atspi_accessible_get_description(object_.get(), error.out()));
}

// AT-SPI 2.46 has no help text of its own; the toolkits put tooltips into the
// description, which callers read already.
std::string AtspiElement::help() { return ""; }

std::optional<std::string> AtspiElement::value() {
  AtspiRole role = atspiRole();
  if (role == ATSPI_ROLE_INVALID) return std::nullopt;
  if (isCheckRole(role)) {
    std::string axRole = this->role();
    if (axRole == "AXMenuButton") return std::nullopt;
    auto stateSet = states();
    if (!stateSet) return std::nullopt;
    if (axRole == "AXDisclosureTriangle") return contains(stateSet.get(), ATSPI_STATE_EXPANDED) ? "1" : "0";
    if (contains(stateSet.get(), ATSPI_STATE_INDETERMINATE)) return "2";
    bool on = contains(stateSet.get(), ATSPI_STATE_CHECKED) || contains(stateSet.get(), ATSPI_STATE_PRESSED);
    return on ? "1" : "0";
  }
  if (isNumberRole(role)) {
    if (auto number = numberValue()) return number;
  }
  if (isTextRole(role)) return textValue();
  // Static text is named by its text where the toolkit names it (Chromium does).
  if (role == ATSPI_ROLE_STATIC && title().empty()) return textValue();
  return std::nullopt;
}

std::optional<std::string> AtspiElement::numberValue() {
  if (!app_->answering()) return std::nullopt;
  GObjectPtr<AtspiValue> valueInterface(atspi_accessible_get_value_iface(object_.get()));
  if (!valueInterface) return std::nullopt;
  GErrorSlot error;
  double number;
  {
    CallTimer timer(*app_);
    number = atspi_value_get_current_value(valueInterface.get(), error.out());
  }
  if (error.failed()) return std::nullopt;
  return formatNumber(number);
}

std::optional<std::string> AtspiElement::textValue() {
  if (!app_->answering()) return std::nullopt;
  GObjectPtr<AtspiText> text(atspi_accessible_get_text_iface(object_.get()));
  if (!text) return std::nullopt;
  GErrorSlot error;
  int count;
  {
    CallTimer timer(*app_);
    count = atspi_text_get_character_count(text.get(), error.out());
  }
  if (error.failed() || count < 0) return std::nullopt;
  if (count == 0) return std::string();
  if (!app_->answering()) return std::nullopt;
  CallTimer timer(*app_);
  GCharsPtr contents(atspi_text_get_text(text.get(), 0, std::min(count, kMaxValueCharacters), error.out()));
  if (error.failed() || !contents) return std::nullopt;
  return withoutObjectReplacements(contents.get());
}

std::optional<Rect> AtspiElement::frame() {
  if (!app_->answering()) return std::nullopt;
  GObjectPtr<AtspiComponent> component(interfaceOf(atspi_accessible_get_component_iface));
  if (!component || !app_->answering()) return std::nullopt;
  GErrorSlot error;
  CallTimer timer(*app_);
  std::unique_ptr<AtspiRect, GFree> extents(
      atspi_component_get_extents(component.get(), ATSPI_COORD_TYPE_SCREEN, error.out()));
  if (error.failed() || !extents || !isPlausible(*extents)) return std::nullopt;
  return Rect{double(extents->x), double(extents->y), double(extents->width), double(extents->height)};
}

std::optional<std::vector<std::shared_ptr<AccessibleElement>>> AtspiElement::children() {
  if (!app_->answering()) return std::nullopt;
  if (auto listed = childrenByCollection()) return listed;
  if (!app_->answering()) return std::nullopt;

  GErrorSlot error;
  int count;
  {
    CallTimer timer(*app_);
    count = atspi_accessible_get_child_count(object_.get(), error.out());
  }
  if (error.failed() || count < 0) return std::nullopt;
  std::vector<std::shared_ptr<AccessibleElement>> list;
  count = std::min(count, kMaxChildren);
  list.reserve(count);
  for (int index = 0; index < count; ++index) {
    if (!app_->answering()) return std::nullopt;
    GObjectPtr<AtspiAccessible> child;
    {
      CallTimer timer(*app_);
      child.reset(atspi_accessible_get_child_at_index(object_.get(), index, error.out()));
    }
    if (error.failed()) return std::nullopt;
    // A child that vanished between the count and now: leave it out, as every later
    // listing will.
    if (!child) continue;
    list.push_back(std::make_shared<AtspiElement>(std::move(child), app_, false));
  }
  return list;
}

// One round trip for all children where the toolkit offers the Collection interface
// (ATK-based ones do; Qt doesn't): its matches for a rule that matches everything, not
// descending, come in child order. Nothing when the interface is missing or fails.
std::optional<std::vector<std::shared_ptr<AccessibleElement>>> AtspiElement::childrenByCollection() {
  GObjectPtr<AtspiCollection> collection(interfaceOf(atspi_accessible_get_collection_iface));
  if (!collection || !app_->answering()) return std::nullopt;
  static AtspiMatchRule* const kEverything =
      atspi_match_rule_new(nullptr, ATSPI_Collection_MATCH_ALL, nullptr, ATSPI_Collection_MATCH_ALL, nullptr,
                           ATSPI_Collection_MATCH_ALL, nullptr, ATSPI_Collection_MATCH_ALL, FALSE);
  GErrorSlot error;
  GArray* found;
  {
    CallTimer timer(*app_);
    found = atspi_collection_get_matches(collection.get(), kEverything, ATSPI_Collection_SORT_ORDER_CANONICAL,
                                         kMaxChildren, FALSE, error.out());
  }
  if (error.failed() || !found) {
    if (found) g_array_free(found, TRUE);
    return std::nullopt;
  }
  std::vector<std::shared_ptr<AccessibleElement>> list;
  list.reserve(found->len);
  for (guint index = 0; index < found->len; ++index) {
    GObjectPtr<AtspiAccessible> child(g_array_index(found, AtspiAccessible*, index));
    if (child) list.push_back(std::make_shared<AtspiElement>(std::move(child), app_, false));
  }
  g_array_free(found, TRUE);
  return list;
}

int AtspiElement::press() {
  if (!app_->answering()) return kAtspiCannotComplete;
  auto stateSet = states();
  if (contains(stateSet.get(), ATSPI_STATE_DEFUNCT)) return kAtspiInvalidElement;
  if (isDisabled(stateSet.get())) return kAtspiFailure;
  GObjectPtr<AtspiAction> action(atspi_accessible_get_action_iface(object_.get()));
  if (!action) return kAtspiNoAction;
  GErrorSlot error;
  int count;
  {
    CallTimer timer(*app_);
    count = atspi_action_get_n_actions(action.get(), error.out());
  }
  // A call that timed out sets no error; the application is then taken as not answering.
  if (error.failed() || !app_->answering()) return kAtspiCannotComplete;
  if (count <= 0) return kAtspiNoAction;

  // Toolkits name the primary action differently (GTK "click", Qt "Press", Chromium
  // "press" or "jump" for links); the first action is the fallback.
  static constexpr std::array<std::string_view, 6> kPreferred = {"click", "press", "activate",
                                                                 "toggle", "jump", "open"};
  std::vector<std::string> names;
  for (int index = 0; index < std::min(count, 16); ++index) {
    if (!app_->answering()) return kAtspiCannotComplete;
    CallTimer timer(*app_);
    std::string name = takeString(atspi_action_get_action_name(action.get(), index, error.out()));
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    names.push_back(std::move(name));
  }
  int chosen = 0;
  for (std::string_view wanted : kPreferred) {
    auto found = std::find(names.begin(), names.end(), wanted);
    if (found == names.end()) continue;
    chosen = int(found - names.begin());
    break;
  }

  if (!app_->answering()) return kAtspiCannotComplete;
  gboolean done;
  {
    CallTimer timer(*app_);
    done = atspi_action_do_action(action.get(), chosen, error.out());
  }
  if (error.failed() || !app_->answering()) return kAtspiCannotComplete;
  return done ? 0 : kAtspiFailure;
}

int AtspiElement::setFocused(bool focused) {
  // AT-SPI can give focus but not take it away.
  if (!focused) return kAtspiNotSettable;
  if (!app_->answering()) return kAtspiCannotComplete;
  GObjectPtr<AtspiComponent> component(atspi_accessible_get_component_iface(object_.get()));
  if (!component) return kAtspiNotSettable;
  GErrorSlot error;
  gboolean done;
  {
    CallTimer timer(*app_);
    done = atspi_component_grab_focus(component.get(), error.out());
  }
  if (error.failed() || !app_->answering()) return kAtspiCannotComplete;
  return done ? 0 : kAtspiFailure;
}

int AtspiElement::setValue(const std::string& value) {
  if (!app_->answering()) return kAtspiCannotComplete;
  if (auto stateSet = states(); isDisabled(stateSet.get())) return kAtspiFailure;
  GObjectPtr<AtspiValue> valueInterface(atspi_accessible_get_value_iface(object_.get()));
  GObjectPtr<AtspiEditableText> editable(atspi_accessible_get_editable_text_iface(object_.get()));
  GErrorSlot error;
  gboolean done;

  // A spin button offers both; a number goes in as a number, so that the control
  // takes it at once rather than when its text is committed.
  std::optional<double> number = parseNumber(value);
  if (valueInterface && (number || !editable)) {
    if (!number) return kAtspiIllegalArgument;
    {
      CallTimer timer(*app_);
      done = atspi_value_set_current_value(valueInterface.get(), *number, error.out());
    }
    if (error.failed() || !app_->answering()) return kAtspiCannotComplete;
    return done ? 0 : kAtspiFailure;
  }
  if (!editable) return kAtspiNotSettable;
  {
    CallTimer timer(*app_);
    done = atspi_editable_text_set_text_contents(editable.get(), value.c_str(), error.out());
  }
  if (error.failed() || !app_->answering()) return kAtspiCannotComplete;
  return done ? 0 : kAtspiFailure;
}

// AT-SPI has no way to bring a window forward.
int AtspiElement::raise() { return kAtspiNoAction; }

std::shared_ptr<AtspiElement> AtspiElement::parentElement() {
  if (topLevel_ || !app_->answering()) return nullptr;
  GErrorSlot error;
  GObjectPtr<AtspiAccessible> up;
  {
    CallTimer timer(*app_);
    up.reset(atspi_accessible_get_parent(object_.get(), error.out()));
  }
  if (error.failed() || !up) return nullptr;
  auto element = std::make_shared<AtspiElement>(std::move(up), app_, false);
  AtspiRole role = element->atspiRole();
  // This element was one of the application's windows.
  if (role == ATSPI_ROLE_APPLICATION || role == ATSPI_ROLE_DESKTOP_FRAME || role == ATSPI_ROLE_INVALID) return nullptr;
  // The parent is a window when its own parent is the application.
  GObjectPtr<AtspiAccessible> grand;
  {
    CallTimer timer(*app_);
    grand.reset(atspi_accessible_get_parent(element->object(), error.out()));
  }
  if (grand && atspi_accessible_get_role(grand.get(), nullptr) == ATSPI_ROLE_APPLICATION) element->topLevel_ = true;
  return element;
}

std::shared_ptr<AccessibleElement> AtspiElement::parent() { return parentElement(); }

std::optional<std::vector<std::shared_ptr<AtspiElement>>> AtspiElement::descendantsWithRoles(
    std::initializer_list<AtspiRole> roles, int limit) {
  if (!app_->answering()) return std::nullopt;
  GObjectPtr<AtspiCollection> collection(interfaceOf(atspi_accessible_get_collection_iface));
  if (!collection || !app_->answering()) return std::nullopt;
  GArray* wanted = g_array_new(FALSE, FALSE, sizeof(AtspiRole));
  g_array_append_vals(wanted, roles.begin(), guint(roles.size()));
  GObjectPtr<AtspiMatchRule> rule(atspi_match_rule_new(nullptr, ATSPI_Collection_MATCH_ALL, nullptr,
                                                       ATSPI_Collection_MATCH_ALL, wanted, ATSPI_Collection_MATCH_ANY,
                                                       nullptr, ATSPI_Collection_MATCH_ALL, FALSE));
  g_array_free(wanted, TRUE);
  GErrorSlot error;
  GArray* found;
  {
    CallTimer timer(*app_);
    found = atspi_collection_get_matches(collection.get(), rule.get(), ATSPI_Collection_SORT_ORDER_CANONICAL, limit,
                                         TRUE, error.out());
  }
  if (error.failed() || !found) {
    if (found) g_array_free(found, TRUE);
    return std::nullopt;
  }
  std::vector<std::shared_ptr<AtspiElement>> list;
  list.reserve(found->len);
  for (guint index = 0; index < found->len; ++index) {
    GObjectPtr<AtspiAccessible> object(g_array_index(found, AtspiAccessible*, index));
    if (object) list.push_back(std::make_shared<AtspiElement>(std::move(object), app_, false));
  }
  g_array_free(found, TRUE);
  return list;
}

std::optional<std::string> AtspiElement::folder() {
  if (!app_->fileManager()) return std::nullopt;
  return FileManagers::folderShown(*this);
}

std::optional<std::string> AtspiElement::linkOrDocumentURL() {
  if (!app_->answering()) return std::nullopt;
  AtspiRole role = atspiRole();
  GErrorSlot error;
  if (role == ATSPI_ROLE_LINK) {
    GObjectPtr<AtspiHyperlink> link(atspi_accessible_get_hyperlink(object_.get()));
    if (!link) return std::nullopt;
    CallTimer timer(*app_);
    std::string uri = takeString(atspi_hyperlink_get_uri(link.get(), 0, error.out()));
    if (error.failed() || uri.empty()) return std::nullopt;
    return uri;
  }
  if (role == ATSPI_ROLE_DOCUMENT_WEB || role == ATSPI_ROLE_DOCUMENT_FRAME) {
    GObjectPtr<AtspiDocument> document(atspi_accessible_get_document_iface(object_.get()));
    if (!document) return std::nullopt;
    CallTimer timer(*app_);
    std::string uri = takeString(atspi_document_get_document_attribute_value(document.get(), const_cast<gchar*>("DocURL"), error.out()));
    if (error.failed() || uri.empty()) return std::nullopt;
    return uri;
  }
  return std::nullopt;
}

std::optional<std::string> AtspiElement::url() {
  if (!app_->fileManager()) return linkOrDocumentURL();
  return FileManagers::itemURL(*this);
}

}  // namespace zorvane
