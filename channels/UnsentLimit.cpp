#include "channels/UnsentLimit.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace oxelo {

bool limitUnsentBytes(int fd) {
  const int mark = kUnsentLowWater;
  return ::setsockopt(fd, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &mark, sizeof mark) == 0;
}

}  // namespace oxelo
