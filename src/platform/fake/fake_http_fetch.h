// FakeHTTPFetch: answers GETs from a table of pages, on the main queue as the real one
// does; a URL missing from the table fails as an unreachable server would.
#pragma once

#include <map>
#include <vector>

#include "platform/http_fetch.h"

namespace zorvane {

class FakeHTTPFetch final : public HTTPFetch {
 public:
  explicit FakeHTTPFetch(MainQueue& queue) : queue_(queue) {}

  std::map<std::string, Expected<HTTPResponse>> pages;  // by URL
  std::vector<std::string> requested;                   // every URL asked for, in order

  // A 200 page with this body.
  void setPage(const std::string& url, std::string body) {
    HTTPResponse response;
    response.status = 200;
    response.body = std::move(body);
    response.url = url;
    pages.insert_or_assign(url, Expected<HTTPResponse>(std::move(response)));
  }

  void get(const std::string& url, const HTTPFetchOptions&, std::function<void(Expected<HTTPResponse>)> done) override {
    requested.push_back(url);
    auto found = pages.find(url);
    Expected<HTTPResponse> answer =
        found != pages.end() ? found->second : Expected<HTTPResponse>(Failure{"GET " + url + ": couldn't connect"});
    queue_.post([done = std::move(done), answer = std::move(answer)] {
      if (done) done(answer);
    });
  }

 private:
  MainQueue& queue_;
};

}  // namespace zorvane
