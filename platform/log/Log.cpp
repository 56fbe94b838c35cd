#include "platform/log/Log.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <mutex>

namespace oxelo {

namespace {
std::mutex& logMutex() {
  static std::mutex mutex;
  return mutex;
}
std::function<void(const std::string&)>& sink() {
  static std::function<void(const std::string&)> s;
  return s;
}
}  // namespace

void logLine(std::string_view text) {
  std::lock_guard lock(logMutex());
  if (sink()) {
    sink()(std::string(text));
    return;
  }
  using namespace std::chrono;
  auto now = system_clock::now();
  std::time_t t = system_clock::to_time_t(now);
  auto ms = duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm tm{};
  localtime_r(&t, &tm);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &tm);
  std::fprintf(stderr, "%s.%03d %.*s\n", stamp, static_cast<int>(ms), static_cast<int>(text.size()),
               text.data());
}

void setLogSink(std::function<void(const std::string&)> s) {
  std::lock_guard lock(logMutex());
  sink() = std::move(s);
}

}  // namespace oxelo
