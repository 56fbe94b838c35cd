#include "capture/MovingPicture.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "platform/camera/VirtualPicture.h"
#include "platform/dispatch/Clock.h"

namespace oxelo {

namespace {
// One BGRA pixel as a little-endian word: bytes B, G, R, A.
uint32_t bgra(uint8_t r, uint8_t g, uint8_t b) {
  return uint32_t(b) | uint32_t(g) << 8 | uint32_t(r) << 16 | 0xFF000000u;
}

void fillSpan(PixelBuffer& buffer, int y, int x0, int x1, uint32_t colour) {
  x0 = std::clamp(x0, 0, buffer.width());
  x1 = std::clamp(x1, 0, buffer.width());
  auto* row = reinterpret_cast<uint32_t*>(buffer.row(y));
  std::fill(row + x0, row + x1, colour);
}
}  // namespace

void renderMovingPicture(PixelBuffer& buffer, uint64_t frameNumber) {
  const int w = buffer.width();
  const int h = buffer.height();
  if (w <= 0 || h <= 0) return;
  const MovingPictureLayout m = movingPictureLayout(w, h, frameNumber);
  for (int y = 0; y < h; ++y) {
    uint8_t level = static_cast<uint8_t>(255 * y / h);
    fillSpan(buffer, y, 0, w, bgra(level, m.backgroundGreen(), 255 - level));
    fillSpan(buffer, y, m.barX, m.barX + m.barWidth, bgra(240, 240, 240));
    if (y >= m.squareY && y < m.squareY + m.side)
      fillSpan(buffer, y, m.squareX, m.squareX + m.side, bgra(220, 40, m.squareBlue()));
  }
}

MovingPictureFeeder::MovingPictureFeeder(int width, int height, double fps, Sink sink)
    : fps_(fps > 0 ? fps : 30),
      sink_(std::move(sink)),
      pool_(PixelBufferPool::create(width, height)) {}

MovingPictureFeeder::~MovingPictureFeeder() { stop(); }

void MovingPictureFeeder::start() {
  if (thread_.joinable()) return;
  stopping_ = false;
  thread_ = std::thread([this] { run(); });
}

void MovingPictureFeeder::stop() {
  stopping_ = true;
  if (thread_.joinable()) thread_.join();
}

void MovingPictureFeeder::run() {
  using Steady = std::chrono::steady_clock;
  const auto begin = Steady::now();
  const double beginMedia = mediaTime();
  std::weak_ptr<PixelBuffer> held[3];
  auto dueOf = [&](uint64_t n) {
    return begin + std::chrono::duration_cast<Steady::duration>(
                       std::chrono::duration<double>(static_cast<double>(n) / fps_));
  };
  for (uint64_t n = 0; !stopping_; ++n) {
    // A sink that took longer than a frame's time has let pictures pass: a
    // camera does not wait for its pipeline, so they are skipped.
    auto late = std::chrono::duration<double>(Steady::now() - begin).count() * fps_;
    if (late >= static_cast<double>(n + 1)) {
      auto now = static_cast<uint64_t>(late);
      skipped_ += now - n;
      n = now;
    }
    auto due = dueOf(n);
    // Sleep in short steps so that stop() is not kept waiting a whole frame.
    while (!stopping_ && Steady::now() < due)
      std::this_thread::sleep_for(
          std::min<Steady::duration>(due - Steady::now(), std::chrono::milliseconds(20)));
    if (stopping_) return;
    auto& slot = held[n % 3];
    if (!slot.expired()) {
      ++skipped_;
      continue;
    }
    auto buffer = pool_->makeBuffer();
    renderMovingPicture(*buffer, n);
    // Stamped with its place in the schedule, as a camera stamps the moment
    // of capture, not of delivery.
    buffer->setPresentationTime(beginMedia + static_cast<double>(n) / fps_);
    slot = buffer;
    ++delivered_;
    sink_(std::move(buffer));
  }
}

}  // namespace oxelo
