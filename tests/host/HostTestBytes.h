#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/TestBytes.h"

// Byte vectors for the host's tests, written by hand from the packet tables:
// hex digits, spaces ignored.
namespace oxelo::host::testbytes {

using test::Bytes;
using test::cat;
using test::hex;
using test::placed;

inline Bytes zeros(size_t n) { return Bytes(n, 0); }

// Error lines as one text, for a search and a failure message.
inline std::string joined(const std::vector<std::string>& lines) {
  std::string out;
  for (const auto& line : lines) out += line + "\n";
  return out;
}

// Phone to host.
inline const Bytes kHelloLong = hex("88000000 10000000 20000000 00000000");
inline const Bytes kHelloShort = hex("88102000");
inline const Bytes kHellos = cat({kHelloLong, kHelloShort});
// Settings in force: 1280x720@30, landscape, quality 1, H.264, mono.
inline const Bytes kAnswer720p = cat({hex("88000000 13000000 00050000 d0020000 1e000000"
                                          "00000000 01000000 00000000 01000000"),
                                      zeros(12)});

// Host to phone.
// Host information: port 5895 (0x1707), name "Desk", zero-filled to 80 bytes.
inline const Bytes kHostInfoDesk5895 =
    cat({hex("88000000 10000000 07170000 4465736b"), zeros(80 - 16)});
inline const Bytes kStart = cat({hex("88000000 11000000"), zeros(12)});
// Video settings 1280x720@30, landscape, quality 1, H.264, mono.
inline const Bytes kSettings720p =
    hex("88000000 13000000 00050000 d0020000 1e000000 00000000 01000000 00000000 01000000");

// ---- The stream behind the greeting, phone to host ----

// Info packet, 444 bytes: 1280x720 at 30, 2 500 000 bit/s, H.264, 44 100 Hz
// mono at 64 000 bit/s, named "Cam", sizes 1280x720 and 640x480, rates 30
// and 60, no HEVC decoding.
inline const Bytes kInfo =
    placed(placed(placed(placed(zeros(444), 0,
                                hex("12000000 01000000 00050000 d0020000 1e000000 a0252600 00000000"
                                    "44ac0000 01000000 00fa0000")),
                         44, hex("4300 6100 6d00")),
                  288, hex("0005d002 8002e001")),
           348, hex("1e000000 3c000000"));
// The same with no audio: sample rate, channels and audio bit rate 0.
inline const Bytes kInfoNoAudio = placed(kInfo, 28, zeros(12));

// H.264 sequence header, timestamp 0: sps 67 64 00 1f, pps 68 ee 3c 80.
inline const Bytes kVideoHeader =
    hex("09000000 00000000 18000000"
        "17 00000000 01 64001f ff e1 0004 6764001f 01 0004 68ee3c80");
inline const Bytes kVideoHeaderAt40 = placed(kVideoHeader, 4, hex("28000000"));

// Capability block: camera kind 7, exposure 1 to 10000 with capabilities 7,
// temperature 2000 to 8000, white balance 3, lens 0 to 100, focus 3, ISO 50
// to 3200 with capability 1, bias -80 to 80 with 1, zoom 10 to 160 with 1.
inline const Bytes kCapability =
    hex("10000000 01000100 4c000000 07000000 01000000 10270000 07000000 d0070000 401f0000"
        "03000000 00000000 64000000 03000000 32000000 800c0000 01000000 b0ffffff 50000000"
        "01000000 0a000000 a0000000 01000000");

// Status block: mirror, torch 1, lock 1; exposure 100, temperature 5000,
// lens 50, the three devices in mode 2; ISO 100, bias -5, zoom 10, battery
// 180 (80 % and charging).
inline const Bytes kStatus =
    hex("10000000 02000200 2c000000 04010001 64000000 00020000 88130000 00020000"
        "32000000 00020000 64000000 fbffffff 0a000000 b4000000");

// Video frames: one unit of four bytes each.
inline Bytes keyFrameAt(const std::string& timestampHex) {
  return cat({hex("09000000"), hex(timestampHex),
              hex("11000000 17 01 000000 00000008 00000004 65888400")});
}
inline Bytes interFrameAt(const std::string& timestampHex) {
  return cat({hex("09000000"), hex(timestampHex),
              hex("11000000 27 01 000000 00000008 00000004 419a0010")});
}
inline const Bytes kKeyFrame0 = keyFrameAt("00000000");
inline const Bytes kInterFrame33 = interFrameAt("21000000");
// A key frame whose unit claims 9 bytes where 4 follow.
inline const Bytes kBrokenKeyFrame =
    hex("09000000 42000000 11000000 17 01 000000 00000008 00000009 65888400");

// Audio: the sequence header with configuration 12 10, and one frame at 21.
inline const Bytes kAudioHeader = hex("08000000 00000000 04000000 af00 1210");
inline const Bytes kAudioFrame = hex("08000000 15000000 06000000 af01 21004990");

// Phone requests: a snapshot (command 18, parameter 0), the stop notice.
inline const Bytes kSnapshot = hex("88000000 12000000 00000000");
inline const Bytes kStopNotice = hex("88000000 14000000");

}  // namespace oxelo::host::testbytes
