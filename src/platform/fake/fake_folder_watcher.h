// FakeFolderWatcher: counts watches like the real one; a test makes entries appear and
// folders go, and only watched folders report them, at once.
#pragma once

#include <map>

#include "platform/folder_watcher.h"

namespace zorvane {

class FakeFolderWatcher final : public FolderWatcher {
 public:
  std::map<std::string, int> watches;  // folder -> count

  Expected<void> watch(const std::string& folder) override {
    if (folder.empty() || folder.front() != '/') return Failure{"folder \"" + folder + "\": not an absolute path"};
    ++watches[folder];
    return ok();
  }
  void unwatch(const std::string& folder) override {
    auto found = watches.find(folder);
    if (found != watches.end() && --found->second == 0) watches.erase(found);
  }
  bool isWatched(const std::string& folder) const { return watches.count(folder) > 0; }

  void add(const std::string& folder, const std::string& name, bool isFolder = false) {
    send({FolderEvent::Kind::added, folder, name, folder + "/" + name, isFolder});
  }
  void removeFolder(const std::string& folder) { send({FolderEvent::Kind::gone, folder, "", folder, true}); }

 private:
  void send(const FolderEvent& event) {
    if (isWatched(event.folder) && onEvent) onEvent(event);
  }
};

}  // namespace zorvane
