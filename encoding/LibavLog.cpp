#include "encoding/LibavLog.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

#include "platform/log/Log.h"

extern "C" {
#include <libavutil/log.h>
}

namespace oxelo {

namespace {

thread_local int quietDepth = 0;

void forward(void* /*avcl*/, int level, const char* format, va_list args) {
  if (level > AV_LOG_ERROR || quietDepth > 0) return;
  char text[512];
  va_list copy;
  va_copy(copy, args);
  std::vsnprintf(text, sizeof(text), format, copy);
  va_end(copy);
  std::string line(text);
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
  if (line.empty()) return;
  logLine("libav: " + line);
}

}  // namespace

void installLibavLog() {
  static std::once_flag once;
  std::call_once(once, [] {
    av_log_set_level(AV_LOG_ERROR);
    av_log_set_callback(forward);
  });
}

QuietLibavScope::QuietLibavScope() { ++quietDepth; }
QuietLibavScope::~QuietLibavScope() { --quietDepth; }

}  // namespace oxelo
