// libFuzzer target for the decoders of the stores' files: "sessions.json",
// "live-pieces.json" and "activity.json". Whatever lies in those files (edited by hand,
// cut short, written by another version) goes through these decoders at launch.
//
// Every input is offered to all three decoders, as the file text. Besides crashes and
// sanitizer reports it checks the promises the stores rely on:
//   - text that isn't a JSON array, or has one element that doesn't decode, fails with a
//     message, never half a list;
//   - a list that decodes encodes to text that is JSON and decodes to an equal list,
//     whose own encoding is the same text (so a load and a save change nothing).
// A broken promise aborts with the input's text, so the fuzzer keeps it as a crash.
//
//   CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DZORVANE_FUZZ=ON -DZORVANE_TESTS=OFF -DZORVANE_BENCH=OFF
//   cmake --build build-fuzz --target store_decoders_fuzz
//   build-fuzz/store_decoders_fuzz -max_total_time=180 <corpus folder>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/json_value.h"
#include "core/hub/activity.h"
#include "core/registry/piece_snapshots.h"
#include "core/registry/session_store.h"

namespace {

using namespace zorvane;

[[noreturn]] void broken(const char* promise, const std::string& detail) {
  std::fprintf(stderr, "broken promise: %s\n%s\n", promise, detail.c_str());
  std::abort();
}

// Decodes the parsed file with `decode`; when it works, the list must survive a save and a
// load unchanged.
template <typename Record>
void roundTrip(const char* store, const JSONValue& file,
                              Expected<std::vector<Record>> (*decode)(const JSONValue&),
                              std::string (*encode)(const std::vector<Record>&)) {
  Expected<std::vector<Record>> decoded = decode(file);
  if (!decoded) {
    if (decoded.error().empty()) broken("a failure says why", store);
    return;
  }
  if (!file.is_array() || decoded->size() != file.size()) broken("all or nothing", store);
  std::string text = encode(*decoded);
  std::optional<JSONValue> reparsed = parseJSON(text);
  if (!reparsed) broken("the encoding is JSON", text);
  Expected<std::vector<Record>> again = decode(*reparsed);
  if (!again) broken("the encoding decodes", again.error() + "\n" + text);
  if (*again != *decoded) broken("a save and a load change nothing", text);
  if (encode(*again) != text) broken("the encoding is stable", text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::optional<JSONValue> file = parseJSON(bytes);
  if (!file) return 0;  // StoreFile keeps such a file aside before any decoder sees it

  roundTrip<SessionRecord>("sessions", *file, &SessionStore::decode, &SessionStore::encode);
  roundTrip<PieceSnapshot>("live pieces", *file, &PieceSnapshots::decode, &PieceSnapshots::encode);
  roundTrip<ActivityEvent>("activity", *file, &ActivityStore::decode, &ActivityStore::encode);
  return 0;
}
