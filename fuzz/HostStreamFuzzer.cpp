// The reference host's reading of a phone: the hellos and the settings
// answer, then the stream (info packet, sequence headers, frames with their
// tail blocks, audio, the phone's requests), over TCP in pieces of any size
// or over USB in frames; and what the recorder makes of the media that read,
// as transport stream packets.
//
// Input: one byte that says how the rest arrives (FuzzSupport.h; bit 7: USB
// frames, cut from the bytes as the host's USB carrier cuts them), then the
// phone's bytes.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "fuzz/FuzzSupport.h"
#include "tools/host/HostSession.h"
#include "tools/host/TransportStream.h"
#include "tools/host/UsbFrames.h"

using namespace oxelo;
using namespace oxelo::host;

namespace {

// Hands what the checker read to the transport stream writer, as the
// recorder does, and checks that only whole packets come out.
class TransportSink final : public MediaSink {
 public:
  TransportSink()
      : writer_(ts::kStreamTypeH264, /*audio=*/true, [](std::span<const uint8_t> packets) {
          OX_FUZZ_CHECK(packets.size() % ts::kPacketSize == 0);
          for (size_t at = 0; at < packets.size(); at += ts::kPacketSize)
            OX_FUZZ_CHECK(packets[at] == 0x47);
        }) {}
  void videoFrame(uint32_t timestamp, bool key, std::span<const uint8_t> data) override {
    writer_.writeVideo(uint64_t(timestamp) * 90, uint64_t(timestamp) * 90, key, data);
  }
  void audioSequenceHeader(std::span<const uint8_t> config) override {
    config_ = ts::parseAudioSpecificConfig(config);
  }
  void audioFrame(uint32_t timestamp, std::span<const uint8_t> frame) override {
    if (!config_) return;
    auto header = ts::adtsHeader(*config_, frame.size());
    if (!header) return;
    std::vector<uint8_t> adts(header->begin(), header->end());
    adts.insert(adts.end(), frame.begin(), frame.end());
    writer_.writeAudio(uint64_t(timestamp) * 90, adts);
  }

 private:
  ts::Writer writer_;
  std::optional<ts::AacConfig> config_;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::silenceLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto in = fuzz::PiecedInput::of(data, size);
  HostSession session({"Desk", 5895, handshake::VideoSettings{1280, 720, 30, 0, 1, 0, 1}, true});
  TransportSink sink;
  session.setMediaSink(&sink);
  UsbFrameReader reader;
  bool readerBroken = false;
  in.forEachPiece([&](fuzz::ByteSpan piece) {
    if (!in.flag) return session.receiveBytes(piece);
    if (readerBroken) return;
    std::vector<UsbFrame> frames;
    readerBroken = !reader.feed(piece, frames);
    if (readerBroken) OX_FUZZ_CHECK(!reader.error().empty());
    for (const auto& frame : frames) {
      if (frame.type == kUsbFrameEndOfStream) break;
      session.receiveFrame(frame.type, frame.tag, frame.payload);
    }
  });
  (void)session.takeOutgoing();
  session.phoneEnded();
  const auto& counts = session.stream().counts();
  OX_FUZZ_CHECK(counts.keyFrames + counts.interFrames + counts.infoPackets <= counts.packets);
  return 0;
}
