#pragma once

#include <cstdint>
#include <vector>

namespace oxelo {

// The picture-free test source of sound: a steady tone, 440 Hz on the first
// channel and 660 Hz on the second, at a quarter of full scale, in blocks of
// irregular size (between 128 and 1024 frames, from a fixed sequence), as a
// microphone's driver delivers them. Deterministic: the same rate and layout
// give the same bytes. The pacing is separate from the content, so the
// blocks can be drawn without waiting: blocksDueAt() gives every block whose
// last frame falls at or before a time since the start.
class SyntheticTone {
 public:
  SyntheticTone(unsigned sampleRate, unsigned channels);

  static constexpr unsigned kMinBlockFrames = 128;
  static constexpr unsigned kMaxBlockFrames = 1024;

  // Frames in the block that nextBlock() gives next.
  unsigned nextBlockFrames() const { return nextFrames_; }
  // The next block, 16-bit interleaved little-endian.
  std::vector<uint8_t> nextBlock();
  // Every block due by `elapsedSeconds` after the start, in order.
  std::vector<std::vector<uint8_t>> blocksDueAt(double elapsedSeconds);
  // Seconds after the start at which the next block is due.
  double nextDueTime() const;

  uint64_t framesMade() const { return framesMade_; }
  unsigned sampleRate() const { return sampleRate_; }
  unsigned channels() const { return channels_; }

  // The sample of `channel` at frame `index` of the tone.
  int16_t sampleAt(uint64_t index, unsigned channel) const;

 private:
  void drawNextFrames();

  unsigned sampleRate_;
  unsigned channels_;
  uint64_t framesMade_ = 0;
  uint32_t sequence_ = 0x2545f491u;
  unsigned nextFrames_ = 0;
};

}  // namespace oxelo
