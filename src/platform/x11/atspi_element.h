// AtspiElement: one object of another application's accessibility tree, read and driven
// over AT-SPI, shown to callers in the "AX…" vocabulary (see atspi_roles.h).
//
// An element holds a reference to its libatspi object and to the AtspiApp it belongs to.
// Every read asks the application (or libatspi's cache, brought up to date first, see
// AtspiRuntime) afresh, except the role, which is read once per element. Reads that fail
// give the empty answer the interface documents ("" / nothing); press, setFocused,
// setValue and raise give the codes listed in atspi_accessibility.h.
//
// Not thread-safe: use elements on the thread that runs the AtspiRuntime.
#pragma once

#include <atspi/atspi.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/accessibility.h"
#include "platform/x11/atspi_accessibility.h"
#include "platform/x11/atspi_app.h"

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
  int press() override;
  int setFocused(bool focused) override;
  int setValue(const std::string& value) override;
  int raise() override;

  AtspiAccessible* object() const { return object_.get(); }
  const std::shared_ptr<AtspiApp>& app() const { return app_; }
  bool isTopLevel() const { return topLevel_; }

  // At most this many children are listed; tables can expose hundreds of thousands of
  // cells, each a round trip, and no reader looks that far.
  static constexpr int kMaxChildren = 2000;
  // At most this many characters of text are read as a value.
  static constexpr int kMaxValueCharacters = 65536;

 private:
  // The libatspi role, read once; ATSPI_ROLE_INVALID when unreadable.
  AtspiRole atspiRole();
  GObjectPtr<AtspiStateSet> states();
  std::optional<std::string> textValue();
  std::optional<std::string> numberValue();
  bool hasEditableChild();
  std::optional<std::vector<std::shared_ptr<AccessibleElement>>> childrenByCollection();

  GObjectPtr<AtspiAccessible> object_;
  std::shared_ptr<AtspiApp> app_;
  bool topLevel_;
  std::optional<AtspiRole> role_;
  std::optional<std::string> axRole_;
};

}  // namespace zorvane
