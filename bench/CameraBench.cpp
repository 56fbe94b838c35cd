// The whole phone process on the camera path: `oxelo --headless --camera
// virtual --audio synthetic` (the program beside this one) streaming to
// `oxelo-host` on 127.0.0.1, at 1280x720@30 and 1920x1080@30, no preview.
//
// Method. The host listens with --settings WxH@FPS and --arrivals, which
// writes, for every video and audio frame, its stream timestamp and the
// moment it arrived whole on CLOCK_MONOTONIC. The phone's media clock is
// std::chrono::steady_clock, which is CLOCK_MONOTONIC too, so on one machine
// both sides read the same clock. The measured window is --seconds long and
// begins one second after the phone logs "Live - streaming" (the warm-up);
// the host ends the stream (command 24) a second after the window.
//
//  - Stream time to capture time. A stream timestamp is the frame's media
//    time in whole milliseconds less that of the first frame of the
//    connection (video or audio), which the host never sees. An audio frame
//    is stamped when the encoder is called with the samples that complete
//    it and is sent at once, so for audio, arrival less timestamp is that
//    reference plus a small sending delay. Its minimum over all audio frames
//    is taken as the reference: the figures below are short by that delay
//    (well under a millisecond on loopback) and carry the timestamps'
//    1 ms resolution. Capture time of a video frame = reference + timestamp.
//  - Frames asked for: the rate times the window. Delivered: the video
//    frames whose capture time lies in the window.
//  - Latency: arrival less capture time, for the frames of the window; each
//    frame asked for and not delivered counts as later than any that came.
//  - Encode time per frame: the wall time per frame of the ffmpeg run below
//    (libx264 with tune zerolatency codes each frame before the next, with
//    sliced threads, so this is how long one frame takes to code). Graph
//    time: the GL chain's cost per frame from oxelo-bench-filters (or
//    --graph-ms). Target: median latency at most encode + graph + 2 ms.
//  - Processor time: utime + stime of the phone from /proc/PID/stat at the
//    two ends of the window, per delivered frame. Against it: `ffmpeg`
//    encoding raw NV12 frames of the virtual camera's picture (the same
//    renderVirtualPicture the phone's camera draws; kDistinctFrames of them,
//    over and over) with the options our libx264 session is opened with,
//    its processor time per frame from wait4. The phone's figure also holds
//    the drawing of the virtual picture, which the reference does not pay;
//    its cost per frame is printed beside it. Target: ratio at most 1.3.
//  - Delivery target: at least 99.9% at 1280x720; printed for every size.
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/BenchOptions.h"
#include "bench/BenchSettings.h"
#include "bench/ChildProcess.h"
#include "bench/FfmpegCommand.h"
#include "bench/LogCapture.h"
#include "bench/MachineLoad.h"
#include "bench/PipedProcess.h"
#include "bench/Statistics.h"
#include "encoding/LFHardwareVideoEncoder.h"
#include "encoding/LibavVideoCodecSession.h"
#include "platform/camera/VirtualPicture.h"

extern char** environ;

using namespace oxelo;
using namespace oxelo::bench;

namespace {

namespace fs = std::filesystem;

constexpr double kWarmUpSeconds = 1.0;
constexpr double kDeliveredTarget = 0.999;  // judged at 1280x720
constexpr double kLatencyAllowanceMs = 2.0;
constexpr double kCpuTarget = 1.3;
constexpr int kDistinctFrames = 90;
// LFHardwareVideoEncoder asks for a key frame at least every 2 seconds.
constexpr int64_t kKeyFrameSeconds = 2;

struct Options {
  std::vector<std::pair<int, int>> sizes{{1280, 720}, {1920, 1080}};
  int fps = 30;
  double seconds = 60;
  std::optional<double> graphMs;
  std::string binDir;
  std::string writeFrames;
  bool mirror = false;
  bool verbose = false;
};

void describeOptions(CLI::App& app, Options& o) {
  app.add_option_function<std::string>(
         "--size", [&o](const std::string& text) { o.sizes = {*parseFrameSize(text)}; },
         "measure this picture size only (default 1280x720 and 1920x1080)")
      ->type_name("WxH")
      ->check(frameSize());
  app.add_option("--fps", o.fps, "frame rate asked of the phone")
      ->type_name("N")
      ->check(positive())
      ->capture_default_str();
  app.add_option("--seconds", o.seconds, "length of the measured window of streaming")
      ->type_name("S")
      ->check(CLI::Range(1.0, 3600.0))
      ->capture_default_str();
  app.add_option("--graph-ms", o.graphMs,
                 "the GL chain's cost per frame (default: measured by oxelo-bench-filters)")
      ->type_name("MS");
  app.add_option("--bin-dir", o.binDir,
                 "where oxelo, oxelo-host and oxelo-bench-filters are (default: beside this)")
      ->type_name("DIR");
  app.add_option("--write-frames", o.writeFrames,
                 "write the NV12 frames given to ffmpeg (one size, --fps x 2 s) to FILE and exit")
      ->type_name("FILE");
  app.add_flag("--mirror", o.mirror,
               "the host mirrors the picture first (command 35), so that every frame is drawn");
  app.add_flag("--verbose", o.verbose, "let this program's log through to stderr");
}

// Processor time of a process so far, user and system, in seconds.
std::optional<double> cpuSecondsOfProcess(pid_t pid) {
  const std::string stat = readText(fmt::format("/proc/{}/stat", pid));
  const auto close = stat.rfind(')');
  if (close == std::string::npos) return std::nullopt;
  std::istringstream fields(stat.substr(close + 2));
  std::string field;
  unsigned long long utime = 0, stime = 0;
  // After the name: state is field 3; utime and stime are fields 14 and 15.
  for (int n = 3; n <= 15 && fields >> field; ++n) {
    if (n == 14) utime = std::stoull(field);
    if (n == 15) stime = std::stoull(field);
  }
  if (!fields) return std::nullopt;
  return static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The GL chain's cost per frame at a size, from oxelo-bench-filters.
std::optional<double> graphMsFromFiltersBench(const fs::path& program, int width, int height) {
  FILE* pipe = popen((program.string() + " 30 2>/dev/null").c_str(), "r");
  if (!pipe) return std::nullopt;
  std::string output;
  char chunk[512];
  while (size_t n = std::fread(chunk, 1, sizeof chunk, pipe)) output.append(chunk, n);
  pclose(pipe);
  const std::string key = fmt::format("result: filters {}x{}: chain ", width, height);
  const auto at = output.find(key);
  if (at == std::string::npos) return std::nullopt;
  return std::atof(output.c_str() + at + key.size());
}

// The virtual camera's picture, frames 0 to count - 1, as tightly packed
// NV12 in the matrix and range of a fresh camera frame. Each is held in a
// pixel buffer of one row, so that runWithPictures pipes the bytes as they
// are.
std::vector<std::shared_ptr<PixelBuffer>> renderFrames(int width, int height, int count,
                                                       double& msPerFrame) {
  std::vector<std::shared_ptr<PixelBuffer>> frames;
  auto frame = CameraFrame::make(width, height);
  const size_t bytes =
      static_cast<size_t>(width) * height + 2ul * frame->chromaWidth() * frame->chromaHeight();
  double drawing = 0;
  for (int n = 0; n < count; ++n) {
    const auto begin = std::chrono::steady_clock::now();
    renderVirtualPicture(*frame, static_cast<uint64_t>(n));
    drawing +=
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
    auto packed = PixelBuffer::create(static_cast<int>((bytes + 3) / 4), 1);
    uint8_t* to = packed->data();
    for (int y = 0; y < height; ++y) to = std::copy_n(frame->row(0, y), width, to);
    for (int y = 0; y < frame->chromaHeight(); ++y)
      to = std::copy_n(frame->row(1, y), 2 * frame->chromaWidth(), to);
    frames.push_back(std::move(packed));
  }
  msPerFrame = drawing / count;
  return frames;
}

// The ffmpeg options for the session our encoder opens at this size.
std::optional<ReferenceEncode> referenceEncode(BenchSettings& settings, int width, int height,
                                               int fps, std::string& error) {
  auto configuration = settings.configurationFor(width, height, fps, error);
  if (!configuration) return std::nullopt;
  auto video = configuration->video;
  auto encoder = LFHardwareVideoEncoder::create(video, LibavVideoCodecSession::factory({"libx264"}),
                                                /*lifecycle=*/nullptr);
  if (encoder->encoderName() != "libx264") {
    error = "libx264 could not be opened";
    return std::nullopt;
  }
  ReferenceEncode e;
  e.width = width;
  e.height = height;
  e.fps = fps;
  e.rate = encoder->rateControl();
  e.rate.averageBitRate = static_cast<int64_t>(video->videoBitRate());
  e.forcedKeyFrameEvery = static_cast<int64_t>(video->videoMaxKeyframeInterval());
  e.keyFrameInterval = kKeyFrameSeconds * fps;
  if (e.forcedKeyFrameEvery > 0 && e.forcedKeyFrameEvery < e.keyFrameInterval)
    e.keyFrameInterval = e.forcedKeyFrameEvery;
  e.colour = encoder->colourTags();
  encoder->stopEncoder();
  return e;
}

// ffmpeg coding `count` frames, cycling through `frames`: wall and
// processor time.
TimedRun runReference(const ReferenceEncode& e,
                      const std::vector<std::shared_ptr<PixelBuffer>>& frames, int count,
                      const fs::path& output) {
  std::vector<std::shared_ptr<PixelBuffer>> sequence;
  for (int n = 0; n < count; ++n)
    sequence.push_back(frames[static_cast<size_t>(n) % frames.size()]);
  return runWithPictures("ffmpeg", ffmpegNv12EncodeArguments(e, output.string()), sequence);
}

std::string millis(double value) {
  return std::isinf(value) ? std::string("never") : fmt::format("{:.2f} ms", value);
}

struct Window {
  double begin = 0, end = 0;  // CLOCK_MONOTONIC seconds
  double cpuSeconds = 0;
};

// Streams for the window; none, with `error` set, when there was no stream.
std::optional<Window> streamPhone(const Options& o, const fs::path& bin, const fs::path& work,
                                  int width, int height, std::string& error) {
  auto instance = freeInstance();
  if (!instance) {
    error = "no free port among 5895-5910";
    return std::nullopt;
  }
  const int port = 5894 + *instance;
  Child host = spawn({(bin / "oxelo-host").string(),
                      "listen",
                      "--bind",
                      "127.0.0.1",
                      "--port",
                      std::to_string(port),
                      "--wait",
                      "15",
                      "--settings",
                      fmt::format("{}x{}@{}", width, height, o.fps),
                      "--duration",
                      fmt::format("{:.1f}", o.seconds + kWarmUpSeconds + 1.5),
                      "--end",
                      "24",
                      "--arrivals",
                      (work / "arrivals.txt").string(),
                      "--report",
                      (work / "report.json").string(),
                      "--command",
                      o.mirror ? "0 35 1" : "0 35 0"},
                     work / "host.log");
  if (!waitForText(work / "host.log", "host - listening", host, monotonicSeconds() + 10)) {
    host.stop();
    error = "the host did not listen: " + readText(work / "host.log");
    return std::nullopt;
  }
  Child phone =
      spawn({(bin / "oxelo").string(), "--headless", "--connect", "127.0.0.1", "--instance",
             std::to_string(*instance), "--camera", "virtual", "--audio", "synthetic",
             "--exit-when-ended", "--duration", fmt::format("{:.0f}", o.seconds + 30),
             "--config-dir", (work / "config").string()},
            work / "phone.log");
  std::optional<Window> window;
  if (waitForText(work / "phone.log", "Live - streaming", phone, monotonicSeconds() + 20)) {
    Window w;
    w.begin = monotonicSeconds() + kWarmUpSeconds;
    w.end = w.begin + o.seconds;
    sleepUntil(w.begin);
    auto first = cpuSecondsOfProcess(phone.pid);
    sleepUntil(w.end);
    auto last = cpuSecondsOfProcess(phone.pid);
    if (first && last) {
      w.cpuSeconds = *last - *first;
      window = w;
    } else {
      error = "the phone ended before the window did";
    }
  } else {
    error = "the phone did not start streaming";
  }
  const bool phoneOk = phone.wait();
  const bool hostOk = host.wait();
  if (window && (!phoneOk || !hostOk)) {
    std::printf("  note: the phone (status %d) or the host (status %d) did not end cleanly\n",
                phone.status.value_or(-1), host.status.value_or(-1));
  }
  if (!window) {
    std::fprintf(stderr, "camera: phone log:\n%s\n", readText(work / "phone.log").c_str());
  }
  return window;
}

// One size: 0 every target met, 1 one not met, 2 no measurement.
int measure(const Options& o, BenchSettings& settings, const fs::path& bin, int width, int height) {
  MachineLoad load;
  std::string error;
  if (width % 2 || height % 2 || (width * height * 3 / 2) % 4) {
    // The frames go through the pipe in whole 4-byte pixels.
    std::fprintf(stderr, "camera: %dx%d: even sides whose NV12 size is a multiple of 4 only\n",
                 width, height);
    return 2;
  }
  auto reference = referenceEncode(settings, width, height, o.fps, error);
  if (!reference) {
    std::fprintf(stderr, "camera: %s\n", error.c_str());
    return 2;
  }
  std::optional<double> graphMs = o.graphMs;
  if (!graphMs) graphMs = graphMsFromFiltersBench(bin / "oxelo-bench-filters", width, height);

  const fs::path work = fs::temp_directory_path() / fmt::format("oxelo-bench-camera-{}", getpid());
  fs::remove_all(work);
  fs::create_directories(work);
  auto window = streamPhone(o, bin, work, width, height, error);
  if (!window) {
    std::fprintf(stderr, "camera: %s\n", error.c_str());
    fs::remove_all(work);
    return 2;
  }
  const auto arrivals = readArrivals(work / "arrivals.txt");
  const std::string phoneLog = readText(work / "phone.log");

  // The reference: the least of arrival less timestamp over audio frames.
  int64_t reference0 = std::numeric_limits<int64_t>::max();
  for (const auto& a : arrivals)
    if (!a.video) reference0 = std::min(reference0, a.at - int64_t{a.timestamp} * 1'000'000);
  if (reference0 == std::numeric_limits<int64_t>::max()) {
    std::fprintf(stderr, "camera: no audio frame arrived, so no reference time\n");
    fs::remove_all(work);
    return 2;
  }
  const auto beginNs = static_cast<int64_t>(window->begin * 1e9);
  const auto endNs = static_cast<int64_t>(window->end * 1e9);
  std::vector<double> latencies;
  for (const auto& a : arrivals) {
    if (!a.video) continue;
    const int64_t captured = reference0 + int64_t{a.timestamp} * 1'000'000;
    if (captured >= beginNs && captured < endNs)
      latencies.push_back(static_cast<double>(a.at - captured) / 1e6);
  }
  const auto asked = static_cast<size_t>(std::llround(o.seconds * o.fps));
  const size_t delivered = latencies.size();
  const double share = static_cast<double>(delivered) / static_cast<double>(asked);
  latencies.resize(std::max(asked, delivered), std::numeric_limits<double>::infinity());
  const double medianLatency = median(latencies), p99 = percentile(latencies, 99);

  // ffmpeg on the same picture, as many frames as the window asked for.
  double renderMs = 0;
  const auto frames = renderFrames(width, height, kDistinctFrames, renderMs);
  const int referenceFrames = static_cast<int>(std::max<size_t>(asked, 150));
  const TimedRun ffmpeg = runReference(*reference, frames, referenceFrames, work / "ffmpeg.h264");
  fs::remove_all(work);
  if (!ffmpeg.ok) {
    std::fprintf(stderr, "camera: %s\n", ffmpeg.failure.c_str());
    return 2;
  }
  const double encodeMs = ffmpeg.seconds * 1000.0 / referenceFrames;
  const double ffmpegCpuMs = ffmpeg.cpuSeconds * 1000.0 / referenceFrames;
  const double phoneCpuMs = delivered ? window->cpuSeconds * 1000.0 / delivered : 0;
  const double ratio = ffmpegCpuMs > 0 ? phoneCpuMs / ffmpegCpuMs : 0;

  auto after = [&](const std::string& prefix) {
    auto at = phoneLog.find(prefix);
    if (at == std::string::npos) return std::string("?");
    at += prefix.size();
    return phoneLog.substr(at, phoneLog.find_first_of(" \n", at) - at);
  };
  const char* label = o.mirror ? " mirrored" : "";
  std::printf(
      "camera%s %dx%d@%d: oxelo --headless --camera virtual (video encoder %s) to oxelo-host,"
      " %.0f s window after %.0f s of warm-up\n",
      label, width, height, o.fps, after("VideoEncoder: ").c_str(), o.seconds, kWarmUpSeconds);
  std::printf("  frames: %zu asked for, %zu delivered (%.2f%%); %zu frames arrived in all\n", asked,
              delivered, 100.0 * share, arrivals.size());
  // A least latency below 0 would say the reference time is wrong.
  std::printf("  capture to arrival: least %s, median %s, p99 %s\n",
              millis(*std::min_element(latencies.begin(), latencies.end())).c_str(),
              millis(medianLatency).c_str(), millis(p99).c_str());
  std::printf("  encode (ffmpeg, wall per frame): %.2f ms; graph: %s\n", encodeMs,
              graphMs ? fmt::format("{:.2f} ms", *graphMs).c_str() : "unknown");
  std::printf(
      "  processor time per frame: phone %.2f ms (its virtual picture's drawing: %.2f ms),"
      " ffmpeg NV12 encode %.2f ms over %d frames\n",
      phoneCpuMs, renderMs, ffmpegCpuMs, referenceFrames);
  std::printf("  %s\n", load.describe().c_str());

  int status = 0;
  const bool judgedDelivery = width == 1280 && height == 720;
  const bool deliveryMet = share >= kDeliveredTarget;
  std::printf("result: camera%s %dx%d@%d delivered %zu of %zu (%.2f%%)%s\n", label, width, height,
              o.fps, delivered, asked, 100.0 * share,
              judgedDelivery
                  ? (deliveryMet ? ", target >= 99.9%: met" : ", target >= 99.9%: NOT met")
                  : " (judged at 1280x720 only)");
  if (judgedDelivery && !deliveryMet) status = 1;
  if (graphMs) {
    const double limit = encodeMs + *graphMs + kLatencyAllowanceMs;
    const bool met = medianLatency <= limit;
    std::printf(
        "result: camera%s %dx%d@%d latency median %s, p99 %s (target: median <= encode %.2f + "
        "graph %.2f + 2 ms = %.2f ms): %s\n",
        label, width, height, o.fps, millis(medianLatency).c_str(), millis(p99).c_str(), encodeMs,
        *graphMs, limit, met ? "met" : "NOT met");
    if (!met) status = 1;
  } else {
    std::printf(
        "result: camera%s %dx%d@%d latency median %s, p99 %s (not judged: no graph time; give "
        "--graph-ms)\n",
        label, width, height, o.fps, millis(medianLatency).c_str(), millis(p99).c_str());
    status = std::max(status, 1);
  }
  const bool cpuMet = ratio > 0 && ratio <= kCpuTarget;
  std::printf(
      "result: camera%s %dx%d@%d processor time %.2f ms/frame against ffmpeg %.2f ms/frame, ratio "
      "%.2f (target <= %.1f): %s\n",
      label, width, height, o.fps, phoneCpuMs, ffmpegCpuMs, ratio, kCpuTarget,
      cpuMet ? "met" : "NOT met");
  if (!cpuMet) status = 1;
  return status;
}

int writeFrames(const Options& o) {
  const auto [width, height] = o.sizes.front();
  double ms = 0;
  std::ofstream out(o.writeFrames, std::ios::binary | std::ios::trunc);
  const std::streamsize bytes = static_cast<std::streamsize>(width) * height * 3 / 2;
  for (const auto& f : renderFrames(width, height, 2 * o.fps, ms))
    out.write(reinterpret_cast<const char*>(f->data()), bytes);
  out.close();
  if (!out) {
    std::fprintf(stderr, "camera: cannot write %s\n", o.writeFrames.c_str());
    return 2;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  CLI::App app(
      "The phone's whole camera path streaming to oxelo-host: delivery, latency and "
      "processor time.",
      "oxelo-bench-camera");
  describeOptions(app, o);
  if (auto status = parseOptions(app, argc, argv)) return *status;
  if (!o.writeFrames.empty()) return writeFrames(o);
  signal(SIGPIPE, SIG_IGN);
  LogCapture log(o.verbose);
  const fs::path bin =
      o.binDir.empty() ? fs::read_symlink("/proc/self/exe").parent_path() : fs::path(o.binDir);
  BenchSettings settings;
  if (!settings.ok()) {
    std::fprintf(stderr, "camera: %s\n", settings.error().c_str());
    return 2;
  }
  int status = 0;
  for (auto [width, height] : o.sizes)
    status = std::max(status, measure(o, settings, bin, width, height));
  return status;
}
