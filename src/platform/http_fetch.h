// HTTPFetch: plain HTTP(S) GETs that answer on the main queue, for the page-change
// triggers and whatever else needs a page. `HTTPFetch::create` gives the libcurl one
// (the library is loaded on first use, see core/base/curl_library.h); FakeHTTPFetch in
// fake/ answers from a table.
//
//   fetch->get("https://example.org/", {}, [this](Expected<HTTPResponse> page) {
//     if (!page) return Log::info(page.error());   // "GET https://example.org/: timed out after 30 s"
//     if (page->status == 304) return;             // not modified since the ETag sent
//     ...
//   });
//
// Any answer of the server is a response, whatever its status (a 404 page too); only a
// transfer that ends without one is a failure: no connection, a time-out, a body over
// the size cap, a scheme other than http and https. Redirects are followed (up to 5).
// The completion runs on the main queue exactly once, and never after the HTTPFetch is
// destroyed (transfers still running are then abandoned).
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/base/expected.h"
#include "core/base/main_queue.h"

namespace zorvane {

struct HTTPFetchOptions {
  double connectTimeoutSeconds = 10;
  // The whole transfer, connection included: a server that trickles bytes ends here.
  double totalTimeoutSeconds = 30;
  size_t maxBodyBytes = 8 * 1024 * 1024;
  // Extra request headers, "Name: value" (If-None-Match, If-Modified-Since, ...).
  std::vector<std::string> headers;
};

struct HTTPResponse {
  long status = 0;
  std::string body;  // decoded from any content encoding the server chose
  // The final response's headers, names lower-cased; a repeated header keeps its last value.
  std::map<std::string, std::string> headers;
  std::string url;  // where the body came from, after redirects

  // "" when the server sent none.
  std::string etag() const { return header("etag"); }
  std::string lastModified() const { return header("last-modified"); }
  std::string header(const std::string& lowerCaseName) const {
    auto found = headers.find(lowerCaseName);
    return found == headers.end() ? "" : found->second;
  }
};

class HTTPFetch {
 public:
  virtual ~HTTPFetch() = default;

  virtual void get(const std::string& url, const HTTPFetchOptions& options,
                   std::function<void(Expected<HTTPResponse>)> done) = 0;

  // The libcurl implementation: one worker thread runs every transfer, side by side.
  static std::unique_ptr<HTTPFetch> create(MainQueue& queue = MainQueue::main());
};

}  // namespace zorvane
