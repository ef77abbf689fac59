#include "platform/linux/websocket_client.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <thread>

namespace zorvane {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// The server's end of a socketpair, played by a script on its own thread.
class ScriptedServer {
 public:
  struct Frame {
    bool fin = false, masked = false;
    uint8_t opcode = 0;
    std::string payload;
  };

  explicit ScriptedServer(int fd) : fd_(fd) {}
  ~ScriptedServer() {
    if (thread_.joinable()) thread_.join();
    ::close(fd_);
  }
  void run(std::function<void(ScriptedServer&)> script) {
    thread_ = std::thread([this, script = std::move(script)] { script(*this); });
  }
  void join() { thread_.join(); }

  // The client's handshake request, up to its blank line.
  std::string readRequest() {
    std::string request;
    while (request.find("\r\n\r\n") == std::string::npos) request += readBytes(1);
    return request;
  }
  static std::string keyOf(const std::string& request) {
    auto at = request.find("Sec-WebSocket-Key: ");
    if (at == std::string::npos) return "";
    at += 19;
    return request.substr(at, request.find("\r\n", at) - at);
  }
  static std::string upgradeAnswer(const std::string& accept) {
    return "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
           accept + "\r\n\r\n";
  }
  // An unmasked frame as a server sends it.
  static std::string frame(uint8_t opcode, const std::string& payload, bool fin = true) {
    std::string out(1, char((fin ? 0x80 : 0) | opcode));
    if (payload.size() < 126) {
      out += char(payload.size());
    } else if (payload.size() <= 0xFFFF) {
      out += char(126);
      out += char(payload.size() >> 8);
      out += char(payload.size() & 0xFF);
    } else {
      out += char(127);
      for (int shift = 56; shift >= 0; shift -= 8) out += char((uint64_t(payload.size()) >> shift) & 0xFF);
    }
    return out + payload;
  }
  void send(const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
      ssize_t sent = ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
      if (sent <= 0) return;
      done += size_t(sent);
    }
  }
  Frame readFrame() {
    Frame frame;
    std::string head = readBytes(2);
    if (head.size() < 2) return frame;
    frame.fin = head[0] & 0x80;
    frame.opcode = head[0] & 0x0F;
    frame.masked = head[1] & 0x80;
    uint64_t length = head[1] & 0x7F;
    if (length >= 126) {
      std::string extended = readBytes(length == 126 ? 2 : 8);
      length = 0;
      for (char byte : extended) length = (length << 8) | uint8_t(byte);
    }
    std::string mask = frame.masked ? readBytes(4) : std::string(4, '\0');
    frame.payload = readBytes(size_t(length));
    for (size_t i = 0; i < frame.payload.size(); ++i) frame.payload[i] ^= mask[i % 4];
    return frame;
  }

 private:
  std::string readBytes(size_t count) {
    std::string out(count, '\0');
    size_t done = 0;
    while (done < count) {
      ssize_t got = ::recv(fd_, out.data() + done, count - done, 0);
      if (got <= 0) break;
      done += size_t(got);
    }
    out.resize(done);
    return out;
  }

  int fd_;
  std::thread thread_;
};

// A client and a scripted server joined by a socketpair; the handshake is the script's.
struct Pair {
  std::unique_ptr<ScriptedServer> server;
  std::unique_ptr<LoopbackConnection> client;
};
Pair makePair() {
  int fds[2];
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
  return {std::make_unique<ScriptedServer>(fds[1]), std::make_unique<LoopbackConnection>(fds[0])};
}

// The key's answer is the one of the protocol's own example.
TEST(WebSocketClient, AcceptMatchesTheProtocolExample) {
  EXPECT_EQ(webSocketAccept("dGhlIHNhbXBsZSBub25jZQ=="), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");
}

// Messages in every framing a server may use arrive whole; pings are answered, the
// client's own frames are masked, and a close from the server ends the connection.
TEST(WebSocketClient, ExchangesMessagesInEveryFraming) {
  auto [server, connection] = makePair();
  const std::string big(70000, 'b'), medium(300, 'm');
  std::string request;
  std::vector<ScriptedServer::Frame> fromClient;
  server->run([&](ScriptedServer& s) {
    request = s.readRequest();
    // The first frame comes in the same write as the handshake's answer.
    s.send(ScriptedServer::upgradeAnswer(webSocketAccept(ScriptedServer::keyOf(request))) +
           ScriptedServer::frame(0x1, "hello"));
    s.send(ScriptedServer::frame(0x1, "frag", false) + ScriptedServer::frame(0x9, "p1") +
           ScriptedServer::frame(0x0, "men", false) + ScriptedServer::frame(0x0, "ted"));
    s.send(ScriptedServer::frame(0x1, big) + ScriptedServer::frame(0x1, medium));
    s.send(ScriptedServer::frame(0x2, "binary, skipped") + ScriptedServer::frame(0x1, "after binary"));
    for (int i = 0; i < 4; ++i) fromClient.push_back(s.readFrame());  // pong, three texts
    s.send(ScriptedServer::frame(0x8, std::string("\x03\xE8", 2)));
    fromClient.push_back(s.readFrame());  // the close answer
  });

  auto deadline = Clock::now() + 10s;
  auto client = WebSocketClient::handshake(std::move(connection), "127.0.0.1:9222", "/devtools/page/A", deadline);
  ASSERT_TRUE(client) << client.error();
  auto next = [&] {
    auto message = (*client)->receiveText(deadline);
    return message ? *message : "failed: " + message.error();
  };
  EXPECT_EQ(next(), "hello");
  EXPECT_EQ(next(), "fragmented");
  EXPECT_EQ(next(), big);
  EXPECT_EQ(next(), medium);
  EXPECT_EQ(next(), "after binary");
  for (const std::string& text : {big, medium, std::string("{}")}) EXPECT_TRUE((*client)->sendText(text, deadline));
  auto closed = (*client)->receiveText(deadline);
  ASSERT_FALSE(closed);
  EXPECT_EQ(closed.error(), "WebSocket: the server closed the connection (1000)");
  EXPECT_FALSE((*client)->sendText("late", deadline));
  server->join();

  EXPECT_EQ(request.rfind("GET /devtools/page/A HTTP/1.1\r\n", 0), 0u) << request;
  EXPECT_NE(request.find("Host: 127.0.0.1:9222\r\n"), std::string::npos);
  EXPECT_NE(request.find("Sec-WebSocket-Version: 13\r\n"), std::string::npos);
  ASSERT_EQ(fromClient.size(), 5u);
  EXPECT_EQ(fromClient[0].opcode, 0xA);
  EXPECT_EQ(fromClient[0].payload, "p1");
  EXPECT_EQ(fromClient[1].payload, big);
  EXPECT_EQ(fromClient[2].payload, medium);
  EXPECT_EQ(fromClient[3].payload, "{}");
  for (const auto& frame : fromClient) {
    EXPECT_TRUE(frame.masked);
    EXPECT_TRUE(frame.fin);
  }
  EXPECT_EQ(fromClient[1].opcode, 0x1);
  EXPECT_EQ(fromClient[4].opcode, 0x8);
}

// Servers that break the protocol, go quiet or hang up get a failure that says so.
TEST(WebSocketClient, RefusesBrokenOrSilentServers) {
  struct Case {
    const char* name;
    std::function<std::string(const std::string& key)> answer;  // sent after the request
    bool handshakeFails;
    std::string failure;
  };
  const std::vector<Case> cases = {
      {"wrong accept", [](const std::string&) { return ScriptedServer::upgradeAnswer("bm90IHRoZSBhbnN3ZXI="); }, true,
       "WebSocket handshake: wrong Sec-WebSocket-Accept"},
      {"refused", [](const std::string&) { return std::string("HTTP/1.1 403 Forbidden\r\n\r\n"); }, true,
       "WebSocket handshake: the server answered \"HTTP/1.1 403 Forbidden\""},
      {"masked frame",
       [](const std::string& key) {
         return ScriptedServer::upgradeAnswer(webSocketAccept(key)) + std::string("\x81\x81" "abcd" "x", 7);
       },
       false, "WebSocket: the server sent a masked frame"},
      {"huge frame",
       [](const std::string& key) {
         return ScriptedServer::upgradeAnswer(webSocketAccept(key)) +
                std::string("\x81\x7F\x00\x00\x00\x01\x00\x00\x00\x00", 10);
       },
       false, "WebSocket: a message is larger than 64 MiB"},
      {"silent", [](const std::string& key) { return ScriptedServer::upgradeAnswer(webSocketAccept(key)); }, false,
       "WebSocket: no answer within the time allowed"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    auto [server, connection] = makePair();
    server->run([&](ScriptedServer& s) { s.send(test.answer(ScriptedServer::keyOf(s.readRequest()))); });
    auto client = WebSocketClient::handshake(std::move(connection), "127.0.0.1:1", "/", Clock::now() + 5s);
    server->join();
    if (test.handshakeFails) {
      ASSERT_FALSE(client);
      EXPECT_EQ(client.error(), test.failure);
      continue;
    }
    ASSERT_TRUE(client) << client.error();
    auto received = (*client)->receiveText(Clock::now() + 200ms);
    ASSERT_FALSE(received);
    EXPECT_EQ(received.error(), test.failure);
  }

  // The server hangs up in the middle of a frame.
  auto [server, connection] = makePair();
  server->run([&](ScriptedServer& s) {
    s.send(ScriptedServer::upgradeAnswer(webSocketAccept(ScriptedServer::keyOf(s.readRequest()))) + "\x81\x05he");
  });
  auto client = WebSocketClient::handshake(std::move(connection), "127.0.0.1:1", "/", Clock::now() + 5s);
  server->join();
  server.reset();  // closes the server's end
  ASSERT_TRUE(client) << client.error();
  auto received = (*client)->receiveText(Clock::now() + 5s);
  ASSERT_FALSE(received);
  EXPECT_EQ(received.error(), "WebSocket: the connection was closed by the other side");

  auto remote = WebSocketClient::connect("ws://192.0.2.1:9222/devtools/page/A", Clock::now() + 1s);
  ASSERT_FALSE(remote);
  EXPECT_EQ(remote.error(), "only loopback hosts are allowed, not 192.0.2.1");
}

}  // namespace
}  // namespace zorvane
