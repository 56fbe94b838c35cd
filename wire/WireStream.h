#pragma once

#include <cstddef>
#include <cstdint>

#include "wire/WireBytes.h"

// Cutting the phone's TCP stream into records, for the host side: records
// follow each other with no separator, and the first word tells how the
// length is known.
namespace oxelo::wire {

// Larger audio or video bodies are taken as a broken stream.
inline constexpr uint32_t kMaxPacketBody = 64u << 20;

struct RecordSpan {
  uint32_t type = 0;  // first word: 8, 9, 16, 18 or 136
  size_t length = 0;  // bytes of the whole record, tail blocks being records of their own
};

// The record at the start of `stream`. Truncated while the record is not all
// there (read more and try again); WrongType for an unknown first word;
// BadLength for a body size over kMaxPacketBody or a tail block whose size
// word is not that of its kind.
Parsed<RecordSpan> nextRecord(ByteView stream);

}  // namespace oxelo::wire
