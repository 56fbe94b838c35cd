// A host's answer to a probe, as any machine on the network may send it.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "discovery/UdpAnswer.h"
#include "fuzz/FuzzSupport.h"

using namespace oxelo;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<uint8_t> datagram(data, data + size);
  const bool utf8 = isValidUtf8(datagram);
  auto answer = parseHostAnswer(datagram, "192.0.2.7");
  if (!answer) return 0;
  // Only UTF-8 text that starts with the port field is an answer; its name
  // is the second field, whole.
  OX_FUZZ_CHECK(utf8);
  const std::string text(datagram.begin(), datagram.end());
  OX_FUZZ_CHECK(text.rfind("port:", 0) == 0);
  const size_t first = text.find(';');
  OX_FUZZ_CHECK(first != std::string::npos);
  OX_FUZZ_CHECK(text.compare(first + 1, answer->record.name.size(), answer->record.name) == 0);
  OX_FUZZ_CHECK(answer->record.name.find(';') == std::string::npos);
  OX_FUZZ_CHECK(answer->record.ip == "192.0.2.7");
  return 0;
}
