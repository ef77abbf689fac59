#include "core/mcp/mcp_server.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "core/mcp/zorvane_tools.h"

namespace zorvane {
namespace {

MCPServer makeServer(std::vector<std::string>* calls = nullptr) {
  return MCPServer(ZorvaneTools::specs(), [calls](const std::string& name, const JSONObject& arguments) {
    if (calls) calls->push_back(name + " " + JSONValue(arguments).dump());
    if (name == "fail") throw MCPToolError("Use an absolute path.");
    if (name == "crash") throw std::runtime_error("disk on fire");
    return std::vector<MCPContent>{MCPContent::text("ran " + name), MCPContent::image("AAAA", "image/png")};
  });
}

JSONValue reply(const MCPServer& server, std::string_view line) {
  auto bytes = server.handle(line);
  EXPECT_TRUE(bytes) << line;
  if (!bytes) return nullptr;
  EXPECT_EQ(bytes->find('\n'), bytes->size() - 1) << "one line per reply";
  return *parseJSON(*bytes);
}

// The protocol's answers: initialize echoes any protocol version, ping, the tool list
// with schemas, and the error codes of the failure table.
TEST(MCPServer, AnswersTheProtocol) {
  MCPServer server = makeServer();
  auto init = reply(server, R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":7}})");
  EXPECT_EQ(init["result"]["protocolVersion"], 7);
  EXPECT_EQ(init["result"]["serverInfo"], (JSONValue{{"name", "zorvane"}, {"version", "0.2.0"}}));
  EXPECT_EQ(init["result"]["capabilities"], (JSONValue{{"tools", JSONValue::object()}}));
  EXPECT_EQ(reply(server, R"({"id":"a","method":"initialize"})")["result"]["protocolVersion"], "2025-06-18");
  EXPECT_EQ(reply(server, R"({"id":true,"method":"ping"})"),
            (JSONValue{{"jsonrpc", "2.0"}, {"id", true}, {"result", JSONValue::object()}}));

  auto tools = reply(server, R"({"id":0,"method":"tools/list"})")["result"]["tools"];
  ASSERT_EQ(tools.size(), 22u);
  EXPECT_EQ(tools[0]["name"], "list_targets");
  EXPECT_EQ(tools[0]["inputSchema"], (JSONValue{{"type", "object"}, {"properties", JSONValue::object()},
                                                {"required", JSONValue::array()}}));
  EXPECT_EQ(tools[6]["name"], "click");
  EXPECT_EQ(tools[6]["inputSchema"]["required"], (JSONValue{"x", "y"}));
  EXPECT_EQ(tools[6]["inputSchema"]["properties"]["double"]["type"], "boolean");
  EXPECT_FALSE(tools[8]["inputSchema"]["properties"]["modifiers"].contains("items"));

  struct Case {
    std::string line;
    JSONValue id;
    int code;
  };
  for (const Case& c : std::vector<Case>{
           {"not json", nullptr, -32700},
           {" ", nullptr, -32700},
           {R"({"id":5})", 5, -32601},
           {R"({"id":5,"method":7})", 5, -32601},
           {R"({"id":"","method":"server/discover"})", "", -32601},
           {R"({"id":6,"method":"tools/call"})", 6, -32602},
           {R"({"id":6,"method":"tools/call","params":{"name":3}})", 6, -32602},
       }) {
    SCOPED_TRACE(c.line);
    auto answer = reply(server, c.line);
    EXPECT_EQ(answer["id"], c.id);
    EXPECT_EQ(answer["error"]["code"], c.code);
    EXPECT_FALSE(answer.contains("result"));
  }
}

// Notifications and requests without an id are never answered or run; arguments that
// aren't an object count as none; tool failures are results with isError.
TEST(MCPServer, CallsToolsAndReportsFailures) {
  std::vector<std::string> calls;
  MCPServer server = makeServer(&calls);
  EXPECT_FALSE(server.handle(R"({"jsonrpc":"2.0","method":"notifications/initialized"})"));
  EXPECT_FALSE(server.handle(R"({"method":"tools/call","params":{"name":"run_command"}})"));
  EXPECT_FALSE(server.handle(R"({"id":null,"method":"tools/call","params":{"name":"run_command"}})"));
  EXPECT_FALSE(server.handle("[1,2]"));
  EXPECT_TRUE(calls.empty()) << "a request without an id never runs";

  auto ok = reply(server, R"({"id":1,"method":"tools/call","params":{"name":"screenshot","arguments":"zzz"}})");
  EXPECT_EQ(calls, (std::vector<std::string>{"screenshot {}"}));
  EXPECT_EQ(ok["result"], (JSONValue{{"content", {{{"type", "text"}, {"text", "ran screenshot"}},
                                                  {{"type", "image"}, {"data", "AAAA"}, {"mimeType", "image/png"}}}}}));
  auto failed = reply(server, R"({"id":2,"method":"tools/call","params":{"name":"fail","arguments":{"a":1}}})");
  EXPECT_EQ(failed["result"], (JSONValue{{"content", {{{"type", "text"}, {"text", "Use an absolute path."}}}},
                                         {"isError", true}}));
  EXPECT_EQ(reply(server, R"({"id":3,"method":"tools/call","params":{"name":"crash"}})")["result"]["content"][0]["text"],
            "disk on fire");

  // A request nested far deeper than any real one is refused, not crashed on, and its
  // caller still hears back under its id.
  std::string deep = R"({"id":9,"method":"tools/call","params":{"name":"x","arguments":{"a":)" +
                     std::string(200000, '[') + std::string(200000, ']') + "}}}";
  auto refused = reply(server, deep);
  EXPECT_EQ(refused["id"], 9);
  EXPECT_EQ(refused["error"]["code"], -32700);
  EXPECT_EQ(calls.size(), 3u) << "the deep call never reached a tool";
}

// Over a real pipe: empty lines are skipped, CRLF is accepted, a line past the cap is
// refused without being held whole (under its id when that stands first or last, where
// clients write it), a last line without a line feed is served, and the loop ends only
// at end of input.
TEST(MCPServer, ServesALineStreamToItsEnd) {
  MCPServer server = makeServer();
  int in[2], out[2];
  ASSERT_EQ(pipe(in), 0);
  ASSERT_EQ(pipe(out), 0);
  std::thread serving([&] {
    server.serve(in[0], out[1], 1 << 16);
    close(out[1]);
  });
  const std::string filler(200000, 'x');
  struct Case {
    std::string line;
    JSONValue id;  // of the reply
    int code;      // 0: a result
  };
  const std::vector<Case> cases = {
      {"", nullptr, -1},  // no reply
      {R"({"id":1,"method":"ping"})" "\r", 1, 0},
      {R"({"jsonrpc":"2.0","id":7,"method":"tools/call","params":{"x":")" + filler + "\"}}", 7, -32600},
      {R"({"method":"tools/call","params":{"x":")" + filler + R"("},"jsonrpc":"2.0","id":"s-8"})", "s-8", -32600},
      {R"({"params":{"id":5,"x":")" + filler + R"("},"method":"m"})", nullptr, -32600},
      {R"({"method":"m","x":")" + filler + R"(,\"id\":9"})", nullptr, -32600},
      {filler, nullptr, -32600},
      {R"({"id":2,"method":"tools/call","params":{"name":"list_targets"}})", 2, 0},
      {"\x01\x02\xff", nullptr, -32700},
  };
  std::thread writing([&] {
    std::string input;
    for (const Case& c : cases) input += c.line + "\n";
    input += R"({"id":3,"method":"ping"})";  // no line feed
    for (size_t at = 0; at < input.size();) {
      ssize_t n = write(in[1], input.data() + at, std::min<size_t>(4096, input.size() - at));
      if (n <= 0) break;
      at += static_cast<size_t>(n);
    }
    close(in[1]);
  });
  std::string output;
  char buffer[4096];
  for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) > 0;) output.append(buffer, static_cast<size_t>(n));
  writing.join();
  serving.join();
  close(in[0]);
  close(out[0]);

  std::vector<JSONValue> replies;
  for (size_t start = 0, nl; (nl = output.find('\n', start)) != std::string::npos; start = nl + 1) {
    replies.push_back(*parseJSON(output.substr(start, nl - start)));
  }
  ASSERT_EQ(replies.size(), cases.size()) << output;
  for (size_t i = 1; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].line.substr(0, 60));
    const JSONValue& reply = replies[i - 1];
    EXPECT_EQ(reply["id"], cases[i].id);
    if (cases[i].code == 0) {
      EXPECT_TRUE(reply.contains("result")) << reply;
    } else {
      EXPECT_EQ(reply["error"]["code"], cases[i].code);
    }
    if (cases[i].code == -32600) {
      EXPECT_EQ(reply["error"]["message"],
                "Request too large: a request may be at most 65536 bytes. Write a large file in parts.");
    }
  }
  EXPECT_EQ(replies.back()["id"], 3) << "the unterminated last line";
}

}  // namespace
}  // namespace zorvane
