#include "app/shell/desktop_settings.h"

#include <dirent.h>
#include <spawn.h>

#include <cstdlib>

extern char** environ;

namespace zorvane::DesktopSettings {

namespace {

struct Tool {
  const char* program;
  std::vector<std::string> arguments;
};

const std::vector<Tool>& tools() {
  static const std::vector<Tool> list = {
      {"gnome-control-center", {"universal-access"}},
      {"xfce4-accessibility-settings", {}},
      {"mate-at-properties", {}},
      {"systemsettings", {"kcm_access"}},
      {"cinnamon-settings", {"universal-access"}},
  };
  return list;
}

}  // namespace

std::optional<std::vector<std::string>> accessibilityCommand(
    const std::vector<std::string>& folders, const std::function<bool(const std::string& path)>& isExecutable) {
  for (const Tool& tool : tools()) {
    for (const std::string& folder : folders) {
      std::string path = folder + "/" + tool.program;
      if (!isExecutable(path)) continue;
      std::vector<std::string> command{path};
      command.insert(command.end(), tool.arguments.begin(), tool.arguments.end());
      return command;
    }
  }
  return std::nullopt;
}

bool startDetached(const std::vector<std::string>& argv) {
  if (argv.empty()) return false;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (DIR* fds = opendir("/proc/self/fd")) {
    int own = dirfd(fds);
    while (dirent* entry = readdir(fds)) {
      int fd = std::atoi(entry->d_name);
      if (fd > 2 && fd != own) posix_spawn_file_actions_addclose(&actions, fd);
    }
    closedir(fds);
  }
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  std::vector<std::string> copy = argv;
  std::vector<char*> args;
  for (std::string& arg : copy) args.push_back(arg.data());
  args.push_back(nullptr);
  pid_t child = 0;
  int failed = posix_spawn(&child, args[0], &actions, &attributes, args.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return failed == 0;
}

}  // namespace zorvane::DesktopSettings
