// CurlLibrary: libcurl, loaded the first time it is needed rather than at start-up.
//
// Linked normally, libcurl and its TLS and compression libraries (some thirty shared
// objects) are mapped and relocated before main() runs, which doubled the start-up
// time of the tool server, a process that an agent starts often and that needs no URL
// parsing at all for most calls. Loading it with dlopen on first use keeps that cost
// off the start. Only the functions this program uses are looked up.
//
// `get()` is thread-safe; it returns null (and logs once) when the library can't be
// loaded, and callers treat that as libcurl refusing the input. The transfer functions
// (easy and multi handles, for HTTP) are looked up apart: a libcurl too old to have
// them all (before 7.68) leaves `hasTransfers` false, and URL parsing
// still works.
#pragma once

#include <curl/curl.h>

namespace zorvane {

struct CurlLibrary {
  CURLU* (*url)();
  void (*urlCleanup)(CURLU*);
  CURLUcode (*urlSet)(CURLU*, CURLUPart, const char*, unsigned int);
  CURLUcode (*urlGet)(const CURLU*, CURLUPart, char**, unsigned int);
  void (*free)(void*);

  CURL* (*easyInit)();
  void (*easyCleanup)(CURL*);
  CURLcode (*easySetopt)(CURL*, CURLoption, ...);
  CURLcode (*easyGetinfo)(CURL*, CURLINFO, ...);
  const char* (*easyStrerror)(CURLcode);
  CURLM* (*multiInit)();
  CURLMcode (*multiCleanup)(CURLM*);
  CURLMcode (*multiAddHandle)(CURLM*, CURL*);
  CURLMcode (*multiRemoveHandle)(CURLM*, CURL*);
  CURLMcode (*multiPerform)(CURLM*, int*);
  CURLMcode (*multiPoll)(CURLM*, struct curl_waitfd[], unsigned int, int, int*);
  CURLMcode (*multiWakeup)(CURLM*);
  CURLMsg* (*multiInfoRead)(CURLM*, int*);
  struct curl_slist* (*slistAppend)(struct curl_slist*, const char*);
  void (*slistFreeAll)(struct curl_slist*);

  bool hasTransfers = false;  // all of the transfer functions above were found

  static const CurlLibrary* get();
};

}  // namespace zorvane
