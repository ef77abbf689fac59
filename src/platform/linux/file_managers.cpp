#include "platform/linux/file_managers.h"

#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string_view>

#include "core/base/url.h"
#include "platform/linux/atspi_element.h"

namespace zorvane::FileManagers {
namespace {

// Bounds of the walks that reach the window from an element and the location bar from
// the window.
constexpr int kMaxParentWalk = 64;
constexpr int kMaxLocationCandidates = 64;

// "/a/b/" → "/a/b"; "/" stays.
std::string withoutTrailingSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

// The folder in the location bar of `window` (an absolute path, no trailing "/").
std::optional<std::string> locationBarFolder(AtspiElement& window) {
  auto fields = window.descendantsWithRoles({ATSPI_ROLE_TEXT, ATSPI_ROLE_ENTRY}, kMaxLocationCandidates);
  if (!fields) return std::nullopt;
  for (const std::shared_ptr<AtspiElement>& field : *fields) {
    // The location bar holds the absolute path of the folder, in every view and even
    // while the bar itself is hidden (GTK 4 keeps it at 0x0).
    auto text = field->textValue();
    if (text && text->size() > 0 && text->front() == '/' && text->find('\n') == std::string::npos)
      return withoutTrailingSlash(*text);
  }
  return std::nullopt;
}

// The display name of a file manager's item; nothing for any other element.
std::optional<std::string> itemName(AtspiElement& element) {
  AtspiRole role = element.atspiRole();
  if (role == ATSPI_ROLE_TABLE_CELL) {
    auto up = element.parentElement();
    if (!up) return std::nullopt;
    AtspiRole upRole = up->atspiRole();
    if (upRole == ATSPI_ROLE_TABLE_CELL) {
      std::string own = element.title();
      if (!own.empty()) return own;
      return std::nullopt;
    }
    if (upRole != ATSPI_ROLE_TABLE && upRole != ATSPI_ROLE_TREE_TABLE) return std::nullopt;
    // A row's cell: the item is its named child (a cell of its own, not a column of it).
    auto cells = element.children();
    if (!cells) return std::nullopt;
    for (auto& cell : *cells) {
      auto* child = static_cast<AtspiElement*>(cell.get());
      if (child->atspiRole() != ATSPI_ROLE_TABLE_CELL) continue;
      std::string childName = child->title();
      if (!childName.empty()) return childName;
    }
    return std::nullopt;
  }
  if (role == ATSPI_ROLE_ICON) {
    // GTK 2 icon views name their icons through the text only.
    std::string own = element.title();
    if (!own.empty()) return own;
    auto text = element.textValue();
    if (text && !text->empty()) return text;
    return std::nullopt;
  }
  // An icon of the desktop window.
  if (role == ATSPI_ROLE_UNKNOWN) {
    auto up = element.parentElement();
    if (!up || !up->isTopLevel() || locationBarFolder(*up)) return std::nullopt;
    std::string own = element.title();
    if (!own.empty()) return own;
  }
  return std::nullopt;
}

}  // namespace

const FileManagerApp* ofProcess(int32_t pid) {
  char target[4096];
  std::string link = "/proc/" + std::to_string(pid) + "/exe";
  ssize_t length = readlink(link.c_str(), target, sizeof target - 1);
  return length > 0 ? fileManagerForExecutable(std::string_view(target, size_t(length))) : nullptr;
}

std::optional<std::string> folderShown(AtspiElement& element) {
  std::shared_ptr<AtspiElement> walked;
  AtspiElement* window = element.isTopLevel() ? &element : nullptr;
  if (!window) {
    auto current = element.parentElement();
    for (int step = 0; current && step < kMaxParentWalk; ++step) {
      if (current->isTopLevel()) {
        walked = current;
        break;
      }
      current = current->parentElement();
    }
    window = walked.get();
  }
  if (!window) return std::nullopt;
  if (auto folder = locationBarFolder(*window)) return folder;
  // The desktop window shows the desktop folder and has no location bar.
  if (window->atspiRole() == ATSPI_ROLE_WINDOW) {
    if (const char* desktop = g_get_user_special_dir(G_USER_DIRECTORY_DESKTOP)) return withoutTrailingSlash(desktop);
  }
  return std::nullopt;
}

std::optional<std::string> itemURL(AtspiElement& element) {
  auto item = itemName(element);
  if (!item || item->find('/') != std::string::npos) return std::nullopt;
  auto shown = folderShown(element);
  if (!shown) return std::nullopt;
  std::string path = (*shown == "/" ? std::string() : *shown) + "/" + *item;
  // The name shown is the file's name for ordinary files; where it isn't (a launcher's
  // own name, an escaped name) no file of that name exists and the item has no URL.
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return URL::fileURL(path, S_ISDIR(status.st_mode)).absoluteString();
}

}  // namespace zorvane::FileManagers
