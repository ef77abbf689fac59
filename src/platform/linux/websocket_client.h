// WebSocketClient: the client side of RFC 6455 over a loopback TCP connection, enough to
// talk to a browser's DevTools endpoint.
//
//   auto client = WebSocketClient::connect("ws://127.0.0.1:9222/devtools/page/AB12", deadline);
//   if (!client) return Failure{client.error()};
//   auto sent = (*client)->sendText(R"({"id":1,"method":"Page.enable"})", deadline);
//   auto reply = (*client)->receiveText(deadline);
//
// What it does: the opening handshake with a random Sec-WebSocket-Key, checking the
// server's Sec-WebSocket-Accept; masked text frames out (7-, 16- and 64-bit lengths);
// frames in, with fragmented messages put back together, pings answered with pongs in
// between, and a close frame answered and reported. What it refuses: hosts other than
// the loopback ones, masked or malformed frames from the server, messages over
// `kMaxMessageBytes`. Every wait ends at the caller's deadline; a failure's text says
// what happened ("no answer within the time allowed", "the server closed the
// connection (1000)"). After a failure the connection is unusable.
//
// Blocking, for one thread. `close()` is idempotent and also runs on destruction.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <string_view>

#include "core/base/expected.h"

namespace zorvane {

// A non-blocking loopback TCP socket whose every wait ends at a deadline.
class LoopbackConnection {
 public:
  using Clock = std::chrono::steady_clock;

  // Takes ownership of a connected socket (any stream socket; tests pass a socketpair).
  explicit LoopbackConnection(int fd);
  ~LoopbackConnection();
  LoopbackConnection(const LoopbackConnection&) = delete;
  LoopbackConnection& operator=(const LoopbackConnection&) = delete;

  // Connects to `host` ("127.0.0.1", "localhost" or "::1") at `port`.
  [[nodiscard]] static Expected<std::unique_ptr<LoopbackConnection>> open(std::string_view host, uint16_t port,
                                                                         Clock::time_point deadline);

  [[nodiscard]] Expected<void> sendAll(std::string_view bytes, Clock::time_point deadline);
  // Appends what arrives next (at least one byte) to `into`; fails at the end of the
  // stream or the deadline.
  [[nodiscard]] Expected<void> receiveSome(std::string& into, Clock::time_point deadline);
  void close();

 private:
  int fd_;
};

class WebSocketClient {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr size_t kMaxMessageBytes = size_t(64) << 20;

  // Connects to a ws:// URL on a loopback host and does the opening handshake.
  [[nodiscard]] static Expected<std::unique_ptr<WebSocketClient>> connect(std::string_view url,
                                                                         Clock::time_point deadline);
  // The opening handshake over an open connection; `hostAndPort` goes into the Host
  // header.
  [[nodiscard]] static Expected<std::unique_ptr<WebSocketClient>> handshake(
      std::unique_ptr<LoopbackConnection> connection, std::string_view hostAndPort, std::string_view path,
      Clock::time_point deadline);

  ~WebSocketClient();
  WebSocketClient(const WebSocketClient&) = delete;
  WebSocketClient& operator=(const WebSocketClient&) = delete;

  [[nodiscard]] Expected<void> sendText(std::string_view text, Clock::time_point deadline);
  // The next whole text message. Binary messages are skipped; pings are answered.
  [[nodiscard]] Expected<std::string> receiveText(Clock::time_point deadline);
  // Sends a close frame (waiting at most a moment) and closes the socket.
  void close();

 private:
  explicit WebSocketClient(std::unique_ptr<LoopbackConnection> connection, std::string received);
  Expected<void> sendFrame(uint8_t opcode, std::string_view payload, Clock::time_point deadline);
  // Closes the connection for good and gives the failure to return.
  Failure abandon(std::string text);

  std::unique_ptr<LoopbackConnection> connection_;
  std::string received_;  // bytes read but not yet parsed
  std::mt19937 random_;
  bool closed_ = false;
};

// The Sec-WebSocket-Accept a server answers to `key`: Base64 of the SHA-1 of the key and
// the protocol's fixed GUID.
std::string webSocketAccept(std::string_view key);

}  // namespace zorvane
