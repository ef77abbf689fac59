// The GPU shader against the CPU reference, the gallery of canonical scenes, and what
// happens when the shader can't be built.
#include <gtest/gtest.h>

#include <QImage>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "core/base/log.h"
#include "core/ink/ink_reference.h"
#include "ink_test_scenes.h"
#include "support/test_support.h"
#include "ui/ink_gpu_pipeline.h"
#include "ui/ink_offscreen_renderer.h"

namespace zorvane {

using testing::InkCase;

namespace {

struct Agreement {
  size_t pixels = 0, mismatched = 0, covered = 0;
  int maxDiff = 0;
  std::string firstMismatch;
};

Agreement compare(const InkImage& gpu, const InkImage& cpu) {
  Agreement result;
  result.pixels = size_t(cpu.width) * cpu.height;
  for (size_t i = 0; i < result.pixels; ++i) {
    int worst = 0;
    for (int c = 0; c < 4; ++c) worst = std::max(worst, std::abs(int(gpu.rgba[i * 4 + c]) - int(cpu.rgba[i * 4 + c])));
    result.maxDiff = std::max(result.maxDiff, worst);
    if (cpu.rgba[i * 4 + 3] > 200) ++result.covered;
    if (worst <= 2) continue;
    if (result.mismatched++ == 0) {
      std::ostringstream at;
      at << "(" << i % cpu.width << "," << i / cpu.width << ") gpu";
      for (int c = 0; c < 4; ++c) at << " " << int(gpu.rgba[i * 4 + c]);
      at << " cpu";
      for (int c = 0; c < 4; ++c) at << " " << int(cpu.rgba[i * 4 + c]);
      result.firstMismatch = at.str();
    }
  }
  return result;
}

QImage toQImage(const InkImage& image) {
  return QImage(image.rgba.data(), image.width, image.height, image.width * 4,
                QImage::Format_RGBA8888_Premultiplied)
      .copy();
}

// Premultiplied goo laid over an opaque grey, as a person would see it on screen.
QImage onGrey(const InkImage& image) {
  QImage out(image.width, image.height, QImage::Format_RGB888);
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x) {
      const uint8_t* p = &image.rgba[(size_t(y) * image.width + x) * 4];
      int rgb[3];
      for (int c = 0; c < 3; ++c) rgb[c] = std::min(255, int(p[c]) + (0x8a * (255 - p[3]) + 127) / 255);
      out.setPixel(x, y, qRgb(rgb[0], rgb[1], rgb[2]));
    }
  return out;
}

std::unique_ptr<InkOffscreenRenderer> makeRenderer(std::string& why) {
  if (!testing::ensureGuiApplication(why)) return nullptr;
  auto renderer = InkOffscreenRenderer::create();
  if (!renderer) {
    why = renderer.error();
    return nullptr;
  }
  return std::move(*renderer);
}

}  // namespace

// Every canonical scene comes out of the GPU as the CPU reference computes it: each
// channel within 2/255 on at least 99.5 % of the pixels. Desktop GL always; GLES 3
// too where the platform can make such a context.
TEST(InkGpu, AgreesWithTheCpuReference) {
  std::string why;
  auto renderer = makeRenderer(why);
  if (!renderer) GTEST_SKIP() << "no GPU renderer: " << why;
  std::vector<std::unique_ptr<InkOffscreenRenderer>> renderers;
  renderers.push_back(std::move(renderer));
  if (auto gles = InkOffscreenRenderer::create(InkOffscreenRenderer::Api::gles))
    renderers.push_back(std::move(*gles));
  else
    std::cout << "[ context ] no GLES context here: " << gles.error() << "\n";

  std::vector<InkCase> cases = testing::canonicalInkScenes();
  std::vector<InkImage> references;
  for (const InkCase& c : cases) references.push_back(InkReference::render(c.scene, c.size, c.scale, c.time));
  for (auto& gpu : renderers) {
    SCOPED_TRACE(gpu->description());
    std::cout << "[ context ] " << gpu->description() << "\n";
    for (size_t i = 0; i < cases.size(); ++i) {
      const InkCase& c = cases[i];
      const InkImage& cpu = references[i];
      SCOPED_TRACE(c.name);
      Expected<InkImage> image = gpu->render(c.scene, c.size, c.scale, c.time);
      ASSERT_TRUE(image) << image.error();
      ASSERT_EQ(image->width, cpu.width);
      ASSERT_EQ(image->height, cpu.height);
      Agreement a = compare(*image, cpu);
      // A scene that drew nothing would agree trivially.
      EXPECT_GT(a.covered, a.pixels / 50) << "the scene covers too little to compare";
      double share = double(a.mismatched) / double(a.pixels);
      EXPECT_LE(share, 0.005) << a.mismatched << " of " << a.pixels << " pixels differ by more than 2/255 (max "
                              << a.maxDiff << "); first at " << a.firstMismatch;
      std::cout << "[ agree   ] " << c.name << ": " << a.mismatched << " of " << a.pixels
                << " pixels over 2/255, max " << a.maxDiff << "\n";
    }
  }
}

// Writes each canonical scene, as rendered by the GPU, to <build>/ink-gallery/: the
// transparent PNG and a copy laid over grey, for a person to look at.
TEST(InkGpu, WritesTheGallery) {
  std::string why;
  auto renderer = makeRenderer(why);
  if (!renderer) GTEST_SKIP() << "no GPU renderer: " << why;
  std::string folder = std::string(ZORVANE_BUILD_DIR) + "/ink-gallery";
  std::filesystem::create_directories(folder);
  for (const InkCase& c : testing::canonicalInkScenes()) {
    Expected<InkImage> image = renderer->render(c.scene, c.size, c.scale, c.time);
    ASSERT_TRUE(image) << image.error();
    std::string base = folder + "/" + c.name;
    EXPECT_TRUE(toQImage(*image).convertToFormat(QImage::Format_RGBA8888).save(QString::fromStdString(base + ".png")))
        << base;
    EXPECT_TRUE(onGrey(*image).save(QString::fromStdString(base + "-on-grey.png"))) << base;
  }
  std::cout << "[ gallery ] " << folder << "\n";
}

// A program that doesn't build is logged once, with the compiler's message, and no
// pipeline is made; the next good source works again.
TEST(InkGpu, ShaderFailureIsLoggedOnceAndDrawsNothing) {
  std::string why;
  if (!testing::ensureGuiApplication(why)) GTEST_SKIP() << why;
  testing::TempDir dir;
  std::string logPath = dir.file("ink.log");
  Log::setFile(logPath);
  InkGpuPipeline::setFragmentSourceForTesting("#version 330 core\nout vec4 c;\nvoid main() { c = undefinedThing; }\n");

  for (int i = 0; i < 2; ++i) {
    auto renderer = InkOffscreenRenderer::create();
    ASSERT_FALSE(renderer);
    if (renderer.error().find("no OpenGL context") != std::string::npos) {
      InkGpuPipeline::setFragmentSourceForTesting(std::nullopt);
      Log::setFile("");
      GTEST_SKIP() << renderer.error();
    }
    EXPECT_NE(renderer.error().find("ink shader failed: fragment stage:"), std::string::npos) << renderer.error();
  }
  InkGpuPipeline::setFragmentSourceForTesting(std::nullopt);
  Log::flush();
  Log::setFile("");

  std::string log = testing::readAll(logPath);
  size_t first = log.find("ink shader failed: fragment stage:");
  EXPECT_NE(first, std::string::npos) << log;
  EXPECT_EQ(log.find("ink shader failed", first + 1), std::string::npos) << "logged more than once:\n" << log;
  EXPECT_NE(log.find("undefinedThing"), std::string::npos) << "the compiler's message is missing:\n" << log;

  auto renderer = InkOffscreenRenderer::create();
  ASSERT_TRUE(renderer) << renderer.error();
  GooScene scene;
  scene.blobs = {{{20, 20}, 10}};
  Expected<InkImage> image = (*renderer)->render(scene, {40, 40}, 1, 0);
  ASSERT_TRUE(image) << image.error();
  EXPECT_EQ(image->rgba[(20 * 40 + 20) * 4 + 3], 255) << "the good shader should draw the blob";
}

}  // namespace zorvane
