// The command records of the stream connection, at every length: the host's
// commands as the phone reads them, the phone's requests and stop notice as
// the host reads them. What parses must be the record that its builder
// writes; what is refused must be refused for the reason the header gives.
#include <cstddef>
#include <cstdint>

#include "fuzz/FuzzSupport.h"
#include "wire/CommandPackets.h"
#include "wire/WireConstants.h"

using namespace oxelo;
using namespace oxelo::wire;

namespace {

bool startsWith(ByteView bytes, const Bytes& record) {
  return bytes.size() >= record.size() && std::equal(record.begin(), record.end(), bytes.begin());
}

void checkHostCommand(ByteView bytes) {
  auto parsed = parseHostCommand(bytes);
  WireReader r(bytes);
  if (!r.has(0, 4)) {
    OX_FUZZ_CHECK(!parsed && parsed.error() == WireError::Truncated);
    return;
  }
  if (r.u32LE(0) != kPacketTypeCommand) {
    OX_FUZZ_CHECK(!parsed && parsed.error() == WireError::WrongType);
    return;
  }
  if (!r.has(0, 8)) {
    OX_FUZZ_CHECK(!parsed && parsed.error() == WireError::Truncated);
    return;
  }
  const uint32_t command = r.u32LE(4);
  const int count = hostCommandParameterCount(command);
  OX_FUZZ_CHECK(count >= 0 && count <= 2);
  if (bytes.size() < 8 + 4 * size_t(count)) {
    OX_FUZZ_CHECK(!parsed && parsed.error() == WireError::Truncated);
    return;
  }
  OX_FUZZ_CHECK(parsed.ok() && parsed->command == command);
  OX_FUZZ_CHECK(startsWith(bytes, buildHostCommandPacket(command, parsed->p1, parsed->p2)));
  if (count < 2) OX_FUZZ_CHECK(parsed->p2 == 0);
  if (count < 1) OX_FUZZ_CHECK(parsed->p1 == 0);
}

void checkPhoneCommand(ByteView bytes) {
  auto parsed = parsePhoneCommand(bytes);
  if (!parsed) {
    OX_FUZZ_CHECK(parsed.error() == WireError::Truncated || parsed.error() == WireError::WrongType);
    return;
  }
  if (parsed->parameter) {
    OX_FUZZ_CHECK(parsed->command != kCommandStopNotice);
    OX_FUZZ_CHECK(startsWith(bytes, buildCommandPacket(parsed->command, *parsed->parameter)));
  } else {
    OX_FUZZ_CHECK(parsed->command == kCommandStopNotice);
    OX_FUZZ_CHECK(startsWith(bytes, buildStopNotice()));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Every length up to a little past the longest record, then all of it.
  const ByteView all(data, size);
  for (size_t n = 0; n <= std::min<size_t>(size, 20); ++n) {
    checkHostCommand(all.first(n));
    checkPhoneCommand(all.first(n));
  }
  checkHostCommand(all);
  checkPhoneCommand(all);
  return 0;
}
