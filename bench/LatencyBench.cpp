// The latency from a picture's push (OXLiveSession::pushVideo) to its
// arrival at the host, at 1280x720@30 and 1920x1080@30.
//
// Method. One process holds both ends. The live session is built from the
// settings as the headless live screen builds it, with the program's
// encoders (HardwareEncoderFactory) and pushed video only; its stream socket
// opens its own TCP connection to a reader on 127.0.0.1 (StreamArrivals),
// and the main queue runs on a thread of its own. Once the session uploads,
// the moving picture is rendered and pushed at the configured rate from
// this thread, which stands for the video processing queue. Each picture is
// stamped, as a camera stamps its capture time, with the media clock at the
// moment of its push, which becomes its frame's timestamp; the push notes
// that time and the steady clock before and after the call. The reader
// notes when each video frame has arrived whole. A frame's stream timestamp
// plus the media time of the first push names the push it came from (pushes
// are a frame interval apart; a match must lie within 3 ms).
//
// Latency: arrival less the start of the push; a picture that never arrives
// (the socket drops video that runs late) counts as later than any that
// did. Encode time: the duration of the push, in which the session encodes
// synchronously and hands the frame to the socket. Target: median latency
// at most the median encode time plus 5 ms.
#include <signal.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "bench/BenchOptions.h"
#include "bench/BenchSettings.h"
#include "bench/LogCapture.h"
#include "bench/MachineLoad.h"
#include "bench/Statistics.h"
#include "bench/StreamArrivals.h"
#include "capture/MovingPicture.h"
#include "encoding/HardwareEncoderFactory.h"
#include "platform/dispatch/MainQueue.h"
#include "transport/OXLiveSession.h"

using namespace oxelo;
using namespace oxelo::bench;

namespace {

using Clock = StreamArrivals::Clock;
using Millis = std::chrono::duration<double, std::milli>;

constexpr double kAllowanceMs = 5.0;
constexpr int64_t kMatchToleranceMs = 3;

struct Options {
  std::vector<std::pair<int, int>> sizes{{1280, 720}, {1920, 1080}};
  int fps = 30;
  int frames = 300;
  bool verbose = false;
};

// The options, writing into `o`, which must outlive the app.
void describeOptions(CLI::App& app, Options& o) {
  app.add_option_function<std::string>(
         "--size", [&o](const std::string& text) { o.sizes = {*parseFrameSize(text)}; },
         "measure this picture size only (default 1280x720 and 1920x1080)")
      ->type_name("WxH")
      ->check(frameSize());
  app.add_option("--fps", o.fps, "frame rate of the session and of the pushes")
      ->type_name("N")
      ->check(positive())
      ->capture_default_str();
  app.add_option("--frames", o.frames, "pictures pushed per size")
      ->type_name("N")
      ->check(positive())
      ->capture_default_str();
  app.add_flag("--verbose", o.verbose, "let the program's log through to stderr");
}

struct Push {
  uint64_t media = 0;  // the media clock when the push began, ms
  Clock::time_point begin;
  Clock::time_point end;
};

// Pushes `count` moving pictures at `fps`, noting each push.
std::vector<Push> pushPictures(OXLiveSession& session, int width, int height, int fps, int count) {
  auto pool = PixelBufferPool::create(width, height);
  std::vector<Push> pushes;
  const auto start = Clock::now();
  for (int n = 0; n < count; ++n) {
    auto picture = pool->makeBuffer();
    renderMovingPicture(*picture, static_cast<uint64_t>(n));
    std::this_thread::sleep_until(start + std::chrono::duration_cast<Clock::duration>(
                                              std::chrono::duration<double>(double(n) / fps)));
    Push push;
    push.media = mediaTimeMillis();
    picture->setPresentationTime(static_cast<double>(push.media) / 1000.0);
    push.begin = Clock::now();
    session.pushVideo(std::move(picture));
    push.end = Clock::now();
    pushes.push_back(push);
  }
  return pushes;
}

// The push whose media time lies nearest `media`, within the tolerance.
const Push* pushAt(const std::vector<Push>& pushes, uint64_t media) {
  auto it = std::lower_bound(pushes.begin(), pushes.end(), media,
                             [](const Push& p, uint64_t m) { return p.media < m; });
  const Push* best = nullptr;
  for (auto c : {it, it == pushes.begin() ? it : std::prev(it)}) {
    if (c == pushes.end()) continue;
    auto gap = std::llabs(static_cast<long long>(c->media) - static_cast<long long>(media));
    if (gap <= kMatchToleranceMs && (!best || gap < std::llabs(static_cast<long long>(best->media) -
                                                               static_cast<long long>(media))))
      best = &*c;
  }
  return best;
}

// "12.34 ms", or "never" for a picture that did not arrive.
std::string millis(double value) {
  return std::isinf(value) ? std::string("never") : fmt::format("{:.2f} ms", value);
}

bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  while (!done()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

// One size: 0 target met, 1 not met, 2 no measurement.
int measure(BenchSettings& settings, Queue& main, int width, int height, const Options& o,
            const LogCapture& log) {
  std::string error;
  MachineLoad load;
  std::optional<LiveSessionConfiguration> configuration;
  main.runSync([&] { configuration = settings.configurationFor(width, height, o.fps, error); });
  if (!configuration) {
    std::fprintf(stderr, "latency: %s\n", error.c_str());
    return 2;
  }
  StreamArrivals host;
  if (host.port() == 0) {
    std::fprintf(stderr, "latency: %s\n", host.error().c_str());
    return 2;
  }
  std::shared_ptr<OXLiveSession> session;
  main.runSync([&] {
    LiveSessionEnvironment environment;
    environment.encoders = std::make_shared<HardwareEncoderFactory>();
    session = OXLiveSession::create(configuration->audio, configuration->video, kInputMaskVideo,
                                    environment);
    auto info = std::make_shared<LFLiveStreamInfo>();
    info->host = "127.0.0.1";
    info->port = host.port();
    session->initStreamInfo(info);
    session->setRunning(true);
    session->startLive();
  });
  auto stop = [&] {
    main.runSync([&] {
      session->setRunning(false);
      session->stopLive();
      session.reset();
    });
  };
  if (!waitUntil([&] { return session->uploading(); }, std::chrono::seconds(5))) {
    std::fprintf(stderr, "latency: the session did not connect to the reader\n");
    stop();
    return 2;
  }
  // Let the connection's first steps (info packet, states) settle.
  std::this_thread::sleep_for(std::chrono::milliseconds(200));

  auto pushes = pushPictures(*session, width, height, o.fps, o.frames);
  auto arrivals = host.waitFor(pushes.size(), std::chrono::seconds(5));
  stop();

  std::vector<double> latencies, encodes;
  for (const auto& push : pushes) encodes.push_back(Millis(push.end - push.begin).count());
  for (const auto& arrival : arrivals) {
    const Push* push = pushAt(pushes, pushes.front().media + arrival.timestamp);
    if (push) latencies.push_back(Millis(arrival.at - push->begin).count());
  }
  const size_t matched = latencies.size();
  const std::string encoder = log.wordAfter("VideoEncoder: ");
  std::printf("latency %dx%d@%d (%s, %llu b/s): %zu pushed, %zu arrived, %zu matched\n", width,
              height, o.fps, encoder.empty() ? "?" : encoder.c_str(),
              static_cast<unsigned long long>(configuration->video->videoBitRate()), pushes.size(),
              arrivals.size(), matched);
  if (!host.error().empty()) std::printf("  stream: %s\n", host.error().c_str());
  // A picture that never arrived ranks behind every one that did.
  latencies.resize(pushes.size(), std::numeric_limits<double>::infinity());
  const double medianLatency = median(latencies), p99 = percentile(latencies, 99);
  const double medianEncode = median(encodes);
  const double limit = medianEncode + kAllowanceMs;
  const bool met = medianLatency <= limit;
  std::printf("  push to arrival: median %s, p99 %s, max %s\n", millis(medianLatency).c_str(),
              millis(p99).c_str(),
              millis(*std::max_element(latencies.begin(), latencies.end())).c_str());
  std::printf("  encode (the push): median %.2f ms, mean %.2f ms, p99 %.2f ms\n", medianEncode,
              mean(encodes), percentile(encodes, 99));
  if (matched < pushes.size()) {
    std::printf(
        "  %zu of %zu pictures did not arrive (they count as never arriving); the stream "
        "socket drops late video up to the next key frame\n",
        pushes.size() - matched, pushes.size());
  }
  std::printf("  %s\n", load.describe().c_str());
  std::printf(
      "result: latency %dx%d@%d median %s, p99 %s, encode %.2f ms (target: median <= "
      "encode + %.0f ms = %.2f ms): %s\n",
      width, height, o.fps, millis(medianLatency).c_str(), millis(p99).c_str(), medianEncode,
      kAllowanceMs, limit, met ? "met" : "NOT met");
  return met ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  CLI::App app("Latency from a picture's push to its arrival at the host.", "oxelo-bench-latency");
  describeOptions(app, o);
  if (auto status = parseOptions(app, argc, argv)) return *status;
  signal(SIGPIPE, SIG_IGN);
  LogCapture log(o.verbose);
  BenchSettings settings;
  if (!settings.ok()) {
    std::fprintf(stderr, "latency: %s\n", settings.error().c_str());
    return 2;
  }
  auto main = MainQueue::get();
  std::thread mainThread([main] { main->run(); });
  int status = 0;
  for (auto [width, height] : o.sizes)
    status = std::max(status, measure(settings, *main, width, height, o, log));
  main->stop();
  mainThread.join();
  return status;
}
