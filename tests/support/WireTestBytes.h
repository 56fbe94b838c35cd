#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string_view>
#include <vector>

// Byte vectors written by hand in tests: "17 00 00 00 | 01" (spaces and bars
// are ignored).
namespace oxelo::test {

using Bytes = std::vector<uint8_t>;

inline Bytes hex(std::string_view text) {
  Bytes out;
  int high = -1;
  for (char c : text) {
    int v = c >= '0' && c <= '9'   ? c - '0'
            : c >= 'a' && c <= 'f' ? c - 'a' + 10
            : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                   : -1;
    if (v < 0) {
      if (c != ' ' && c != '|' && c != '\n') throw std::invalid_argument("bad hex text");
      continue;
    }
    if (high < 0) {
      high = v;
      continue;
    }
    out.push_back(uint8_t(high << 4 | v));
    high = -1;
  }
  if (high >= 0) throw std::invalid_argument("odd hex digits");
  return out;
}

// Writes hand-written bytes into `out` at `offset`.
inline void place(Bytes& out, size_t offset, std::string_view text) {
  Bytes b = hex(text);
  if (offset + b.size() > out.size()) throw std::out_of_range("place past the end");
  std::copy(b.begin(), b.end(), out.begin() + offset);
}

inline Bytes repeat(std::string_view text, size_t times) {
  Bytes one = hex(text), out;
  for (size_t i = 0; i < times; ++i) out.insert(out.end(), one.begin(), one.end());
  return out;
}

inline Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

}  // namespace oxelo::test
