#include "platform/audio/SyntheticAudioInput.h"

#include <chrono>

#include "platform/dispatch/Clock.h"

namespace oxelo {

SyntheticAudioInput::SyntheticAudioInput(unsigned sampleRate, unsigned channels)
    : tone_(sampleRate, channels) {}

SyntheticAudioInput::~SyntheticAudioInput() { stop(); }

bool SyntheticAudioInput::start(BlockHandler handler) {
  if (thread_.joinable()) return true;
  {
    std::lock_guard lock(mutex_);
    stopping_ = false;
  }
  thread_ = std::thread([this, handler = std::move(handler)] { run(handler); });
  return true;
}

void SyntheticAudioInput::stop() {
  if (!thread_.joinable()) return;
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void SyntheticAudioInput::run(BlockHandler handler) {
  using Clock = std::chrono::steady_clock;
  // The tone's own time restarts with each start; its content goes on.
  SyntheticTone& tone = tone_;
  const double origin = static_cast<double>(tone.framesMade()) / tone.sampleRate();
  const auto start = Clock::now();
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    uint64_t sampleTime = tone.framesMade();
    auto blocks = tone.blocksDueAt(origin + elapsed);
    lock.unlock();
    for (auto& block : blocks) {
      handler(block.data(), block.size(), AudioTimeStamp{sampleTime, mediaTime()});
      sampleTime += block.size() / (2 * tone.channels());
    }
    lock.lock();
    const auto due = start + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(tone.nextDueTime() - origin));
    wake_.wait_until(lock, due, [this] { return stopping_; });
  }
}

}  // namespace oxelo
