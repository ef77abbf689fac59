#include "app/shell/desktop_module.h"

#include <dlfcn.h>

#include <mutex>

#include "core/base/log.h"
#include "core/base/paths.h"
#include "platform/desktop.h"

namespace zorvane::DesktopModule {

std::string path() {
  std::string executable = Paths::executablePath();
  size_t slash = executable.rfind('/');
  return (slash == std::string::npos ? std::string(".") : executable.substr(0, slash)) + "/zorvane-desktop.so";
}

Expected<const DesktopModuleEntry*> entry() {
  static std::once_flag once;
  static Expected<const DesktopModuleEntry*> loaded = Failure{"not loaded"};
  std::call_once(once, [] {
    std::string file = path();
    void* module = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
      const char* why = dlerror();
      loaded = Failure{"can't load " + file + ": " + (why != nullptr ? why : "unknown error")};
      return;
    }
    using EntryFunction = const DesktopModuleEntry* (*)();
    auto function = reinterpret_cast<EntryFunction>(dlsym(module, "zorvane_desktop_module"));
    const DesktopModuleEntry* found = function != nullptr ? function() : nullptr;
    if (found == nullptr || found->version != DesktopModuleEntry::kVersion) {
      loaded = Failure{file + " is not the module of this build; build Zorvane again"};
      return;
    }
    loaded = found;
  });
  return loaded;
}

std::unique_ptr<Desktop> openDesktop() {
  auto module = entry();
  if (!module) {
    Log::info("window tools: " + module.error() + "; no window can be reached");
    return Desktop::headless();
  }
  return std::unique_ptr<Desktop>((*module)->openDesktop());
}

}  // namespace zorvane::DesktopModule
