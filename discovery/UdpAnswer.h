#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "discovery/HostRecord.h"

namespace oxelo {

// A host's answer to a probe: "port:P;NAME[;PRESENCE]". `present` is false
// when the third field reads as 0 (the host is leaving).
struct UdpAnswer {
  HostRecord record;
  bool present = true;
};

// Reads an answer datagram from `sourceIP`; none when it is not one (not
// UTF-8, fewer than two fields, no "port:" at the very start).
std::optional<UdpAnswer> parseHostAnswer(const std::vector<uint8_t>& datagram,
                                         const std::string& sourceIP);

// The probe: the five ASCII bytes "Oxelo".
std::vector<uint8_t> probeDatagram();

// The datagrams of one tick: for each of the eight ports, to the subnet
// broadcast address (unless empty or "255.255.255.255") and to
// "255.255.255.255". Pairs of address and port, in sending order. Tests
// redirect the limited broadcast to a loopback address with `limited`.
std::vector<std::pair<std::string, uint16_t>> probeTargets(
    const std::string& subnetBroadcast, uint16_t firstPort = 5895,
    const std::string& limited = "255.255.255.255");

// Whether `bytes` are well-formed UTF-8.
bool isValidUtf8(const std::vector<uint8_t>& bytes);

}  // namespace oxelo
