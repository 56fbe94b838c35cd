#pragma once

#include <cstdint>
#include <string_view>

namespace oxelo {

// The value of socketStatus(), of the session's `state` and of
// liveSessionLiveStateDidChange().
enum class LiveStreamState : uint64_t {
  Idle = 0,        // no socket has reported yet
  Connecting = 1,  // a TCP connection is being opened
  Connected = 2,   // the info packet has gone out; frames may flow
  Stopped = 3,     // stopped by us, or the host ended the stream
  Failed = 4,      // the connection failed or was lost for good
};

// The log text of a state: "Status_DisConnected", "Status_Connecting", ...
std::string_view liveStreamStateText(LiveStreamState state);

// The value of socketDidError() and liveSessionErrorCode().
enum class LiveStreamError : int64_t {
  ConnectFailed = 203,   // the connection attempt could not even be started
  ConnectionLost = 205,  // retries used up, USB channel ended, or host command 25
  PeerClosed = 206,      // host command 24
  PeerRestart = 207,     // host command 26
};

// The value of streamingBufferBufferState() and socketBufferStatus().
enum class BufferVerdict : int64_t {
  NoChange = 0,      // no clear trend; never reported
  LowerBitrate = 1,  // the connection cannot keep up
  RaiseBitrate = 2,  // the connection has room
};

// The bits of the session's `captureType`.
enum CaptureTypeMask : int64_t {
  kCaptureMaskAudio = 1,  // audio from the microphone capture
  kCaptureMaskVideo = 2,  // video from the camera capture
  kInputMaskAudio = 4,    // audio pushed in by the caller (pushAudio)
  kInputMaskVideo = 8,    // video pushed in by the caller (pushVideo)
  kCaptureMaskDefault = kCaptureMaskAudio | kCaptureMaskVideo,
};

constexpr bool captureTypeHasAudio(int64_t mask) {
  return (mask & (kCaptureMaskAudio | kInputMaskAudio)) != 0;
}
constexpr bool captureTypeHasVideo(int64_t mask) {
  return (mask & (kCaptureMaskVideo | kInputMaskVideo)) != 0;
}

// The capture type of a live session: video only when the setting
// `audioFormat` is below 1, else camera and microphone.
constexpr int64_t captureTypeForAudioFormat(int64_t audioFormat) {
  return audioFormat < 1 ? kCaptureMaskVideo : kCaptureMaskDefault;
}

}  // namespace oxelo
