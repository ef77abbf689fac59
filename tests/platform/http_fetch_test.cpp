#include "platform/http_fetch.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <list>
#include <thread>

#include "core/base/run_loop.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

// A small HTTP/1.1 server on loopback, one thread per connection:
//   /page       200 with an ETag and Last-Modified; 304 to a matching If-None-Match
//   /missing    404
//   /big        2000 bytes without a length;  /big-declared  the same with one
//   /redirect   302 to /page
//   /trickle    a header, then a byte every 50 ms until the client leaves
class LoopbackServer {
 public:
  LoopbackServer() {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(listener_, 16);
    socklen_t length = sizeof address;
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    if (pipe(stop_) != 0) ADD_FAILURE() << "pipe";
    accepter_ = std::thread([this] { acceptLoop(); });
  }
  ~LoopbackServer() {
    [[maybe_unused]] ssize_t written = write(stop_[1], "x", 1);
    accepter_.join();
    for (auto& thread : connections_) thread.join();
    close(listener_);
    close(stop_[0]);
    close(stop_[1]);
  }
  std::string url(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(port_) + path; }

 private:
  void acceptLoop() {
    for (;;) {
      pollfd fds[2] = {{listener_, POLLIN, 0}, {stop_[0], POLLIN, 0}};
      poll(fds, 2, -1);
      if (fds[1].revents) return;
      int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (client >= 0) connections_.emplace_back([this, client] { serve(client); });
    }
  }

  void serve(int client) {
    std::string request;
    char buffer[4096];
    while (request.find("\r\n\r\n") == std::string::npos) {
      ssize_t count = read(client, buffer, sizeof buffer);
      if (count <= 0) break;
      request.append(buffer, size_t(count));
    }
    std::string path = request.substr(4, request.find(' ', 4) - 4);
    // MSG_NOSIGNAL: a client that left must not end the test with SIGPIPE.
    auto send = [client](const std::string& bytes) {
      return ::send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0;
    };
    if (path == "/page" && request.find("If-None-Match: \"v1\"") != std::string::npos) {
      send("HTTP/1.1 304 Not Modified\r\nETag: \"v1\"\r\nConnection: close\r\n\r\n");
    } else if (path == "/page") {
      send("HTTP/1.1 200 OK\r\nETag: \"v1\"\r\nLast-Modified: Tue, 01 Oct 2024 10:00:00 GMT\r\n"
           "Content-Length: 5\r\nConnection: close\r\n\r\nhello");
    } else if (path == "/missing") {
      send("HTTP/1.1 404 Not Found\r\nContent-Length: 12\r\nConnection: close\r\n\r\nno such page");
    } else if (path == "/big" || path == "/big-declared") {
      std::string length = path == "/big" ? "" : "Content-Length: 2000\r\n";
      send("HTTP/1.1 200 OK\r\n" + length + "Connection: close\r\n\r\n" + std::string(2000, 'b'));
    } else if (path == "/redirect") {
      send("HTTP/1.1 302 Found\r\nLocation: /page\r\nContent-Length: 0\r\n\r\n");
    } else if (path == "/trickle") {
      send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
      for (;;) {
        pollfd stop{stop_[0], POLLIN, 0};
        if (poll(&stop, 1, 50) != 0 || !send("x")) break;  // the pace of the trickle
      }
    }
    close(client);
  }

  int listener_ = -1, port_ = 0, stop_[2] = {-1, -1};
  std::thread accepter_;
  std::list<std::thread> connections_;  // touched by the accepting thread only, then joined
};

struct Fetching {
  testing::ScopedEnv noProxy{"no_proxy", "127.0.0.1"};  // a proxy of the machine's must not answer
  RunLoop loop;
  std::unique_ptr<HTTPFetch> fetch = HTTPFetch::create(loop);

  Expected<HTTPResponse> get(const std::string& url, HTTPFetchOptions options = {}) {
    std::optional<Expected<HTTPResponse>> answer;
    fetch->get(url, options, [&](Expected<HTTPResponse> result) { answer = std::move(result); });
    EXPECT_TRUE(loop.runUntil([&] { return answer.has_value(); }, 20.0)) << url;
    return answer.value_or(Failure{"no answer"});
  }
};

// Any answer is a response with its status, body and the headers a change check needs;
// redirects are followed; a request header goes out (a conditional GET gets its 304).
TEST(HTTPFetch, AnswersWithStatusBodyAndHeaders) {
  LoopbackServer server;
  Fetching fetching;

  auto page = fetching.get(server.url("/page"));
  ASSERT_TRUE(page) << page.error();
  EXPECT_EQ(page->status, 200);
  EXPECT_EQ(page->body, "hello");
  EXPECT_EQ(page->etag(), "\"v1\"");
  EXPECT_EQ(page->lastModified(), "Tue, 01 Oct 2024 10:00:00 GMT");

  auto missing = fetching.get(server.url("/missing"));
  ASSERT_TRUE(missing) << missing.error();
  EXPECT_EQ(missing->status, 404);
  EXPECT_EQ(missing->body, "no such page");

  auto moved = fetching.get(server.url("/redirect"));
  ASSERT_TRUE(moved) << moved.error();
  EXPECT_EQ(moved->status, 200);
  EXPECT_EQ(moved->url, server.url("/page"));
  EXPECT_EQ(moved->etag(), "\"v1\"") << "the headers of the last response";

  HTTPFetchOptions conditional;
  conditional.headers = {"If-None-Match: \"v1\""};
  auto unchanged = fetching.get(server.url("/page"), conditional);
  ASSERT_TRUE(unchanged) << unchanged.error();
  EXPECT_EQ(unchanged->status, 304);
}

// Transfers that can't give a page fail with a reason: too big (with or without a
// declared length), no end in sight, nobody listening, a scheme that isn't HTTP.
TEST(HTTPFetch, FailsClearlyAndWithinBounds) {
  LoopbackServer server;
  Fetching fetching;
  HTTPFetchOptions capped;
  capped.maxBodyBytes = 1000;
  for (std::string path : {"/big", "/big-declared"}) {
    auto big = fetching.get(server.url(path), capped);
    ASSERT_FALSE(big) << path;
    EXPECT_EQ(big.error(), "GET " + server.url(path) + ": the page is larger than 1000 bytes");
  }

  HTTPFetchOptions quick;
  quick.totalTimeoutSeconds = 1;
  auto trickle = fetching.get(server.url("/trickle"), quick);
  ASSERT_FALSE(trickle);
  EXPECT_EQ(trickle.error(), "GET " + server.url("/trickle") + ": timed out after 1 s");

  int closedPort = 0;
  {
    LoopbackServer gone;
    closedPort = std::stoi(gone.url("").substr(17));
  }
  auto refused = fetching.get("http://127.0.0.1:" + std::to_string(closedPort) + "/");
  ASSERT_FALSE(refused);
  EXPECT_NE(refused.error().find("GET http://127.0.0.1:"), std::string::npos) << refused.error();

  auto ftp = fetching.get("ftp://127.0.0.1/file");
  ASSERT_FALSE(ftp);
  EXPECT_EQ(ftp.error(), "GET ftp://127.0.0.1/file: only http and https pages can be fetched");
}

// A fetch dropped with a transfer under way never calls back.
TEST(HTTPFetch, NoCompletionAfterDestruction) {
  LoopbackServer server;
  Fetching fetching;
  bool called = false;
  fetching.fetch->get(server.url("/trickle"), {}, [&](Expected<HTTPResponse>) { called = true; });
  auto page = fetching.get(server.url("/page"));  // the worker has run both by now
  ASSERT_TRUE(page);
  fetching.fetch.reset();
  fetching.loop.runUntilIdle();
  EXPECT_FALSE(called);
}

}  // namespace
}  // namespace zorvane
