#pragma once

#include <asio/io_context.hpp>
#include <memory>

namespace oxelo {

// The one I/O thread that runs every socket of the process ("socket
// worker"). Started on first use; runs until the process ends.
class AsioRuntime {
 public:
  static AsioRuntime& shared();
  asio::io_context& context() { return context_; }
  // True when called on the I/O thread.
  bool isCurrent() const;

 private:
  AsioRuntime();
  ~AsioRuntime();
  mutable asio::io_context context_;
  struct Thread;
  std::unique_ptr<Thread> thread_;
};

}  // namespace oxelo
