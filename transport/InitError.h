#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace oxelo {

// Raised only when a mandatory argument is missing at creation. Carries the
// system's own name and reason texts; what() gives "name: reason".
class InitError : public std::invalid_argument {
 public:
  InitError(std::string name, std::string reason)
      : std::invalid_argument(name + ": " + reason),
        name_(std::move(name)),
        reason_(std::move(reason)) {}
  const std::string& name() const { return name_; }
  const std::string& reason() const { return reason_; }

 private:
  std::string name_;
  std::string reason_;
};

// A stream socket created without its LFLiveStreamInfo.
class StreamInfoMissingError : public InitError {
 public:
  StreamInfoMissingError() : InitError("OXStreamRtmpSocket init error", "stream is nil") {}
};

}  // namespace oxelo
