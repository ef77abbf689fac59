#include "core/learn/demo_step.h"

#include <array>
#include <cmath>
#include <cstdint>

#include "core/learn/detail/learn_coding.h"

namespace zorvane {

static constexpr std::array<DemoStep::Kind, 6> kKinds = {
    DemoStep::Kind::click, DemoStep::Kind::doubleClick, DemoStep::Kind::rightClick,
    DemoStep::Kind::type,  DemoStep::Kind::key,         DemoStep::Kind::scroll,
};

template <>
std::span<const DemoStep::Kind> allCases<DemoStep::Kind>() {
  return kKinds;
}

std::string_view rawValue(DemoStep::Kind kind) {
  switch (kind) {
    case DemoStep::Kind::click:
      return "click";
    case DemoStep::Kind::doubleClick:
      return "doubleClick";
    case DemoStep::Kind::rightClick:
      return "rightClick";
    case DemoStep::Kind::type:
      return "type";
    case DemoStep::Kind::key:
      return "key";
    case DemoStep::Kind::scroll:
      return "scroll";
  }
  return "click";
}

template <>
std::optional<DemoStep::Kind> fromRawValue<DemoStep::Kind>(std::string_view text) {
  for (DemoStep::Kind kind : kKinds) {
    if (rawValue(kind) == text) return kind;
  }
  return std::nullopt;
}

// A coordinate cut to a whole number, toward zero. Values beyond what a screen can hold
// are pinned rather than overflowing; not-a-number reads as 0.
static std::string wholeNumber(double value) {
  if (std::isnan(value)) return "0";
  constexpr double kLimit = 1e15;
  double cut = std::trunc(std::fmax(-kLimit, std::fmin(kLimit, value)));
  return std::to_string(static_cast<int64_t>(cut));
}

std::string DemoStep::line() const {
  switch (kind) {
    case Kind::click:
    case Kind::doubleClick:
    case Kind::rightClick: {
      std::string verb = kind == Kind::click         ? "Click "
                         : kind == Kind::doubleClick ? "Double-click "
                                                     : "Right-click ";
      std::string line = verb + (element ? element->phrase() : "here");
      if (x && y) line += " (at " + wholeNumber(*x) + "," + wholeNumber(*y) + ")";
      return line;
    }
    case Kind::type:
      return "Type “" + text.value_or("") + "”";
    case Kind::key:
      return "Press " + text.value_or("");
    case Kind::scroll:
      return "Scroll " + text.value_or("");
  }
  return "";
}

JSONValue DemoStep::encode() const {
  JSONValue object = {{"kind", rawValue(kind)}};
  if (x) object["x"] = *x;
  if (y) object["y"] = *y;
  if (text) object["text"] = *text;
  if (element) object["element"] = element->encode();
  if (frame) object["frame"] = *frame;
  return object;
}

Expected<DemoStep> DemoStep::decode(const JSONValue& value) {
  namespace C = LearnCoding;
  if (auto object = C::expectObject(value); !object) return Failure{object.error()};
  auto kindText = C::string(value, "kind");
  if (!kindText) return Failure{kindText.error()};
  auto kind = fromRawValue<Kind>(*kindText);
  if (!kind) return Failure{"kind: unknown kind " + encodeCompact(JSONValue(*kindText))};
  auto x = C::optionalNumber(value, "x");
  if (!x) return Failure{x.error()};
  auto y = C::optionalNumber(value, "y");
  if (!y) return Failure{y.error()};
  auto text = C::optionalString(value, "text");
  if (!text) return Failure{text.error()};
  std::optional<ElementInfo> element;
  if (const JSONValue* elementValue = subscript(value, "element");
      elementValue && !elementValue->is_null()) {
    auto decoded = ElementInfo::decode(*elementValue);
    if (!decoded) return Failure{"element." + decoded.error()};
    element = std::move(*decoded);
  }
  auto frame = C::optionalString(value, "frame");
  if (!frame) return Failure{frame.error()};
  return DemoStep{*kind, *x, *y, std::move(*text), std::move(element), std::move(*frame)};
}

}  // namespace zorvane
