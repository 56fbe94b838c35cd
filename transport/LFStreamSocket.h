#pragma once

#include <memory>

#include "media/LFFrame.h"
#include "transport/LFLiveDebug.h"
#include "transport/StreamTypes.h"
#include "wire/CommandPackets.h"
#include "wire/StreamStatusSource.h"

namespace oxelo {

class LFStreamSocket;

// What a stream socket tells its owner, the live session. The four reports
// are optional (empty defaults); each may arrive on rtmpSendQueue or on the
// main queue, so an owner that touches main-queue state posts there itself.
//
// The socket also reads a little of its owner's state while it lays out
// packets on rtmpSendQueue: the `deviceChanged` flag, which asks for a
// capability block behind the next sequence header or key frame, and the
// values of the status and capability blocks. Without an owner that offers
// them no block can be written, and none is.
class LFStreamSocketDelegate {
 public:
  virtual ~LFStreamSocketDelegate() = default;

  virtual void socketBufferStatus(LFStreamSocket* /*socket*/, BufferVerdict /*status*/) {}
  virtual void socketStatus(LFStreamSocket* /*socket*/, LiveStreamState /*status*/) {}
  virtual void socketDidError(LFStreamSocket* /*socket*/, LiveStreamError /*errorCode*/) {}
  // About once a second while frames flow, and when a retry begins.
  virtual void socketDebug(LFStreamSocket* /*socket*/, const LFLiveDebug& /*debugInfo*/) {}

  // Any thread: single flags, read and written without a lock.
  virtual bool deviceChanged() const { return false; }
  virtual void setDeviceChanged(bool /*changed*/) {}
  // rtmpSendQueue: the values of the tail blocks; null when there are none.
  virtual const StreamStatusSource* statusSource() const { return nullptr; }
  // Main queue: a host command that the socket does not act on itself (the
  // camera, presets, the picture). The record is whole for its command.
  virtual void socketClientCommand(LFStreamSocket* /*socket*/,
                                   const wire::HostCommandRecord& /*command*/) {}
};

// Carries coded frames to the host. start(), stop() and sendFrame() may be
// called from any thread; the work happens on the socket's own send queue.
class LFStreamSocket {
 public:
  virtual ~LFStreamSocket() = default;
  virtual void start() = 0;
  virtual void stop() = 0;
  // A null frame is ignored.
  virtual void sendFrame(std::shared_ptr<LFFrame> frame) = 0;
  // Held weakly.
  virtual void setDelegate(std::weak_ptr<LFStreamSocketDelegate> delegate) = 0;
};

}  // namespace oxelo
