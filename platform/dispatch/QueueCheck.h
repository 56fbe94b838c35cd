#pragma once

#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/Queue.h"

// Queue-affinity checks, placed at the entry of the operations whose header
// names the queue they run on:
//   OX_ASSERT_ON_QUEUE(queue)   the operation runs on `queue` (a Queue pointer)
//   OX_ASSERT_ON_MAIN_QUEUE()   the operation runs on the main queue
// They are compiled where OXELO_QUEUE_CHECKS is defined (every test build,
// the sanitizer flavours included) and are nothing at all in the release
// binaries. A failed check names the operation, the queue and the place, and
// aborts. Input from the network or a file never reaches one: they check how
// the program calls itself, nothing else.
namespace oxelo::detail {
[[noreturn]] void queueCheckFailed(const char* function, const std::string& queue, const char* file,
                                   int line);
}  // namespace oxelo::detail

#ifdef OXELO_QUEUE_CHECKS
#define OX_ASSERT_ON_QUEUE(queue)                                                        \
  do {                                                                                   \
    if (!(queue)->isCurrent())                                                           \
      ::oxelo::detail::queueCheckFailed(__func__, (queue)->label(), __FILE__, __LINE__); \
  } while (0)
#define OX_ASSERT_ON_MAIN_QUEUE()                                              \
  do {                                                                         \
    if (!::oxelo::MainQueue::isCurrent())                                      \
      ::oxelo::detail::queueCheckFailed(__func__, "main", __FILE__, __LINE__); \
  } while (0)
#else
#define OX_ASSERT_ON_QUEUE(queue) ((void)0)
#define OX_ASSERT_ON_MAIN_QUEUE() ((void)0)
#endif
