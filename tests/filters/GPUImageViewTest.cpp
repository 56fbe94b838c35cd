// The preview node on an offscreen surface: a 16:9 picture in a 4:3 view.
#include <gtest/gtest.h>

#include "filters/GPUImageView.h"
#include "tests/filters/FilterTestSupport.h"

namespace oxelo {
namespace {

using test::Bgra;
using test::pixelAt;

const Bgra kBackground{0, 0, 255, 255};  // opaque red: no pixel of the pattern has it

struct FillCase {
  const char* name;
  uint64_t fillMode;
  float widthScaling, heightScaling;
  int band;  // rows of background above and below the picture
};
class ViewFillTest : public testing::TestWithParam<FillCase> {};

TEST_P(ViewFillTest, DrawsOnceSizedAndScalesAndPaintsTheBackgroundAsTheModeSays) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  const auto& c = GetParam();
  auto picture = test::patternPicture(64, 36);
  for (int i = 0; i < 64 * 36; ++i) picture->row(i / 64)[4 * (i % 64) + 2] &= 0x7f;  // red < 255
  auto view = std::make_shared<GPUImageView>();
  auto input = std::make_shared<GPUImagePixelBufferInput>();
  input->addTarget(view);
  input->processPixelBuffer(*picture, 0);
  EXPECT_EQ(view->presentedImage(), nullptr) << "a view without a size drew";
  view->setSizeInPixels({64, 48});
  view->setBackgroundColor(1, 0, 0, 1);
  view->setFillMode(c.fillMode);
  input->processPixelBuffer(*picture, 1);
  std::array<float, 8> vertices{};
  runSynchronouslyOnVideoProcessingQueue([&] { vertices = view->imageVertices(); });
  EXPECT_FLOAT_EQ(vertices[6], c.widthScaling);
  EXPECT_FLOAT_EQ(vertices[7], c.heightScaling);
  auto image = view->presentedImage();
  ASSERT_TRUE(image);
  ASSERT_EQ(std::pair(image->width(), image->height()), std::pair(64, 48));
  for (int y = 0; y < 48; ++y)
    EXPECT_EQ(pixelAt(*image, 5, y) == kBackground, y < c.band || y >= 48 - c.band) << "row " << y;
  // In Fit, 1 to 1 between the bands, the picture's first row at the top.
  for (int y = 0; c.fillMode == GPUImageView::kPreserveAspectRatio && y < 36; ++y)
    for (int x = 0; x < 64; x += 7)
      ASSERT_EQ(pixelAt(*image, x, y + c.band), pixelAt(*picture, x, y)) << x << "," << y;
}

INSTANTIATE_TEST_SUITE_P(Modes, ViewFillTest,
                         testing::Values(FillCase{"Stretch", 0, 1.0f, 1.0f, 0},
                                         FillCase{"Fit", 1, 1.0f, 0.75f, 6},
                                         FillCase{"Fill", 2, 1.0f / 0.75f, 1.0f, 0}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo
