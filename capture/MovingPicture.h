#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

#include "media/PixelBuffer.h"

namespace oxelo {

// The virtual camera's picture: a vertical colour gradient with a bar that
// sweeps across and a square that moves down, different in every frame and
// the same for the same frame number, so that an encoder has motion to code
// and a test can tell frames apart. Any thread.
void renderMovingPicture(PixelBuffer& buffer, uint64_t frameNumber);

// Delivers the moving picture in real time: `fps` pictures a second of
// `width` x `height`, rendered into pooled buffers, each stamped with its
// presentation time and handed to `sink` on the feeder's own thread (the
// camera queue of the virtual camera). Pictures whose time passed while the
// sink was busy, and a picture whose turn comes while three earlier ones are
// still held, are skipped, as a busy camera pipeline drops frames. Started
// by start(), ended by stop() or the destructor, which wait for the thread.
class MovingPictureFeeder {
 public:
  using Sink = std::function<void(std::shared_ptr<PixelBuffer>)>;

  MovingPictureFeeder(int width, int height, double fps, Sink sink);
  ~MovingPictureFeeder();
  MovingPictureFeeder(const MovingPictureFeeder&) = delete;
  MovingPictureFeeder& operator=(const MovingPictureFeeder&) = delete;

  void start();
  void stop();
  uint64_t delivered() const { return delivered_; }
  uint64_t skipped() const { return skipped_; }

 private:
  void run();

  const double fps_;
  Sink sink_;
  std::shared_ptr<PixelBufferPool> pool_;
  std::atomic<bool> stopping_{false};
  std::atomic<uint64_t> delivered_{0};
  std::atomic<uint64_t> skipped_{0};
  std::thread thread_;
};

}  // namespace oxelo
