#include "platform/linux/websocket_client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <glib.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>

namespace zorvane {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint8_t kContinuation = 0x0, kText = 0x1, kBinary = 0x2, kClose = 0x8, kPing = 0x9, kPong = 0xA;
constexpr size_t kMaxHandshakeBytes = 16 * 1024;
constexpr auto kCloseGrace = std::chrono::milliseconds(200);

std::string lowercase(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), [](unsigned char c) { return std::tolower(c); });
  return result;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) text.remove_suffix(1);
  return text;
}

// Milliseconds left until the deadline, for poll(); 0 when it has passed.
int millisecondsUntil(Clock::time_point deadline) {
  auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return int(std::clamp<long long>(left, 0, 1 << 30));
}

// Waits until the socket is ready for `events`; false at the deadline.
Expected<void> waitFor(int fd, short events, Clock::time_point deadline) {
  for (;;) {
    int timeout = millisecondsUntil(deadline);
    pollfd entry{fd, events, 0};
    int ready = ::poll(&entry, 1, timeout);
    if (ready > 0) return ok();
    if (ready == 0) return Failure{"no answer within the time allowed"};
    if (errno != EINTR) return Failure{std::string("poll failed: ") + std::strerror(errno)};
  }
}

bool isLoopbackHost(std::string_view host) { return host == "127.0.0.1" || host == "localhost" || host == "::1"; }

std::string randomKey(std::mt19937& random) {
  std::array<unsigned char, 16> nonce{};
  for (auto& byte : nonce) byte = static_cast<unsigned char>(random());
  std::unique_ptr<char, decltype(&g_free)> encoded(g_base64_encode(nonce.data(), nonce.size()), &g_free);
  return encoded.get();
}

}  // namespace

// ---- LoopbackConnection ----

LoopbackConnection::LoopbackConnection(int fd) : fd_(fd) {
  if (fd_ < 0) return;
  int flags = ::fcntl(fd_, F_GETFL);
  if (flags >= 0) ::fcntl(fd_, F_SETFL, flags | O_NONBLOCK);
}

LoopbackConnection::~LoopbackConnection() { close(); }

void LoopbackConnection::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

Expected<std::unique_ptr<LoopbackConnection>> LoopbackConnection::open(std::string_view host, uint16_t port,
                                                                        Clock::time_point deadline) {
  if (!isLoopbackHost(host)) return Failure{"only loopback hosts are allowed, not " + std::string(host)};
  bool ipv6 = host == "::1";
  int fd = ::socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return Failure{std::string("no socket: ") + std::strerror(errno)};
  auto connection = std::make_unique<LoopbackConnection>(fd);

  int result;
  if (ipv6) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    address.sin6_addr = in6addr_loopback;
    result = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  } else {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    result = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  }
  std::string where = std::string(host) + ":" + std::to_string(port);
  if (result != 0 && errno != EINPROGRESS) return Failure{"can't connect to " + where + ": " + std::strerror(errno)};
  if (result != 0) {
    if (auto ready = waitFor(fd, POLLOUT, deadline); !ready) return Failure{"can't connect to " + where + ": " + ready.error()};
    int error = 0;
    socklen_t length = sizeof error;
    ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length);
    if (error != 0) return Failure{"can't connect to " + where + ": " + std::strerror(error)};
  }
  int one = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  return connection;
}

Expected<void> LoopbackConnection::sendAll(std::string_view bytes, Clock::time_point deadline) {
  while (!bytes.empty()) {
    if (fd_ < 0) return Failure{"the connection is closed"};
    ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent > 0) {
      bytes.remove_prefix(size_t(sent));
      continue;
    }
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      if (auto ready = waitFor(fd_, POLLOUT, deadline); !ready) return ready;
      continue;
    }
    return Failure{std::string("sending failed: ") + std::strerror(errno)};
  }
  return ok();
}

Expected<void> LoopbackConnection::receiveSome(std::string& into, Clock::time_point deadline) {
  std::array<char, 64 * 1024> buffer{};
  for (;;) {
    if (fd_ < 0) return Failure{"the connection is closed"};
    ssize_t count = ::recv(fd_, buffer.data(), buffer.size(), 0);
    if (count > 0) {
      into.append(buffer.data(), size_t(count));
      return ok();
    }
    if (count == 0) return Failure{"the connection was closed by the other side"};
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return Failure{std::string("receiving failed: ") + std::strerror(errno)};
    if (auto ready = waitFor(fd_, POLLIN, deadline); !ready) return ready;
  }
}

// ---- WebSocketClient ----

std::string webSocketAccept(std::string_view key) {
  std::string input = std::string(key) + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
  GChecksum* checksum = g_checksum_new(G_CHECKSUM_SHA1);
  g_checksum_update(checksum, reinterpret_cast<const guchar*>(input.data()), gssize(input.size()));
  std::array<guint8, 20> digest{};
  gsize length = digest.size();
  g_checksum_get_digest(checksum, digest.data(), &length);
  g_checksum_free(checksum);
  std::unique_ptr<char, decltype(&g_free)> encoded(g_base64_encode(digest.data(), length), &g_free);
  return encoded.get();
}

WebSocketClient::WebSocketClient(std::unique_ptr<LoopbackConnection> connection, std::string received)
    : connection_(std::move(connection)), received_(std::move(received)), random_(std::random_device{}()) {}

WebSocketClient::~WebSocketClient() { close(); }

Expected<std::unique_ptr<WebSocketClient>> WebSocketClient::connect(std::string_view url,
                                                                    Clock::time_point deadline) {
  constexpr std::string_view kScheme = "ws://";
  if (url.substr(0, kScheme.size()) != kScheme) return Failure{"not a ws:// URL: " + std::string(url)};
  std::string_view rest = url.substr(kScheme.size());
  size_t slash = rest.find('/');
  std::string_view authority = rest.substr(0, slash);
  std::string_view path = slash == std::string_view::npos ? "/" : rest.substr(slash);

  std::string_view host = authority;
  std::string_view portText;
  if (!authority.empty() && authority.front() == '[') {
    size_t close = authority.find(']');
    if (close == std::string_view::npos) return Failure{"bad host in " + std::string(url)};
    host = authority.substr(1, close - 1);
    if (close + 1 < authority.size() && authority[close + 1] == ':') portText = authority.substr(close + 2);
  } else if (size_t colon = authority.rfind(':'); colon != std::string_view::npos) {
    host = authority.substr(0, colon);
    portText = authority.substr(colon + 1);
  }
  unsigned port = 80;
  if (!portText.empty()) {
    port = 0;
    for (char c : portText) {
      if (!std::isdigit(static_cast<unsigned char>(c)) || port > 65535) return Failure{"bad port in " + std::string(url)};
      port = port * 10 + unsigned(c - '0');
    }
    if (port == 0 || port > 65535) return Failure{"bad port in " + std::string(url)};
  }
  auto connection = LoopbackConnection::open(host, uint16_t(port), deadline);
  if (!connection) return Failure{connection.error()};
  return handshake(std::move(*connection), authority, path, deadline);
}

Expected<std::unique_ptr<WebSocketClient>> WebSocketClient::handshake(std::unique_ptr<LoopbackConnection> connection,
                                                                      std::string_view hostAndPort,
                                                                      std::string_view path,
                                                                      Clock::time_point deadline) {
  std::mt19937 random(std::random_device{}());
  std::string key = randomKey(random);
  std::string request = "GET " + std::string(path) + " HTTP/1.1\r\nHost: " + std::string(hostAndPort) +
                        "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Key: " + key +
                        "\r\nSec-WebSocket-Version: 13\r\n\r\n";
  if (auto sent = connection->sendAll(request, deadline); !sent) return Failure{"WebSocket handshake: " + sent.error()};

  std::string received;
  size_t headerEnd;
  while ((headerEnd = received.find("\r\n\r\n")) == std::string::npos) {
    if (received.size() > kMaxHandshakeBytes) return Failure{"WebSocket handshake: the answer's header is too long"};
    if (auto more = connection->receiveSome(received, deadline); !more) return Failure{"WebSocket handshake: " + more.error()};
  }
  std::string_view header(received.data(), headerEnd);
  size_t lineEnd = header.find("\r\n");
  std::string_view statusLine = header.substr(0, lineEnd);
  if (statusLine.substr(0, 12) != "HTTP/1.1 101")
    return Failure{"WebSocket handshake: the server answered \"" + std::string(statusLine) + "\""};

  bool upgrade = false, connectionUpgrade = false;
  std::string accept;
  std::string_view lines = lineEnd == std::string_view::npos ? std::string_view() : header.substr(lineEnd + 2);
  while (!lines.empty()) {
    size_t end = lines.find("\r\n");
    std::string_view line = lines.substr(0, end);
    lines = end == std::string_view::npos ? std::string_view() : lines.substr(end + 2);
    size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    std::string name = lowercase(trimmed(line.substr(0, colon)));
    std::string_view value = trimmed(line.substr(colon + 1));
    if (name == "upgrade") upgrade = lowercase(value) == "websocket";
    if (name == "connection") connectionUpgrade = lowercase(value).find("upgrade") != std::string::npos;
    if (name == "sec-websocket-accept") accept = std::string(value);
  }
  if (!upgrade || !connectionUpgrade) return Failure{"WebSocket handshake: the server didn't upgrade the connection"};
  if (accept != webSocketAccept(key)) return Failure{"WebSocket handshake: wrong Sec-WebSocket-Accept"};

  received.erase(0, headerEnd + 4);
  return std::unique_ptr<WebSocketClient>(new WebSocketClient(std::move(connection), std::move(received)));
}

Failure WebSocketClient::abandon(std::string text) {
  if (connection_) connection_->close();
  closed_ = true;
  return Failure{std::move(text)};
}

Expected<void> WebSocketClient::sendFrame(uint8_t opcode, std::string_view payload, Clock::time_point deadline) {
  if (closed_) return Failure{"the WebSocket is closed"};
  std::string frame;
  frame.reserve(payload.size() + 14);
  frame.push_back(char(0x80 | opcode));
  if (payload.size() < 126) {
    frame.push_back(char(0x80 | payload.size()));
  } else if (payload.size() <= 0xFFFF) {
    frame.push_back(char(0x80 | 126));
    frame.push_back(char(payload.size() >> 8));
    frame.push_back(char(payload.size() & 0xFF));
  } else {
    frame.push_back(char(0x80 | 127));
    for (int shift = 56; shift >= 0; shift -= 8) frame.push_back(char((uint64_t(payload.size()) >> shift) & 0xFF));
  }
  std::array<char, 4> mask{};
  for (char& byte : mask) byte = char(random_());
  frame.append(mask.data(), mask.size());
  size_t start = frame.size();
  frame.append(payload);
  for (size_t index = 0; index < payload.size(); ++index) frame[start + index] ^= mask[index % 4];
  if (auto sent = connection_->sendAll(frame, deadline); !sent) return abandon("WebSocket: " + sent.error());
  return ok();
}

Expected<void> WebSocketClient::sendText(std::string_view text, Clock::time_point deadline) {
  return sendFrame(kText, text, deadline);
}

Expected<std::string> WebSocketClient::receiveText(Clock::time_point deadline) {
  std::string message;
  bool inMessage = false, messageIsText = false;
  for (;;) {
    if (closed_) return Failure{"the WebSocket is closed"};
    // A peer that never stops sending (pings, fragments) can't hold the caller past
    // its deadline either.
    if (Clock::now() >= deadline) return Failure{"WebSocket: no message in time"};
    // One whole frame in `received_`, or read more.
    size_t headerSize = 2;
    uint64_t length = 0;
    bool complete = false;
    if (received_.size() >= 2) {
      auto byte1 = uint8_t(received_[1]);
      if (byte1 & 0x80) return abandon("WebSocket: the server sent a masked frame");
      length = byte1 & 0x7F;
      if (length == 126) headerSize = 4;
      if (length == 127) headerSize = 10;
      if (received_.size() >= headerSize) {
        if (length >= 126) {
          length = 0;
          for (size_t index = 2; index < headerSize; ++index) length = (length << 8) | uint8_t(received_[index]);
        }
        if (length > kMaxMessageBytes || message.size() + length > kMaxMessageBytes)
          return abandon("WebSocket: a message is larger than " + std::to_string(kMaxMessageBytes >> 20) + " MiB");
        complete = received_.size() >= headerSize + length;
      }
    }
    if (!complete) {
      if (auto more = connection_->receiveSome(received_, deadline); !more) return abandon("WebSocket: " + more.error());
      continue;
    }

    auto byte0 = uint8_t(received_[0]);
    bool fin = byte0 & 0x80;
    uint8_t opcode = byte0 & 0x0F;
    if (byte0 & 0x70) return abandon("WebSocket: the server used an extension that wasn't agreed");
    std::string payload = received_.substr(headerSize, size_t(length));
    received_.erase(0, headerSize + size_t(length));

    if (opcode >= 0x8) {
      if (!fin || length > 125) return abandon("WebSocket: malformed control frame");
      if (opcode == kPing) {
        if (auto sent = sendFrame(kPong, payload, deadline); !sent) return Failure{sent.error()};
        continue;
      }
      if (opcode == kPong) continue;
      if (opcode == kClose) {
        std::string code = payload.size() >= 2
                               ? std::to_string((uint8_t(payload[0]) << 8) | uint8_t(payload[1]))
                               : std::string("no code");
        (void)sendFrame(kClose, payload.substr(0, 2), std::min(deadline, Clock::now() + kCloseGrace));
        return abandon("WebSocket: the server closed the connection (" + code + ")");
      }
      return abandon("WebSocket: unknown control frame " + std::to_string(opcode));
    }

    if (opcode == kContinuation) {
      if (!inMessage) return abandon("WebSocket: a continuation frame outside a message");
    } else if (opcode == kText || opcode == kBinary) {
      if (inMessage) return abandon("WebSocket: a new message inside a fragmented one");
      inMessage = true;
      messageIsText = opcode == kText;
    } else {
      return abandon("WebSocket: unknown frame " + std::to_string(opcode));
    }
    message += payload;
    if (!fin) continue;
    if (messageIsText) return message;
    message.clear();  // a binary message: not for us
    inMessage = false;
  }
}

void WebSocketClient::close() {
  if (closed_) return;
  (void)sendFrame(kClose, std::string_view("\x03\xE8", 2), Clock::now() + kCloseGrace);
  closed_ = true;
  if (connection_) connection_->close();
}

}  // namespace zorvane
