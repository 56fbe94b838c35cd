#include "tools/host/ProbeAnswerer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/log/Log.h"

namespace oxelo::host {

namespace {

constexpr char kProbe[] = {'O', 'x', 'e', 'l', 'o'};

std::string endpointText(const sockaddr_in& a) {
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &a.sin_addr, text, sizeof text);
  return std::string(text) + ":" + std::to_string(ntohs(a.sin_port));
}

UniqueFd bindUdp(uint16_t port, std::string& error) {
  UniqueFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!fd.valid()) {
    error = std::string("no UDP socket: ") + std::strerror(errno);
    return fd;
  }
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_ANY);
  a.sin_port = htons(port);
  if (::bind(fd.get(), reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    error =
        "cannot answer probes on UDP port " + std::to_string(port) + ": " + std::strerror(errno);
    fd.reset();
  }
  return fd;
}

}  // namespace

std::string probeAnswerText(uint16_t tcpPort, const std::string& name, bool present) {
  return "port:" + std::to_string(tcpPort) + ";" + name + ";" + (present ? "1" : "0");
}

ProbeAnswerer::ProbeAnswerer(uint16_t tcpPort, std::string name)
    : tcpPort_(tcpPort), name_(std::move(name)) {}

ProbeAnswerer::~ProbeAnswerer() { stop(); }

bool ProbeAnswerer::start(const std::vector<uint16_t>& ports, std::string& error) {
  std::vector<UniqueFd> sockets;
  for (uint16_t port : ports) {
    UniqueFd fd = bindUdp(port, error);
    if (!fd.valid()) return false;
    sockets.push_back(std::move(fd));
  }
  int pipe[2];
  if (::pipe2(pipe, O_CLOEXEC) != 0) {
    error = std::string("no pipe: ") + std::strerror(errno);
    return false;
  }
  wakeRead_ = UniqueFd(pipe[0]);
  wakeWrite_ = UniqueFd(pipe[1]);
  sockets_ = std::move(sockets);
  for (uint16_t port : ports) oxlog("host - answering probes on UDP port {}", port);
  thread_ = std::thread([this] { serve(); });
  return true;
}

void ProbeAnswerer::stop() {
  if (!thread_.joinable()) return;
  const char byte = 0;
  if (::write(wakeWrite_.get(), &byte, 1) < 0) {
    oxlog("host - cannot stop answering probes: {}", std::strerror(errno));
  }
  thread_.join();
  const std::string goodbye = probeAnswerText(tcpPort_, name_, /*present=*/false);
  std::lock_guard lock(mutex_);
  for (const auto& phone : phones_) {
    if (::sendto(phone.fd, goodbye.data(), goodbye.size(), 0,
                 reinterpret_cast<const sockaddr*>(phone.address.data()),
                 static_cast<socklen_t>(phone.address.size())) < 0) {
      oxlog("host - no goodbye to {}: {}", phone.text, std::strerror(errno));
      continue;
    }
    oxlog("host - said goodbye to {}", phone.text);
  }
  sockets_.clear();
}

std::vector<std::string> ProbeAnswerer::phones() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  for (const auto& phone : phones_) out.push_back(phone.text);
  return out;
}

void ProbeAnswerer::serve() {
  std::vector<pollfd> fds;
  fds.push_back({wakeRead_.get(), POLLIN, 0});
  for (const auto& s : sockets_) fds.push_back({s.get(), POLLIN, 0});
  for (;;) {
    if (::poll(fds.data(), fds.size(), -1) < 0) {
      if (errno == EINTR) continue;
      oxlog("host - answering probes failed: {}", std::strerror(errno));
      return;
    }
    if (fds[0].revents) return;
    for (size_t i = 1; i < fds.size(); ++i) {
      if (fds[i].revents & POLLIN) answer(fds[i].fd);
    }
  }
}

void ProbeAnswerer::answer(int fd) {
  char buffer[64];
  sockaddr_in from{};
  socklen_t fromLength = sizeof from;
  const ssize_t n = ::recvfrom(fd, buffer, sizeof buffer, MSG_DONTWAIT,
                               reinterpret_cast<sockaddr*>(&from), &fromLength);
  if (n != sizeof kProbe || std::memcmp(buffer, kProbe, sizeof kProbe) != 0) return;
  if (from.sin_family != AF_INET) return;
  const std::string text = probeAnswerText(tcpPort_, name_, /*present=*/true);
  if (::sendto(fd, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&from),
               fromLength) < 0) {
    oxlog("host - no answer to {}: {}", endpointText(from), std::strerror(errno));
    return;
  }
  std::lock_guard lock(mutex_);
  const std::string who = endpointText(from);
  auto known =
      std::find_if(phones_.begin(), phones_.end(), [&](const Phone& p) { return p.text == who; });
  if (known != phones_.end()) return;
  auto* bytes = reinterpret_cast<const uint8_t*>(&from);
  phones_.push_back({std::vector<uint8_t>(bytes, bytes + fromLength), who, fd});
  oxlog("host - answered the probe of {}", who);
}

}  // namespace oxelo::host
