#include "core/ink/goo_scene_coding.h"

#include <cmath>
#include <string>

namespace zorvane {

namespace {

JSONValue point(Point p) { return JSONValue::array({p.x, p.y}); }

// Reads the members of one JSON object; the first failure sticks and later reads are
// skipped, so a decoder reads straight through and checks once.
class Reader {
 public:
  Reader(const JSONValue& object, std::string path, std::string& failure)
      : object_(object), path_(std::move(path)), failure_(failure) {}

  // The member `key`, null when it is missing or null.
  const JSONValue* member(const char* key) const {
    const JSONValue* value = subscript(object_, key);
    return value && !value->is_null() ? value : nullptr;
  }
  std::string pathOf(const char* key) const { return path_.empty() ? key : path_ + "." + key; }
  bool failed() const { return !failure_.empty(); }
  void fail(const std::string& path, const std::string& why) {
    if (failure_.empty()) failure_ = path + ": " + why;
  }

  double number(const char* key, bool required, double fallback = 0) {
    const JSONValue* value = member(key);
    if (!value) {
      if (required) fail(pathOf(key), "missing");
      return fallback;
    }
    if (!value->is_number()) {
      fail(pathOf(key), "expected a number");
      return fallback;
    }
    return value->get<double>();
  }

  bool boolean(const char* key, bool fallback) {
    const JSONValue* value = member(key);
    if (!value) return fallback;
    if (!value->is_boolean()) {
      fail(pathOf(key), "expected true or false");
      return fallback;
    }
    return value->get<bool>();
  }

  // `count` numbers in a list, into `out`.
  bool numbers(const char* key, size_t count, double* out, bool required) {
    const JSONValue* value = member(key);
    if (!value) {
      if (required) fail(pathOf(key), "missing");
      return false;
    }
    bool good = value->is_array() && value->size() == count;
    for (size_t i = 0; good && i < count; ++i) {
      good = (*value)[i].is_number();
      if (good) out[i] = (*value)[i].get<double>();
    }
    if (!good) fail(pathOf(key), "expected " + std::to_string(count) + " numbers");
    return good;
  }

  Point point(const char* key, bool required) {
    double v[2] = {0, 0};
    numbers(key, 2, v, required);
    return {v[0], v[1]};
  }

 private:
  const JSONValue& object_;
  std::string path_;
  std::string& failure_;
};

// Calls read(item, path) for each entry of the list under `key`.
template <typename Read>
void readList(Reader& scene, const char* key, Read&& read) {
  const JSONValue* list = scene.member(key);
  if (!list || scene.failed()) return;
  if (!list->is_array()) return scene.fail(key, "expected a list");
  for (size_t i = 0; i < list->size() && !scene.failed(); ++i) {
    std::string path = std::string(key) + "[" + std::to_string(i) + "]";
    if (!(*list)[i].is_object()) return scene.fail(path, "expected an object");
    read((*list)[i], path);
  }
}

}  // namespace

JSONValue encodeGooScene(const GooScene& scene) {
  JSONValue blobs = JSONValue::array();
  for (const Blob& blob : scene.blobs) blobs.push_back({{"center", point(blob.center)}, {"radius", blob.radius}});
  JSONValue capsules = JSONValue::array();
  for (const GooCapsule& c : scene.capsules)
    capsules.push_back({{"a", point(c.a)}, {"b", point(c.b)}, {"ra", c.ra}, {"rb", c.rb}, {"blend", c.blend}});
  JSONValue boxes = JSONValue::array();
  for (const InkBox& box : scene.boxes) {
    JSONValue b = {{"rect", JSONValue::array({box.rect.x, box.rect.y, box.rect.width, box.rect.height})},
                   {"corner", box.corner},
                   {"wobble", box.wobble}};
    if (box.reveal) b["reveal"] = {{"center", point(box.reveal->center)}, {"radius", box.reveal->radius}};
    if (box.ring) b["ring"] = *box.ring;
    if (box.hole) b["hole"] = *box.hole;
    boxes.push_back(std::move(b));
  }
  JSONValue json = {{"blobs", std::move(blobs)},
                    {"capsules", std::move(capsules)},
                    {"boxes", std::move(boxes)},
                    {"blend", scene.blend},
                    {"shadow", scene.shadow},
                    {"gloss", scene.gloss},
                    {"void", JSONValue::array({scene.voidColor[0], scene.voidColor[1], scene.voidColor[2]})},
                    {"sheen", scene.sheen}};
  if (scene.ripple) json["ripple"] = {{"center", point(scene.ripple->center)}, {"start", scene.ripple->start}};
  return json;
}

Expected<GooScene> decodeGooScene(const JSONValue& json) {
  if (!json.is_object()) return Failure{"scene: expected an object"};
  std::string failure;
  Reader top(json, "", failure);
  GooScene scene;

  readList(top, "blobs", [&](const JSONValue& item, const std::string& path) {
    Reader r(item, path, failure);
    Blob blob;
    blob.center = r.point("center", true);
    blob.radius = r.number("radius", true);
    scene.blobs.push_back(blob);
  });
  readList(top, "capsules", [&](const JSONValue& item, const std::string& path) {
    Reader r(item, path, failure);
    GooCapsule c;
    c.a = r.point("a", true);
    c.b = r.point("b", true);
    c.ra = r.number("ra", true);
    c.rb = r.number("rb", true);
    c.blend = r.number("blend", false);
    scene.capsules.push_back(c);
  });
  readList(top, "boxes", [&](const JSONValue& item, const std::string& path) {
    Reader r(item, path, failure);
    InkBox box;
    double rect[4] = {0, 0, 0, 0};
    r.numbers("rect", 4, rect, true);
    box.rect = {rect[0], rect[1], rect[2], rect[3]};
    box.corner = r.number("corner", false);
    if (const JSONValue* reveal = r.member("reveal")) {
      if (!reveal->is_object()) {
        r.fail(r.pathOf("reveal"), "expected an object");
      } else {
        Reader rr(*reveal, r.pathOf("reveal"), failure);
        InkBox::Reveal value;
        value.center = rr.point("center", true);
        value.radius = rr.number("radius", true);
        box.reveal = value;
      }
    }
    if (r.member("ring")) box.ring = r.number("ring", true);
    if (r.member("hole")) box.hole = r.number("hole", true);
    box.wobble = r.number("wobble", false);
    scene.boxes.push_back(box);
  });

  scene.blend = top.number("blend", false);
  scene.shadow = top.boolean("shadow", false);
  scene.gloss = top.boolean("gloss", false);
  double colour[3] = {scene.voidColor[0], scene.voidColor[1], scene.voidColor[2]};
  if (top.numbers("void", 3, colour, false))
    scene.voidColor = {float(colour[0]), float(colour[1]), float(colour[2])};
  scene.sheen = float(top.number("sheen", false));
  if (const JSONValue* ripple = top.member("ripple")) {
    if (!ripple->is_object()) {
      top.fail("ripple", "expected an object");
    } else {
      Reader r(*ripple, "ripple", failure);
      GooScene::Ripple value;
      value.center = r.point("center", true);
      value.start = r.number("start", true);
      scene.ripple = value;
    }
  }
  if (!failure.empty()) return Failure{failure};
  return scene;
}

}  // namespace zorvane
