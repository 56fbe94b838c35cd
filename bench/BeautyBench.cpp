// The draw cost per frame of each beauty method against the pass-through,
// in the chain that video capture builds, on this machine's GL (Mesa's
// llvmpipe where there is no GPU).
//
// Method. One textured picture is rendered into memory before anything is
// timed. The chain is: a BGRA upload (standing in for the camera's
// conversion draw), the middle stage (LFGPUImageEmptyFilter, the one-pass
// LFGPUImageBeautyFilter, or the ten-draw LFGPUImageBeautifyFilter), then
// GPUImageAlphaBlendFilter at mix 0.0 (the preview's stage, preview off) and
// the output LFGPUImageEmptyFilter, whose completion step reads the picture
// back. Every node is forced to the stream's size. We time on the calling
// thread the whole pass through the video processing queue; the figure is
// the median over the frames after 3 warm-up frames, one run of each method
// at each size. The ratio is the method's time over the pass-through's; the
// rate is how many frames a second the chain alone allows.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench/BenchOptions.h"
#include "bench/Statistics.h"
#include "filters/GPUImageAlphaBlendFilter.h"
#include "filters/GPUImageContext.h"
#include "filters/GPUImageFramebuffer.h"
#include "filters/GPUImagePixelBufferInput.h"
#include "filters/LFGPUImageBeautifyFilter.h"
#include "filters/LFGPUImageBeautyFilter.h"
#include "filters/LFGPUImageEmptyFilter.h"

using namespace oxelo;
using oxelo::bench::median;
using oxelo::bench::millisecondsSince;

namespace {

using Clock = std::chrono::steady_clock;

// Skin-coloured with fine texture, and a few hard edges.
std::shared_ptr<PixelBuffer> picture(int width, int height) {
  auto buffer = PixelBuffer::create(width, height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      uint8_t* p = buffer->row(y) + 4 * x;
      const int noise = (x * 7 + y * 13) % 9 - 4;
      const bool band = (x / 97) % 2 == 0;
      p[0] = uint8_t((band ? 100 : 40) + noise);
      p[1] = uint8_t((band ? 130 : 60) + noise);
      p[2] = uint8_t((band ? 190 : 90) + noise);
      p[3] = 255;
    }
  return buffer;
}

enum class Method { passThrough, onePass, group };
const char* nameOf(Method method) {
  switch (method) {
    case Method::passThrough:
      return "pass-through";
    case Method::onePass:
      return "one-pass (method 0)";
    case Method::group:
      return "bilateral and edges (method 1)";
  }
  return "";
}

double measure(Method method, int width, int height, int frames) {
  const GPUSize size{double(width), double(height)};
  auto input = std::make_shared<GPUImagePixelBufferInput>();
  std::shared_ptr<GPUImageOutput> stage;
  std::shared_ptr<GPUImageInput> stageInput;
  if (method == Method::passThrough) {
    auto empty = std::make_shared<LFGPUImageEmptyFilter>();
    stage = empty, stageInput = empty;
  } else if (method == Method::onePass) {
    auto beauty = std::make_shared<LFGPUImageBeautyFilter>();
    stage = beauty, stageInput = beauty;
  } else {
    auto beautify = std::make_shared<LFGPUImageBeautifyFilter>();
    stage = beautify, stageInput = beautify;
  }
  auto blend = std::make_shared<GPUImageAlphaBlendFilter>();
  auto output = std::make_shared<LFGPUImageEmptyFilter>();
  blend->setMix(0.0);
  blend->disableSecondFrameCheck();
  stage->forceProcessingAtSize(size);
  blend->forceProcessingAtSize(size);
  output->forceProcessingAtSize(size);
  input->addTarget(stageInput);
  stage->addTarget(blend);
  stage->addTarget(output);
  int delivered = 0;
  output->setFrameProcessingCompletionBlock([&](GPUImageOutput* node, double) {
    if (!node->framebufferForOutput()->pixelBuffer()) std::abort();
    ++delivered;
  });

  auto source = picture(width, height);
  std::vector<double> times;
  for (int frame = 0; frame < frames + 3; ++frame) {
    const auto start = Clock::now();
    input->processPixelBuffer(*source, frame / 30.0);
    if (frame >= 3) times.push_back(millisecondsSince(start));
  }
  output->setFrameProcessingCompletionBlock(nullptr);
  input->removeAllTargets();
  stage->removeAllTargets();
  if (delivered != frames + 3) {
    fmt::print(stderr, "beauty bench: {} of {} frames came out of {}\n", delivered, frames + 3,
               nameOf(method));
    std::exit(1);
  }
  return median(times);
}

}  // namespace

int main(int argc, char** argv) {
  int frames = 15;
  CLI::App app(
      "The capture chain's cost per frame with each beauty method against the pass-through, at "
      "1280x720 and 1920x1080 on this machine's GL.",
      "oxelo-bench-beauty");
  oxelo::bench::addFrameCount(app, frames);
  if (auto status = oxelo::bench::parseOptions(app, argc, argv)) return *status;
  std::string renderer;
  bool ok = false;
  runSynchronouslyOnVideoProcessingQueue([&] {
    ok = GPUImageContext::useImageProcessingContext();
    renderer = GPUImageContext::sharedImageProcessingContext().rendererName();
  });
  if (!ok) {
    fmt::print(stderr, "beauty bench: {}\n",
               GPUImageContext::sharedImageProcessingContext().failureReason());
    return 1;
  }
  fmt::print("beauty bench on {}, {} frames per method and size, medians\n", renderer, frames);
  for (auto [width, height] : {std::pair{1280, 720}, std::pair{1920, 1080}}) {
    const double plain = measure(Method::passThrough, width, height, frames);
    for (Method method : {Method::passThrough, Method::onePass, Method::group}) {
      const double ms =
          method == Method::passThrough ? plain : measure(method, width, height, frames);
      fmt::print(
          "result: beauty {}x{} {}: {:.2f} ms/frame, {:.2f} x pass-through, "
          "at most {:.1f} frames/s\n",
          width, height, nameOf(method), ms, ms / plain, 1000.0 / ms);
    }
  }
  return 0;
}
