#pragma once

#include <functional>

namespace oxelo {

// Tells whether the user lets the program reach the local network. Linux
// asks no such permission: every request is granted at once, on the
// caller's thread, with the same log line a granted prompt gives elsewhere.
class LocalNetworkAuthorization {
 public:
  // `completion` gets true when the permission is there, false when it is
  // denied; a missing completion is ignored. Any thread.
  void requestAuthorizationWithCompletionHandler(const std::function<void(bool)>& completion);
};

}  // namespace oxelo
