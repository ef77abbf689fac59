#include "platform/http_fetch.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

#include "core/base/curl_library.h"

namespace zorvane {

namespace {

std::string seconds(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g s", value);
  return text;
}

// One GET, owned by the worker thread from the moment it is handed over.
struct Transfer {
  std::string url;
  HTTPFetchOptions options;
  std::function<void(Expected<HTTPResponse>)> done;
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  HTTPResponse response;
  bool overCap = false;
  char error[CURL_ERROR_SIZE] = {};
};

size_t receiveBody(char* data, size_t size, size_t count, void* context) {
  auto* transfer = static_cast<Transfer*>(context);
  size_t bytes = size * count;
  if (transfer->response.body.size() + bytes > transfer->options.maxBodyBytes) {
    transfer->overCap = true;
    return 0;  // ends the transfer with a write error
  }
  transfer->response.body.append(data, bytes);
  return bytes;
}

size_t receiveHeader(char* data, size_t size, size_t count, void* context) {
  auto* transfer = static_cast<Transfer*>(context);
  size_t bytes = size * count;
  std::string line(data, bytes);
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
  // A status line starts each response of a redirect chain: keep the last one's headers.
  if (line.rfind("HTTP/", 0) == 0) {
    transfer->response.headers.clear();
    return bytes;
  }
  size_t colon = line.find(':');
  if (colon == std::string::npos || colon == 0) return bytes;
  std::string name = line.substr(0, colon);
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  size_t start = line.find_first_not_of(" \t", colon + 1);
  transfer->response.headers[name] = start == std::string::npos ? "" : line.substr(start);
  return bytes;
}

class CurlHTTPFetch final : public HTTPFetch {
 public:
  explicit CurlHTTPFetch(MainQueue& queue) : queue_(queue) {}

  ~CurlHTTPFetch() override {
    alive_.reset();
    if (worker_.joinable()) {
      {
        std::lock_guard lock(mutex_);
        stopping_ = true;
      }
      curl_->multiWakeup(multi_);
      worker_.join();
    }
    if (multi_) curl_->multiCleanup(multi_);
    // The worker leaves what it didn't finish; the completions die here, on the main
    // queue, uncalled.
    abandoned_.clear();
    incoming_.clear();
  }

  void get(const std::string& url, const HTTPFetchOptions& options,
           std::function<void(Expected<HTTPResponse>)> done) override {
    auto transfer = std::make_unique<Transfer>();
    transfer->url = url;
    transfer->options = options;
    transfer->done = std::move(done);
    if (auto started = startWorker(); !started) {
      finish(std::move(transfer), Failure{"GET " + url + ": " + started.error()});
      return;
    }
    {
      std::lock_guard lock(mutex_);
      incoming_.push_back(std::move(transfer));
    }
    curl_->multiWakeup(multi_);
  }

 private:
  Expected<void> startWorker() {
    if (worker_.joinable()) return ok();
    curl_ = CurlLibrary::get();
    if (!curl_ || !curl_->hasTransfers) return Failure{"libcurl with HTTP transfers isn't available"};
    multi_ = curl_->multiInit();
    if (!multi_) return Failure{"libcurl couldn't start"};
    worker_ = std::thread([this] { run(); });
    return ok();
  }

  // Main queue or worker: hands the result to the main queue.
  void finish(std::unique_ptr<Transfer> transfer, Expected<HTTPResponse> result) {
    queue_.post([weak = aliveToken_, done = std::move(transfer->done), result = std::move(result)]() mutable {
      if (!weak.expired() && done) done(std::move(result));
    });
  }

  // Worker thread.
  bool begin(Transfer& transfer) {
    CURL* easy = curl_->easyInit();
    if (!easy) return false;
    transfer.easy = easy;
    auto set = curl_->easySetopt;
    set(easy, CURLOPT_URL, transfer.url.c_str());
    set(easy, CURLOPT_PRIVATE, static_cast<void*>(&transfer));
    set(easy, CURLOPT_ERRORBUFFER, transfer.error);
    set(easy, CURLOPT_NOSIGNAL, 1L);
    set(easy, CURLOPT_HTTPGET, 1L);
    set(easy, CURLOPT_FOLLOWLOCATION, 1L);
    set(easy, CURLOPT_MAXREDIRS, 5L);
    if (set(easy, CURLOPT_PROTOCOLS_STR, "http,https") != CURLE_OK) {  // before 7.85
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
      set(easy, CURLOPT_PROTOCOLS, long(CURLPROTO_HTTP | CURLPROTO_HTTPS));
      set(easy, CURLOPT_REDIR_PROTOCOLS, long(CURLPROTO_HTTP | CURLPROTO_HTTPS));
#pragma GCC diagnostic pop
    } else {
      set(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    }
    set(easy, CURLOPT_CONNECTTIMEOUT_MS, long(transfer.options.connectTimeoutSeconds * 1000));
    set(easy, CURLOPT_TIMEOUT_MS, long(transfer.options.totalTimeoutSeconds * 1000));
    set(easy, CURLOPT_MAXFILESIZE_LARGE, curl_off_t(transfer.options.maxBodyBytes));
    set(easy, CURLOPT_ACCEPT_ENCODING, "");  // whatever this libcurl can decode
    set(easy, CURLOPT_USERAGENT, "Zorvane/0.1");
    set(easy, CURLOPT_WRITEFUNCTION, receiveBody);
    set(easy, CURLOPT_WRITEDATA, static_cast<void*>(&transfer));
    set(easy, CURLOPT_HEADERFUNCTION, receiveHeader);
    set(easy, CURLOPT_HEADERDATA, static_cast<void*>(&transfer));
    for (const auto& header : transfer.options.headers)
      transfer.headers = curl_->slistAppend(transfer.headers, header.c_str());
    if (transfer.headers) set(easy, CURLOPT_HTTPHEADER, transfer.headers);
    return curl_->multiAddHandle(multi_, easy) == CURLM_OK;
  }

  void release(Transfer& transfer) {
    if (transfer.easy) {
      curl_->multiRemoveHandle(multi_, transfer.easy);
      curl_->easyCleanup(transfer.easy);
      transfer.easy = nullptr;
    }
    if (transfer.headers) curl_->slistFreeAll(transfer.headers);
    transfer.headers = nullptr;
  }

  Expected<HTTPResponse> outcome(Transfer& transfer, CURLcode code) {
    std::string what = "GET " + transfer.url + ": ";
    if (code == CURLE_OK) {
      curl_->easyGetinfo(transfer.easy, CURLINFO_RESPONSE_CODE, &transfer.response.status);
      char* effective = nullptr;
      curl_->easyGetinfo(transfer.easy, CURLINFO_EFFECTIVE_URL, &effective);
      transfer.response.url = effective ? effective : transfer.url;
      return std::move(transfer.response);
    }
    if (transfer.overCap || code == CURLE_FILESIZE_EXCEEDED)
      return Failure{what + "the page is larger than " + std::to_string(transfer.options.maxBodyBytes) + " bytes"};
    if (code == CURLE_OPERATION_TIMEDOUT) {
      curl_off_t connected = 0;
      curl_->easyGetinfo(transfer.easy, CURLINFO_CONNECT_TIME_T, &connected);
      if (connected == 0)
        return Failure{what + "couldn't connect within " + seconds(transfer.options.connectTimeoutSeconds)};
      return Failure{what + "timed out after " + seconds(transfer.options.totalTimeoutSeconds)};
    }
    if (code == CURLE_UNSUPPORTED_PROTOCOL) return Failure{what + "only http and https pages can be fetched"};
    if (code == CURLE_URL_MALFORMAT) return Failure{what + "not a valid URL"};
    return Failure{what + (transfer.error[0] ? transfer.error : curl_->easyStrerror(code))};
  }

  void run() {
    std::map<CURL*, std::unique_ptr<Transfer>> active;
    for (;;) {
      std::deque<std::unique_ptr<Transfer>> arrived;
      {
        std::lock_guard lock(mutex_);
        if (stopping_) break;
        arrived.swap(incoming_);
      }
      for (auto& transfer : arrived) {
        if (!begin(*transfer)) {
          release(*transfer);
          std::string url = transfer->url;
          finish(std::move(transfer), Failure{"GET " + url + ": libcurl couldn't start the transfer"});
          continue;
        }
        CURL* easy = transfer->easy;
        active.emplace(easy, std::move(transfer));
      }
      int running = 0;
      curl_->multiPerform(multi_, &running);
      int left = 0;
      while (CURLMsg* message = curl_->multiInfoRead(multi_, &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        auto found = active.find(message->easy_handle);
        if (found == active.end()) continue;
        std::unique_ptr<Transfer> transfer = std::move(found->second);
        active.erase(found);
        auto result = outcome(*transfer, message->data.result);
        release(*transfer);
        finish(std::move(transfer), std::move(result));
      }
      // Wakes for socket activity, a time-out of a transfer, or multiWakeup.
      curl_->multiPoll(multi_, nullptr, 0, 1000, nullptr);
    }
    std::lock_guard lock(mutex_);
    for (auto& [easy, transfer] : active) {
      release(*transfer);
      abandoned_.push_back(std::move(transfer));
    }
  }

  MainQueue& queue_;
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
  const std::weak_ptr<int> aliveToken_ = alive_;
  const CurlLibrary* curl_ = nullptr;
  CURLM* multi_ = nullptr;
  std::thread worker_;
  std::mutex mutex_;
  bool stopping_ = false;
  std::deque<std::unique_ptr<Transfer>> incoming_;
  std::vector<std::unique_ptr<Transfer>> abandoned_;
};

}  // namespace

std::unique_ptr<HTTPFetch> HTTPFetch::create(MainQueue& queue) { return std::make_unique<CurlHTTPFetch>(queue); }

}  // namespace zorvane
