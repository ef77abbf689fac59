// CurlLibrary: libcurl, loaded the first time it is needed rather than at start-up.
//
// Linked normally, libcurl and its TLS and compression libraries (some thirty shared
// objects) are mapped and relocated before main() runs, which doubled the start-up
// time of the tool server, a process that an agent starts often and that needs no URL
// parsing at all for most calls. Loading it with dlopen on first use keeps that cost
// off the start. Only the functions this program uses are looked up.
//
// `get()` is thread-safe; it returns null (and logs once) when the library can't be
// loaded, and callers treat that as libcurl refusing the input.
#pragma once

#include <curl/curl.h>

namespace zorvane {

struct CurlLibrary {
  CURLU* (*url)();
  void (*urlCleanup)(CURLU*);
  CURLUcode (*urlSet)(CURLU*, CURLUPart, const char*, unsigned int);
  CURLUcode (*urlGet)(const CURLU*, CURLUPart, char**, unsigned int);
  void (*free)(void*);

  static const CurlLibrary* get();
};

}  // namespace zorvane
