#include "platform/image_codec.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <array>
#include <cstdlib>

namespace zorvane {
namespace {

using Colour = std::array<uint8_t, 3>;

// An image of four blocks: red top left, green top right, blue bottom left, white bottom right.
RGBImage quadrants(int width, int height) {
  RGBImage image{width, height, std::vector<uint8_t>(static_cast<size_t>(width) * height * 3)};
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      bool right = x >= width / 2, bottom = y >= height / 2;
      Colour c = !bottom ? (right ? Colour{0, 255, 0} : Colour{255, 0, 0})
                         : (right ? Colour{255, 255, 255} : Colour{0, 0, 255});
      std::copy(c.begin(), c.end(), image.pixels.begin() + (static_cast<size_t>(y) * width + x) * 3);
    }
  return image;
}

Colour at(const RGBImage& image, int x, int y) {
  const uint8_t* p = image.pixels.data() + (static_cast<size_t>(y) * image.width + x) * 3;
  return {p[0], p[1], p[2]};
}

void expectNear(Colour actual, Colour wanted, int tolerance) {
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(actual[i], wanted[i], tolerance) << "channel " << i;
}

// Shrinking averages what each pixel covers, growing interpolates between centres, and
// blocks of one colour keep it exactly either way.
TEST(ImageCodec, ScalesByAreaDownAndBilinearUp) {
  for (auto [width, height] : {std::pair{16, 12}, std::pair{200, 90}}) {
    SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
    auto scaled = ImageCodec::scale(quadrants(64, 48), width, height);
    ASSERT_TRUE(scaled) << scaled.error();
    EXPECT_EQ(scaled->width, width);
    EXPECT_EQ(scaled->height, height);
    EXPECT_EQ(scaled->pixels.size(), static_cast<size_t>(width) * height * 3);
    expectNear(at(*scaled, width / 4, height / 4), {255, 0, 0}, 0);
    expectNear(at(*scaled, width * 3 / 4, height / 4), {0, 255, 0}, 0);
    expectNear(at(*scaled, width / 4, height * 3 / 4), {0, 0, 255}, 0);
    expectNear(at(*scaled, width * 3 / 4, height * 3 / 4), {255, 255, 255}, 0);
  }

  // A one-pixel checkerboard halved is an even grey, not a sample of it.
  RGBImage checker{4, 4, {}};
  for (int i = 0; i < 16; ++i) {
    uint8_t v = ((i % 4) + (i / 4)) % 2 ? 255 : 0;
    checker.pixels.insert(checker.pixels.end(), {v, v, v});
  }
  auto halved = ImageCodec::scale(checker, 2, 2);
  ASSERT_TRUE(halved) << halved.error();
  for (uint8_t v : halved->pixels) EXPECT_EQ(v, 128);

  // Black and white doubled: the outer pixels keep their colour, the inner ones blend.
  auto doubled = ImageCodec::scale(RGBImage{2, 1, {0, 0, 0, 255, 255, 255}}, 4, 1);
  ASSERT_TRUE(doubled) << doubled.error();
  EXPECT_EQ(at(*doubled, 0, 0)[0], 0);
  EXPECT_EQ(at(*doubled, 1, 0)[0], 64);
  EXPECT_EQ(at(*doubled, 2, 0)[0], 191);
  EXPECT_EQ(at(*doubled, 3, 0)[0], 255);
}

// A JPEG decodes back to the image's size and colours (within JPEG's loss).
TEST(ImageCodec, JPEGDecodesToTheSameBlocks) {
  RGBImage image = quadrants(160, 96);
  auto jpeg = ImageCodec::encodeJPEG(image, 80);
  ASSERT_TRUE(jpeg) << jpeg.error();
  ASSERT_GT(jpeg->size(), 4u);
  EXPECT_EQ(static_cast<unsigned char>((*jpeg)[0]), 0xFF);
  EXPECT_EQ(static_cast<unsigned char>((*jpeg)[1]), 0xD8);

  tjhandle decoder = tjInitDecompress();
  ASSERT_NE(decoder, nullptr);
  int width = 0, height = 0, subsampling = 0, colourspace = 0;
  auto* bytes = reinterpret_cast<const unsigned char*>(jpeg->data());
  ASSERT_EQ(tjDecompressHeader3(decoder, bytes, jpeg->size(), &width, &height, &subsampling, &colourspace), 0);
  EXPECT_EQ(width, 160);
  EXPECT_EQ(height, 96);
  RGBImage decoded{width, height, std::vector<uint8_t>(static_cast<size_t>(width) * height * 3)};
  ASSERT_EQ(tjDecompress2(decoder, bytes, jpeg->size(), decoded.pixels.data(), width, width * 3, height, TJPF_RGB, 0), 0);
  tjDestroy(decoder);
  expectNear(at(decoded, 40, 24), {255, 0, 0}, 10);
  expectNear(at(decoded, 120, 24), {0, 255, 0}, 10);
  expectNear(at(decoded, 40, 72), {0, 0, 255}, 10);
  expectNear(at(decoded, 120, 72), {255, 255, 255}, 10);

  // The lowest quality still makes a smaller, valid file.
  auto rough = ImageCodec::encodeJPEG(image, 0);
  ASSERT_TRUE(rough) << rough.error();
  EXPECT_LT(rough->size(), jpeg->size());
}

// Nothing to scale or encode, or nowhere to scale to, is a failure that says why.
TEST(ImageCodec, RejectsEmptyImagesSizesAndQualities) {
  RGBImage empty;
  EXPECT_EQ(ImageCodec::scale(empty, 10, 10).error(), "scale: the image is empty (0x0)");
  EXPECT_EQ(ImageCodec::encodeJPEG(empty, 80).error(), "JPEG: the image is empty (0x0)");
  RGBImage short_{2, 2, {1, 2, 3}};
  EXPECT_EQ(ImageCodec::encodeJPEG(short_, 80).error(), "JPEG: the image has 3 bytes of pixels, 2x2 needs 12");
  RGBImage ok = quadrants(8, 8);
  EXPECT_EQ(ImageCodec::scale(ok, 0, 5).error(), "scale: the target size 0x5 is not in 1...32768 on each side");
  EXPECT_EQ(ImageCodec::scale(ok, 4, -1).error(), "scale: the target size 4x-1 is not in 1...32768 on each side");
  EXPECT_EQ(ImageCodec::encodeJPEG(ok, 101).error(), "JPEG: quality 101 is not in 0...100");
  EXPECT_EQ(ImageCodec::encodeJPEG(ok, -1).error(), "JPEG: quality -1 is not in 0...100");
}

}  // namespace
}  // namespace zorvane
