// The send side of OXStreamSocket: send passes, packet layout, the late-frame
// rule, and the write statistics that turn completions into verdicts.
#include <array>

#include "media/LFLiveVideoConfiguration.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"
#include "transport/OXStreamSocket.h"
#include "transport/StreamAnnouncement.h"
#include "wire/CarrierMapping.h"
#include "wire/MediaPackets.h"
#include "wire/TailBlocks.h"
#include "wire/WireConstants.h"

namespace oxelo {

namespace {
constexpr size_t kHeaderSize = wire::kCommonHeaderSize;
constexpr size_t kSpareBytes = 1024;     // room for the header and a tail block
constexpr uint64_t kLateFrameGap = 501;  // ms ahead of the last completed video write
constexpr uint64_t kDropPhaseCredit = 500;
constexpr int64_t kLateWritesForVerdict = 4;
constexpr int64_t kGoodWritesForVerdict = 101;
}  // namespace

void OXStreamSocket::postSendPass() {
  sendQueue()->post([self = shared_from_this()] { self->sendPass(); });
}

void OXStreamSocket::sendFrame(std::shared_ptr<LFFrame> frame) {
  if (!frame) return;
  buffer()->appendObject(std::move(frame));
  if (!isSending()) postSendPass();
}

void OXStreamSocket::sendPass() {
  OX_ASSERT_ON_QUEUE(sendQueue());
  auto& list = buffer();
  if (isSending() || list->listCount() == 0) return;
  setIsSending(true);
  if (!isConnected_ || isReconnecting_ || isConnecting_ || !carrier()) {
    // While a connection is coming, the change of isSending posts the next
    // pass, so waiting frames go as soon as it is up. A stopped socket has
    // nothing coming: its passes end here quietly instead of spinning.
    if (isReconnecting_ || isConnecting_) {
      setIsSending(false);
    } else {
      isSending_.setSilently(false);
    }
    return;
  }
  auto frame = list->popFirstObject();
  if (!frame) {
    setIsSending(false);
    return;
  }
  bool isVideo = false;
  if (auto video = std::dynamic_pointer_cast<LFVideoFrame>(frame)) {
    isVideo = true;
    if (!sendVideoHead_) {
      sendVideoHead_ = true;
      if (!hasBytes(video->sps) || !hasBytes(video->pps)) {
        setIsSending(false);
        return;
      }
      sendVideoHeader(*video);
    }
    sendVideo(*video);
  } else if (auto audio = std::dynamic_pointer_cast<LFAudioFrame>(frame)) {
    if (sendAudioHead_) {
      sendAudio(*audio);
    } else {
      sendAudioHead_ = true;
      if (!hasBytes(audio->audioInfo)) {
        setIsSending(false);
        return;
      }
      sendAudioHeader(*audio);
    }
  }
  countFrame(*frame, isVideo);
  postAfterWeak(*MainQueue::get(), 0, weak_from_this(),
                [](OXStreamSocket& self) { self.setIsSending(false); });
}

void OXStreamSocket::countFrame(const LFFrame& frame, bool isVideo) {
  bool secondDone = false;
  {
    std::lock_guard lock(debugMutex_);
    if (!debugInfo_) debugInfo_ = std::make_unique<LFLiveDebug>();
    auto& d = *debugInfo_;
    double length = static_cast<double>(frame.data.size());
    double nowMs = static_cast<double>(mediaTimeMillis());
    d.totalFrame += 1;
    d.dataFlow += length;
    d.elapsedMilli = nowMs - d.timeStamp;
    if (d.elapsedMilli < 1000) {
      d.bandwidth += length;
      (isVideo ? d.capturedVideoCount : d.capturedAudioCount) += 1;
      d.unSendCount = static_cast<int64_t>(buffer_->listCount());
    } else {
      d.currentBandwidth = d.bandwidth;
      d.currentCapturedAudioCount = d.capturedAudioCount;
      d.currentCapturedVideoCount = d.capturedVideoCount;
      secondDone = true;
    }
  }
  if (!secondDone) return;
  reportDebug();
  std::lock_guard lock(debugMutex_);
  if (!debugInfo_) return;
  debugInfo_->bandwidth = 0;
  debugInfo_->capturedAudioCount = 0;
  debugInfo_->capturedVideoCount = 0;
  debugInfo_->timeStamp = static_cast<double>(mediaTimeMillis());
}

// ---- Packets ----

// The info packet has no body; it goes straight to writePacket, as it is
// also sent from the main queue (see writePacket).
void OXStreamSocket::sendMetaData() { writePacket(wire::kPacketTypeInfo, {}, 0); }

void OXStreamSocket::sendVideoHeader(const LFVideoFrame& frame) {
  auto body = wire::buildVideoSequenceHeaderBody(frame);
  if (!body) {
    oxlog("Live - parameter sets too long for a sequence header; none sent");
    return;
  }
  sendPacket(wire::kPacketTypeVideo, body->data(), static_cast<int64_t>(body->size()), 0);
}

bool OXStreamSocket::carrierBacklogged() {
  auto current = carrier();
  const size_t queued = current ? current->queuedBytes() : 0;
  const bool now = queued > kMaxQueuedBytes;
  if (now != backlogged_.exchange(now)) {
    if (now) {
      oxlog("Live - {} bytes wait for the host; frames are dropped until they have left", queued);
    } else {
      oxlog("Live - the host reads again");
    }
  }
  return now;
}

void OXStreamSocket::sendVideo(const LFVideoFrame& frame) {
  uint64_t last = last_send_videoframe_timestamp_;
  // An unsigned difference: a frame stamped below the last completed tag (a
  // command's 8800 + n stands in for a video timestamp) is late as well.
  if (last != 0 && frame.timestamp - last >= kLateFrameGap && !drop_frame_now_) {
    drop_frame_now_ = true;
    oxlog("开始丢帧...");
  }
  // Over the carrier's mark even a key frame waits for the next one: the
  // drop phase goes on until a key frame can leave.
  if (carrierBacklogged()) {
    drop_frame_now_ = true;
    ++backlogDrops_;
    std::lock_guard lock(debugMutex_);
    if (debugInfo_) debugInfo_->dropFrame += 1;
    return;
  }
  if (drop_frame_now_) {
    if (!frame.isKeyFrame) {
      {
        std::lock_guard lock(debugMutex_);
        if (debugInfo_) debugInfo_->dropFrame += 1;
      }
      oxlog("丢视频帧 - {}, {}", frame.data.size(), frame.timestamp);
      return;
    }
    drop_frame_now_ = false;
    last_sent_time_ = mediaTimeMillis() - kDropPhaseCredit;
  }
  // The body's fixed part, then the coded sample as the encoder gave it.
  std::array<uint8_t, 9> head{};
  head[0] = frame.isKeyFrame ? wire::kVideoTagKeyFrame : wire::kVideoTagInterFrame;
  head[1] = wire::kVideoKindFrame;
  uint32_t length = static_cast<uint32_t>(frame.data.size());
  for (int i = 0; i < 4; ++i) head[5 + i] = static_cast<uint8_t>(length >> (24 - 8 * i));
  std::array<std::span<const uint8_t>, 2> body{std::span<const uint8_t>(head),
                                               std::span<const uint8_t>(frame.data)};
  writePacket(wire::kPacketTypeVideo, body, frame.timestamp);
}

void OXStreamSocket::sendAudioHeader(const LFAudioFrame& frame) {
  auto body = wire::buildAudioSequenceHeaderBody(*frame.audioInfo);
  sendPacket(wire::kPacketTypeAudio, body.data(), static_cast<int64_t>(body.size()), 0);
}

void OXStreamSocket::sendAudio(const LFAudioFrame& frame) {
  if (carrierBacklogged()) {
    ++backlogDrops_;
    return;
  }
  const uint8_t head[2] = {wire::kAudioTagAac, wire::kAudioKindFrame};
  std::array<std::span<const uint8_t>, 2> body{std::span<const uint8_t>(head),
                                               std::span<const uint8_t>(frame.data)};
  writePacket(wire::kPacketTypeAudio, body, frame.timestamp);
}

int OXStreamSocket::sendPacket(uint32_t type, const uint8_t* data, int64_t size,
                               uint64_t nTimestamp) {
  OX_ASSERT_ON_QUEUE(sendQueue());
  std::array<std::span<const uint8_t>, 1> body{
      std::span<const uint8_t>(data, data ? static_cast<size_t>(size) : 0)};
  return writePacket(type, body, nTimestamp);
}

std::vector<uint8_t> OXStreamSocket::tailBlockFor(uint32_t type, uint8_t firstBodyByte) {
  if (type != wire::kPacketTypeVideo || firstBodyByte != wire::kVideoTagKeyFrame) return {};
  auto d = delegate();
  const StreamStatusSource* source = d ? d->statusSource() : nullptr;
  if (!source) return {};
  auto choice = wire::chooseTailBlock(d->deviceChanged(), sendStatus_);
  if (choice.deviceChanged != d->deviceChanged()) d->setDeviceChanged(choice.deviceChanged);
  sendStatus_ = choice.sendStatus;
  switch (choice.block) {
    case wire::TailBlock::Capability:
      return wire::buildCapabilityBlock(*source);
    case wire::TailBlock::Status:
      return wire::buildStatusBlock(*source);
    case wire::TailBlock::None:
      break;
  }
  return {};
}

int OXStreamSocket::writePacket(uint32_t type, std::span<const std::span<const uint8_t>> body,
                                uint64_t nTimestamp) {
  // Every packet is laid out on the send queue; the one exception is the
  // info packet of an own connection, sent from the main queue before
  // isConnected is set, while no pass can run.
  if (isConnected_) OX_ASSERT_ON_QUEUE(sendQueue());
  auto current = carrier();
  if (!current || !current->isConnected()) return -1;

  size_t bodySize = 0;
  for (auto piece : body) bodySize += piece.size();
  if (frame_buffer_.empty() || bodySize + kSpareBytes > frame_buffer_.size())
    frame_buffer_.assign(bodySize * 2 + kSpareBytes, 0);

  // The info packet is a record of its own; every other packet has the
  // common header in front of its body.
  size_t packetSize = 0;
  if (type == wire::kPacketTypeInfo) {
    auto info = wire::buildInfoPacket(infoPacketFields(*stream_, env_.hevcDecodeSupported));
    if (info.size() + kSpareBytes > frame_buffer_.size())
      frame_buffer_.assign(info.size() * 2 + kSpareBytes, 0);
    std::copy(info.begin(), info.end(), frame_buffer_.begin());
    packetSize = info.size();
  } else {
    wire::putU32LE(frame_buffer_, 0, type);
    wire::putU32LE(frame_buffer_, 4, static_cast<uint32_t>(nTimestamp));
    wire::putU32LE(frame_buffer_, 8, static_cast<uint32_t>(bodySize));
    packetSize = kHeaderSize;
    for (auto piece : body) {
      std::copy(piece.begin(), piece.end(), frame_buffer_.begin() + packetSize);
      packetSize += piece.size();
    }
  }
  uint8_t firstBodyByte = bodySize > 0 && packetSize > kHeaderSize ? frame_buffer_[kHeaderSize] : 0;
  auto tail = tailBlockFor(type, firstBodyByte);

  wire::WireContent content = type == wire::kPacketTypeInfo    ? wire::WireContent::Info
                              : type == wire::kPacketTypeVideo ? wire::WireContent::Video
                                                               : wire::WireContent::Audio;
  current->sendRecord(
      carrierRecord(wire::carrierRoute(content, nTimestamp),
                    std::vector<uint8_t>(frame_buffer_.begin(), frame_buffer_.begin() + packetSize),
                    std::move(tail)));
  return 0;
}

// ---- Write statistics, main queue ----

void OXStreamSocket::carrierDidWriteRecord(Carrier*, int64_t tag) {
  OX_ASSERT_ON_MAIN_QUEUE();
  uint64_t now = mediaTimeMillis();
  if (tag == 0) {
    continuous_good_writes_ = 0;
    bad_writes_ = 0;
    last_sent_time_ = now;
  }
  uint64_t gap = now - last_sent_time_;
  uint64_t limit =
      stream_->videoConfiguration && stream_->videoConfiguration->videoFrameRate() < 25 ? 100 : 60;
  bool hasBufferDelegate = buffer()->delegate() != nullptr;
  if (gap > limit) {
    oxlog("SOCKET DELAY: {}, {}", gap, tag);
    continuous_good_writes_ = 0;
    int64_t bad = ++bad_writes_;
    if (hasBufferDelegate && bad >= kLateWritesForVerdict) {
      bad_writes_ = 0;
      streamingBufferBufferState(buffer_.get(), BufferVerdict::LowerBitrate);
    }
  } else {
    int64_t good = ++continuous_good_writes_;
    if (hasBufferDelegate && good >= kGoodWritesForVerdict) {
      continuous_good_writes_ = 0;
      streamingBufferBufferState(buffer_.get(), BufferVerdict::RaiseBitrate);
    }
  }
  last_sent_time_ = now;
  if (tag >= 2) last_send_videoframe_timestamp_ = static_cast<uint64_t>(tag);
}

}  // namespace oxelo
