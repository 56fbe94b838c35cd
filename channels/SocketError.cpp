#include "channels/SocketError.h"

#include <cstring>

#include <fmt/format.h>

namespace oxelo {

std::string Error::toString() const {
  std::string text = fmt::format("{} ({} {})", description, domain, code);
  if (!reason.empty()) text += fmt::format(": {}", reason);
  return text;
}

Error socketError(GCDAsyncSocketErrorCode code) {
  switch (code) {
    case GCDAsyncSocketErrorCode::connectTimeout:
      return socketError(code, "Attempt to connect to host timed out");
    case GCDAsyncSocketErrorCode::readTimeout:
      return socketError(code, "Read operation timed out");
    case GCDAsyncSocketErrorCode::writeTimeout:
      return socketError(code, "Write operation timed out");
    case GCDAsyncSocketErrorCode::closed:
      return socketError(code, "Socket closed by remote peer");
    default:
      return socketError(code, "Socket error");
  }
}

Error socketError(GCDAsyncSocketErrorCode code, std::string description) {
  return Error{kGCDAsyncSocketErrorDomain, static_cast<int64_t>(code), std::move(description), {}};
}

Error udpSocketError(GCDAsyncUdpSocketErrorCode code, std::string description) {
  return Error{
      kGCDAsyncUdpSocketErrorDomain, static_cast<int64_t>(code), std::move(description), {}};
}

Error posixError(int err, std::string reason) {
  char buffer[256];
  // GNU strerror_r returns the text, which may or may not live in `buffer`.
  const char* text = strerror_r(err, buffer, sizeof buffer);
  return Error{kPosixErrorDomain, err, text, std::move(reason)};
}

}  // namespace oxelo
