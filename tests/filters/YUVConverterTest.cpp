// The GPU-side 4:2:0 output against libswscale's conversion of the same
// BGRA picture.
#include <gtest/gtest.h>

extern "C" {
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

#include <cstdlib>

#include "filters/GPUImageFramebufferCache.h"
#include "filters/GPUImageYUVConverter.h"
#include "filters/LFGPUImageEmptyFilter.h"
#include "tests/filters/FilterTestSupport.h"

namespace oxelo {
namespace {

// A smooth picture: chroma siting conventions then differ by less than one step.
std::shared_ptr<PixelBuffer> gradient(int width, int height) {
  auto picture = PixelBuffer::create(width, height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const uint8_t bgra[4] = {uint8_t(255 - x / 2), uint8_t(y * 2), uint8_t(x), 255};
      std::memcpy(picture->row(y) + 4 * x, bgra, 4);
    }
  return picture;
}

std::vector<uint8_t> swscaleReference(const PixelBuffer& picture, YuvLayout layout,
                                      YuvMatrix matrix, bool fullRange) {
  const int w = picture.width(), h = picture.height();
  SwsContext* context = sws_getContext(
      w, h, AV_PIX_FMT_BGRA, w, h, layout == YuvLayout::nv12 ? AV_PIX_FMT_NV12 : AV_PIX_FMT_YUV420P,
      SWS_BILINEAR | SWS_ACCURATE_RND, nullptr, nullptr, nullptr);
  const int* coefficients =
      sws_getCoefficients(matrix == YuvMatrix::bt601 ? SWS_CS_ITU601 : SWS_CS_ITU709);
  sws_setColorspaceDetails(context, coefficients, 1, coefficients, fullRange ? 1 : 0, 0, 1 << 16,
                           1 << 16);
  std::vector<uint8_t> out(static_cast<size_t>(w * h * 3 / 2));
  const uint8_t* source = picture.data();
  const int sourceStride = static_cast<int>(picture.stride());
  uint8_t* planes[3] = {out.data(), out.data() + w * h, out.data() + w * h * 5 / 4};
  int strides[3] = {w, layout == YuvLayout::nv12 ? w : w / 2, w / 2};
  sws_scale(context, &source, &sourceStride, 0, h, planes, strides);
  sws_freeContext(context);
  return out;
}

struct YuvCase {
  const char* name;
  YuvLayout layout;
  YuvMatrix matrix;
  bool fullRange;
};
class YUVConverterTest : public testing::TestWithParam<YuvCase> {};

TEST_P(YUVConverterTest, MatchesSwscaleWithinOneStep) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  const auto& c = GetParam();
  auto picture = gradient(256, 64);
  auto converter = std::make_shared<GPUImageYUVConverter>();
  auto filter = std::make_shared<LFGPUImageEmptyFilter>();
  std::shared_ptr<YuvPicture> yuv;
  filter->setFrameProcessingCompletionBlock([&](GPUImageOutput* output, double) {
    yuv = converter->convert(*output->framebufferForOutput(), c.layout, c.matrix, c.fullRange);
  });
  auto input = std::make_shared<GPUImagePixelBufferInput>();
  input->addTarget(filter);
  input->processPixelBuffer(*picture, 0);
  ASSERT_TRUE(yuv);
  const auto reference = swscaleReference(*picture, c.layout, c.matrix, c.fullRange);
  ASSERT_EQ(yuv->bytes.size(), reference.size());
  int worst = 0;
  size_t worstAt = 0;
  for (size_t i = 0; i < reference.size(); ++i)
    if (int d = std::abs(int(yuv->bytes[i]) - int(reference[i])); d > worst) worst = d, worstAt = i;
  EXPECT_LE(worst, 1) << "at byte " << worstAt << " of " << reference.size() << ": "
                      << int(yuv->bytes[worstAt]) << " against " << int(reference[worstAt]);
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, YUVConverterTest,
    testing::Values(YuvCase{"Nv12Bt709Video", YuvLayout::nv12, YuvMatrix::bt709, false},
                    YuvCase{"Nv12Bt601Full", YuvLayout::nv12, YuvMatrix::bt601, true},
                    YuvCase{"I420Bt601Video", YuvLayout::i420, YuvMatrix::bt601, false},
                    YuvCase{"I420Bt709Full", YuvLayout::i420, YuvMatrix::bt709, true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(YUVConverterRuleTest, RefusesASizeItCannotLayOut) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  GPUImageYUVConverter converter;
  auto framebuffer =
      GPUImageContext::sharedFramebufferCache().fetchFramebufferForSize({36, 20}, false);
  runSynchronouslyOnVideoProcessingQueue([&] {
    EXPECT_EQ(converter.convert(*framebuffer, YuvLayout::nv12, YuvMatrix::bt709, false), nullptr);
    framebuffer->unlock();
  });
}

}  // namespace
}  // namespace oxelo
