#include "wire/CarrierMapping.h"

namespace oxelo::wire {

std::optional<TcpRoute> tcpRoute(WireContent content, uint64_t timestamp, uint32_t command) {
  switch (content) {
    case WireContent::Info:
      return TcpRoute{kTcpTagInfo, kNoWriteTimeout};
    case WireContent::Video:
      return TcpRoute{long(timestamp), kNoWriteTimeout};
    case WireContent::Audio:
      return TcpRoute{kTcpTagAudio, kNoWriteTimeout};
    case WireContent::Command:
      return TcpRoute{kCommandTagBase + long(command), kCommandWriteTimeout};
    case WireContent::StopNotice:
      break;
  }
  return std::nullopt;
}

UsbRoute usbRoute(WireContent content, uint64_t timestamp, uint32_t command) {
  switch (content) {
    case WireContent::Info:
      return {kUsbFrameTypeInfo, kUsbTagInfo};
    case WireContent::Video:
      return {kUsbFrameTypeVideo, uint32_t(timestamp)};
    case WireContent::Audio:
      return {kUsbFrameTypeAudio, kUsbTagAudio};
    case WireContent::Command:
      return {kUsbFrameTypeControl, uint32_t(kCommandTagBase + command)};
    case WireContent::StopNotice:
      break;
  }
  return {kUsbFrameTypeControl, kUsbTagStopNotice};
}

CarrierRoute carrierRoute(WireContent content, uint64_t timestamp, uint32_t command) {
  UsbRoute usb = usbRoute(content, timestamp, command);
  CarrierRoute route;
  route.frameType = usb.type;
  if (auto tcp = tcpRoute(content, timestamp, command)) {
    route.tag = tcp->tag;
    route.timeout = tcp->timeout;
  } else {
    route.tag = usb.tag;
    route.framedOnly = true;
  }
  return route;
}

std::optional<TcpWrite> tcpWriteFor(const OutgoingPacket& p) {
  auto route = tcpRoute(p.content, p.timestamp, p.command);
  if (!route) return std::nullopt;
  TcpWrite w{p.packet, route->tag, route->timeout};
  append(w.bytes, p.tail);
  return w;
}

std::vector<UsbFrame> usbFramesFor(const OutgoingPacket& p) {
  UsbRoute route = usbRoute(p.content, p.timestamp, p.command);
  std::vector<UsbFrame> frames{{route.type, route.tag, p.packet}};
  if (!p.tail.empty()) frames.push_back({kUsbFrameTypeControl, kUsbTagTailBlock, p.tail});
  return frames;
}

}  // namespace oxelo::wire
