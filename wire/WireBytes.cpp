#include "wire/WireBytes.h"

namespace oxelo::wire {

const char* wireErrorText(WireError error) {
  switch (error) {
    case WireError::Truncated:
      return "truncated";
    case WireError::WrongType:
      return "wrong packet type";
    case WireError::WrongKind:
      return "wrong kind";
    case WireError::BadLength:
      return "length field disagrees with the data";
    case WireError::Malformed:
      return "malformed";
  }
  return "unknown";
}

}  // namespace oxelo::wire
