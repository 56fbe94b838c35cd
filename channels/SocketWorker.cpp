#include "channels/SocketWorker.h"

#include <asio/post.hpp>
#include <future>
#include <utility>
#include <vector>

#include "channels/AsioRuntime.h"

namespace oxelo::socketworker {

void post(std::function<void()> task) {
  asio::post(AsioRuntime::shared().context(), std::move(task));
}

void runSync(const std::function<void()>& task) {
  if (isCurrent()) {
    task();
    return;
  }
  std::promise<void> done;
  auto finished = done.get_future();
  post([&task, &done] {
    task();
    done.set_value();
  });
  finished.wait();
}

bool isCurrent() { return AsioRuntime::shared().isCurrent(); }

std::shared_ptr<Queue> timerQueue(const std::shared_ptr<Clock>& clock) {
  static std::mutex mutex;
  // A queue holds its clock, so a clock in this list cannot have been
  // replaced by another at the same address while its queue lives.
  static std::vector<std::pair<const Clock*, std::weak_ptr<Queue>>> queues;
  std::lock_guard lock(mutex);
  std::erase_if(queues, [](auto& entry) { return entry.second.expired(); });
  for (auto& [key, weak] : queues) {
    if (key != clock.get()) continue;
    if (auto queue = weak.lock()) return queue;
  }
  auto queue = Queue::create("socket timers", clock);
  queues.emplace_back(clock.get(), queue);
  return queue;
}

}  // namespace oxelo::socketworker
