#include "discovery/UdpAnswer.h"

#include <cstdlib>

namespace oxelo {

bool isValidUtf8(const std::vector<uint8_t>& bytes) {
  size_t i = 0;
  while (i < bytes.size()) {
    uint8_t c = bytes[i];
    size_t extra;
    uint32_t min;
    if (c < 0x80) {
      ++i;
      continue;
    } else if ((c & 0xE0) == 0xC0) {
      extra = 1, min = 0x80;
    } else if ((c & 0xF0) == 0xE0) {
      extra = 2, min = 0x800;
    } else if ((c & 0xF8) == 0xF0) {
      extra = 3, min = 0x10000;
    } else {
      return false;
    }
    if (i + extra >= bytes.size()) return false;
    uint32_t cp = c & (0x3F >> extra);
    for (size_t k = 1; k <= extra; ++k) {
      if ((bytes[i + k] & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (bytes[i + k] & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
    i += extra + 1;
  }
  return true;
}

std::optional<UdpAnswer> parseHostAnswer(const std::vector<uint8_t>& datagram,
                                         const std::string& sourceIP) {
  if (!isValidUtf8(datagram)) return std::nullopt;
  std::string text(datagram.begin(), datagram.end());
  std::vector<std::string> fields;
  size_t start = 0;
  for (;;) {
    size_t semi = text.find(';', start);
    fields.push_back(text.substr(start, semi == std::string::npos ? semi : semi - start));
    if (semi == std::string::npos) break;
    start = semi + 1;
  }
  if (fields.size() < 2 || fields[0].rfind("port:", 0) != 0) return std::nullopt;
  UdpAnswer answer;
  answer.record.name = fields[1];
  answer.record.ip = sourceIP;
  answer.record.port = std::atoi(fields[0].c_str() + 5);
  answer.record.udp = true;
  answer.present = !(fields.size() >= 3 && std::atoi(fields[2].c_str()) == 0);
  return answer;
}

std::vector<uint8_t> probeDatagram() { return {'O', 'x', 'e', 'l', 'o'}; }

std::vector<std::pair<std::string, uint16_t>> probeTargets(const std::string& subnetBroadcast,
                                                           uint16_t firstPort,
                                                           const std::string& limited) {
  std::vector<std::pair<std::string, uint16_t>> targets;
  bool subnet = !subnetBroadcast.empty() && subnetBroadcast != "255.255.255.255";
  for (uint16_t i = 0; i < 8; ++i) {
    uint16_t port = static_cast<uint16_t>(firstPort + i);
    if (subnet) targets.emplace_back(subnetBroadcast, port);
    targets.emplace_back(limited, port);
  }
  return targets;
}

}  // namespace oxelo
