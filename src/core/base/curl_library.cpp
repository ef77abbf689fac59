#include "core/base/curl_library.h"

#include <dlfcn.h>

#include <mutex>

#include "core/base/log.h"

namespace zorvane {

template <typename Function>
static bool lookUp(void* library, const char* name, Function& into) {
  into = reinterpret_cast<Function>(dlsym(library, name));
  return into != nullptr;
}

static const CurlLibrary* load() {
  // The runtime package installs the versioned name; the bare name needs the -dev one.
  void* library = dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) library = dlopen("libcurl.so", RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    Log::info(std::string("libcurl couldn't be loaded: ") + dlerror());
    return nullptr;
  }
  static CurlLibrary curl{};
  if (!lookUp(library, "curl_url", curl.url) || !lookUp(library, "curl_url_cleanup", curl.urlCleanup) ||
      !lookUp(library, "curl_url_set", curl.urlSet) || !lookUp(library, "curl_url_get", curl.urlGet) ||
      !lookUp(library, "curl_free", curl.free)) {
    Log::info("libcurl is too old: its URL functions are missing");
    return nullptr;
  }
  return &curl;
}

const CurlLibrary* CurlLibrary::get() {
  static std::once_flag once;
  static const CurlLibrary* library = nullptr;
  std::call_once(once, [] { library = load(); });
  return library;
}

}  // namespace zorvane
