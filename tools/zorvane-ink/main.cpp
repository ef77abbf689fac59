// zorvane-ink: renders one goo scene, given as JSON, to a PNG, with the GPU shader
// (an offscreen OpenGL context; needs a display) or with the CPU reference.
//
//   zorvane-ink [--gpu|--cpu] [--size WxH] [--scale S] [--time T] [--tile N] scene.json|- out.png
//
// The scene is the JSON of decodeGooScene; it may also carry "size" ([w, h], {"width",
// "height"} or "WxH"), "scale" and "time" (seconds since 1970), which the flags
// override. Without a size the view reaches 39 points past the scene's far corner;
// the scale defaults to 2 and the time to 0. The PNG has straight alpha over a
// transparent background.
//
// Exit status: 0 written, 1 failed (the reason on standard error), 2 bad arguments.
#include <QBuffer>
#include <QByteArray>
#include <QGuiApplication>
#include <QImage>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "core/base/file_io.h"
#include "core/base/json_value.h"
#include "core/ink/goo_scene_coding.h"
#include "core/ink/ink_reference.h"
#include "ui/ink_offscreen_renderer.h"

using namespace zorvane;

namespace {

constexpr const char* kUsage =
    "usage: zorvane-ink [--gpu|--cpu] [--size WxH] [--scale S] [--time T] [--tile N] scene.json|- out.png\n"
    "  --gpu     render with the GPU shader (the default; needs a display)\n"
    "  --cpu     render with the CPU reference (no display needed)\n"
    "  --size    view size in points, such as 440x200 (else the scene's \"size\")\n"
    "  --scale   device pixels per point (else the scene's \"scale\", else 2)\n"
    "  --time    seconds since 1970 (else the scene's \"time\", else 0)\n"
    "  --tile    tile size in points for binning (else $INK_TILE, else 32)\n";

struct Options {
  bool gpu = true;
  std::optional<Size> size;
  std::optional<double> scale, time, tile;
  std::string scenePath, outPath;
};

int usageError(const std::string& why) {
  std::cerr << "zorvane-ink: " << why << "\n" << kUsage;
  return 2;
}

int failure(const std::string& why) {
  std::cerr << "zorvane-ink: " << why << "\n";
  return 1;
}

std::optional<double> parseNumber(const std::string& text) {
  if (text.empty()) return std::nullopt;
  char* end = nullptr;
  double value = std::strtod(text.c_str(), &end);
  if (*end != '\0' || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::optional<Size> parseSize(const std::string& text) {
  size_t x = text.find('x');
  if (x == std::string::npos) return std::nullopt;
  auto width = parseNumber(text.substr(0, x)), height = parseNumber(text.substr(x + 1));
  if (!width || !height || *width <= 0 || *height <= 0) return std::nullopt;
  return Size{*width, *height};
}

// "size" of the scene file, in any of its three spellings.
std::optional<Size> sizeFromJSON(const JSONValue& value) {
  if (value.is_string()) return parseSize(value.get<std::string>());
  if (value.is_array() && value.size() == 2 && value[0].is_number() && value[1].is_number())
    return Size{value[0].get<double>(), value[1].get<double>()};
  const JSONValue* width = subscript(value, "width");
  const JSONValue* height = subscript(value, "height");
  if (width && height && width->is_number() && height->is_number())
    return Size{width->get<double>(), height->get<double>()};
  return std::nullopt;
}

Expected<std::string> readInput(const std::string& path) {
  if (path != "-") return readFile(path);
  std::string text((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
  if (std::cin.bad()) return Failure{"can't read standard input"};
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::vector<std::string> positional;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    auto value = [&]() -> std::optional<std::string> {
      if (i + 1 >= argc) return std::nullopt;
      return std::string(argv[++i]);
    };
    if (arg == "--gpu") {
      options.gpu = true;
    } else if (arg == "--cpu") {
      options.gpu = false;
    } else if (arg == "--size") {
      auto text = value();
      if (!text) return usageError("--size needs a value");
      options.size = parseSize(*text);
      if (!options.size) return usageError("--size " + *text + ": expected WxH with both above 0, such as 440x200");
    } else if (arg == "--scale" || arg == "--time" || arg == "--tile") {
      auto text = value();
      if (!text) return usageError(arg + " needs a value");
      auto number = parseNumber(*text);
      if (!number) return usageError(arg + " " + *text + ": not a number");
      if (arg == "--scale") {
        if (*number <= 0) return usageError("--scale must be above 0");
        options.scale = number;
      } else if (arg == "--time") {
        options.time = number;
      } else {
        if (*number <= 0) return usageError("--tile must be above 0");
        options.tile = number;
      }
    } else if (arg == "-h" || arg == "--help") {
      std::cout << kUsage;
      return 0;
    } else if (arg.size() > 1 && arg[0] == '-' && arg != "-") {
      return usageError("unknown option " + arg);
    } else {
      positional.push_back(arg);
    }
  }
  if (positional.size() != 2) return usageError("expected a scene file (or -) and an output file");
  options.scenePath = positional[0];
  options.outPath = positional[1];

  if (options.scenePath == "-") options.scenePath = "standard input";
  Expected<std::string> text = readInput(positional[0]);
  if (!text) return failure(options.scenePath + ": " + text.error());
  JSONValue json;
  try {
    json = JSONValue::parse(*text);
  } catch (const JSONValue::parse_error& error) {
    return failure(options.scenePath + ": not valid JSON: " + error.what());
  }
  Expected<GooScene> scene = decodeGooScene(json);
  if (!scene) return failure(options.scenePath + ": " + scene.error());

  if (!options.size) {
    if (const JSONValue* size = subscript(json, "size"); size && !size->is_null()) {
      options.size = sizeFromJSON(*size);
      if (!options.size || options.size->width <= 0 || options.size->height <= 0)
        return failure(options.scenePath + ": size: expected [w, h], {\"width\", \"height\"} or \"WxH\" above 0");
    }
  }
  for (const char* key : {"scale", "time"}) {
    const JSONValue* value = subscript(json, key);
    if (!value || value->is_null()) continue;
    if (!value->is_number()) return failure(options.scenePath + ": " + key + ": expected a number");
    double number = value->get<double>();
    if (std::string(key) == "scale") {
      if (number <= 0) return failure(options.scenePath + ": scale: must be above 0");
      if (!options.scale) options.scale = number;
    } else if (!options.time) {
      options.time = number;
    }
  }
  if (!options.size) {
    Rect bounds = scene->bounds();
    if (scene->isEmpty() || bounds.maxX() + 39 <= 0 || bounds.maxY() + 39 <= 0)
      return failure(options.scenePath + ": no size: give --size or a \"size\" key");
    options.size = Size{std::ceil(bounds.maxX() + 39), std::ceil(bounds.maxY() + 39)};
  }
  double scale = options.scale.value_or(2), time = options.time.value_or(0), tile = options.tile.value_or(0);
  if (std::ceil(options.size->width * scale) > 16384 || std::ceil(options.size->height * scale) > 16384)
    return failure("the image would be more than 16384 pixels on a side");

  InkImage image;
  std::unique_ptr<QGuiApplication> app;
  if (options.gpu) {
    // No window is ever shown; the offscreen platform still reaches the display's GL.
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    app = std::make_unique<QGuiApplication>(argc, argv);
    auto renderer = InkOffscreenRenderer::create();
    if (!renderer)
      return failure("--gpu: " + renderer.error() + " (run under a display, such as xvfb-run, or use --cpu)");
    Expected<InkImage> rendered = (*renderer)->render(*scene, *options.size, scale, time, tile);
    if (!rendered) return failure(rendered.error());
    image = std::move(*rendered);
  } else {
    image = InkReference::render(*scene, *options.size, scale, time, tile);
  }

  QImage picture(image.rgba.data(), image.width, image.height, image.width * 4,
                 QImage::Format_RGBA8888_Premultiplied);
  QByteArray png;
  QBuffer buffer(&png);
  buffer.open(QIODevice::WriteOnly);
  if (!picture.convertToFormat(QImage::Format_RGBA8888).save(&buffer, "PNG"))
    return failure("can't encode the PNG");
  Expected<void> written = writeFileAtomically(options.outPath, std::string_view(png.constData(), png.size()));
  if (!written) return failure(options.outPath + ": " + written.error());
  return 0;
}
