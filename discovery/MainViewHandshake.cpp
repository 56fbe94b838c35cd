// The greeting on a new channel to the host, and the listener on 5896 through
// which the host may call the phone.
#include <arpa/inet.h>

#include "media/VideoSizeCatalogue.h"
#include "wire/HandshakePackets.h"
#include "discovery/MainViewController.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace hs = handshake;

namespace {
// The first catalogue row of exactly this size, in catalogue order.
std::optional<size_t> catalogueIndexOfSize(uint32_t width, uint32_t height) {
  auto sizes = VideoSizeCatalogue::shared().videoSizes();
  for (size_t i = 0; i < sizes.size(); ++i) {
    if (sizes[i].width == static_cast<int>(width) && sizes[i].height == static_cast<int>(height)) {
      return i;
    }
  }
  return std::nullopt;
}
}  // namespace

void MainViewController::start_listen_socket() {
  if (serverSocket_) return;
  serverSocket_ = GCDAsyncSocket::create(weak_from_this(), MainQueue::get());
  OptionalError error;
  if (!serverSocket_->acceptOnPort(services_.listenPort, error)) {
    oxlog("Socket listen failed: {}", error ? error->description : std::string());
    serverSocket_->setDelegate({});
    serverSocket_.reset();
  }
}

void MainViewController::stop_listen_socket() {
  if (!serverSocket_) return;
  serverSocket_->setDelegate({});
  serverSocket_->disconnect();
  serverSocket_.reset();
}

void MainViewController::socketDidConnectToHost(GCDAsyncSocket*, const std::string&, uint16_t) {
  services_.screen->hudHide();
  hostConnected_ = true;
  handShake();
}

void MainViewController::socketDidAcceptNewSocket(
    GCDAsyncSocket*, const std::shared_ptr<GCDAsyncSocket>& newSocket) {
  hostIP_ = newSocket->connectedHost();
  hostName_ = "Unknown";
  hostPort_ = 5895;          // the host's own port, whatever this connection came from
  if (asyncSocket_) return;  // a second caller is not kept
  asyncSocket_ = newSocket;
  services_.screen->hudHide();
  hostConnected_ = true;
  handShake();
}

void MainViewController::handShake() {
  if (!hostConnected_) return;
  auto helloLong = hs::helloLong();
  auto helloShort = hs::helloShort();
  if (usbPeerChannel_ && usbPeerChannel_->isConnected()) {
    usbPeerChannel_->sendFrameOfType(
        hs::kUsbFrameType, hs::kTagHello, helloLong, [](const OptionalError& error) {
          oxlog("usbPeerChannel send 8810: {}", error ? error->toString() : "(null)");
        });
    usbPeerChannel_->sendFrameOfType(
        hs::kUsbFrameType, hs::kTagHello, helloShort, [](const OptionalError& error) {
          oxlog("usbPeerChannel send old 8810: {}", error ? error->toString() : "(null)");
        });
    return;
  }
  if (!asyncSocket_) return;
  asyncSocket_->writeData(std::move(helloLong), hs::kWriteTimeout, hs::kTagHello);
  asyncSocket_->writeData(std::move(helloShort), hs::kWriteTimeout, hs::kTagHello);
  asyncSocket_->readDataWithTimeout(-1, hs::kTagFirstRead);
}

void MainViewController::socketDidReadData(GCDAsyncSocket* sock, const std::vector<uint8_t>& data,
                                           int64_t) {
  workOffBlock(data.data(), data.size());
  sock->readDataWithTimeout(-1, hs::kTagRead);
}

void MainViewController::socketDidWriteDataWithTag(GCDAsyncSocket*, int64_t tag) {
  oxlog("MAIN - socket didWriteDataWithTag: {}", tag);
}

void MainViewController::workOffBlock(const uint8_t* data, size_t size) {
  // A TCP read may end inside a packet: the bytes of a packet that reach past
  // the block are kept and completed by the next read.
  std::vector<uint8_t> joined;
  if (!partialPacket_.empty()) {
    joined = std::move(partialPacket_);
    partialPacket_.clear();
    joined.insert(joined.end(), data, data + size);
    data = joined.data();
    size = joined.size();
  }
  size_t offset = 0;
  while (offset < size) {
    size_t left = size - offset;
    if (left < 4) {
      // Too short to tell; keep it only if it can still become a packet.
      uint8_t probe[4] = {};
      std::copy(data + offset, data + size, probe);
      if (probe[0] == 0x88 && (left < 2 || probe[1] == 0) && (left < 3 || probe[2] == 0)) {
        partialPacket_.assign(data + offset, data + size);
      }
      return;
    }
    if (hs::readWord(data + offset) != hs::kType) return;
    if (left < 8) {
      partialPacket_.assign(data + offset, data + size);
      return;
    }
    size_t needed = hs::hostPacketSize(hs::readWord(data + offset + 4));
    if (needed == 0) return;  // an unknown command drops the rest of the block
    if (left < needed) {
      partialPacket_.assign(data + offset, data + size);
      return;
    }
    size_t words = handleClientPacket(data + offset, left);
    if (words == 0) return;
    offset += 4 * words;
  }
}

size_t MainViewController::handleClientPacket(const uint8_t* words, size_t available) {
  if (available < 8) return 0;
  switch (hs::readWord(words + 4)) {
    case hs::kHostInfo: {
      auto info = hs::readHostInfo(words, available);
      if (!info) return 0;
      hostPort_ = info->port;
      hostName_ = info->name;
      hostDetected_ = true;
      return 20;
    }
    case hs::kVideoSettings: {
      auto s = hs::readVideoSettings(words, available);
      if (!s) return 0;
      auto defaults = UserDefaults::standard();
      defaults->setInteger(keys::videoWidth, s->width);
      defaults->setInteger(keys::videoHeight, s->height);
      if (auto index = catalogueIndexOfSize(s->width, s->height)) {
        defaults->setInteger(keys::videoSize, static_cast<long long>(*index));
      }
      defaults->setInteger(keys::videoFPS, s->fps);
      defaults->setBool(keys::videoPortrait, s->portrait != 0);
      defaults->setInteger(keys::videoQuality, s->quality);
      defaults->setInteger(keys::videoEncoder, s->encoder);
      defaults->setInteger(keys::audioFormat, s->audioFormat);
      defaults->synchronize();
      oxlog(">> 0x88 0x13 {}x{} {}fps portrait:{} quality:{} encoder:{} audio:{}", s->width,
            s->height, s->fps, s->portrait, s->quality, s->encoder, s->audioFormat);
      return 9;
    }
    case hs::kStart:
      if (available < hs::kStartSize) return 0;
      sendSettingsAnswer();
      showLiveView();
      oxlog(">> 0x88 0x11 start");
      return 5;
    default:
      return 0;
  }
}

void MainViewController::sendSettingsAnswer() {
  auto defaults = UserDefaults::standard();
  hs::VideoSettings s;
  s.width = static_cast<uint32_t>(defaults->integerForKey(keys::videoWidth));
  s.height = static_cast<uint32_t>(defaults->integerForKey(keys::videoHeight));
  s.fps = static_cast<uint32_t>(defaults->integerForKey(keys::videoFPS));
  s.portrait = defaults->boolForKey(keys::videoPortrait) ? 1 : 0;
  s.quality = static_cast<uint32_t>(defaults->integerForKey(keys::videoQuality));
  s.encoder = static_cast<uint32_t>(defaults->integerForKey(keys::videoEncoder));
  s.audioFormat = static_cast<uint32_t>(defaults->integerForKey(keys::audioFormat));
  auto packet = hs::settingsAnswer(s);
  if (usbPeerChannel_ && usbPeerChannel_->isConnected()) {
    usbPeerChannel_->sendFrameOfType(
        hs::kUsbFrameType, hs::kTagSettings, packet, [](const OptionalError& error) {
          oxlog("usbPeerChannel send 8813: {}", error ? error->toString() : "(null)");
        });
    return;
  }
  if (asyncSocket_) asyncSocket_->writeData(std::move(packet), hs::kWriteTimeout, hs::kTagSettings);
}

}  // namespace oxelo
