#include "app/peers/peer_server.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>

#include "core/base/file_io.h"
#include "core/base/log.h"

namespace zorvane {

// What the accept and reader threads share with the server; it outlives the server
// object so a late reply never touches a destroyed one.
struct PeerServer::Shared {
  Handler handler;
  MainQueue* queue;
  std::mutex mutex;
  std::condition_variable ready;
  std::deque<int> accepted;  // connections waiting for a reader
  bool stopping = false;
  std::atomic<int> open{0};  // connections not yet answered or closed
};

namespace {

// One accepted connection. Its descriptor is closed by the reply, or when the last
// holder lets go without replying; either way it stops counting as open.
class Connection {
 public:
  Connection(int fd, std::shared_ptr<PeerServer::Shared> shared) : fd_(fd), shared_(std::move(shared)) {}
  ~Connection() { close(); }
  void reply(const PeerResponse& response) {
    std::lock_guard lock(mutex_);
    if (fd_ < 0) return;  // answered already
    writePeerMessage(fd_, response.encoded() + "\n");
    closeLocked();
  }

 private:
  void close() {
    std::lock_guard lock(mutex_);
    closeLocked();
  }
  void closeLocked() {
    if (fd_ < 0) return;
    ::close(std::exchange(fd_, -1));
    shared_->open--;
  }
  std::mutex mutex_;
  int fd_;
  std::shared_ptr<PeerServer::Shared> shared_;
};

void answerAndClose(int fd, const PeerResponse& response) {
  writePeerMessage(fd, response.encoded() + "\n");
  ::close(fd);
}

// Reads and hands over requests until the server stops.
void readLoop(const std::shared_ptr<PeerServer::Shared>& shared) {
  for (;;) {
    int client;
    {
      std::unique_lock lock(shared->mutex);
      shared->ready.wait(lock, [&] { return shared->stopping || !shared->accepted.empty(); });
      if (shared->stopping) return;
      client = shared->accepted.front();
      shared->accepted.pop_front();
    }
    ucred credentials{};
    socklen_t size = sizeof credentials;
    (void)::getsockopt(client, SOL_SOCKET, SO_PEERCRED, &credentials, &size);
    auto connection = std::make_shared<Connection>(client, shared);
    auto request = PeerRequest::decode(readPeerMessage(client, kPeerRequestLimit));
    if (!request) {
      connection->reply({false, "Bad request"});
      continue;
    }
    request->senderPID = credentials.pid;
    shared->queue->post([shared, connection, request = std::move(*request)] {
      shared->handler(request, [connection](const PeerResponse& response) { connection->reply(response); });
    });
  }
}

}  // namespace

PeerServer::PeerServer(Handler handler, MainQueue& queue, double readSeconds)
    : shared_(std::make_shared<Shared>()), readSeconds_(readSeconds) {
  shared_->handler = std::move(handler);
  shared_->queue = &queue;
}

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
  shared_->stopping = false;
  for (int i = 0; i < kReaders; ++i) readers_.emplace_back([shared = shared_] { readLoop(shared); });
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
  {
    std::lock_guard lock(shared_->mutex);
    shared_->stopping = true;
    for (int client : shared_->accepted) ::close(client);
    shared_->accepted.clear();
  }
  shared_->ready.notify_all();
  // A reader blocked in a read wakes by its receive time-out at the latest.
  for (std::thread& reader : readers_)
    if (reader.joinable()) reader.join();
  readers_.clear();
  ::close(std::exchange(fd_, -1));
}

void PeerServer::acceptLoop() {
  int listening = fd_;
  auto shared = shared_;
  uid_t self = ::geteuid();
  bool warnedForeign = false;
  for (;;) {
    int client = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        // Out of descriptors: the pending connection stays in the backlog; wait for
        // answers to free some instead of spinning on accept.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        continue;
      }
      return;  // the listening socket was shut down or closed
    }
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(client, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 || credentials.uid != self) {
      if (!warnedForeign) Log::info("peer server: refused a connection of another user (uid " +
                                    std::to_string(credentials.uid) + ")");
      warnedForeign = true;
      ::close(client);
      continue;
    }
    timeval timeout{static_cast<time_t>(readSeconds_),
                    static_cast<suseconds_t>((readSeconds_ - static_cast<time_t>(readSeconds_)) * 1e6)};
    ::setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    if (shared->open.load() >= kMaxOpen) {
      answerAndClose(client, {false, "Zorvane is busy with other requests; try again in a moment."});
      continue;
    }
    shared->open++;
    {
      std::lock_guard lock(shared->mutex);
      shared->accepted.push_back(client);
    }
    shared->ready.notify_one();
  }
}

}  // namespace zorvane
