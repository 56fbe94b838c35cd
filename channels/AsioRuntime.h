#pragma once

#include <asio/io_context.hpp>
#include <memory>

namespace oxelo {

// The one I/O thread that runs every socket of the process ("socket
// worker"). Started on first use; at the process's exit it is parked (it
// runs what is queued, then waits for the end) before the static objects
// its handlers read, such as the error categories, are destroyed.
class AsioRuntime {
 public:
  static AsioRuntime& shared();
  asio::io_context& context() { return context_; }
  // True when called on the I/O thread.
  bool isCurrent() const;

 private:
  AsioRuntime();
  ~AsioRuntime();
  // At exit, from another thread: parks the I/O thread.
  void parkAtExit();
  mutable asio::io_context context_;
  struct Thread;
  std::unique_ptr<Thread> thread_;
};

}  // namespace oxelo
