// Pictures through the graph on the machine's GL (llvmpipe without a GPU),
// read back and compared pixel by pixel with values worked out by hand.
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

void expectSamePicture(const PixelBuffer& expected, const PixelBuffer& actual, int offsetX = 0,
                       int offsetY = 0) {
  int mismatches = 0;
  for (int y = 0; y < actual.height() && mismatches < 5; ++y)
    for (int x = 0; x < actual.width() && mismatches < 5; ++x)
      if (!(pixelAt(actual, x, y) == pixelAt(expected, x + offsetX, y + offsetY))) {
        ++mismatches;
        ADD_FAILURE() << "at " << x << "," << y << ": " << pixelAt(actual, x, y) << " expected "
                      << pixelAt(expected, x + offsetX, y + offsetY);
      }
}

struct PassCase {
  const char* name;
  int width, height;
  bool blend;  // through the preview's blend stage instead of the empty filter
};
class PassThroughTest : public testing::TestWithParam<PassCase> {};

TEST_P(PassThroughTest, ReturnsTheInputExactly) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  const auto& c = GetParam();
  auto picture = test::patternPicture(c.width, c.height);
  std::shared_ptr<GPUImageFilter> node;
  if (c.blend) {
    auto blend = std::make_shared<GPUImageAlphaBlendFilter>();
    blend->setMix(0.0);
    blend->disableSecondFrameCheck();
    node = blend;
  } else {
    node = std::make_shared<LFGPUImageEmptyFilter>();
  }
  for (int frame = 0; frame < 2; ++frame) {  // the second frame draws into cached objects
    auto out = test::runChain(*picture, node, *node);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->width(), c.width);
    ASSERT_EQ(out->height(), c.height);
    expectSamePicture(*picture, *out);
  }
}

INSTANTIATE_TEST_SUITE_P(Pictures, PassThroughTest,
                         testing::Values(PassCase{"Empty640x480", 640, 480, false},
                                         PassCase{"EmptyOddWidthPadsRows", 33, 17, false},
                                         PassCase{"BlendAtMixZero", 320, 180, true}),
                         [](const auto& info) { return std::string(info.param.name); });

struct CropCase {
  const char* name;
  int frameWidth, frameHeight;  // the camera's picture
  int longSide, shortSide;      // the stream's size
};
class CropTest : public testing::TestWithParam<CropCase> {};

// The region as the capture front works it out for a landscape stream, with
// the divisions in single precision.
CropRegion centralRegion(const CropCase& c) {
  const float mx = float(c.frameWidth - c.longSide) / float(c.frameWidth);
  const float my = float(c.frameHeight - c.shortSide) / float(c.frameHeight);
  return {mx / 2.0, my / 2.0, 1.0 - mx, 1.0 - my};
}

TEST_P(CropTest, ReturnsTheCentralPixelsOneToOne) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  const auto& c = GetParam();
  auto picture = test::patternPicture(c.frameWidth, c.frameHeight);
  auto crop = std::make_shared<GPUImageCropFilter>(centralRegion(c));
  auto out = test::runChain(*picture, crop, *crop);
  ASSERT_TRUE(out);
  ASSERT_EQ(out->width(), c.longSide);
  ASSERT_EQ(out->height(), c.shortSide);
  expectSamePicture(*picture, *out, (c.frameWidth - c.longSide) / 2,
                    (c.frameHeight - c.shortSide) / 2);
}

INSTANTIATE_TEST_SUITE_P(Presets, CropTest,
                         testing::Values(CropCase{"Preset3From720p", 1280, 720, 800, 600},
                                         CropCase{"Preset0From640x480", 640, 480, 640, 360}),
                         [](const auto& info) { return std::string(info.param.name); });

// A 4 x 2 picture with a colour of its own at each corner; the corners of the
// output (in memory order: first row, then last row) for each rotation mode,
// read from the texture coordinates of the rotation table: the vertex
// (-1, -1) is the output's first pixel, coordinate (0, 0) the input's.
enum Corner { TL, TR, BL, BR };  // first row left, first row right, last row left, right
struct RotationCase {
  uint64_t mode;
  Corner atFirstLeft, atFirstRight, atLastLeft, atLastRight;
};
class RotationTest : public testing::TestWithParam<RotationCase> {};

TEST_P(RotationTest, PutsEachCornerWhereTheTableSays) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  const auto& c = GetParam();
  const Bgra colours[4] = {
      {10, 20, 30, 255}, {40, 50, 60, 255}, {70, 80, 90, 255}, {100, 110, 120, 255}};
  auto picture = test::patternPicture(4, 2);
  auto set = [&](int x, int y, Bgra p) { std::memcpy(picture->row(y) + 4 * x, &p, 4); };
  set(0, 0, colours[TL]);
  set(3, 0, colours[TR]);
  set(0, 1, colours[BL]);
  set(3, 1, colours[BR]);
  auto filter = std::make_shared<LFGPUImageEmptyFilter>();
  auto out = test::runChain(*picture, filter, *filter, c.mode);
  ASSERT_TRUE(out);
  const bool swapped = c.mode == 1 || c.mode == 2 || c.mode == 5 || c.mode == 6;
  ASSERT_EQ(out->width(), swapped ? 2 : 4);
  ASSERT_EQ(out->height(), swapped ? 4 : 2);
  const int w = out->width() - 1, h = out->height() - 1;
  EXPECT_EQ(pixelAt(*out, 0, 0), colours[c.atFirstLeft]) << "mode " << c.mode;
  EXPECT_EQ(pixelAt(*out, w, 0), colours[c.atFirstRight]) << "mode " << c.mode;
  EXPECT_EQ(pixelAt(*out, 0, h), colours[c.atLastLeft]) << "mode " << c.mode;
  EXPECT_EQ(pixelAt(*out, w, h), colours[c.atLastRight]) << "mode " << c.mode;
}

INSTANTIATE_TEST_SUITE_P(
    Modes, RotationTest,
    testing::Values(RotationCase{0, TL, TR, BL, BR}, RotationCase{1, TR, BR, TL, BL},
                    RotationCase{2, BL, TL, BR, TR}, RotationCase{3, BL, BR, TL, TR},
                    RotationCase{4, TR, TL, BR, BL}, RotationCase{5, TL, BL, TR, BR},
                    RotationCase{6, BR, TR, BL, TL}, RotationCase{7, BR, BL, TR, TL}));

TEST(FilterSizeTest, ForcedSizeRulesAndZeroGivesTheAutomaticSizeBack) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  auto picture = test::patternPicture(64, 48);
  auto filter = std::make_shared<LFGPUImageEmptyFilter>();
  filter->forceProcessingAtSize({32, 16});
  auto forced = test::runChain(*picture, filter, *filter);
  ASSERT_TRUE(forced);
  EXPECT_EQ(forced->width(), 32);
  EXPECT_EQ(forced->height(), 16);
  filter->forceProcessingAtSizeRespectingAspectRatio({32, 32});
  auto fitted = test::runChain(*picture, filter, *filter);
  ASSERT_TRUE(fitted);
  EXPECT_EQ(fitted->width(), 32);
  EXPECT_EQ(fitted->height(), 24);
  filter->forceProcessingAtSize({});
  auto automatic = test::runChain(*picture, filter, *filter);
  ASSERT_TRUE(automatic);
  EXPECT_EQ(automatic->width(), 64);
  EXPECT_EQ(automatic->height(), 48);
}

const char* const kLevelShader = R"(
varying highp vec2 textureCoordinate;
uniform sampler2D inputImageTexture;
uniform lowp float level;
void main() { gl_FragColor = vec4(level, 0.0, 0.0, 1.0); }
)";

TEST(ProgramCacheTest, FiltersOfEqualTextShareOneProgramAndKeepTheirOwnUniforms) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  auto low = std::make_shared<GPUImageFilter>(kLevelShader);
  auto high = std::make_shared<GPUImageFilter>(kLevelShader);
  ASSERT_NE(low->filterProgram(), nullptr);
  EXPECT_EQ(low->filterProgram(), high->filterProgram());
  low->setFloat(0.25f, "level");
  high->setFloat(0.75f, "level");  // last set on the shared program
  auto input = std::make_shared<GPUImagePixelBufferInput>();
  input->addTarget(low);
  input->addTarget(high);
  std::shared_ptr<PixelBuffer> lowOut, highOut;
  test::recordOutput(*low, &lowOut);
  test::recordOutput(*high, &highOut);
  auto picture = test::patternPicture(8, 8);
  for (int frame = 0; frame < 2; ++frame) {
    input->processPixelBuffer(*picture, frame);
    ASSERT_TRUE(lowOut && highOut);
    EXPECT_EQ(pixelAt(*lowOut, 3, 3).r, 64) << "frame " << frame;
    EXPECT_EQ(pixelAt(*highOut, 3, 3).r, 191) << "frame " << frame;
  }
}

TEST(ProgramCacheTest, AShaderThatDoesNotCompileLeavesTheFilterWithoutAProgram) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  GPUImageFilter broken("void main() { this is not GLSL }");
  EXPECT_EQ(broken.filterProgram(), nullptr);
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
