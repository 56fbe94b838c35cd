// The GPU-side 4:2:0 output against libswscale's, and when it is chosen.
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

// The reference's planes back to back, rows without padding.
std::vector<uint8_t> swscaleReference(const PixelBuffer& picture, PixelFormat format,
                                      YuvMatrix matrix, bool fullRange) {
  const int w = picture.width(), h = picture.height();
  SwsContext* context =
      sws_getContext(w, h, AV_PIX_FMT_BGRA, w, h,
                     format == PixelFormat::nv12 ? AV_PIX_FMT_NV12 : AV_PIX_FMT_YUV420P,
                     SWS_BILINEAR | SWS_ACCURATE_RND, nullptr, nullptr, nullptr);
  const int* coefficients =
      sws_getCoefficients(matrix == YuvMatrix::bt601 ? SWS_CS_ITU601 : SWS_CS_ITU709);
  sws_setColorspaceDetails(context, coefficients, 1, coefficients, fullRange ? 1 : 0, 0, 1 << 16,
                           1 << 16);
  std::vector<uint8_t> out(static_cast<size_t>(w * h * 3 / 2));
  const uint8_t* source = picture.data();
  const int sourceStride = static_cast<int>(picture.stride());
  uint8_t* planes[3] = {out.data(), out.data() + w * h, out.data() + w * h * 5 / 4};
  int strides[3] = {w, format == PixelFormat::nv12 ? w : w / 2, w / 2};
  sws_scale(context, &source, &sourceStride, 0, h, planes, strides);
  sws_freeContext(context);
  return out;
}

// The samples of every plane, back to back, without the rows' padding.
std::vector<uint8_t> packedSamples(const PixelBuffer& picture) {
  std::vector<uint8_t> out;
  for (int i = 0; i < picture.planeCount(); ++i)
    for (int y = 0; y < picture.planeHeight(i); ++y) {
      const uint8_t* row = picture.plane(i) + static_cast<size_t>(y) * picture.planeStride(i);
      out.insert(out.end(), row, row + picture.planeRowBytes(i));
    }
  return out;
}

struct YuvCase {
  const char* name;
  PixelFormat format;
  YuvMatrix matrix;
  bool fullRange;
  int width;  // 200: rows of the pixel buffer padded beyond the samples
};
class YUVConverterTest : public testing::TestWithParam<YuvCase> {};

TEST_P(YUVConverterTest, MatchesSwscaleWithinOneStep) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  const auto& c = GetParam();
  auto picture = gradient(c.width, 64);
  auto converter = std::make_shared<GPUImageYUVConverter>();
  auto filter = std::make_shared<LFGPUImageEmptyFilter>();
  std::vector<std::shared_ptr<PixelBuffer>> yuv;
  filter->setFrameProcessingCompletionBlock([&](GPUImageOutput* output, double) {
    yuv.push_back(
        converter->convert(*output->framebufferForOutput(), c.format, c.matrix, c.fullRange));
  });
  auto input = std::make_shared<GPUImagePixelBufferInput>();
  input->addTarget(filter);
  input->processPixelBuffer(*picture, 0);
  input->processPixelBuffer(*picture, 1);
  ASSERT_EQ(yuv.size(), 2u);
  ASSERT_TRUE(yuv[0] && yuv[1]);
  // The first is still held: the second is another buffer.
  EXPECT_NE(yuv[0]->plane(0), yuv[1]->plane(0));
  EXPECT_EQ(yuv[0]->format(), c.format);
  EXPECT_EQ(yuv[0]->matrix(), c.matrix);
  EXPECT_EQ(yuv[0]->fullRange(), c.fullRange);
  const auto reference = swscaleReference(*picture, c.format, c.matrix, c.fullRange);
  const auto samples = packedSamples(*yuv[1]);
  ASSERT_EQ(samples.size(), reference.size());
  int worst = 0;
  size_t worstAt = 0;
  for (size_t i = 0; i < reference.size(); ++i)
    if (int d = std::abs(int(samples[i]) - int(reference[i])); d > worst) worst = d, worstAt = i;
  EXPECT_LE(worst, 1) << "at byte " << worstAt << " of " << reference.size() << ": "
                      << int(samples[worstAt]) << " against " << int(reference[worstAt]);
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, YUVConverterTest,
    testing::Values(YuvCase{"Nv12Bt709Video", PixelFormat::nv12, YuvMatrix::bt709, false, 256},
                    YuvCase{"Nv12Bt601FullPadded", PixelFormat::nv12, YuvMatrix::bt601, true, 200},
                    YuvCase{"I420Bt601VideoPadded", PixelFormat::i420, YuvMatrix::bt601, false,
                            200},
                    YuvCase{"I420Bt709Full", PixelFormat::i420, YuvMatrix::bt709, true, 256}),
    [](const auto& info) { return std::string(info.param.name); });

struct PaysCase {
  const char* renderer;
  const char* override;
  bool pays;
};

TEST(YUVConverterRuleTest, PaysOnlyOnAHardwareRendererUnlessOverriddenAndRefusesOddSizes) {
  for (const PaysCase& c : {PaysCase{"llvmpipe (LLVM 15.0.6, 256 bits)", nullptr, false},
                            PaysCase{"softpipe", "", false}, PaysCase{"Mesa swrast", "yes", false},
                            PaysCase{"Mali-G52 r1p0", nullptr, true},
                            PaysCase{"llvmpipe (LLVM 15.0.6, 256 bits)", "1", true},
                            PaysCase{"AMD Radeon RX 6600", "0", false}})
    EXPECT_EQ(gpuYuvConversionPays(c.renderer, c.override), c.pays)
        << c.renderer << " with " << (c.override ? c.override : "no override");
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());  // and a size it cannot lay out is refused
  GPUImageYUVConverter converter;
  auto framebuffer =
      GPUImageContext::sharedFramebufferCache().fetchFramebufferForSize({36, 20}, false);
  runSynchronouslyOnVideoProcessingQueue([&] {
    EXPECT_EQ(converter.convert(*framebuffer, PixelFormat::nv12, YuvMatrix::bt709, false), nullptr);
    framebuffer->unlock();
  });
}

}  // namespace
}  // namespace oxelo
