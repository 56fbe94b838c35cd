// Writes the seed corpus of every fuzz target from the byte vectors that the
// tests hold, one small file per vector:
//   oxelo-fuzz-seeds DIR   (makes DIR/<target>/<name>)
// MJPEG pictures are not among them; fuzz/run adds a few made by ffmpeg.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/TestBytes.h"
#include "tests/support/WireVectors.h"
#include "wire/CarrierMapping.h"
#include "wire/HandshakePackets.h"

namespace {

using namespace oxelo;
using namespace oxelo::test;
namespace hs = oxelo::handshake;
namespace fs = std::filesystem;

fs::path root;

void seed(const std::string& target, const std::string& name, const Bytes& bytes) {
  fs::create_directories(root / target);
  std::ofstream(root / target / name, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

// The greeting: the builders' bytes, which the handshake tests check against
// vectors written by hand. Settings 1280x720@30, landscape, quality 1, H.264,
// mono.
const hs::VideoSettings k720p{1280, 720, 30, 0, 1, 0, 1};
Bytes hellos() { return cat({hs::helloLong(), hs::helloShort()}); }

// The first byte of a pieced input (fuzz/FuzzSupport.h).
Bytes pieced(bool flag, uint8_t pieceSize, const Bytes& bytes) {
  return cat({Bytes{uint8_t((flag ? 0x80 : 0) | (pieceSize & 0x7F))}, bytes});
}

void commandRecords() {
  seed("command_records", "record_start", recordStartCommand());
  seed("command_records", "snapshot", snapshotCommand());
  seed("command_records", "stop_notice", stopNotice());
  seed("command_records", "set_iso", hex("88000000 12000000 02000000 90010000"));
  seed("command_records", "focus_point", hex("88000000 17000000 FF000000 00000000"));
  seed("command_records", "zoom_in", hex("88000000 15000000"));
  seed("command_records", "status_request", hex("88000000 21000000 02000000"));
  seed("command_records", "delete_preset", hex("88000000 2C000000 07000000"));
}

void udpAnswers() {
  for (const char* text : {"port:5895;", "port:5897;Desk;1", "port:abc;Desk", "port:5895;Desk;0",
                           "port:5895;Desk;1;x;y", "port:5895;B\xc3\xbcro"})
    seed("udp_answer", std::to_string(std::hash<std::string>{}(text)), bytesOf(text));
}

void settings() {
  seed("settings", "stored", bytesOf(R"({"videoSize": 5, "videoFPS": 24, "lastHostIP": "192.0.2.7",
    "videoPortrait": true, "zoomScale": 2.5, "presets": [{"iso": 100}], "hdr": "Auto"})"));
  seed("settings", "broken", bytesOf("{\"videoSize\": 3, broken"));
  seed("settings", "array", bytesOf("[1,2,3]"));
}

void handshakePackets() {
  const Bytes info = hs::hostInfo(5895, "Desk"), settings = hs::videoSettings(k720p);
  const Bytes all = cat({info, settings, hs::start()});
  seed("handshake", "tcp_whole", pieced(false, 0, all));
  seed("handshake", "tcp_7", pieced(false, 7, all));
  seed("handshake", "usb_host_info", pieced(true, 80, info));
  seed("handshake", "usb_settings", pieced(true, 36, settings));
  seed("handshake", "usb_start", pieced(true, 20, hs::start()));
  seed("handshake", "answer", pieced(false, 0, hs::settingsAnswer(k720p)));
}

void framedChannel() {
  const Bytes frames = cat({frame(1, 10, bytesOf("hello")), frame(2, 20),
                            frame(3, 0xFFFFFFFF, patternBytes(300, 3)), frame(88, 8810, hellos())});
  seed("framed_channel", "frames", pieced(false, 0, frames));
  seed("framed_channel", "frames_7", pieced(false, 7, frames));
  seed("framed_channel", "frames_skip_odd", pieced(true, 0, frames));
  seed("framed_channel", "end_frame", pieced(false, 0, cat({frame(88, 8800), frame(0, 0)})));
  seed("framed_channel", "bad_version", pieced(false, 0, frame(88, 8800, {}, 2)));
  seed("framed_channel", "short_payload", pieced(false, 0, frame(9, 0, hex("0102"), 1, 9)));
}

void cameraFrames() {
  // Format, width - 1, height - 1, extra bytes per line; then the buffer.
  seed("camera_frame", "nv12_16x16", cat({hex("00 0F 0F 00"), patternBytes(16 * 24, 1)}));
  seed("camera_frame", "nv12_5x3_padded", cat({hex("00 04 02 03"), patternBytes(9 * 5, 2)}));
  seed("camera_frame", "yuyv_16x16", cat({hex("01 0F 0F 00"), patternBytes(32 * 16, 3)}));
  seed("camera_frame", "yuyv_5x3_padded", cat({hex("01 04 02 02"), patternBytes(14 * 3, 4)}));
  seed("camera_frame", "uyvy_5x3_padded", cat({hex("06 04 02 02"), patternBytes(14 * 3, 6)}));
  seed("camera_frame", "yv12_5x3_padded",
       cat({hex("09 04 02 02"), patternBytes(8 * 3 + 4 * 4, 7)}));
  seed("camera_frame", "nv12_planes_5x3_padded",
       cat({hex("02 04 02 03"), patternBytes(8 * 3 + 7 * 2, 5)}));
}

// A video packet around `body` at timestamp 0.
Bytes videoPacket(const Bytes& body) {
  const auto n = uint32_t(body.size());
  return cat(
      {hex("09000000 00000000"), Bytes{uint8_t(n), uint8_t(n >> 8), uint8_t(n >> 16), 0}, body});
}

// The phone's stream over TCP, and the same records each in its USB frame.
void hostStream() {
  using namespace oxelo::wire;
  struct Record {
    Bytes bytes;
    uint32_t type, tag;
  };
  // The info packet announces HEVC: its sequence header follows.
  const std::vector<Record> records = {
      {hs::helloLong(), kUsbFrameTypeControl, 8810},
      {hs::helloShort(), kUsbFrameTypeControl, 8810},
      {hs::settingsAnswer(k720p), kUsbFrameTypeControl, 8813},
      {deskInfoPacket(), kUsbFrameTypeInfo, kUsbTagInfo},
      {videoPacket(hevcSequenceHeaderBody()), kUsbFrameTypeVideo, 0},
      {frontCapabilityBlock(), kUsbFrameTypeControl, kUsbTagTailBlock},
      {keyFramePacket(), kUsbFrameTypeVideo, 1000},
      {statusBlock(), kUsbFrameTypeControl, kUsbTagTailBlock},
      {interFramePacket(), kUsbFrameTypeVideo, 1033},
      {audioHeaderPacket(), kUsbFrameTypeAudio, kUsbTagAudio},
      {audioFramePacket(), kUsbFrameTypeAudio, kUsbTagAudio},
      {snapshotCommand(), kUsbFrameTypeControl, 8818},
      {stopNotice(), kUsbFrameTypeControl, kUsbTagStopNotice},
  };
  Bytes tcp, usb;
  for (const auto& r : records) {
    if (r.tag != kUsbTagStopNotice) tcp = cat({tcp, r.bytes});
    usb = cat({usb, frame(r.type, r.tag, r.bytes)});
  }
  seed("host_stream", "tcp_whole", pieced(false, 0, tcp));
  seed("host_stream", "tcp_5", pieced(false, 5, tcp));
  seed("host_stream", "usb_whole", pieced(true, 0, usb));
  seed("host_stream", "usb_33", pieced(true, 33, usb));
  // H.264 with a telephoto camera, and a key frame whose unit claims 9 bytes
  // where 5 follow.
  const Bytes greeting = cat({hellos(), hs::settingsAnswer(k720p)});
  seed("host_stream", "h264",
       pieced(
           false, 0,
           cat({greeting, placed(deskInfoPacket(), 24, hex("00000000")), h264SequenceHeaderPacket(),
                telephotoCapabilityBlock(), keyFramePacket(), recordStartCommand()})));
  seed("host_stream", "broken_key_frame",
       pieced(false, 0,
              cat({greeting, deskInfoPacket(), placed(keyFramePacket(), 21, hex("00000009"))})));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
    return 2;
  }
  root = argv[1];
  commandRecords();
  udpAnswers();
  settings();
  handshakePackets();
  framedChannel();
  cameraFrames();
  hostStream();
  return 0;
}
