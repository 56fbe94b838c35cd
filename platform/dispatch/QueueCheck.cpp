#include "platform/dispatch/QueueCheck.h"

#include <cstdio>
#include <cstdlib>

namespace oxelo::detail {

void queueCheckFailed(const char* function, const std::string& queue, const char* file, int line) {
  std::fprintf(stderr, "queue check failed: %s must run on the %s queue (%s:%d)\n", function,
               queue.c_str(), file, line);
  std::fflush(stderr);
  std::abort();
}

}  // namespace oxelo::detail
