#include "tests/discovery/support/FlowFakes.h"

#include "discovery/MainViewController.h"

namespace oxelo::test {

std::shared_ptr<LiveViewController> FakePresenter::presentLiveScreen(
    std::shared_ptr<MainViewController> mainVC) {
  ++presented;
  if (prepareOnPresent) mainVC->prepareLiveView(*this);
  return std::make_shared<FakeLiveScreen>();
}

}  // namespace oxelo::test
