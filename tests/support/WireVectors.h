#pragma once

#include <string>

#include "tests/support/PlainStatusSource.h"
#include "tests/support/TestBytes.h"
#include "wire/InfoPacket.h"

// The records of the stream written by hand from the layout tables, with the inputs that should
// produce them. Builders are checked against these bytes and parsers read them back.
namespace oxelo::test {

inline wire::InfoPacketFields deskInfoFields() {
  wire::InfoPacketFields f;
  f.width = 1920, f.height = 1080, f.frameRate = 30, f.videoBitRate = 4000000, f.videoEncoder = 1;
  f.hasAudio = true, f.audioSampleRate = 48000, f.audioChannels = 2, f.audioBitRate = 128000;
  f.deviceName = u"Desk";
  f.videoSizes = {{640, 360, 30}, {1280, 720, 60}, {1920, 1080, 60}};
  f.videoFrameRates = {"24", "29.97", "30", "60"};
  f.hevcDecodeSupported = true;
  return f;
}

inline Bytes deskInfoPacket() {
  Bytes p(444, 0);
  place(p, 0, "12 00 00 00 | 01 00 00 00");
  place(p, 8, "80 07 00 00 | 38 04 00 00 | 1E 00 00 00 | 00 09 3D 00 | 01 00 00 00");
  place(p, 28, "80 BB 00 00 | 02 00 00 00 | 00 F4 01 00");
  place(p, 44, "44 00 65 00 73 00 6B 00");
  place(p, 288, "80 02 68 01 | 00 05 D0 02 | 80 07 38 04");
  place(p, 348, "18 00 00 00 | 1D 00 00 00 | 1E 00 00 00 | 3C 00 00 00");
  place(p, 408, "01 00 00 00");
  return p;
}

// H.264 parameter sets and their sequence header.
inline Bytes h264Sps() { return hex("67 64 00 1F AC D9 40"); }
inline Bytes h264Pps() { return hex("68 EB E3 CB"); }
inline Bytes h264SequenceHeaderBody() {
  return hex(
      "17 | 00 00 00 00 | 01 | 64 00 1F | FF | E1 | 00 07 | 67 64 00 1F AC D9 40"
      "| 01 | 00 04 | 68 EB E3 CB");
}
inline Bytes h264SequenceHeaderPacket() {
  return cat({hex("09 00 00 00 | 00 00 00 00 | 1B 00 00 00"), h264SequenceHeaderBody()});
}

// HEVC parameter sets and their sequence header.
inline Bytes hevcVps() { return hex("40 01 0C 01 FF FF"); }
inline Bytes hevcSps() { return hex("42 01 01 01 60 00"); }
inline Bytes hevcPps() { return hex("44 01 C1 72 B4"); }
inline Bytes hevcSequenceHeaderBody() {
  return hex(
      "17 | 00 00 00 00 | 01 | 01 01 01 | FF | E1 | 00 06 | 40 01 0C 01 FF FF"
      "| 01 | 00 0F | 42 01 01 01 60 00 | 00 00 00 01 | 44 01 C1 72 B4");
}

// A key frame of one 5-byte unit at 1000 ms.
inline Bytes keyFrameData() { return hex("00 00 00 05 | 65 88 84 00 21"); }
inline Bytes keyFrameBody() {
  return cat({hex("17 | 01 | 00 00 00 | 00 00 00 09"), keyFrameData()});
}
inline Bytes keyFramePacket() {
  return cat({hex("09 00 00 00 | E8 03 00 00 | 12 00 00 00"), keyFrameBody()});
}

// An inter frame of two units at 1033 ms.
inline Bytes interFrameData() { return hex("00 00 00 02 | 41 9A | 00 00 00 03 | 01 02 03"); }
inline Bytes interFramePacket() {
  return cat({hex("09 00 00 00 | 09 04 00 00 | 16 00 00 00 | 27 | 01 | 00 00 00 | 00 00 00 0D"),
              interFrameData()});
}

// Audio: configuration 12 10 (AAC-LC, 44.1 kHz, stereo), one frame at 23 ms.
inline Bytes audioInfo() { return hex("12 10"); }
inline Bytes audioHeaderPacket() {
  return hex("08 00 00 00 | 00 00 00 00 | 04 00 00 00 | AF | 00 | 12 10");
}
inline Bytes audioFramePacket() {
  return hex("08 00 00 00 | 17 00 00 00 | 05 00 00 00 | AF | 01 | 21 10 05");
}

// Beauty on with method 1, mirrored, torch 3, lock state 2; custom exposure of 1/64 s; white
// balance 5500.7 K locked; focus at 0.5, automatic; ISO 200.9; bias -1.55; zoom 2.25; battery at
// 75 % and charging; the rest as a fresh record has them.
inline StreamStatusValues statusValues() {
  StreamStatusValues v;
  v.beautyFace = true, v.beautyMethod = 1, v.mirror = true, v.torch = 3, v.aeafLock = 2;
  v.exposure = 1.0 / 64, v.autoExposure = false, v.exposureMode = 3;
  v.whiteBalanceTemperature = 5500.7, v.awbLock = true, v.whiteBalanceMode = 0;
  v.lensPosition = 0.5, v.iso = 200.9, v.exposureTargetBias = -1.55, v.zoomScale = 2.25;
  v.batteryLevel = 0.75, v.batteryState = 2;
  return v;
}

inline Bytes statusBlock() {
  return hex(
      "10 00 00 00 | 02 00 02 00 | 2C 00 00 00"
      "| 05 03 00 02"    // beauty 1, mirror, torch 3, lock 2
      "| 9C 00 00 00"    // 156
      "| 05 03 00 00"    // manual, custom, mode 3
      "| 7C 15 00 00"    // 5500
      "| 02 00 00 00"    // locked, mode 0
      "| 32 00 00 00"    // 50
      "| 00 02 00 00"    // automatic, mode 2
      "| C8 00 00 00"    // 200
      "| F1 FF FF FF"    // -15
      "| 17 00 00 00"    // 23
      "| AF 00 00 00");  // 175
}

// The front camera: exposure 0.00001 to 0.5 s, every exposure mode, custom
// white balance gains, fixed focus, ISO 34 to 2176, bias -8 to 8, zoom to 4;
// the rest as a fresh record has them.
inline StreamStatusValues frontCameraValues() {
  StreamStatusValues v;
  v.captureDevicePosition = 2;
  v.minExposure = 0.00001, v.maxExposure = 0.5, v.exposureModes = 0b1111;
  v.exposurePointOfInterest = true, v.whiteBalanceCustomGains = true, v.whiteBalanceModes = 0b111;
  v.minISO = 34, v.maxISO = 2176, v.minExposureTargetBias = -8, v.maxExposureTargetBias = 8;
  v.maxZoomScale = 4;
  return v;
}

inline Bytes frontCapabilityBlock() {
  return hex(
      "10 00 00 00 | 01 00 01 00 | 4C 00 00 00"
      "| 00 00 00 00"  // front
      "| 01 00 00 00"  // 0.1 raised to 1
      "| 88 13 00 00"  // 5000
      "| 07 00 00 00"  // custom, auto, point of interest
      "| D0 07 00 00 | 40 1F 00 00"
      "| 03 00 00 00"  // custom gains, auto
      "| 00 00 00 00 | 64 00 00 00"
      "| 00 00 00 00"  // no focus control
      "| 22 00 00 00 | 80 08 00 00"
      "| 01 00 00 00"  // custom exposure
      "| B0 FF FF FF | 50 00 00 00 | 01 00 00 00"
      "| 0A 00 00 00 | 28 00 00 00"
      "| 01 00 00 00");  // zoom
}

// The back telephoto camera: exposure 1/1024 to 1 s, no custom exposure,
// automatic white balance only in locked mode, focus with custom lens
// position and point of interest, ISO 40 to 1280, zoom to 15.25.
inline StreamStatusValues telephotoCameraValues() {
  StreamStatusValues v = frontCameraValues();
  v.captureDevicePosition = 1, v.captureDeviceType = device_type::kTelephoto;
  v.minExposure = 1.0 / 1024, v.maxExposure = 1.0, v.exposureModes = 0b0111;
  v.whiteBalanceCustomGains = false, v.whiteBalanceModes = 0b001;
  v.focusCustomLensPosition = true, v.focusPointOfInterest = true;
  v.minISO = 40, v.maxISO = 1280, v.maxZoomScale = 15.25;
  return v;
}

inline Bytes telephotoCapabilityBlock() {
  return hex(
      "10 00 00 00 | 01 00 01 00 | 4C 00 00 00"
      "| 07 00 00 00"  // telephoto, newer numbering
      "| 09 00 00 00"  // 9.765625
      "| 10 27 00 00"  // 10000
      "| 06 00 00 00"  // auto, point of interest
      "| D0 07 00 00 | 40 1F 00 00"
      "| 00 00 00 00"  // neither custom gains nor auto
      "| 00 00 00 00 | 64 00 00 00"
      "| 03 00 00 00"  // custom lens position, point of interest
      "| 28 00 00 00 | 00 05 00 00"
      "| 00 00 00 00"  // no custom exposure
      "| B0 FF FF FF | 50 00 00 00 | 01 00 00 00"
      "| 0A 00 00 00 | 98 00 00 00"  // 152
      "| 01 00 00 00");
}

inline Bytes recordStartCommand() { return hex("88 00 00 00 | 11 00 00 00 | 01 00 00 00"); }
inline Bytes snapshotCommand() { return hex("88 00 00 00 | 12 00 00 00 | 00 00 00 00"); }
inline Bytes stopNotice() { return hex("88 00 00 00 | 14 00 00 00"); }

}  // namespace oxelo::test
