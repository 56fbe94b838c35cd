#include "discovery/AvahiErrors.h"

#include <avahi-common/error.h>

#include "discovery/ServiceBrowser.h"

namespace oxelo {

int netServicesErrorForAvahi(int avahiError) {
  switch (avahiError) {
    case AVAHI_ERR_BAD_STATE:
    case AVAHI_ERR_DISCONNECTED:
    case AVAHI_ERR_NO_DAEMON:
      return kNetServicesActivityInProgress;
    case AVAHI_ERR_TIMEOUT:
      return kNetServicesTimeoutError;
    case AVAHI_ERR_NOT_FOUND:
    case AVAHI_ERR_DNS_NXDOMAIN:
      return kNetServicesNotFoundError;
    case AVAHI_ERR_COLLISION:
      return kNetServicesCollisionError;
    case AVAHI_ERR_INVALID_HOST_NAME:
    case AVAHI_ERR_INVALID_DOMAIN_NAME:
    case AVAHI_ERR_INVALID_SERVICE_NAME:
    case AVAHI_ERR_INVALID_SERVICE_TYPE:
    case AVAHI_ERR_INVALID_PORT:
    case AVAHI_ERR_INVALID_INTERFACE:
    case AVAHI_ERR_INVALID_PROTOCOL:
    case AVAHI_ERR_INVALID_FLAGS:
    case AVAHI_ERR_INVALID_ARGUMENT:
      return kNetServicesBadArgumentError;
    case AVAHI_ERR_INVALID_OBJECT:
    case AVAHI_ERR_INVALID_OPERATION:
      return kNetServicesInvalidError;
    default:
      return kNetServicesUnknownError;
  }
}

std::string avahiErrorText(int avahiError) { return avahi_strerror(avahiError); }

}  // namespace oxelo
