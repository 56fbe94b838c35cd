// The cost per frame of the filter chain that video capture builds, on this
// machine's GL (Mesa's llvmpipe where there is no GPU), and of the GPU-side
// 4:2:0 output against libswscale converting the read-back BGRA.
//
// Method. One picture is rendered into memory before anything is timed. The
// chain is: a BGRA upload into a texture (standing in for the camera's NV12
// conversion draw, which belongs to capture), LFGPUImageEmptyFilter, then two
// branches: GPUImageAlphaBlendFilter at mix 0.0 (the preview's stage; the
// preview itself is off, as headless) and the output LFGPUImageEmptyFilter,
// whose completion step reads the picture back into a pooled pixel buffer.
// Every node is forced to the stream's size. Per frame we time, on the
// calling thread, the whole pass through the video processing queue; the
// figure is the median over the frames after 10 warm-up frames.
//
// The YUV comparison times, inside the same completion step, (a) the BGRA
// read-back followed by sws_scale to NV12 and (b) GPUImageYUVConverter
// drawing and reading back NV12, alternately on the same frames, and prints
// the ratio (b) / (a). Below 1.0 the GPU-side output is the cheaper default.
#include <fmt/format.h>

extern "C" {
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/BenchOptions.h"
#include "bench/Statistics.h"
#include "filters/GPUImageAlphaBlendFilter.h"
#include "filters/GPUImageContext.h"
#include "filters/GPUImageFramebuffer.h"
#include "filters/GPUImagePixelBufferInput.h"
#include "filters/GPUImageYUVConverter.h"
#include "filters/LFGPUImageEmptyFilter.h"

using namespace oxelo;
using oxelo::bench::median;
using oxelo::bench::millisecondsSince;

namespace {

using Clock = std::chrono::steady_clock;

std::shared_ptr<PixelBuffer> picture(int width, int height) {
  auto buffer = PixelBuffer::create(width, height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      uint8_t* p = buffer->row(y) + 4 * x;
      p[0] = uint8_t(x + y);
      p[1] = uint8_t(x * 3);
      p[2] = uint8_t(y * 5);
      p[3] = 255;
    }
  return buffer;
}

struct Figures {
  double chainMs = 0;
  double swscaleMs = 0;  // read-back BGRA + sws_scale to NV12
  double gpuYuvMs = 0;   // GPU draw + read-back of NV12
};

Figures measure(int width, int height, int frames) {
  const GPUSize size{double(width), double(height)};
  auto input = std::make_shared<GPUImagePixelBufferInput>();
  auto filter = std::make_shared<LFGPUImageEmptyFilter>();
  auto blend = std::make_shared<GPUImageAlphaBlendFilter>();
  auto output = std::make_shared<LFGPUImageEmptyFilter>();
  blend->setMix(0.0);
  blend->disableSecondFrameCheck();
  for (GPUImageFilter* node :
       {static_cast<GPUImageFilter*>(filter.get()), static_cast<GPUImageFilter*>(blend.get()),
        static_cast<GPUImageFilter*>(output.get())})
    node->forceProcessingAtSize(size);
  input->addTarget(filter);
  filter->addTarget(blend);
  filter->addTarget(output);

  SwsContext* sws = sws_getContext(width, height, AV_PIX_FMT_BGRA, width, height, AV_PIX_FMT_NV12,
                                   SWS_BILINEAR, nullptr, nullptr, nullptr);
  std::vector<uint8_t> nv12(size_t(width) * height * 3 / 2);
  GPUImageYUVConverter converter;
  enum class Tap { bgra, compare } tap = Tap::bgra;
  std::vector<double> swscaleTimes, gpuTimes;
  int frame = 0;
  output->setFrameProcessingCompletionBlock([&](GPUImageOutput* node, double) {
    auto framebuffer = node->framebufferForOutput();
    if (tap == Tap::bgra) {
      if (!framebuffer->pixelBuffer()) std::abort();
      return;
    }
    auto cpu = [&] {
      const auto start = Clock::now();
      auto bgra = framebuffer->pixelBuffer();
      const uint8_t* source[1] = {bgra->data()};
      const int sourceStride[1] = {int(bgra->stride())};
      uint8_t* planes[2] = {nv12.data(), nv12.data() + size_t(width) * height};
      const int strides[2] = {width, width};
      sws_scale(sws, source, sourceStride, 0, height, planes, strides);
      swscaleTimes.push_back(millisecondsSince(start));
    };
    auto gpu = [&] {
      const auto start = Clock::now();
      if (!converter.convert(*framebuffer, PixelFormat::nv12, YuvMatrix::bt709, false))
        std::abort();
      gpuTimes.push_back(millisecondsSince(start));
    };
    if (frame % 2) {
      cpu();
      gpu();
    } else {
      gpu();
      cpu();
    }
  });

  auto source = picture(width, height);
  std::vector<double> chainTimes;
  for (frame = 0; frame < frames + 10; ++frame) {
    const auto start = Clock::now();
    input->processPixelBuffer(*source, frame / 30.0);
    if (frame >= 10) chainTimes.push_back(millisecondsSince(start));
  }
  tap = Tap::compare;
  for (frame = 0; frame < frames; ++frame) input->processPixelBuffer(*source, frame / 30.0);
  output->setFrameProcessingCompletionBlock(nullptr);
  input->removeAllTargets();
  filter->removeAllTargets();
  sws_freeContext(sws);
  return {median(chainTimes), median(swscaleTimes), median(gpuTimes)};
}

}  // namespace

int main(int argc, char** argv) {
  int frames = 60;
  CLI::App app(
      "The capture chain's GL cost per frame, and the GPU-side NV12 output against the BGRA "
      "read-back plus libswscale, at 1280x720 and 1920x1080 on this machine's GL.",
      "oxelo-bench-filters");
  oxelo::bench::addFrameCount(app, frames);
  if (auto status = oxelo::bench::parseOptions(app, argc, argv)) return *status;
  std::string renderer;
  bool ok = false;
  runSynchronouslyOnVideoProcessingQueue([&] {
    ok = GPUImageContext::useImageProcessingContext();
    renderer = GPUImageContext::sharedImageProcessingContext().rendererName();
  });
  if (!ok) {
    fmt::print(stderr, "filters bench: {}\n",
               GPUImageContext::sharedImageProcessingContext().failureReason());
    return 1;
  }
  fmt::print("filters bench on {}, {} frames per size, medians\n", renderer, frames);
  for (auto [width, height] : {std::pair{1280, 720}, std::pair{1920, 1080}}) {
    const Figures f = measure(width, height, frames);
    const double ratio = f.gpuYuvMs / f.swscaleMs;
    fmt::print(
        "result: filters {}x{}: chain {:.2f} ms/frame; NV12 out: GPU {:.2f} ms, read-back + "
        "swscale {:.2f} ms, ratio GPU/swscale {:.2f} -> default: {}\n",
        width, height, f.chainMs, f.gpuYuvMs, f.swscaleMs, ratio,
        ratio < 1.0 ? "GPU-side YUV" : "BGRA read-back + CPU conversion");
  }
  return 0;
}
