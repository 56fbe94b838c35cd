// NV12 and I420 pictures through the real libx264, decoded as the host would.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

extern "C" {
#include <libavutil/frame.h>
}

#include "encoding/LibavVideoCodecSession.h"
#include "encoding/PictureConverter.h"
#include "tests/encoding/EncodingTestSupport.h"

namespace oxelo {
namespace {

constexpr int kWidth = 128;
constexpr int kHeight = 64;
constexpr int kPatch = 32;  // 4 x 2 patches of one colour each

using Rgb = std::array<double, 3>;
const Rgb kPatches[] = {{255, 0, 0},  {0, 255, 0},     {0, 0, 255},    {255, 255, 255},
                        {16, 16, 16}, {128, 128, 128}, {255, 220, 40}, {224, 172, 140}};

struct Ycc {
  double y, cb, cr;
};

// The textbook conversion of full-range RGB to YCbCr.
Ycc ycc(const Rgb& rgb, YuvMatrix matrix, bool fullRange) {
  const double kr = matrix == YuvMatrix::bt709 ? 0.2126 : 0.299;
  const double kb = matrix == YuvMatrix::bt709 ? 0.0722 : 0.114;
  const double r = rgb[0] / 255, g = rgb[1] / 255, b = rgb[2] / 255;
  const double y = kr * r + (1 - kr - kb) * g + kb * b;
  const double pb = (b - y) / (2 * (1 - kb)), pr = (r - y) / (2 * (1 - kr));
  if (fullRange) return {255 * y, 128 + 255 * pb, 128 + 255 * pr};
  return {16 + 219 * y, 128 + 224 * pb, 128 + 224 * pr};
}

int patchAt(int x, int y) { return y / kPatch * (kWidth / kPatch) + x / kPatch; }

std::shared_ptr<PixelBuffer> patchPicture(PixelFormat format, YuvMatrix matrix, bool fullRange) {
  auto picture = PixelBuffer::createYuv(format, kWidth, kHeight, matrix, fullRange);
  auto sample = [](double v) { return static_cast<uint8_t>(std::clamp(std::lround(v), 0L, 255L)); };
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x)
      picture->row(y)[x] = sample(ycc(kPatches[patchAt(x, y)], matrix, fullRange).y);
  for (int y = 0; y < kHeight / 2; ++y) {
    for (int x = 0; x < kWidth / 2; ++x) {
      const Ycc c = ycc(kPatches[patchAt(2 * x, 2 * y)], matrix, fullRange);
      const bool nv12 = format == PixelFormat::nv12;
      uint8_t* cb = picture->plane(1) + y * picture->planeStride(1) + (nv12 ? 2 * x : x);
      *cb = sample(c.cb);
      *(nv12 ? cb + 1 : picture->plane(2) + y * picture->planeStride(2) + x) = sample(c.cr);
    }
  }
  return picture;
}

struct InputCase {
  const char* name;
  PixelFormat format;
  bool fullRange;
  YuvMatrix pictureMatrix;
  YCbCrMatrix streamMatrix;  // the session's tag
};

class PictureInputTest : public testing::TestWithParam<InputCase> {};

// Flat patches come back within a few levels in the stream's (limited) range and matrix,
// whatever the picture's layout, range and matrix; the tags say so.
TEST_P(PictureInputTest, DecodesToTheColoursUnderTheStreamsTags) {
  const auto& c = GetParam();
  const VideoCodecSettings settings{.width = kWidth,
                                    .height = kHeight,
                                    .expectedFrameRate = 30,
                                    .maxKeyFrameInterval = 30,
                                    .averageBitRate = 2000000,
                                    .dataRateLimitBytes = 2000000 * 5 / 8,
                                    .dataRateLimitSeconds = 1,
                                    .colour = {c.streamMatrix, c.streamMatrix, true}};
  std::vector<CodedSample> samples;
  auto session = LibavVideoCodecSession::open(
      settings, [&](CodedSample&& s) { samples.push_back(std::move(s)); }, {"libx264"});
  ASSERT_TRUE(session);

  auto picture = patchPicture(c.format, c.pictureMatrix, c.fullRange);
  std::vector<std::vector<uint8_t>> before;
  for (int i = 0; i < picture->planeCount(); ++i)
    before.emplace_back(picture->plane(i),
                        picture->plane(i) + picture->planeStride(i) * picture->planeHeight(i));
  for (int i = 1; i <= 5; ++i) ASSERT_TRUE(session->encodeFrame(picture, i, i == 1, 0));
  session->completeFrames();
  session.reset();
  EXPECT_EQ(picture.use_count(), 1) << "the codec let the picture go";
  for (int i = 0; i < picture->planeCount(); ++i)
    EXPECT_TRUE(std::equal(before[i].begin(), before[i].end(), picture->plane(i)))
        << "the codec wrote into plane " << i;

  ASSERT_EQ(samples.size(), 5u);
  test::TestDecoder decoder(AV_CODEC_ID_H264);
  const YuvMatrix coded =
      c.streamMatrix == YCbCrMatrix::bt709 ? YuvMatrix::bt709 : YuvMatrix::bt601;
  int looked = 0;
  auto look = [&](const AVFrame& frame) {
    ++looked;
    EXPECT_EQ(frame.color_range, AVCOL_RANGE_MPEG);
    EXPECT_EQ(frame.colorspace, coded == YuvMatrix::bt709 ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M);
    for (size_t p = 0; p < std::size(kPatches); ++p) {
      const int x = static_cast<int>(p) % 4 * kPatch + kPatch / 2;
      const int y = static_cast<int>(p) / 4 * kPatch + kPatch / 2;
      const Ycc want = ycc(kPatches[p], coded, /*fullRange=*/false);
      EXPECT_NEAR(frame.data[0][y * frame.linesize[0] + x], want.y, 3) << "patch " << p;
      EXPECT_NEAR(frame.data[1][y / 2 * frame.linesize[1] + x / 2], want.cb, 3) << "patch " << p;
      EXPECT_NEAR(frame.data[2][y / 2 * frame.linesize[2] + x / 2], want.cr, 3) << "patch " << p;
    }
  };
  for (const auto& sample : samples) decoder.decode(sample, look);
  EXPECT_GE(looked, 4);
  EXPECT_EQ(decoder.errors(), 0);
}

using F = PixelFormat;
using M = YuvMatrix;
INSTANTIATE_TEST_SUITE_P(
    Pictures, PictureInputTest,
    testing::Values(
        InputCase{"Nv12AsTheCodecTakesIt", F::nv12, false, M::bt709, YCbCrMatrix::bt709},
        InputCase{"I420", F::i420, false, M::bt709, YCbCrMatrix::bt709},
        InputCase{"I420FullRange", F::i420, true, M::bt601, YCbCrMatrix::bt601},
        InputCase{"Nv12FullRange", F::nv12, true, M::bt709, YCbCrMatrix::bt709},
        InputCase{"I420Bt601UnderBt709Tags", F::i420, false, M::bt601, YCbCrMatrix::bt709},
        InputCase{"I420FullRangeBt709UnderBt601Tags", F::i420, true, M::bt709, YCbCrMatrix::bt601}),
    [](const auto& info) { return std::string(info.param.name); });

// The range pass, sample by sample: every full-range value of each plane comes
// down to the nearest limited-range level, in whole groups of eight and in a
// row's remainder (250 samples a row), I420 from NV12 included.
TEST(PictureConverterTest, FullRangeSamplesComeDownToTheNearestLimitedLevel) {
  constexpr int kRow = 250, kRows = 4;
  auto value = [](int x, int y) { return static_cast<uint8_t>((x + y * kRow) % 256); };
  for (const auto out : {AV_PIX_FMT_NV12, AV_PIX_FMT_YUV420P}) {
    auto picture = PixelBuffer::createYuv(PixelFormat::nv12, kRow, kRows, YuvMatrix::bt709, true);
    for (int p = 0; p < 2; ++p)
      for (int y = 0; y < (p == 0 ? kRows : kRows / 2); ++y)
        for (int x = 0; x < kRow; ++x)
          picture->plane(p)[static_cast<size_t>(y) * picture->planeStride(p) + x] = value(x, y);
    PictureConverter converter(kRow, kRows, out, YCbCrMatrix::bt709);
    AVFrame* frame = av_frame_alloc();
    frame->width = kRow;
    frame->height = kRows;
    frame->format = out;
    ASSERT_EQ(av_frame_get_buffer(frame, 0), 0);
    ASSERT_TRUE(converter.convert(*picture, frame));
    for (int y = 0; y < kRows; ++y)
      for (int x = 0; x < kRow; ++x)
        ASSERT_EQ(frame->data[0][y * frame->linesize[0] + x],
                  std::lround(16 + value(x, y) * 219 / 255.0))
            << x << "," << y;
    for (int y = 0; y < kRows / 2; ++y) {
      for (int x = 0; x < kRow; ++x) {
        const long want = 128 + std::lround((value(x, y) - 128) * 224 / 255.0);
        const uint8_t seen = out == AV_PIX_FMT_NV12
                                 ? frame->data[1][y * frame->linesize[1] + x]
                                 : frame->data[1 + x % 2][y * frame->linesize[1 + x % 2] + x / 2];
        ASSERT_EQ(seen, want) << x << "," << y << (out == AV_PIX_FMT_NV12 ? " nv12" : " i420");
      }
    }
    av_frame_free(&frame);
  }
}

}  // namespace
}  // namespace oxelo
