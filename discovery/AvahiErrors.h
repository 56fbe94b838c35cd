#pragma once

#include <string>

namespace oxelo {

// The NSNetServices error codes that the service-discovery delegates report.
// The flow acts on one of them only (kNetServicesActivityInProgress, which
// ends its resolve retries; see ServiceBrowser.h); the others are for logs.
inline constexpr int kNetServicesUnknownError = -72000;
inline constexpr int kNetServicesCollisionError = -72001;
inline constexpr int kNetServicesNotFoundError = -72002;
inline constexpr int kNetServicesBadArgumentError = -72004;
inline constexpr int kNetServicesInvalidError = -72006;
inline constexpr int kNetServicesTimeoutError = -72007;

// The NSNetServices code for an Avahi error code (AVAHI_ERR_*).
//
// What stands for "activity in progress" (-72003), the code that ends the
// flow's resolve retries: a resolve asked for while one is still running, and
// every failure that says the connection to avahi-daemon is not usable
// (AVAHI_ERR_BAD_STATE, AVAHI_ERR_DISCONNECTED, AVAHI_ERR_NO_DAEMON). Retrying
// those every 5 s could not succeed until a new search makes a new
// connection, which brings fresh services anyway. Time-outs, missing records
// and everything else keep the retries going. Any thread.
int netServicesErrorForAvahi(int avahiError);

// avahi_strerror's text for an Avahi error code. Any thread.
std::string avahiErrorText(int avahiError);

}  // namespace oxelo
