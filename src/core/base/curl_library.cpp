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
  curl.hasTransfers =
      lookUp(library, "curl_easy_init", curl.easyInit) && lookUp(library, "curl_easy_cleanup", curl.easyCleanup) &&
      lookUp(library, "curl_easy_setopt", curl.easySetopt) && lookUp(library, "curl_easy_getinfo", curl.easyGetinfo) &&
      lookUp(library, "curl_easy_strerror", curl.easyStrerror) && lookUp(library, "curl_multi_init", curl.multiInit) &&
      lookUp(library, "curl_multi_cleanup", curl.multiCleanup) &&
      lookUp(library, "curl_multi_add_handle", curl.multiAddHandle) &&
      lookUp(library, "curl_multi_remove_handle", curl.multiRemoveHandle) &&
      lookUp(library, "curl_multi_perform", curl.multiPerform) && lookUp(library, "curl_multi_poll", curl.multiPoll) &&
      lookUp(library, "curl_multi_wakeup", curl.multiWakeup) &&
      lookUp(library, "curl_multi_info_read", curl.multiInfoRead) &&
      lookUp(library, "curl_slist_append", curl.slistAppend) &&
      lookUp(library, "curl_slist_free_all", curl.slistFreeAll);
  CURLcode (*globalInit)(long) = nullptr;
  // Set up once here, under get()'s once-flag, rather than implicitly by the first
  // easy handle, which older versions don't do thread-safely.
  if (curl.hasTransfers && lookUp(library, "curl_global_init", globalInit)) globalInit(CURL_GLOBAL_DEFAULT);
  if (!curl.hasTransfers) Log::info("libcurl is too old for HTTP transfers here (7.68 or later is needed)");
  return &curl;
}

const CurlLibrary* CurlLibrary::get() {
  static std::once_flag once;
  static const CurlLibrary* library = nullptr;
  std::call_once(once, [] { library = load(); });
  return library;
}

}  // namespace zorvane
