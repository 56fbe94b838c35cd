#include "platform/device/NetlinkReachability.h"

#include <errno.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/log/Log.h"

namespace oxelo {

namespace {

const char* statusText(NetworkStatus status) {
  return status == NetworkStatus::reachableViaWiFi ? "reachable" : "not reachable";
}

// Reads and drops every queued message. The messages themselves don't
// matter: any link or address event means "look again". An overrun
// (ENOBUFS) means the same.
void drain(int socket) {
  char buffer[8192];
  for (;;) {
    ssize_t n = recv(socket, buffer, sizeof buffer, MSG_DONTWAIT);
    if (n > 0) continue;
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno == ENOBUFS) continue;
    return;
  }
}

}  // namespace

NetlinkReachability::NetlinkReachability(std::function<std::string()> interfaceName)
    : interfaceName_(std::move(interfaceName)) {}

NetlinkReachability::~NetlinkReachability() { stopNotifier(); }

NetworkStatus NetlinkReachability::currentReachabilityStatus() const {
  auto list = readInterfaceAddresses();
  if (!list) return NetworkStatus::notReachable;
  return isWiFiReachable(*list, interfaceName_()) ? NetworkStatus::reachableViaWiFi
                                                  : NetworkStatus::notReachable;
}

bool NetlinkReachability::startNotifier() {
  if (thread_.joinable()) return true;
  int sock = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
  if (sock < 0) {
    oxlog("Reachability - cannot open a netlink socket: {}", strerror(errno));
    return false;
  }
  sockaddr_nl local{};
  local.nl_family = AF_NETLINK;
  local.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR;
  if (bind(sock, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
    oxlog("Reachability - cannot subscribe to interface events: {}", strerror(errno));
    close(sock);
    return false;
  }
  int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake < 0) {
    oxlog("Reachability - cannot create the wake descriptor: {}", strerror(errno));
    close(sock);
    return false;
  }
  socket_ = sock;
  wake_ = wake;
  // Subscribed first, evaluated second: a change in between is an event.
  thread_ = std::thread(&NetlinkReachability::watch, this, currentReachabilityStatus());
  return true;
}

void NetlinkReachability::stopNotifier() {
  if (!thread_.joinable()) return;
  uint64_t one = 1;
  while (write(wake_, &one, sizeof one) < 0 && errno == EINTR) {
  }
  thread_.join();
  close(socket_);
  close(wake_);
  socket_ = wake_ = -1;
}

void NetlinkReachability::watch(NetworkStatus last) {
  pollfd fds[2] = {{socket_, POLLIN, 0}, {wake_, POLLIN, 0}};
  for (;;) {
    int n = poll(fds, 2, -1);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      oxlog("Reachability - waiting for interface events failed: {}", strerror(errno));
      return;
    }
    if (fds[1].revents) return;
    if (fds[0].revents & POLLNVAL) {
      oxlog("Reachability - the netlink socket is gone");
      return;
    }
    if (fds[0].revents & POLLERR) {
      // An overrun shows as an error on the socket; what was lost is read
      // back by evaluating the interface list anew.
      int error = 0;
      socklen_t length = sizeof error;
      getsockopt(socket_, SOL_SOCKET, SO_ERROR, &error, &length);
    }
    drain(socket_);
    NetworkStatus now = currentReachabilityStatus();
    if (now == last) continue;
    last = now;
    oxlog("Reachability - Wi-Fi {}", statusText(now));
    postChanged();
  }
}

}  // namespace oxelo
