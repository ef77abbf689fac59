#include "app/peers/peer_server.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "core/base/run_loop.h"
#include "core/mcp/tool_spec.h"
#include "support/test_support.h"

namespace zorvane {
namespace {

struct PeerServerTest : ::testing::Test {
  testing::TempDir dir;
  testing::ScopedEnv socket{"ZORVANE_IPC_SOCK", dir.file("peer.sock")};
  RunLoop loop;

  // Sends from another thread while this one runs the loop; the reply or the error text.
  std::string sendAndServe(const PeerRequest& request, double timeout) {
    auto result = std::async(std::launch::async, [&] {
      try {
        PeerResponse response = PeerClient::send(request, timeout);
        return std::string(response.ok ? "ok: " : "refused: ") + response.text;
      } catch (const MCPToolError& error) {
        return std::string("error: ") + error.message();
      }
    });
    loop.runUntil([&] { return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }, 30);
    return result.get();
  }
};

PeerRequest ask(std::string message) {
  return {PeerRequest::Op::ask, UUID(), "Notes", std::move(message), std::nullopt};
}

// A request reaches the handler on the loop's thread and its answer reaches the client;
// the socket is private to the user; a message over 64 KiB arrives whole.
TEST_F(PeerServerTest, ServesRequestsOverARealSocket) {
  std::vector<PeerRequest> seen;
  PeerServer server(
      [&](const PeerRequest& request, PeerServer::Completion done) {
        EXPECT_TRUE(loop.isCurrent());
        seen.push_back(request);
        done({request.message->size() < 100, "got " + std::to_string(request.message->size())});
      },
      loop);
  ASSERT_TRUE(server.start());
  struct stat info {};
  ASSERT_EQ(::stat(dir.file("peer.sock").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);

  EXPECT_EQ(sendAndServe(ask("hello"), 5), "ok: got 5");
  EXPECT_EQ(sendAndServe(ask(std::string(300000, 'q')), 5), "refused: got 300000");
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].to, "Notes");
}

// What a tool server hears when nobody listens, when nobody answers in time, and when
// the request is malformed; a late answer to a client that left has no effect.
TEST_F(PeerServerTest, ClientFailuresReadAsTheAgentShouldSeeThem) {
  EXPECT_EQ(sendAndServe(ask("x"), 5), "error: Zorvane isn't reachable (is the app running?).");

  std::vector<PeerServer::Completion> held;
  PeerServer server([&](const PeerRequest&, PeerServer::Completion done) { held.push_back(std::move(done)); }, loop);
  ASSERT_TRUE(server.start());
  EXPECT_EQ(sendAndServe(ask("slow"), 1), "error: No reply from the other piece (timed out after 0 min).");
  ASSERT_EQ(held.size(), 1u);
  held[0]({true, "too late"});  // the client is gone: no SIGPIPE, no effect
  held[0]({true, "twice"});

  // A raw client sending garbage gets "Bad request".
  auto raw = std::async(std::launch::async, [&] {
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    dir.file("peer.sock").copy(address.sun_path, sizeof address.sun_path - 1);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return std::string("no connect");
    writePeerMessage(fd, "{\"op\":\"fly\"}\n");
    std::string reply = readPeerMessage(fd);
    ::close(fd);
    return reply;
  });
  loop.runUntil([&] { return raw.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }, 10);
  EXPECT_EQ(raw.get(), "{\"ok\":false,\"text\":\"Bad request\"}\n");

  // A handler that drops its completion closes the connection unanswered.
  server.stop();
  PeerServer forgetful([](const PeerRequest&, PeerServer::Completion) {}, loop);
  ASSERT_TRUE(forgetful.start());
  EXPECT_EQ(sendAndServe(ask("x"), 5), "error: No reply from the other piece (timed out after 0 min).");
}

}  // namespace
}  // namespace zorvane
