#include "core/learn/raw_event.h"

#include "core/learn/detail/learn_coding.h"

namespace zorvane {

double RawEvent::at() const {
  return std::visit([](const auto& event) { return event.at; }, value);
}

static JSONValue encodeCase(const RawEvent::Click& click) {
  JSONValue payload = {{"x", click.x}, {"y", click.y}, {"right", click.right}, {"at", click.at}};
  if (click.element) payload["element"] = click.element->encode();
  if (click.frame) payload["frame"] = *click.frame;
  return {{"click", payload}};
}

static JSONValue encodeCase(const RawEvent::Key& key) {
  JSONValue payload = {{"modifiers", key.modifiers}, {"secure", key.secure}, {"at", key.at}};
  if (key.text) payload["text"] = *key.text;
  if (key.key) payload["key"] = *key.key;
  return {{"key", payload}};
}

static JSONValue encodeCase(const RawEvent::Scroll& scroll) {
  return {{"scroll", {{"dx", scroll.dx}, {"dy", scroll.dy}, {"at", scroll.at}}}};
}

JSONValue RawEvent::encode() const {
  return std::visit([](const auto& event) { return encodeCase(event); }, value);
}

static Expected<RawEvent> decodeClick(const JSONValue& payload) {
  namespace C = LearnCoding;
  auto x = C::number(payload, "x");
  if (!x) return Failure{x.error()};
  auto y = C::number(payload, "y");
  if (!y) return Failure{y.error()};
  auto right = C::boolean(payload, "right");
  if (!right) return Failure{right.error()};
  std::optional<ElementInfo> element;
  if (const JSONValue* elementValue = subscript(payload, "element");
      elementValue && !elementValue->is_null()) {
    auto decoded = ElementInfo::decode(*elementValue);
    if (!decoded) return Failure{"element." + decoded.error()};
    element = std::move(*decoded);
  }
  auto frame = C::optionalString(payload, "frame");
  if (!frame) return Failure{frame.error()};
  auto at = C::number(payload, "at");
  if (!at) return Failure{at.error()};
  return RawEvent{RawEvent::Click{*x, *y, *right, std::move(element), std::move(*frame), *at}};
}

static Expected<RawEvent> decodeKey(const JSONValue& payload) {
  namespace C = LearnCoding;
  auto text = C::optionalString(payload, "text");
  if (!text) return Failure{text.error()};
  auto key = C::optionalString(payload, "key");
  if (!key) return Failure{key.error()};
  auto modifiers = C::stringList(payload, "modifiers");
  if (!modifiers) return Failure{modifiers.error()};
  auto secure = C::boolean(payload, "secure");
  if (!secure) return Failure{secure.error()};
  auto at = C::number(payload, "at");
  if (!at) return Failure{at.error()};
  return RawEvent{
      RawEvent::Key{std::move(*text), std::move(*key), std::move(*modifiers), *secure, *at}};
}

static Expected<RawEvent> decodeScroll(const JSONValue& payload) {
  namespace C = LearnCoding;
  auto dx = C::number(payload, "dx");
  if (!dx) return Failure{dx.error()};
  auto dy = C::number(payload, "dy");
  if (!dy) return Failure{dy.error()};
  auto at = C::number(payload, "at");
  if (!at) return Failure{at.error()};
  return RawEvent{RawEvent::Scroll{*dx, *dy, *at}};
}

Expected<RawEvent> RawEvent::decode(const JSONValue& value) {
  if (auto object = LearnCoding::expectObject(value); !object) return Failure{object.error()};
  if (value.size() != 1) {
    return Failure{"expected one key naming the event, found " + std::to_string(value.size())};
  }
  auto only = value.begin();
  const std::string& name = only.key();
  const JSONValue& payload = only.value();
  Expected<RawEvent> (*decodeCase)(const JSONValue&) = nullptr;
  if (name == "click") decodeCase = decodeClick;
  if (name == "key") decodeCase = decodeKey;
  if (name == "scroll") decodeCase = decodeScroll;
  if (decodeCase == nullptr) return Failure{"unknown event " + encodeCompact(JSONValue(name))};
  if (!payload.is_object()) return LearnCoding::typeFailure(name, "an object", payload);
  auto event = decodeCase(payload);
  if (!event) return Failure{name + "." + event.error()};
  return event;
}

}  // namespace zorvane
