#include "platform/audio/SyntheticTone.h"

#include <cmath>
#include <numbers>

namespace oxelo {

SyntheticTone::SyntheticTone(unsigned sampleRate, unsigned channels)
    : sampleRate_(sampleRate > 0 ? sampleRate : 1), channels_(channels > 0 ? channels : 1) {
  drawNextFrames();
}

void SyntheticTone::drawNextFrames() {
  sequence_ = sequence_ * 1664525u + 1013904223u;
  nextFrames_ = kMinBlockFrames + (sequence_ >> 8) % (kMaxBlockFrames - kMinBlockFrames + 1);
}

int16_t SyntheticTone::sampleAt(uint64_t index, unsigned channel) const {
  const double frequency = channel == 0 ? 440.0 : 660.0;
  // The phase from the index modulo the period keeps its precision however
  // long the tone runs (both periods divide any whole second).
  const uint64_t period = sampleRate_;
  const double t = static_cast<double>(index % period) / sampleRate_;
  return static_cast<int16_t>(std::lround(8192.0 * std::sin(2 * std::numbers::pi * frequency * t)));
}

std::vector<uint8_t> SyntheticTone::nextBlock() {
  const unsigned frames = nextFrames_;
  std::vector<uint8_t> block(static_cast<size_t>(frames) * channels_ * 2);
  size_t at = 0;
  for (unsigned i = 0; i < frames; ++i) {
    for (unsigned c = 0; c < channels_; ++c) {
      const auto sample = static_cast<uint16_t>(sampleAt(framesMade_ + i, c));
      block[at++] = static_cast<uint8_t>(sample & 0xff);
      block[at++] = static_cast<uint8_t>(sample >> 8);
    }
  }
  framesMade_ += frames;
  drawNextFrames();
  return block;
}

double SyntheticTone::nextDueTime() const {
  return static_cast<double>(framesMade_ + nextFrames_) / sampleRate_;
}

std::vector<std::vector<uint8_t>> SyntheticTone::blocksDueAt(double elapsedSeconds) {
  std::vector<std::vector<uint8_t>> blocks;
  while (nextDueTime() <= elapsedSeconds) blocks.push_back(nextBlock());
  return blocks;
}

}  // namespace oxelo
