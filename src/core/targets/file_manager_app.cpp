#include "core/targets/file_manager_app.h"

#include <algorithm>

namespace zorvane {

bool FileManagerApp::titleMayShow(std::string_view title, std::string_view folderName) const {
  if (title == folderName) return true;
  if (titleSuffix.empty() || title.size() != folderName.size() + titleSuffix.size()) return false;
  return title.substr(0, folderName.size()) == folderName && title.substr(folderName.size()) == titleSuffix;
}

const std::vector<FileManagerApp>& fileManagerApps() {
  static const std::vector<FileManagerApp> apps = {
      {FileManagerKind::finder, "Finder", {"com.apple.finder"}, {"Finder"}, 14, ""},
      {FileManagerKind::thunar, "Thunar", {"org.xfce.Thunar", "thunar", "Thunar"}, {"thunar", "Thunar"}, 14,
       " - Thunar"},
      {FileManagerKind::nautilus, "Files", {"org.gnome.Nautilus", "nautilus"}, {"nautilus"}, 20, ""},
      {FileManagerKind::pcmanfm, "PCManFM", {"pcmanfm", "Pcmanfm"}, {"pcmanfm"}, 14, ""},
  };
  return apps;
}

const FileManagerApp* fileManagerForBundleID(std::string_view bundleID) {
  for (const FileManagerApp& app : fileManagerApps()) {
    if (std::find(app.bundleIDs.begin(), app.bundleIDs.end(), bundleID) != app.bundleIDs.end()) return &app;
  }
  return nullptr;
}

const FileManagerApp* fileManagerForExecutable(std::string_view executable) {
  if (auto slash = executable.rfind('/'); slash != std::string_view::npos) executable.remove_prefix(slash + 1);
  if (executable.empty()) return nullptr;
  for (const FileManagerApp& app : fileManagerApps()) {
    if (std::find(app.executables.begin(), app.executables.end(), executable) != app.executables.end()) return &app;
  }
  return nullptr;
}

const FileManagerApp& fileManagerApp(FileManagerKind kind) {
  for (const FileManagerApp& app : fileManagerApps()) {
    if (app.kind == kind) return app;
  }
  return fileManagerApps().front();
}

}  // namespace zorvane
