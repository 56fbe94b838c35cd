#include "channels/SocketWorker.h"

#include <asio/post.hpp>
#include <future>

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

}  // namespace oxelo::socketworker
