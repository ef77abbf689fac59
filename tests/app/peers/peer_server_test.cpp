#include "app/peers/peer_server.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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

// Connects to the socket at `path`, sends `bytes`, and returns what comes back before
// the server closes ("" for a close without an answer).
std::string talk(const std::string& path, const std::string& bytes) {
  int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    ::close(fd);
    return "no connect";
  }
  timeval limit{10, 0};  // a test that goes wrong fails instead of hanging
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  writePeerMessage(fd, bytes);
  std::string reply = readPeerMessage(fd, kPeerReplyLimit);
  ::close(fd);
  return reply;
}

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
  auto raw = std::async(std::launch::async, [&] { return talk(dir.file("peer.sock"), "{\"op\":\"fly\"}\n"); });
  loop.runUntil([&] { return raw.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }, 10);
  EXPECT_EQ(raw.get(), "{\"ok\":false,\"text\":\"Bad request\"}\n");

  // A handler that drops its completion closes the connection unanswered.
  server.stop();
  PeerServer forgetful([](const PeerRequest&, PeerServer::Completion) {}, loop);
  ASSERT_TRUE(forgetful.start());
  EXPECT_EQ(sendAndServe(ask("x"), 5), "error: No reply from the other piece (timed out after 0 min).");
}

// What an abusive local client can cost: another user is turned away unanswered, an
// oversized or never-finished request is refused without being kept, and past the
// limit of open connections the rest hear "busy" at once.
TEST_F(PeerServerTest, HoldsUnderAbuse) {
  std::vector<PeerServer::Completion> held;
  PeerServer server([&](const PeerRequest&, PeerServer::Completion done) { held.push_back(std::move(done)); }, loop,
                    0.3);
  ASSERT_TRUE(server.start());
  std::string path = dir.file("peer.sock");
  std::string request = PeerRequest{PeerRequest::Op::list, UUID()}.encoded() + "\n";
  auto serve = [&](auto& future) {
    loop.runUntil([&] { return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }, 20);
    return future.get();
  };
  const std::string bad = "{\"ok\":false,\"text\":\"Bad request\"}\n";

  if (::geteuid() == 0) {
    // The file's mode keeps others out; opened up, the credentials still do.
    ::chmod(dir.path().c_str(), 0711);
    ::chmod(path.c_str(), 0666);
    // The child makes only async-signal-safe calls: the parent has threads running.
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    pid_t child = ::fork();
    if (child == 0) {
      // The raw call: glibc's setuid would wait for the parent's other threads.
      if (::syscall(SYS_setuid, 65534) != 0) _exit(2);
      int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
      if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) _exit(3);
      // The server may close before the request is written: refused all the same.
      if (::send(fd, request.data(), request.size(), MSG_NOSIGNAL) < 0) _exit(0);
      char reply[64];
      _exit(::read(fd, reply, sizeof reply) > 0 ? 1 : 0);
    }
    auto waited = std::async(std::launch::async, [child] {
      int status = 0;
      ::waitpid(child, &status, 0);
      return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    });
    EXPECT_EQ(serve(waited), 0) << "another user's request must go unanswered";
    EXPECT_TRUE(held.empty());
  }
  auto oversize = std::async(std::launch::async, [&] { return talk(path, std::string(2 << 20, 'x')); });
  EXPECT_EQ(serve(oversize), bad);
  auto idle = std::async(std::launch::async, [&] { return talk(path, "{\"op\":"); });
  EXPECT_EQ(serve(idle), bad) << "an unfinished request ends at the read limit";
  EXPECT_TRUE(held.empty());

  std::vector<std::future<std::string>> clients;
  for (int i = 0; i < PeerServer::kMaxOpen + 6; ++i)
    clients.push_back(std::async(std::launch::async, [&] { return talk(path, request); }));
  // While 64 wait for their answers, the other six are turned away at once.
  auto turnedAway = [&] {
    return std::count_if(clients.begin(), clients.end(), [](auto& client) {
      return client.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    });
  };
  ASSERT_TRUE(loop.runUntil([&] { return held.size() == size_t(PeerServer::kMaxOpen) && turnedAway() == 6; }, 20));
  for (auto& done : held) done({true, "ok"});
  int busy = 0, answered = 0;
  for (auto& client : clients) {
    std::string reply = client.get();
    busy += reply.find("Zorvane is busy") != std::string::npos;
    answered += reply == "{\"ok\":true,\"text\":\"ok\"}\n";
  }
  EXPECT_EQ(busy, 6);
  EXPECT_EQ(answered, PeerServer::kMaxOpen);
}

}  // namespace
}  // namespace zorvane
