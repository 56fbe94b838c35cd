#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

#include "platform/log/Log.h"

// What the fuzz targets share: the layout of an input that is delivered in
// pieces, a quiet log, and the check that stops the run on a broken promise.
namespace oxelo::fuzz {

using ByteSpan = std::span<const uint8_t>;

// An input whose first byte tells how the rest arrives: bit 7 a flag of the
// target's own (the USB carrier, the framed form), bits 0 to 6 the size of
// each piece, 0 meaning all at once. The seed files start with this byte.
struct PiecedInput {
  bool flag = false;
  size_t pieceSize = 0;
  ByteSpan bytes;

  static PiecedInput of(const uint8_t* data, size_t size) {
    PiecedInput in;
    if (size == 0) return in;
    in.flag = data[0] & 0x80;
    in.pieceSize = data[0] & 0x7F;
    in.bytes = ByteSpan(data + 1, size - 1);
    return in;
  }

  // Calls `deliver` with each piece in order.
  template <typename F>
  void forEachPiece(F&& deliver) const {
    const size_t step = pieceSize == 0 ? bytes.size() : pieceSize;
    for (size_t at = 0; at < bytes.size(); at += step)
      deliver(bytes.subspan(at, std::min(step, bytes.size() - at)));
  }
};

// Log lines of the code under test go nowhere: a reader that logs every
// refused input would drown the fuzzer's own output.
inline void silenceLog() {
  setLogSink([](const std::string&) {});
}

// A promise of the reader's header does not hold: a finding, like a crash.
#define OX_FUZZ_CHECK(condition)                                                                \
  do {                                                                                          \
    if (!(condition)) {                                                                         \
      std::fprintf(stderr, "fuzz check failed: %s at %s:%d\n", #condition, __FILE__, __LINE__); \
      std::abort();                                                                             \
    }                                                                                           \
  } while (0)

}  // namespace oxelo::fuzz
