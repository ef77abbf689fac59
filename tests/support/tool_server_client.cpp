#include "support/tool_server_client.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

namespace zorvane::testing {

ToolServerClient::ToolServerClient(const std::string& scopePath) {
  int in[2], out[2];
  if (pipe(in) != 0 || pipe(out) != 0) return;
  pid_ = fork();
  if (pid_ == 0) {
    dup2(in[0], STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    close(in[0]), close(in[1]), close(out[0]), close(out[1]);
    execl(ZORVANE_EXECUTABLE, ZORVANE_EXECUTABLE, "--mcp", "--scope", scopePath.c_str(), (char*)nullptr);
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  toServer_ = in[1];
  fromServer_ = out[0];
  JSONValue params = {{"protocolVersion", "2025-06-18"},
                      {"capabilities", JSONValue::object()},
                      {"clientInfo", {{"name", "desktop-tests"}, {"version", "1"}}}};
  JSONValue answer = request("initialize", params, 20);
  if (!answer.contains("result")) return;
  std::string note = encodeCompact(JSONValue{{"jsonrpc", "2.0"}, {"method", "notifications/initialized"}}) + "\n";
  ready_ = write(toServer_, note.data(), note.size()) == ssize_t(note.size());
}

ToolServerClient::~ToolServerClient() {
  if (toServer_ >= 0) close(toServer_);
  if (fromServer_ >= 0) close(fromServer_);
  if (pid_ > 0) {
    // Input closed: the server ends by itself; a stuck one is stopped.
    for (int i = 0; i < 200; ++i) {
      if (waitpid(pid_, nullptr, WNOHANG) == pid_) return;
      usleep(10000);
    }
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
}

JSONValue ToolServerClient::request(const std::string& method, const JSONValue& params, double timeout) {
  int id = nextID_++;
  std::string line =
      encodeCompact(JSONValue{{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", params}}) + "\n";
  if (write(toServer_, line.data(), line.size()) != ssize_t(line.size())) return {};
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeout);
  while (true) {
    for (size_t newline; (newline = buffered_.find('\n')) != std::string::npos;) {
      std::string message = buffered_.substr(0, newline);
      buffered_.erase(0, newline + 1);
      JSONValue value = JSONValue::parse(message, nullptr, false);
      if (value.is_object() && value.contains("id") && value["id"] == id) return value;
    }
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return {};
    pollfd fd{fromServer_, POLLIN, 0};
    if (poll(&fd, 1, int(left.count())) <= 0) return {};
    char chunk[65536];
    ssize_t n = read(fromServer_, chunk, sizeof chunk);
    if (n <= 0) return {};
    buffered_.append(chunk, size_t(n));
  }
}

ToolServerClient::Result ToolServerClient::call(const std::string& tool, const JSONValue& arguments, double timeout) {
  JSONValue answer = request("tools/call", {{"name", tool}, {"arguments", arguments}}, timeout);
  Result result;
  if (!answer.contains("result")) {
    result.isError = true;
    result.text = "no answer: " + encodeCompact(answer);
    return result;
  }
  const JSONValue& body = answer["result"];
  result.isError = body.value("isError", false);
  for (const JSONValue& item : body.value("content", JSONValue::array())) {
    if (item.value("type", "") == "text") {
      if (!result.text.empty()) result.text += "\n";
      result.text += item.value("text", "");
    } else if (item.value("type", "") == "image" && result.imageBase64.empty()) {
      result.imageBase64 = item.value("data", "");
      result.imageMime = item.value("mimeType", "");
    }
  }
  return result;
}

}  // namespace zorvane::testing
