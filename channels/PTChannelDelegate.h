#pragma once

#include <cstdint>
#include <memory>

#include "channels/PTAddress.h"
#include "channels/PTProtocol.h"
#include "channels/SocketError.h"

namespace oxelo {

class PTChannel;

// Bits of PTChannelDelegate::ptChannelDelegateOptionalOps(): the optional
// operations that a delegate has.
enum PTChannelDelegateOp : uint8_t {
  kPTDelegateShouldAcceptFrame = 1 << 0,
  kPTDelegateDidEndWithError = 1 << 1,
  kPTDelegateDidAcceptConnection = 1 << 2,
};

// What a channel tells its owner. Every call comes on the channel's protocol
// queue (the main queue unless the channel was made with another protocol).
//
// The optional operations are called only when ptChannelDelegateOptionalOps()
// names them, and the channel's behaviour follows whether they are there:
//  - without ioFrameChannelShouldAcceptFrameOfType every frame is delivered;
//  - without ioFrameChannelDidAcceptConnection a listening channel closes
//    each connection it accepts.
// A channel reads the answer once, in setDelegate().
class PTChannelDelegate {
 public:
  virtual ~PTChannelDelegate() = default;

  // A frame has arrived. `payload` is null when the frame has none (size 0).
  virtual void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<PTChannel>& channel,
                                                   uint32_t type, uint32_t tag,
                                                   std::shared_ptr<const PTPayload> payload) = 0;

  // Optional (kPTDelegateShouldAcceptFrame). False skips the frame: its payload
  // is read and dropped.
  virtual bool ioFrameChannelShouldAcceptFrameOfType(const std::shared_ptr<PTChannel>& channel,
                                                     uint32_t type, uint32_t tag,
                                                     uint32_t payloadSize) {
    (void)channel, (void)type, (void)tag, (void)payloadSize;
    return true;
  }

  // Optional (kPTDelegateDidEndWithError). The channel's stream or listener has
  // ended; no error for an orderly end. Once per stream or listener.
  virtual void ioFrameChannelDidEndWithError(const std::shared_ptr<PTChannel>& channel,
                                             const OptionalError& error) {
    (void)channel, (void)error;
  }

  // Optional (kPTDelegateDidAcceptConnection). A listening `channel` accepted
  // `newChannel`, which is connected, has this same delegate and starts
  // reading when this returns. The delegate keeps it if it wants it: a new
  // channel that no one holds closes.
  virtual void ioFrameChannelDidAcceptConnection(const std::shared_ptr<PTChannel>& channel,
                                                 const std::shared_ptr<PTChannel>& newChannel,
                                                 const PTAddress& address) {
    (void)channel, (void)newChannel, (void)address;
  }

  // Which optional operations this delegate has: PTChannelDelegateOp bits.
  virtual uint8_t ptChannelDelegateOptionalOps() const { return 0; }
};

}  // namespace oxelo
