// libFuzzer target for the schedule grammar and the schedule store's decoder: the texts
// an agent's create_schedule and the schedule editor pass straight in, and the JSON of
// "schedules.json".
//
// Besides crashes and sanitizer reports it checks the promises callers rely on:
//   - a parsed value's canonical text parses back to an equal value with the same text;
//   - every value's JSON form decodes back to an equal value;
//   - a store array that decodes encodes to text that decodes to the same items.
// A broken promise aborts with the input's value, so the fuzzer keeps it as a crash.
//
// The first byte picks the calendar and the door; the rest is the input.
//   cmake -S . -B build-fuzz -G Ninja -DZORVANE_FUZZ=ON ...   (with CC=clang CXX=clang++)
//   build-fuzz/schedule_parse_fuzz -max_total_time=180 corpus/
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "core/base/calendar.h"
#include "core/hub/schedule.h"
#include "core/hub/schedule_store.h"

namespace {

using namespace zorvane;

[[noreturn]] void broken(const char* promise, const std::string& detail) {
  std::fprintf(stderr, "broken promise: %s\n%s\n", promise, detail.c_str());
  std::abort();
}

const Calendar& calendarFor(uint8_t selector) {
  static const Calendar calendars[] = {*Calendar::named("Europe/Berlin"),
                                       *Calendar::named("America/New_York"),
                                       *Calendar::named("Australia/Lord_Howe"), Calendar::utc()};
  return calendars[selector % 4];
}

// Instants around both of 2026's daylight-saving changes in Europe and America, and the
// edges of the clock.
const SystemTime* probeInstants(size_t& count) {
  static const SystemTime instants[] = {
      *parseISO8601("2026-03-08T06:59:00Z"),
      *parseISO8601("2026-03-29T00:59:00Z"),
      *parseISO8601("2026-10-25T00:30:00Z"),
      *parseISO8601("2026-11-01T05:45:00Z"),
      SystemTime::min(),
      SystemTime::max(),
  };
  count = sizeof instants / sizeof instants[0];
  return instants;
}

void fuzzSpec(std::string_view text, const Calendar& calendar) {
  std::optional<ScheduleSpec> spec = ScheduleSpec::parse(text, calendar);
  if (!spec) return;
  std::string canonical = spec->text(calendar);
  std::optional<ScheduleSpec> again = ScheduleSpec::parse(canonical, calendar);
  if (!again || !(*again == *spec)) broken("clock rule text parses back equal", canonical);
  if (again->text(calendar) != canonical) broken("clock rule text is stable", canonical);
  (void)spec->humanText(calendar);

  Expected<ScheduleSpec> decoded = ScheduleSpec::decode(spec->encode());
  if (!decoded || !(*decoded == *spec))
    broken("clock rule JSON decodes equal", encodeCompact(spec->encode()));

  size_t count = 0;
  const SystemTime* instants = probeInstants(count);
  for (size_t i = 0; i < count; ++i) {
    std::optional<SystemTime> next = spec->next(instants[i], std::nullopt, calendar);
    if (next && spec->kind() == ScheduleSpec::Kind::daily && *next <= instants[i]) {
      broken("a daily next lies after the instant asked about", canonical);
    }
    (void)spec->next(instants[i], instants[i], calendar);
  }
}

void fuzzTrigger(std::string_view text) {
  std::optional<ScheduleTrigger> trigger = ScheduleTrigger::parse(text);
  if (trigger) {
    std::string canonical = trigger->text();
    std::optional<ScheduleTrigger> again = ScheduleTrigger::parse(canonical);
    if (!again || !(*again == *trigger)) broken("trigger text parses back equal", canonical);
    if (again->text() != canonical) broken("trigger text is stable", canonical);
    Expected<ScheduleTrigger> decoded = ScheduleTrigger::decode(trigger->encode());
    if (!decoded || !(*decoded == *trigger))
      broken("trigger JSON decodes equal", encodeCompact(trigger->encode()));
    if (const auto* newFile = std::get_if<ScheduleTrigger::NewFile>(&trigger->payload())) {
      (void)ScheduleTrigger::matches("Report 2026.PDF", newFile->glob);
    }
  }
  // Any pattern against any name: "<glob>\n<name>".
  size_t newline = text.find('\n');
  if (newline != std::string_view::npos) {
    (void)ScheduleTrigger::matches(text.substr(newline + 1), text.substr(0, newline));
  }
}

void fuzzStore(std::string_view text) {
  std::optional<JSONValue> json = parseJSON(text);
  if (!json) return;
  if (Expected<ScheduleSpec> spec = ScheduleSpec::decode(*json)) {
    if (!(ScheduleSpec::decode(spec->encode()).value() == *spec))
      broken("decoded clock rule re-decodes equal", std::string(text));
  }
  if (Expected<ScheduleTrigger> trigger = ScheduleTrigger::decode(*json)) {
    if (!(ScheduleTrigger::decode(trigger->encode()).value() == *trigger)) {
      broken("decoded trigger re-decodes equal", std::string(text));
    }
  }
  Expected<std::vector<ScheduleItem>> items = ScheduleStore::decodeItems(*json);
  if (!items) return;
  std::string encoded = ScheduleStore::encodeItems(*items);
  std::optional<JSONValue> reread = parseJSON(encoded);
  if (!reread) broken("the store writes JSON", encoded);
  Expected<std::vector<ScheduleItem>> again = ScheduleStore::decodeItems(*reread);
  if (!again || !(*again == *items)) broken("store items re-decode equal", encoded);
  for (const ScheduleItem& item : *items) (void)item.whenText(calendarFor(0));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // "~" in a trigger expands to $HOME; pin it so runs are reproducible.
  setenv("HOME", "/home/fuzz", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  uint8_t selector = data[0];
  std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  switch (selector % 3) {
    case 0:
      fuzzSpec(text, calendarFor(selector / 3));
      break;
    case 1:
      fuzzTrigger(text);
      break;
    default:
      fuzzStore(text);
      break;
  }
  return 0;
}
