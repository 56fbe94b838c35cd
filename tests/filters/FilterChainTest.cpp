// Pictures through the graph on the machine's GL, compared pixel by pixel.
#include <gtest/gtest.h>

#include "filters/GLProgram.h"
#include "filters/GPUImageAlphaBlendFilter.h"
#include "filters/GPUImageCropFilter.h"
#include "filters/LFGPUImageEmptyFilter.h"
#include "tests/filters/FilterTestSupport.h"

namespace oxelo {
namespace {

using test::Bgra;
using test::pixelAt;

// `actual` against `expected` moved by (dx, dy); names the first five misses.
void expectSamePicture(const PixelBuffer& expected, const PixelBuffer& actual, int dx = 0,
                       int dy = 0) {
  int misses = 0;
  for (int y = 0; y < actual.height() && misses < 5; ++y)
    for (int x = 0; x < actual.width() && misses < 5; ++x)
      if (Bgra got = pixelAt(actual, x, y), want = pixelAt(expected, x + dx, y + dy);
          !(got == want) && ++misses)
        ADD_FAILURE() << "at " << x << "," << y << ": " << got << " expected " << want;
}

enum class Node { empty, blendAtMixZero, crop };
struct PictureCase {
  const char* name;
  Node node;
  int width, height, outWidth, outHeight;
};
class PictureTest : public testing::TestWithParam<PictureCase> {};

std::shared_ptr<GPUImageFilter> makeNode(const PictureCase& c) {
  if (c.node == Node::crop) {
    // The region as the capture front works it out, in single precision.
    const float mx = float(c.width - c.outWidth) / float(c.width);
    const float my = float(c.height - c.outHeight) / float(c.height);
    return std::make_shared<GPUImageCropFilter>(CropRegion{mx / 2.0, my / 2.0, 1.0 - mx, 1.0 - my});
  }
  if (c.node == Node::empty) return std::make_shared<LFGPUImageEmptyFilter>();
  auto blend = std::make_shared<GPUImageAlphaBlendFilter>();  // the preview's blend stage
  blend->setMix(0.0);
  blend->disableSecondFrameCheck();
  return blend;
}

TEST_P(PictureTest, ReturnsTheInputOrItsCentreExactly) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  const auto& c = GetParam();
  auto picture = test::patternPicture(c.width, c.height);
  auto node = makeNode(c);
  for (int frame = 0; frame < 2; ++frame) {  // the second frame draws into cached objects
    auto out = test::runChain(*picture, node, *node);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->width(), c.outWidth);
    ASSERT_EQ(out->height(), c.outHeight);
    expectSamePicture(*picture, *out, (c.width - c.outWidth) / 2, (c.height - c.outHeight) / 2);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Pictures, PictureTest,
    testing::Values(PictureCase{"Empty640x480", Node::empty, 640, 480, 640, 480},
                    PictureCase{"EmptyOddWidthPadsRows", Node::empty, 33, 17, 33, 17},
                    PictureCase{"BlendAtMixZero", Node::blendAtMixZero, 320, 180, 320, 180},
                    PictureCase{"CropPreset3From720p", Node::crop, 1280, 720, 800, 600},
                    PictureCase{"CropPreset0From640x480", Node::crop, 640, 480, 640, 360}),
    [](const auto& info) { return std::string(info.param.name); });

// The output's corners (memory order) for each mode, read from the rotation table: the
// vertex (-1, -1) is the output's first pixel, coordinate (0, 0) the input's.
enum Corner { TL, TR, BL, BR };
struct RotationCase {
  uint64_t mode;
  Corner corners[4];
};
class RotationTest : public testing::TestWithParam<RotationCase> {};

TEST_P(RotationTest, PutsEachCornerWhereTheTableSays) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  const auto& c = GetParam();
  const Bgra colours[4] = {
      {10, 20, 30, 255}, {40, 50, 60, 255}, {70, 80, 90, 255}, {100, 110, 120, 255}};
  auto picture = test::patternPicture(4, 2);
  for (int k = 0; k < 4; ++k) std::memcpy(picture->row(k / 2) + 4 * (k % 2) * 3, &colours[k], 4);
  auto filter = std::make_shared<LFGPUImageEmptyFilter>();
  auto out = test::runChain(*picture, filter, *filter, c.mode);
  ASSERT_TRUE(out);
  const bool swapped = c.mode == 1 || c.mode == 2 || c.mode == 5 || c.mode == 6;
  ASSERT_EQ(out->width(), swapped ? 2 : 4);
  ASSERT_EQ(out->height(), swapped ? 4 : 2);
  for (int k = 0; k < 4; ++k)
    EXPECT_EQ(pixelAt(*out, (k % 2) * (out->width() - 1), (k / 2) * (out->height() - 1)),
              colours[c.corners[k]])
        << "mode " << c.mode << " corner " << k;
}

INSTANTIATE_TEST_SUITE_P(
    Modes, RotationTest,
    testing::Values(RotationCase{0, {TL, TR, BL, BR}}, RotationCase{1, {TR, BR, TL, BL}},
                    RotationCase{2, {BL, TL, BR, TR}}, RotationCase{3, {BL, BR, TL, TR}},
                    RotationCase{4, {TR, TL, BR, BL}}, RotationCase{5, {TL, BL, TR, BR}},
                    RotationCase{6, {BR, TR, BL, TL}}, RotationCase{7, {BR, BL, TR, TL}}));

// A second empty filter hands the first one's framebuffer on without a draw; the forced
// sizes are drawn, and a size of zero gives the automatic one back.
TEST(EmptyFilterTest, PassesAnUnchangedFramebufferOnWithoutADrawAndDrawsForcedSizes) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  auto picture = test::patternPicture(64, 48);
  auto first = std::make_shared<LFGPUImageEmptyFilter>();
  auto second = std::make_shared<LFGPUImageEmptyFilter>();
  first->addTarget(second);
  for (int frame = 1; frame <= 2; ++frame) {  // the second frame reuses cached framebuffers
    auto out = test::runChain(*picture, first, *second);
    ASSERT_TRUE(out);
    expectSamePicture(*picture, *out, 0, 0);
    EXPECT_EQ(first->framesPassedThrough(), 0u) << "an upload is a bare texture: copied";
    EXPECT_EQ(second->framesPassedThrough(), static_cast<uint64_t>(frame));
  }
  auto sizeAfter = [&](const std::function<void()>& force) {
    force();
    auto out = test::runChain(*picture, first, *second);
    return out ? std::pair(out->width(), out->height()) : std::pair(0, 0);
  };
  EXPECT_EQ(sizeAfter([&] { second->forceProcessingAtSize({32, 16}); }), std::pair(32, 16));
  EXPECT_EQ(sizeAfter([&] {
              second->forceProcessingAtSizeRespectingAspectRatio({32, 32});
            }),
            std::pair(32, 24));
  EXPECT_EQ(second->framesPassedThrough(), 2u) << "a resize is drawn";
  EXPECT_EQ(sizeAfter([&] { second->forceProcessingAtSize({}); }), std::pair(64, 48));
}

TEST(ProgramCacheTest, FiltersOfEqualTextShareOneProgramAndKeepTheirOwnUniforms) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  const char* const levelShader = R"(
uniform lowp float level;
void main() { gl_FragColor = vec4(level, 0.0, 0.0, 1.0); })";
  auto low = std::make_shared<GPUImageFilter>(levelShader);
  auto high = std::make_shared<GPUImageFilter>(levelShader);
  ASSERT_NE(low->filterProgram(), nullptr);
  EXPECT_EQ(low->filterProgram(), high->filterProgram());
  low->setFloat(0.25f, "level");
  high->setFloat(0.75f, "level");  // last set on the shared program
  auto picture = test::patternPicture(8, 8);
  for (int frame = 0; frame < 2; ++frame)
    for (auto [filter, level] : {std::pair(low, 64), std::pair(high, 191)}) {
      auto out = test::runChain(*picture, filter, *filter);
      ASSERT_TRUE(out);
      EXPECT_EQ(pixelAt(*out, 3, 3).r, level) << "frame " << frame;
    }
  EXPECT_EQ(GPUImageFilter("void main() { this is not GLSL }").filterProgram(), nullptr);
}

TEST(ReadBackTest, ReusesAFreeBufferAndNeverOverwritesAHeldOne) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  auto picture = test::patternPicture(16, 4);
  auto filter = std::make_shared<LFGPUImageEmptyFilter>();
  auto input = std::make_shared<GPUImagePixelBufferInput>();
  input->addTarget(filter);
  std::vector<const uint8_t*> memory;
  std::shared_ptr<PixelBuffer> held;
  filter->setFrameProcessingCompletionBlock([&](GPUImageOutput* output, double time) {
    auto buffer = output->framebufferForOutput()->pixelBuffer();
    memory.push_back(buffer->data());
    if (time == 0) held = buffer;
  });
  for (int frame = 0; frame < 4; ++frame) input->processPixelBuffer(*picture, frame);
  ASSERT_EQ(memory.size(), 4u);
  EXPECT_NE(memory[1], memory[0]) << "the held buffer was written again";
  EXPECT_EQ(memory[2], memory[1]);
  EXPECT_EQ(memory[3], memory[1]);
  expectSamePicture(*picture, *held);
}

}  // namespace
}  // namespace oxelo
