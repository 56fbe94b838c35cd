#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace oxelo {

// An error as the channels report it: a domain, a numeric code within it and
// an English description. Where an error can be absent the type is
// std::optional<Error>: no value means no error.
struct Error {
  std::string domain;
  int64_t code = 0;
  std::string description;
  // What was being done when it happened, for system errors
  // ("Error in recvfrom() function"); empty when the description says all.
  std::string reason;

  // "description (domain code)" plus the reason when there is one; for logs.
  std::string toString() const;
  bool operator==(const Error&) const = default;
};

using OptionalError = std::optional<Error>;

inline constexpr const char* kGCDAsyncSocketErrorDomain = "GCDAsyncSocketErrorDomain";
inline constexpr const char* kGCDAsyncUdpSocketErrorDomain = "GCDAsyncUdpSocketErrorDomain";
// errno values; the description is strerror's text.
inline constexpr const char* kPosixErrorDomain = "NSPOSIXErrorDomain";
// getaddrinfo failures; the description is gai_strerror's text.
inline constexpr const char* kNetDbErrorDomain = "NetDBErrorDomain";

// Codes of kGCDAsyncSocketErrorDomain.
enum class GCDAsyncSocketErrorCode : int64_t {
  badConfig = 1,       // a request that the socket's state or set-up does not allow
  badParam = 2,        // a request with an unusable argument
  connectTimeout = 3,  // "Attempt to connect to host timed out"
  readTimeout = 4,     // "Read operation timed out"
  writeTimeout = 5,    // "Write operation timed out"
  closed = 7,          // "Socket closed by remote peer"
  other = 8,
};

// Codes of kGCDAsyncUdpSocketErrorDomain.
enum class GCDAsyncUdpSocketErrorCode : int64_t {
  badConfig = 1,
  badParam = 2,
  sendTimeout = 3,  // "Send operation timed out"
  closed = 4,
};

// A TCP socket error with its standard English description (codes 3, 4, 5, 7).
Error socketError(GCDAsyncSocketErrorCode code);
Error socketError(GCDAsyncSocketErrorCode code, std::string description);
Error udpSocketError(GCDAsyncUdpSocketErrorCode code, std::string description);
// errno `err` with strerror's text, and what failed.
Error posixError(int err, std::string reason = {});

}  // namespace oxelo
