// The AT-SPI roles in the "AX…" vocabulary that tool output uses on every platform.
//
// One table maps each AT-SPI role to its AX name. A few roles depend on the element's
// state as well:
//   - entry / text: "AXTextArea" when multi-line, else "AXTextField" (Qt's line edit
//     says neither single- nor multi-line); a search box (Chromium's "text-input-type"
//     attribute is "search", or "xml-roles" holds "searchbox") is "AXSearchField";
//   - toggle button: "AXDisclosureTriangle" when it expands something,
//     "AXMenuButton" when it opens a pop-up, else "AXCheckBox" (it holds an on/off
//     value like a check box);
//   - combo box: "AXComboBox" when text can be typed into it, else "AXPopUpButton".
// A role outside the table reads "AX" and its AT-SPI name in CamelCase ("table column
// header" -> "AXTableColumnHeader").
#pragma once

#include <atspi/atspi.h>

#include <string>
#include <string_view>

namespace zorvane {

struct AtspiRoleHints {
  bool multiLine = false;
  bool expandable = false, hasPopup = false;
  bool editable = false;  // text can be typed (an editable combo box)
  bool searchBox = false;
};

// Which hints the role needs; the others may be left at their defaults.
bool atspiRoleNeedsStates(AtspiRole role);
bool atspiRoleNeedsEditableCheck(AtspiRole role);
bool atspiRoleNeedsAttributes(AtspiRole role);

// `roleName` is AT-SPI's name for the role ("push button"), used for roles outside the
// table.
std::string axRoleName(AtspiRole role, std::string_view roleName, const AtspiRoleHints& hints);

// "table column header" -> "AXTableColumnHeader".
std::string axRoleFromAtspiName(std::string_view roleName);

}  // namespace zorvane
