// AtspiElement: one object of another application's accessibility tree, read and driven
// over AT-SPI, shown to callers in the "AX…" vocabulary (see atspi_roles.h).
//
// An element holds a reference to its libatspi object and to the AtspiApp it belongs to.
// Every read asks the application (or libatspi's cache, brought up to date first, see
// AtspiRuntime) afresh, except the role, which is read once per element. Reads that fail
// give the empty answer the interface documents ("" / nothing); press, setFocused,
// setValue and raise give the codes listed in atspi_accessibility.h.
//
// In a file manager (see FileManagerApp, known by the process's executable) an item of
// the folder view answers `url()` with the file it shows and every element `folder()`
// with the folder its window shows, as FileManagers (file_managers.h) reads them.
// Elsewhere `url()` is a link's target or a document's address.
//
// Not thread-safe: use elements on the thread that runs the AtspiRuntime.
#pragma once

#include <atspi/atspi.h>

#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/accessibility.h"
#include "platform/linux/atspi_accessibility.h"
#include "platform/linux/atspi_app.h"

namespace zorvane {

class AtspiElement final : public AccessibleElement {
 public:
  // `topLevel`: a window of the application (a direct child of its root). Such an
  // element is an "AXWindow" whatever the toolkit calls it (Qt reports a plain widget).
  AtspiElement(GObjectPtr<AtspiAccessible> object, std::shared_ptr<AtspiApp> app, bool topLevel);

  std::string role() override;
  std::string title() override;
  std::string description() override;
  std::string help() override;
  std::optional<std::string> value() override;
  std::optional<Rect> frame() override;
  std::optional<std::vector<std::shared_ptr<AccessibleElement>>> children() override;
  std::shared_ptr<AccessibleElement> parent() override;
  std::optional<std::string> url() override;
  std::optional<std::string> folder() override;
  int press() override;
  int setFocused(bool focused) override;
  int setValue(const std::string& value) override;
  int raise() override;

  AtspiAccessible* object() const { return object_.get(); }
  const std::shared_ptr<AtspiApp>& app() const { return app_; }
  bool isTopLevel() const { return topLevel_; }

  // The libatspi role, read once; ATSPI_ROLE_INVALID when unreadable.
  AtspiRole atspiRole();
  // The element's text (a Text interface's contents, at most kMaxValueCharacters);
  // nothing when it has none.
  std::optional<std::string> textValue();
  // The parent as an element, marked top-level when it is one of the application's
  // windows; null for a window itself or when it can't be read.
  std::shared_ptr<AtspiElement> parentElement();
  // The elements below this one with one of `roles`, in tree order, at most `limit`,
  // found with one Collection query; nothing when the element offers no Collection
  // interface or the query fails.
  std::optional<std::vector<std::shared_ptr<AtspiElement>>> descendantsWithRoles(std::initializer_list<AtspiRole> roles,
                                                                                 int limit);

  // At most this many children are listed; tables can expose hundreds of thousands of
  // cells, each a round trip, and no reader looks that far.
  static constexpr int kMaxChildren = 2000;
  // At most this many characters of text are read as a value.
  static constexpr int kMaxValueCharacters = 65536;

 private:
  GObjectPtr<AtspiStateSet> states();
  // One of the element's interfaces (`get` is an atspi_accessible_get_*_iface). Where
  // libatspi hasn't cached the element's interface list it asks the application, so the
  // lookup is timed like any other call: a stopped application costs one time-out here,
  // not one for the lookup and another for the call that follows.
  template <typename Interface>
  GObjectPtr<Interface> interfaceOf(Interface* (*get)(AtspiAccessible*)) {
    if (!app_->answering()) return nullptr;
    auto started = std::chrono::steady_clock::now();
    GObjectPtr<Interface> found(get(object_.get()));
    app_->noteCall(started);
    return found;
  }
  std::optional<std::string> numberValue();
  bool hasEditableChild();
  std::optional<std::vector<std::shared_ptr<AccessibleElement>>> childrenByCollection();
  std::optional<std::string> linkOrDocumentURL();

  GObjectPtr<AtspiAccessible> object_;
  std::shared_ptr<AtspiApp> app_;
  bool topLevel_;
  std::optional<AtspiRole> role_;
  std::optional<std::string> axRole_;
};

}  // namespace zorvane
