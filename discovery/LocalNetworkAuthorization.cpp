#include "discovery/LocalNetworkAuthorization.h"

#include "platform/log/Log.h"

namespace oxelo {

void LocalNetworkAuthorization::requestAuthorizationWithCompletionHandler(
    const std::function<void(bool)>& completion) {
  oxlog("Local network permission has been granted");
  if (completion) completion(true);
}

}  // namespace oxelo
