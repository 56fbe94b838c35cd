#pragma once

namespace oxelo {

// Routes libavcodec's error messages to our log (one line each, prefixed
// "libav: ") and drops its chatter below the error level. Idempotent; any
// thread.
void installLibavLog();

// While one lives on a thread, libav messages from that thread are dropped:
// for trying encoders that may well be missing (VA-API, V4L2 mem2mem), whose
// failures are reported by the caller in one line of its own.
class QuietLibavScope {
 public:
  QuietLibavScope();
  ~QuietLibavScope();
  QuietLibavScope(const QuietLibavScope&) = delete;
  QuietLibavScope& operator=(const QuietLibavScope&) = delete;
};

}  // namespace oxelo
