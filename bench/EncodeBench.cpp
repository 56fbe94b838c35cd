// The encoding cost per frame of our path (BGRA pixel buffers into
// LFHardwareVideoEncoder, LFVideoFrame records out) against the ffmpeg
// command line making the same encode of the same pictures.
//
// Method. The pictures are the virtual camera's moving picture, rendered
// once into memory before anything is timed. Each round times (every other
// round in the reverse order):
//  - ours: the creation of an encoder on the libx264 session, every picture
//    through encodeVideoData(), stopEncoder() and the destruction, on one
//    thread, as fast as it goes;
//  - ffmpeg's encode run: the same pictures piped as raw BGRA to ffmpeg with
//    the conversion and libx264 options of our session, writing H.264;
//  - ffmpeg's baseline run: the same input, unpacked into pictures and
//    dropped with no conversion and no encoder.
// ffmpeg's cost is its encode run less its baseline run (which takes off the
// program's start, the input pipe and the unpacking); both sides then
// include the colour conversion and the opening and closing of the encoder.
// The figures are wall times, the medians over the rounds, and the ratio is
// ours over ffmpeg's. Target: at most 1.15. The encoders' own report of
// their settings (libx264 writes them into the first frame) is compared, and
// processor time is shown beside wall time, as the machine may be shared.
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fmt/format.h>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "bench/BenchOptions.h"
#include "bench/BenchSettings.h"
#include "bench/FfmpegCommand.h"
#include "bench/LogCapture.h"
#include "bench/MachineLoad.h"
#include "bench/PipedProcess.h"
#include "bench/Statistics.h"
#include "capture/MovingPicture.h"
#include "encoding/LFHardwareVideoEncoder.h"
#include "encoding/LibavVideoCodecSession.h"

using namespace oxelo;
using namespace oxelo::bench;

namespace {

constexpr double kTargetRatio = 1.15;
// LFHardwareVideoEncoder asks for a key frame at least every 2 seconds.
constexpr int64_t kKeyFrameSeconds = 2;

struct Options {
  int width = 1280;
  int height = 720;
  int fps = 30;
  int frames = 150;
  int rounds = 5;
  bool verbose = false;
};

// The options, writing into `o`, which must outlive the app.
void describeOptions(CLI::App& app, Options& o) {
  app.add_option_function<std::string>(
         "--size",
         [&o](const std::string& text) { std::tie(o.width, o.height) = *parseFrameSize(text); },
         "picture size (default 1280x720)")
      ->type_name("WxH")
      ->check(frameSize());
  app.add_option("--fps", o.fps, "frame rate of the session")
      ->type_name("N")
      ->check(positive())
      ->capture_default_str();
  app.add_option("--frames", o.frames, "pictures per round")
      ->type_name("N")
      ->check(positive())
      ->capture_default_str();
  app.add_option("--rounds", o.rounds, "rounds, the median of which is taken")
      ->type_name("N")
      ->check(positive())
      ->capture_default_str();
  app.add_flag("--verbose", o.verbose, "let the program's log through to stderr");
}

// Counts what the encoder hands out.
class FrameCounter final : public LFVideoEncodingDelegate {
 public:
  void videoEncoderVideoFrame(LFVideoEncoding*, std::shared_ptr<LFVideoFrame> frame) override {
    if (frames++ == 0) first = frame->data;
    bytes += frame->data.size();
  }
  size_t frames = 0;
  size_t bytes = 0;
  std::vector<uint8_t> first;  // the first frame's data
};

std::shared_ptr<LFHardwareVideoEncoder> makeEncoder(
    const std::shared_ptr<LFLiveVideoConfiguration>& configuration) {
  return LFHardwareVideoEncoder::create(configuration, LibavVideoCodecSession::factory({"libx264"}),
                                        /*lifecycle=*/nullptr);
}

struct OurRun {
  double seconds = 0;
  double cpuSeconds = 0;  // the whole process: this thread and the codec's
  size_t frames = 0;
  size_t bytes = 0;
  std::string x264Options;
};

// libx264 writes its version and every option it runs with as text into the
// first frame ("x264 - core ... options: ..."): the same text on both sides
// shows the same encode.
std::string x264OptionText(const std::vector<uint8_t>& coded) {
  static const std::string kMark = "x264 - core";
  auto it = std::search(coded.begin(), coded.end(), kMark.begin(), kMark.end());
  if (it == coded.end()) return {};
  return std::string(it, std::find(it, coded.end(), uint8_t{0}));
}

std::vector<uint8_t> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

OurRun encodeOurs(const std::shared_ptr<LFLiveVideoConfiguration>& configuration,
                  const std::vector<std::shared_ptr<PixelBuffer>>& pictures, int fps) {
  auto counter = std::make_shared<FrameCounter>();
  rusage before{}, after{};
  getrusage(RUSAGE_SELF, &before);
  const auto begin = std::chrono::steady_clock::now();
  auto encoder = makeEncoder(configuration);
  encoder->setDelegate(counter);
  for (size_t i = 0; i < pictures.size(); ++i)
    encoder->encodeVideoData(pictures[i], /*timeStamp=*/i * 1000 / static_cast<uint64_t>(fps));
  encoder->stopEncoder();
  encoder.reset();
  OurRun run;
  run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  getrusage(RUSAGE_SELF, &after);
  run.cpuSeconds = cpuSecondsOf(after) - cpuSecondsOf(before);
  run.frames = counter->frames;
  run.bytes = counter->bytes;
  run.x264Options = x264OptionText(counter->first);
  return run;
}

// The ffmpeg options that match the session a fresh encoder opens.
ReferenceEncode referenceFor(const LFHardwareVideoEncoder& encoder,
                             const LFLiveVideoConfiguration& configuration, int fps) {
  ReferenceEncode e;
  VideoSize size = configuration.videoSize();
  e.width = static_cast<int>(size.width);
  e.height = static_cast<int>(size.height);
  e.fps = fps;
  // The buffer model as the session set it; the average as it was asked for
  // (libx264 keeps it in whole kilobits).
  e.rate = encoder.rateControl();
  e.rate.averageBitRate = static_cast<int64_t>(configuration.videoBitRate());
  e.forcedKeyFrameEvery = static_cast<int64_t>(configuration.videoMaxKeyframeInterval());
  // The codec's interval: the tighter of the frame count and the duration.
  e.keyFrameInterval = kKeyFrameSeconds * fps;
  if (e.forcedKeyFrameEvery > 0 && e.forcedKeyFrameEvery < e.keyFrameInterval)
    e.keyFrameInterval = e.forcedKeyFrameEvery;
  e.colour = encoder.colourTags();
  return e;
}

double msPerFrame(double seconds, size_t frames) {
  return seconds * 1000.0 / static_cast<double>(frames);
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  CLI::App app("Encoding cost per frame: ours against the ffmpeg command line.",
               "oxelo-bench-encode");
  describeOptions(app, o);
  if (auto status = parseOptions(app, argc, argv)) return *status;
  signal(SIGPIPE, SIG_IGN);
  LogCapture log(o.verbose);
  MachineLoad load;
  BenchSettings settings;
  std::string error;
  auto configuration =
      settings.ok() ? settings.configurationFor(o.width, o.height, o.fps, error) : std::nullopt;
  if (!configuration) {
    std::fprintf(stderr, "encode: %s\n", settings.ok() ? error.c_str() : settings.error().c_str());
    return 2;
  }
  auto video = configuration->video;

  std::vector<std::shared_ptr<PixelBuffer>> pictures;
  for (int i = 0; i < o.frames; ++i) {
    pictures.push_back(PixelBuffer::create(o.width, o.height));
    renderMovingPicture(*pictures.back(), static_cast<uint64_t>(i));
  }

  auto probe = makeEncoder(video);
  if (probe->encoderName() != "libx264") {
    std::fprintf(stderr, "encode: libx264 could not be opened\n");
    return 2;
  }
  const ReferenceEncode reference = referenceFor(*probe, *video, o.fps);
  probe.reset();
  const std::string output =
      (std::filesystem::temp_directory_path() / fmt::format("oxelo-bench-{}.h264", getpid()))
          .string();
  const auto encodeArgs = ffmpegEncodeArguments(reference, output);
  const auto baselineArgs = ffmpegBaselineArguments(reference);

  std::printf(
      "encode: %dx%d@%d, libx264 veryfast zerolatency, average %lld b/s, %d frames, %d "
      "rounds, wall time\n",
      o.width, o.height, o.fps, static_cast<long long>(reference.rate.averageBitRate), o.frames,
      o.rounds);
  std::string command = "  ffmpeg";
  for (const auto& a : encodeArgs) command += " " + a;
  std::printf("%s\n", command.c_str());

  // Untimed: the first start of ffmpeg loads its libraries from disk.
  if (auto warm = runWithPictures("ffmpeg", baselineArgs, pictures); !warm.ok) {
    std::fprintf(stderr, "encode: %s\n", warm.failure.c_str());
    return 2;
  }
  std::vector<double> ours, theirs, oursCpu, theirsCpu;
  for (int round = 1; round <= o.rounds; ++round) {
    // Every other round starts with ffmpeg, so that a drift in the load of
    // the machine does not favour one side.
    OurRun mine;
    if (round % 2 == 1) mine = encodeOurs(video, pictures, o.fps);
    TimedRun encodeRun = runWithPictures("ffmpeg", encodeArgs, pictures);
    TimedRun baselineRun = runWithPictures("ffmpeg", baselineArgs, pictures);
    if (round % 2 == 0) mine = encodeOurs(video, pictures, o.fps);
    if (!encodeRun.ok || !baselineRun.ok) {
      std::fprintf(stderr, "encode: %s\n",
                   (encodeRun.ok ? baselineRun : encodeRun).failure.c_str());
      return 2;
    }
    std::error_code ignored;
    auto ffmpegBytes = std::filesystem::file_size(output, ignored);
    ours.push_back(msPerFrame(mine.seconds, pictures.size()));
    theirs.push_back(msPerFrame(encodeRun.seconds - baselineRun.seconds, pictures.size()));
    oursCpu.push_back(msPerFrame(mine.cpuSeconds, pictures.size()));
    theirsCpu.push_back(msPerFrame(encodeRun.cpuSeconds - baselineRun.cpuSeconds, pictures.size()));
    std::printf(
        "  round %d: ours %.2f ms/frame (%zu frames, %zu kB out); ffmpeg (%.3f s - %.3f s "
        "baseline) = %.2f ms/frame (%ju kB out); processor time ours %.2f, ffmpeg %.2f "
        "ms/frame\n",
        round, ours.back(), mine.frames, mine.bytes / 1024, encodeRun.seconds, baselineRun.seconds,
        theirs.back(), static_cast<uintmax_t>(ffmpegBytes / 1024), oursCpu.back(),
        theirsCpu.back());
    if (round == 1) {
      const std::string theirOptions = x264OptionText(readFile(output));
      const bool same = !mine.x264Options.empty() && mine.x264Options == theirOptions;
      std::printf("  x264 settings of the two encodes: %s\n", same ? "identical" : "DIFFERENT");
      if (!same || o.verbose)
        std::printf("    ours:   %s\n    ffmpeg: %s\n", mine.x264Options.c_str(),
                    theirOptions.c_str());
    }
    if (mine.frames != pictures.size()) {
      std::printf("  (ours handed out %zu frames for %zu pictures)\n", mine.frames,
                  pictures.size());
    }
  }
  std::filesystem::remove(output);

  const double oursMs = median(ours), theirsMs = median(theirs);
  const double ratio = theirsMs > 0 ? oursMs / theirsMs : 0;
  const bool met = theirsMs > 0 && ratio <= kTargetRatio;
  std::printf(
      "  wall time per frame over the rounds: ours %.2f to %.2f ms, ffmpeg %.2f to %.2f "
      "ms\n",
      *std::min_element(ours.begin(), ours.end()), *std::max_element(ours.begin(), ours.end()),
      *std::min_element(theirs.begin(), theirs.end()),
      *std::max_element(theirs.begin(), theirs.end()));
  std::printf("  %s\n", load.describe().c_str());
  const double cpuRatio = median(theirsCpu) > 0 ? median(oursCpu) / median(theirsCpu) : 0;
  std::printf(
      "  processor time per frame (for reference, no target): ours %.2f ms, ffmpeg %.2f "
      "ms, ratio %.3f\n",
      median(oursCpu), median(theirsCpu), cpuRatio);
  std::printf(
      "result: encode cost per frame ours %.2f ms, ffmpeg %.2f ms, ratio %.3f "
      "(target <= %.2f): %s\n",
      oursMs, theirsMs, ratio, kTargetRatio, met ? "met" : "NOT met");
  return met ? 0 : 1;
}
