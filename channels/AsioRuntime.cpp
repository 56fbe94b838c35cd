// Asio is built once, here, instead of in every file that includes it.
#include <asio/impl/src.hpp>

#include "channels/AsioRuntime.h"

#include <asio/executor_work_guard.hpp>
#include <thread>

namespace oxelo {

struct AsioRuntime::Thread {
  asio::executor_work_guard<asio::io_context::executor_type> guard;
  std::thread thread;
};

AsioRuntime& AsioRuntime::shared() {
  // Never destroyed: sockets may still be closing while static objects go.
  static AsioRuntime* runtime = new AsioRuntime();
  return *runtime;
}

AsioRuntime::AsioRuntime() : thread_(new Thread{asio::make_work_guard(context_), std::thread()}) {
  thread_->thread = std::thread([this] { context_.run(); });
  thread_->thread.detach();
}

AsioRuntime::~AsioRuntime() = default;

bool AsioRuntime::isCurrent() const { return context_.get_executor().running_in_this_thread(); }

}  // namespace oxelo
