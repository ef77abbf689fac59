#include "app/peers/peer_server.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <mutex>

#include "core/base/file_io.h"
#include "core/base/log.h"

namespace zorvane {

// What connection threads share with the server; it outlives the server object so a
// late connection never touches a destroyed one.
struct PeerServer::Shared {
  Handler handler;
  MainQueue* queue;
};

namespace {

// One accepted connection. Its descriptor is closed by the reply, or when the last
// holder lets go without replying.
class Connection {
 public:
  explicit Connection(int fd) : fd_(fd) {}
  ~Connection() { close(); }
  void reply(const PeerResponse& response) {
    std::lock_guard lock(mutex_);
    if (fd_ < 0) return;  // answered already
    writePeerMessage(fd_, response.encoded() + "\n");
    ::close(std::exchange(fd_, -1));
  }
  int fd() const { return fd_; }

 private:
  void close() {
    std::lock_guard lock(mutex_);
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
  }
  std::mutex mutex_;
  int fd_;
};

}  // namespace

PeerServer::PeerServer(Handler handler, MainQueue& queue)
    : shared_(std::make_shared<Shared>(Shared{std::move(handler), &queue})) {}

PeerServer::~PeerServer() { stop(); }

Expected<void> PeerServer::start() {
  path_ = PeerIPC::socketPath();
  std::string folder = path_.substr(0, path_.rfind('/'));
  if (!folder.empty()) (void)createDirectories(folder, 0700);
  ::unlink(PeerIPC::addressPath(path_).c_str());

  fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0) {
    Log::info("peer server: socket failed");
    return Failure{"peer server: socket failed"};
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string bound = PeerIPC::addressPath(path_);
  bound.copy(address.sun_path, bound.size());
  // Create the socket file with no access for others from the first moment (the
  // chmod below alone would leave a short window). Only the main thread creates files
  // while this runs.
  mode_t old = ::umask(0177);
  int rc = ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::umask(old);
  if (rc != 0 || ::listen(fd_, 16) != 0) {
    std::string text = "peer server: bind/listen failed errno=" + std::to_string(errno);
    Log::info(text);
    ::close(std::exchange(fd_, -1));
    return Failure{text};
  }
  ::chmod(bound.c_str(), 0600);
  acceptThread_ = std::thread([this] { acceptLoop(); });
  Log::info("peer server listening at " + path_);
  return ok();
}

void PeerServer::stop() {
  if (fd_ < 0) return;
  // shutdown wakes a blocked accept() (close alone doesn't on Linux); the descriptor is
  // closed only after the thread is gone, so its number can't be reused under it.
  ::shutdown(fd_, SHUT_RDWR);
  if (acceptThread_.joinable()) acceptThread_.join();
  ::close(std::exchange(fd_, -1));
}

void PeerServer::acceptLoop() {
  int listening = fd_;
  auto shared = shared_;
  for (;;) {
    int client = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) {
      if (errno == EINTR || errno == ECONNABORTED || errno == EMFILE || errno == ENFILE) continue;
      return;  // the listening socket was shut down or closed
    }
    std::thread([client, shared] {
      auto connection = std::make_shared<Connection>(client);
      auto request = PeerRequest::decode(readPeerMessage(client));
      if (!request) {
        connection->reply({false, "Bad request"});
        return;
      }
      shared->queue->post([shared, connection, request = std::move(*request)] {
        shared->handler(request, [connection](const PeerResponse& response) { connection->reply(response); });
      });
    }).detach();
  }
}

}  // namespace zorvane
