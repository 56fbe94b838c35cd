#include "shell/HeadlessLiveScreen.h"

#include "discovery/MainViewController.h"
#include "platform/log/Log.h"

namespace oxelo {

void HeadlessLiveScreen::open(std::shared_ptr<MainViewController> mainVC) {
  mainVC_ = mainVC;
  mainVC->prepareLiveView(*this);
  if (!hasChannel()) oxlog("Live - opened with no host and no channel");
}

void HeadlessLiveScreen::setAsyncSocket(std::shared_ptr<GCDAsyncSocket> socket) {
  socket_ = std::move(socket);
  oxlog("Live - TCP channel to {}:{} taken over", hostIP_, hostPort_);
}

void HeadlessLiveScreen::setUsbChannel(std::shared_ptr<PTChannel> channel) {
  channel_ = std::move(channel);
  oxlog("Live - USB channel taken over");
}

std::shared_ptr<LiveViewController> HeadlessLivePresenter::presentLiveScreen(
    std::shared_ptr<MainViewController> mainVC) {
  auto screen = std::make_shared<HeadlessLiveScreen>();
  current_ = screen;
  screen->open(std::move(mainVC));
  return screen;
}

}  // namespace oxelo
