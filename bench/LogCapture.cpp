#include "bench/LogCapture.h"

#include <cstdio>

#include "platform/log/Log.h"

namespace oxelo::bench {

LogCapture::LogCapture(bool echo) {
  setLogSink([this, echo](const std::string& line) {
    if (echo) std::fprintf(stderr, "%s\n", line.c_str());
    std::lock_guard lock(mutex_);
    lines_.push_back(line);
  });
}

LogCapture::~LogCapture() { setLogSink({}); }

std::string LogCapture::wordAfter(const std::string& prefix) const {
  std::lock_guard lock(mutex_);
  for (const auto& line : lines_) {
    if (line.rfind(prefix, 0) != 0) continue;
    std::string rest = line.substr(prefix.size());
    return rest.substr(0, rest.find(' '));
  }
  return {};
}

}  // namespace oxelo::bench
