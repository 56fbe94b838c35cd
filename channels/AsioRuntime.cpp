// Asio is built once, here, instead of in every file that includes it.
#include <asio/impl/src.hpp>

#include "channels/AsioRuntime.h"

#include <asio/error.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>
#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
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
  // The categories that the handlers' errors name are made now, before the
  // exit hook is registered: they are destroyed only after it has run.
  (void)asio::system_category();
  (void)asio::error::get_misc_category();
  (void)asio::error::get_netdb_category();
  (void)asio::error::get_addrinfo_category();
  thread_->thread = std::thread([this] { context_.run(); });
  thread_->thread.detach();
  std::atexit([] { shared().parkAtExit(); });
}

void AsioRuntime::parkAtExit() {
  if (isCurrent()) return;
  // The thread is kept, not ended: it holds memory that is only given back
  // as run() returns, and nothing is to run any more.
  auto parked = std::make_shared<std::promise<void>>();
  auto done = parked->get_future();
  asio::post(context_, [parked] {
    parked->set_value();
    for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
  });
  // A handler that never returns leaves the exit to go on after a while.
  done.wait_for(std::chrono::seconds(2));
}

AsioRuntime::~AsioRuntime() = default;

bool AsioRuntime::isCurrent() const { return context_.get_executor().running_in_this_thread(); }

}  // namespace oxelo
