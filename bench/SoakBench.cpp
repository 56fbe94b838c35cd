// A long stream through the whole phone: `oxelo --headless --camera virtual
// --audio synthetic` (the program beside this one) streaming to `oxelo-host`
// on 127.0.0.1 for --minutes (10 by default) at 1280x720@30, no preview.
//
// Method. As oxelo-bench-camera: the host listens with --settings WxH@FPS
// and --arrivals, which writes every frame's stream timestamp and the moment
// it arrived whole on CLOCK_MONOTONIC, the clock of the phone's media times.
// The stream timestamps are put on that clock by the least arrival less
// timestamp of the audio frames (sent as soon as they are coded), so the lag
// below is short by that sending delay and carries the timestamps' 1 ms
// resolution. The window begins one second after the phone logs "Live -
// streaming"; the host ends the stream (command 24) 1.5 s after the window.
//
//  - Per minute of the window: the frames asked for (the rate times 60), the
//    video frames whose capture time lies in that minute, and the 99th
//    percentile of their arrival lag (arrival less capture time), each frame
//    asked for and not delivered counting as later than any that came; and
//    beside it the p99 of the frames that came, which shows a creep even
//    when frames are missing.
//  - Creep: the least-squares slope of the per-minute p99 in ms per minute.
//  - Memory: the phone's VmRSS at the start of the window, at each minute and
//    at its end.
// Targets: at least 99.9% delivered over the window; a p99 slope of at most
// 0.5 ms per minute (no upward creep); VmRSS growth from start to end under
// 5 MiB.
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
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
#include "bench/ChildProcess.h"
#include "bench/MachineLoad.h"
#include "bench/Statistics.h"

extern char** environ;

using namespace oxelo::bench;

namespace {

namespace fs = std::filesystem;

constexpr double kWarmUpSeconds = 1.0;
constexpr double kDeliveredTarget = 0.999;
constexpr double kSlopeTargetMsPerMinute = 0.5;
constexpr long kGrowthTargetKb = 5 * 1024;

struct Options {
  int width = 1280, height = 720;
  int fps = 30;
  int minutes = 10;
  std::string binDir;
};

void describeOptions(CLI::App& app, Options& o) {
  app.add_option_function<std::string>(
         "--size",
         [&o](const std::string& text) { std::tie(o.width, o.height) = *parseFrameSize(text); },
         "picture size asked of the phone (default 1280x720)")
      ->type_name("WxH")
      ->check(frameSize());
  app.add_option("--fps", o.fps, "frame rate asked of the phone")
      ->type_name("N")
      ->check(positive())
      ->capture_default_str();
  app.add_option("--minutes", o.minutes, "length of the measured window")
      ->type_name("N")
      ->check(CLI::Range(1, 600))
      ->capture_default_str();
  app.add_option("--bin-dir", o.binDir, "where oxelo and oxelo-host are (default: beside this)")
      ->type_name("DIR");
}

// VmRSS of a process in kB; none once it has ended.
std::optional<long> residentKb(pid_t pid) {
  std::istringstream status(readText(fmt::format("/proc/{}/status", pid)));
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6);
  }
  return std::nullopt;
}

std::string millis(double value) {
  return std::isinf(value) ? std::string("never") : fmt::format("{:.2f} ms", value);
}

// The least-squares slope of `values` against their index.
double slope(const std::vector<double>& values) {
  const double n = static_cast<double>(values.size());
  if (values.size() < 2) return 0;
  double sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (size_t i = 0; i < values.size(); ++i) {
    const double x = static_cast<double>(i);
    sx += x;
    sy += values[i];
    sxx += x * x;
    sxy += x * values[i];
  }
  return (n * sxy - sx * sy) / (n * sxx - sx * sx);
}

struct Run {
  double begin = 0;              // CLOCK_MONOTONIC seconds
  std::vector<long> residentKb;  // at the start and after each minute
  size_t lateDrops = 0;          // video frames the stream socket dropped as late
  size_t slowWrites = 0;         // write completions it counted as late
};

size_t count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// Streams for the window, noting the phone's memory; none, with `error` set,
// when there was no stream.
std::optional<Run> streamPhone(const Options& o, const fs::path& bin, const fs::path& work,
                               std::string& error) {
  auto instance = freeInstance();
  if (!instance) {
    error = "no free port among 5895-5910";
    return std::nullopt;
  }
  const double seconds = 60.0 * o.minutes;
  Child host =
      spawn({(bin / "oxelo-host").string(), "listen", "--bind", "127.0.0.1", "--port",
             std::to_string(5894 + *instance), "--wait", "15", "--settings",
             fmt::format("{}x{}@{}", o.width, o.height, o.fps), "--duration",
             fmt::format("{:.1f}", seconds + kWarmUpSeconds + 1.5), "--end", "24", "--arrivals",
             (work / "arrivals.txt").string(), "--report", (work / "report.json").string()},
            work / "host.log");
  if (!waitForText(work / "host.log", "host - listening", host, monotonicSeconds() + 10)) {
    host.stop();
    error = "the host did not listen: " + readText(work / "host.log");
    return std::nullopt;
  }
  Child phone =
      spawn({(bin / "oxelo").string(), "--headless", "--connect", "127.0.0.1", "--instance",
             std::to_string(*instance), "--camera", "virtual", "--audio", "synthetic",
             "--exit-when-ended", "--duration", fmt::format("{:.0f}", seconds + 30), "--config-dir",
             (work / "config").string()},
            work / "phone.log");
  std::optional<Run> run;
  if (waitForText(work / "phone.log", "Live - streaming", phone, monotonicSeconds() + 20)) {
    Run r;
    r.begin = monotonicSeconds() + kWarmUpSeconds;
    for (int minute = 0; minute <= o.minutes; ++minute) {
      sleepUntil(r.begin + 60.0 * minute);
      auto kb = residentKb(phone.pid);
      if (!kb) break;
      r.residentKb.push_back(*kb);
      std::printf("  minute %d: phone VmRSS %ld kB\n", minute, *kb);
      std::fflush(stdout);
    }
    if (r.residentKb.size() == static_cast<size_t>(o.minutes) + 1) {
      run = r;
    } else {
      error = "the phone ended before the window did";
    }
  } else {
    error = "the phone did not start streaming";
  }
  if (!run) phone.stop();
  const bool phoneOk = phone.wait();
  const bool hostOk = host.wait();
  if (run && (!phoneOk || !hostOk)) {
    std::printf("  note: the phone (status %d) or the host (status %d) did not end cleanly\n",
                phone.status.value_or(-1), host.status.value_or(-1));
  }
  const std::string log = readText(work / "phone.log");
  if (!run) std::fprintf(stderr, "soak: phone log:\n%s\n", log.c_str());
  if (run) {
    run->lateDrops = count(log, "丢视频帧");
    run->slowWrites = count(log, "SOCKET DELAY");
  }
  return run;
}

int soak(const Options& o, const fs::path& bin) {
  MachineLoad load;
  const fs::path work = fs::temp_directory_path() / fmt::format("oxelo-bench-soak-{}", getpid());
  fs::remove_all(work);
  fs::create_directories(work);
  std::printf("soak %dx%d@%d: oxelo --headless --camera virtual to oxelo-host, %d min\n", o.width,
              o.height, o.fps, o.minutes);
  std::fflush(stdout);
  std::string error;
  auto run = streamPhone(o, bin, work, error);
  const auto arrivals = run ? readArrivals(work / "arrivals.txt") : std::vector<Arrival>{};
  fs::remove_all(work);
  if (!run) {
    std::fprintf(stderr, "soak: %s\n", error.c_str());
    return 2;
  }
  int64_t reference = std::numeric_limits<int64_t>::max();
  for (const auto& a : arrivals)
    if (!a.video) reference = std::min(reference, a.at - int64_t{a.timestamp} * 1'000'000);
  if (reference == std::numeric_limits<int64_t>::max()) {
    std::fprintf(stderr, "soak: no audio frame arrived, so no reference time\n");
    return 2;
  }

  const auto beginNs = static_cast<int64_t>(run->begin * 1e9);
  std::vector<std::vector<double>> lags(static_cast<size_t>(o.minutes));
  for (const auto& a : arrivals) {
    if (!a.video) continue;
    const int64_t captured = reference + int64_t{a.timestamp} * 1'000'000;
    if (captured < beginNs) continue;
    const auto minute = static_cast<size_t>((captured - beginNs) / 60'000'000'000LL);
    if (minute < lags.size()) lags[minute].push_back(static_cast<double>(a.at - captured) / 1e6);
  }
  const size_t askedPerMinute = static_cast<size_t>(60) * static_cast<size_t>(o.fps);
  size_t delivered = 0;
  std::vector<double> p99s, arrivedP99s;
  for (size_t m = 0; m < lags.size(); ++m) {
    auto& minute = lags[m];
    const size_t got = minute.size();
    delivered += got;
    arrivedP99s.push_back(percentile(minute, 99));
    minute.resize(std::max(askedPerMinute, got), std::numeric_limits<double>::infinity());
    const double p99 = percentile(minute, 99);
    p99s.push_back(p99);
    std::printf(
        "  minute %zu: %zu of %zu delivered, lag median %s, p99 %s (of the frames that came: %s)\n",
        m + 1, got, askedPerMinute, millis(median(minute)).c_str(), millis(p99).c_str(),
        millis(arrivedP99s.back()).c_str());
  }
  const size_t asked = askedPerMinute * lags.size();
  const double share = static_cast<double>(delivered) / static_cast<double>(asked);
  const bool finite =
      std::all_of(p99s.begin(), p99s.end(), [](double v) { return std::isfinite(v); });
  const double creep = finite ? slope(p99s) : std::numeric_limits<double>::infinity();
  std::printf("  p99 of the frames that came: slope %.3f ms/min\n", slope(arrivedP99s));
  const long startKb = run->residentKb.front(), endKb = run->residentKb.back();
  const long growthKb = endKb - startKb;
  std::printf(
      "  the phone's log: %zu video frames dropped as late by the stream socket, %zu late write"
      " completions\n",
      run->lateDrops, run->slowWrites);
  if (run->residentKb.size() > 2)
    std::printf("  VmRSS growth after the first minute: %ld kB\n",
                run->residentKb.back() - run->residentKb[1]);
  std::printf("  %s\n", load.describe().c_str());

  const bool deliveryMet = share >= kDeliveredTarget;
  const bool creepMet = creep <= kSlopeTargetMsPerMinute;
  const bool memoryMet = growthKb < kGrowthTargetKb;
  std::printf("result: soak %dx%d@%d %d min delivered %zu of %zu (%.3f%%), target >= 99.9%%: %s\n",
              o.width, o.height, o.fps, o.minutes, delivered, asked, 100.0 * share,
              deliveryMet ? "met" : "NOT met");
  std::printf(
      "result: soak p99 lag first minute %s, last minute %s, slope %.3f ms/min, target <= %.1f: "
      "%s\n",
      millis(p99s.front()).c_str(), millis(p99s.back()).c_str(), creep, kSlopeTargetMsPerMinute,
      creepMet ? "met" : "NOT met");
  std::printf(
      "result: soak phone VmRSS start %ld kB, end %ld kB, growth %ld kB (%.2f MiB), target < 5 "
      "MiB: %s\n",
      startKb, endKb, growthKb, static_cast<double>(growthKb) / 1024.0,
      memoryMet ? "met" : "NOT met");
  return deliveryMet && creepMet && memoryMet ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  CLI::App app(
      "A long stream through the whole phone to oxelo-host: delivery, lag per minute and "
      "memory.",
      "oxelo-bench-soak");
  describeOptions(app, o);
  if (auto status = parseOptions(app, argc, argv)) return *status;
  signal(SIGPIPE, SIG_IGN);
  const fs::path bin =
      o.binDir.empty() ? fs::read_symlink("/proc/self/exe").parent_path() : fs::path(o.binDir);
  return soak(o, bin);
}
