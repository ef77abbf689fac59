#include "platform/linux/atspi_roles.h"

#include <array>
#include <cctype>
#include <utility>

namespace zorvane {
namespace {

struct RoleEntry {
  AtspiRole role;
  const char* axRole;
};

// Roles not listed fall back to their CamelCase AT-SPI name.
constexpr std::array kRoleTable = {
    RoleEntry{ATSPI_ROLE_APPLICATION, "AXApplication"},
    RoleEntry{ATSPI_ROLE_FRAME, "AXWindow"},
    RoleEntry{ATSPI_ROLE_WINDOW, "AXWindow"},
    RoleEntry{ATSPI_ROLE_DIALOG, "AXWindow"},
    RoleEntry{ATSPI_ROLE_PUSH_BUTTON, "AXButton"},
    RoleEntry{ATSPI_ROLE_PUSH_BUTTON_MENU, "AXMenuButton"},
    RoleEntry{ATSPI_ROLE_TOGGLE_BUTTON, "AXCheckBox"},
    RoleEntry{ATSPI_ROLE_CHECK_BOX, "AXCheckBox"},
    RoleEntry{ATSPI_ROLE_RADIO_BUTTON, "AXRadioButton"},
    RoleEntry{ATSPI_ROLE_ENTRY, "AXTextField"},
    RoleEntry{ATSPI_ROLE_PASSWORD_TEXT, "AXTextField"},
    RoleEntry{ATSPI_ROLE_EDITBAR, "AXTextField"},
    RoleEntry{ATSPI_ROLE_AUTOCOMPLETE, "AXTextField"},
    RoleEntry{ATSPI_ROLE_TEXT, "AXTextField"},
    RoleEntry{ATSPI_ROLE_TERMINAL, "AXTextArea"},
    RoleEntry{ATSPI_ROLE_DOCUMENT_TEXT, "AXTextArea"},
    RoleEntry{ATSPI_ROLE_LINK, "AXLink"},
    RoleEntry{ATSPI_ROLE_COMBO_BOX, "AXPopUpButton"},
    RoleEntry{ATSPI_ROLE_MENU_ITEM, "AXMenuItem"},
    RoleEntry{ATSPI_ROLE_CHECK_MENU_ITEM, "AXMenuItem"},
    RoleEntry{ATSPI_ROLE_RADIO_MENU_ITEM, "AXMenuItem"},
    RoleEntry{ATSPI_ROLE_TEAROFF_MENU_ITEM, "AXMenuItem"},
    RoleEntry{ATSPI_ROLE_MENU, "AXMenu"},
    RoleEntry{ATSPI_ROLE_POPUP_MENU, "AXMenu"},
    RoleEntry{ATSPI_ROLE_MENU_BAR, "AXMenuBar"},
    RoleEntry{ATSPI_ROLE_PAGE_TAB, "AXTab"},
    RoleEntry{ATSPI_ROLE_PAGE_TAB_LIST, "AXTabGroup"},
    RoleEntry{ATSPI_ROLE_SLIDER, "AXSlider"},
    RoleEntry{ATSPI_ROLE_SPIN_BUTTON, "AXIncrementor"},
    RoleEntry{ATSPI_ROLE_TABLE_CELL, "AXCell"},
    RoleEntry{ATSPI_ROLE_TABLE_ROW, "AXRow"},
    RoleEntry{ATSPI_ROLE_LIST_ITEM, "AXRow"},
    RoleEntry{ATSPI_ROLE_TREE_ITEM, "AXRow"},
    RoleEntry{ATSPI_ROLE_TABLE, "AXTable"},
    RoleEntry{ATSPI_ROLE_TREE_TABLE, "AXOutline"},
    RoleEntry{ATSPI_ROLE_TREE, "AXOutline"},
    RoleEntry{ATSPI_ROLE_LIST, "AXList"},
    RoleEntry{ATSPI_ROLE_LIST_BOX, "AXList"},
    RoleEntry{ATSPI_ROLE_LABEL, "AXStaticText"},
    RoleEntry{ATSPI_ROLE_STATIC, "AXStaticText"},
    RoleEntry{ATSPI_ROLE_CAPTION, "AXStaticText"},
    RoleEntry{ATSPI_ROLE_ACCELERATOR_LABEL, "AXStaticText"},
    RoleEntry{ATSPI_ROLE_IMAGE, "AXImage"},
    RoleEntry{ATSPI_ROLE_ICON, "AXImage"},
    RoleEntry{ATSPI_ROLE_ANIMATION, "AXImage"},
    RoleEntry{ATSPI_ROLE_SCROLL_BAR, "AXScrollBar"},
    RoleEntry{ATSPI_ROLE_SCROLL_PANE, "AXScrollArea"},
    RoleEntry{ATSPI_ROLE_PANEL, "AXGroup"},
    RoleEntry{ATSPI_ROLE_FILLER, "AXGroup"},
    RoleEntry{ATSPI_ROLE_SECTION, "AXGroup"},
    RoleEntry{ATSPI_ROLE_GROUPING, "AXGroup"},
    RoleEntry{ATSPI_ROLE_PARAGRAPH, "AXGroup"},
    RoleEntry{ATSPI_ROLE_FORM, "AXGroup"},
    RoleEntry{ATSPI_ROLE_BLOCK_QUOTE, "AXGroup"},
    RoleEntry{ATSPI_ROLE_ARTICLE, "AXGroup"},
    RoleEntry{ATSPI_ROLE_LANDMARK, "AXGroup"},
    RoleEntry{ATSPI_ROLE_HEADER, "AXGroup"},
    RoleEntry{ATSPI_ROLE_FOOTER, "AXGroup"},
    RoleEntry{ATSPI_ROLE_ROOT_PANE, "AXGroup"},
    RoleEntry{ATSPI_ROLE_LAYERED_PANE, "AXGroup"},
    RoleEntry{ATSPI_ROLE_VIEWPORT, "AXGroup"},
    RoleEntry{ATSPI_ROLE_INTERNAL_FRAME, "AXGroup"},
    RoleEntry{ATSPI_ROLE_OPTION_PANE, "AXGroup"},
    RoleEntry{ATSPI_ROLE_HTML_CONTAINER, "AXGroup"},
    RoleEntry{ATSPI_ROLE_EMBEDDED, "AXGroup"},
    RoleEntry{ATSPI_ROLE_INFO_BAR, "AXGroup"},
    RoleEntry{ATSPI_ROLE_NOTIFICATION, "AXGroup"},
    RoleEntry{ATSPI_ROLE_ALERT, "AXGroup"},
    RoleEntry{ATSPI_ROLE_TOOL_BAR, "AXToolbar"},
    RoleEntry{ATSPI_ROLE_TOOL_TIP, "AXHelpTag"},
    RoleEntry{ATSPI_ROLE_SEPARATOR, "AXSplitter"},
    RoleEntry{ATSPI_ROLE_SPLIT_PANE, "AXSplitGroup"},
    RoleEntry{ATSPI_ROLE_HEADING, "AXHeading"},
    RoleEntry{ATSPI_ROLE_DOCUMENT_WEB, "AXWebArea"},
    RoleEntry{ATSPI_ROLE_DOCUMENT_FRAME, "AXWebArea"},
    RoleEntry{ATSPI_ROLE_PROGRESS_BAR, "AXProgressIndicator"},
    RoleEntry{ATSPI_ROLE_LEVEL_BAR, "AXLevelIndicator"},
    RoleEntry{ATSPI_ROLE_COLOR_CHOOSER, "AXColorWell"},
    RoleEntry{ATSPI_ROLE_DATE_EDITOR, "AXDateField"},
};

const char* tableLookup(AtspiRole role) {
  for (const RoleEntry& entry : kRoleTable) {
    if (entry.role == role) return entry.axRole;
  }
  return nullptr;
}

}  // namespace

bool atspiRoleNeedsStates(AtspiRole role) {
  return role == ATSPI_ROLE_ENTRY || role == ATSPI_ROLE_TEXT || role == ATSPI_ROLE_TOGGLE_BUTTON ||
         role == ATSPI_ROLE_COMBO_BOX;
}

bool atspiRoleNeedsEditableCheck(AtspiRole role) { return role == ATSPI_ROLE_COMBO_BOX; }

bool atspiRoleNeedsAttributes(AtspiRole role) { return role == ATSPI_ROLE_ENTRY || role == ATSPI_ROLE_TEXT; }

std::string axRoleName(AtspiRole role, std::string_view roleName, const AtspiRoleHints& hints) {
  switch (role) {
    case ATSPI_ROLE_ENTRY:
    case ATSPI_ROLE_TEXT:
      if (hints.searchBox) return "AXSearchField";
      return hints.multiLine ? "AXTextArea" : "AXTextField";
    case ATSPI_ROLE_TOGGLE_BUTTON:
      if (hints.hasPopup) return "AXMenuButton";
      if (hints.expandable) return "AXDisclosureTriangle";
      break;
    case ATSPI_ROLE_COMBO_BOX:
      if (hints.editable) return "AXComboBox";
      break;
    default:
      break;
  }
  if (const char* mapped = tableLookup(role)) return mapped;
  return axRoleFromAtspiName(roleName);
}

std::string axRoleFromAtspiName(std::string_view roleName) {
  std::string result = "AX";
  bool upper = true;
  for (char c : roleName) {
    auto byte = static_cast<unsigned char>(c);
    if (!std::isalnum(byte)) {
      upper = true;
      continue;
    }
    result += upper ? static_cast<char>(std::toupper(byte)) : c;
    upper = false;
  }
  if (result == "AX") result += "Unknown";
  return result;
}

}  // namespace zorvane
