#include "transport/StreamTypes.h"

namespace oxelo {

std::string_view liveStreamStateText(LiveStreamState state) {
  switch (state) {
    case LiveStreamState::Connecting:
      return "Status_Connecting";
    case LiveStreamState::Connected:
      return "Status_Connected";
    case LiveStreamState::Failed:
      return "Status_ConnectError";
    case LiveStreamState::Idle:
    case LiveStreamState::Stopped:
      break;
  }
  return "Status_DisConnected";
}

}  // namespace oxelo
