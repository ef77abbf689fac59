// Fuzzes the peer line's decoders: any bytes go to PeerRequest::decode and to
// PeerResponse::decode. Decoding may fail but must not crash; when it succeeds, the
// message must survive its own coding: decode(encoded()) gives it back unchanged, and
// the encoding is one line, as the socket protocol needs.
//
//   build-fuzz/peer_request_fuzz fuzz/corpus/peer_request -max_total_time=180
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "core/mcp/peer_ipc.h"

using namespace zorvane;

static void require(bool condition, const char* what, std::string_view input, const std::string& encoded) {
  if (condition) return;
  std::fprintf(stderr, "peer_request_fuzz: %s\n  input: %.*s\n  encoded: %s\n", what, static_cast<int>(input.size()),
               input.data(), encoded.c_str());
  std::abort();
}

template <typename Message>
static void checkRoundTrip(std::string_view input) {
  Expected<Message> decoded = Message::decode(input);
  if (!decoded) {
    require(!decoded.error().empty(), "a decoding failure without a message", input, "");
    return;
  }
  std::string encoded = decoded->encoded();
  require(encoded.find('\n') == std::string::npos, "the encoding is more than one line", input, encoded);
  Expected<Message> again = Message::decode(encoded);
  require(again.hasValue(), "the encoding doesn't decode", input, encoded);
  require(*again == *decoded, "decode(encoded()) isn't the message", input, encoded);
  require(again->encoded() == encoded, "the encoding isn't stable", input, encoded);
  // Framed as it travels, with its line feed, it still decodes to the same message.
  Expected<Message> framed = Message::decode(encoded + "\n");
  require(framed.hasValue() && *framed == *decoded, "the framed encoding doesn't decode", input, encoded);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  checkRoundTrip<PeerRequest>(input);
  checkRoundTrip<PeerResponse>(input);
  return 0;
}
