// The live view on the virtual camera, settings of its own, the manual clock, and fakes.
#pragma once

#include <gtest/gtest.h>

#include "filters/GPUImageView.h"
#include "live/OXLiveView.h"
#include "platform/defaults/SettingsKeys.h"
#include "tests/support/CameraTestSupport.h"
#include "tests/support/FakeBatteryMonitor.h"
#include "tests/support/FakeCarrier.h"
#include "tests/support/FakeLifecycle.h"
#include "tests/support/PlainStatusSource.h"
#include "tests/support/TestSupport.h"

namespace oxelo::test {

class FakeAccess final : public CameraAccess {
 public:
  int authorizationStatus(Media media) override { return status[static_cast<int>(media)]; }
  void requestAccess(Media media, std::function<void(bool)> completion) override {
    pending[static_cast<int>(media)] = std::move(completion);
  }
  std::string refusalReason(Media) override { return "/dev/video0: Permission denied"; }
  int status[2] = {authorized, authorized};
  std::function<void(bool)> pending[2];  // the question asked, by media
};

// Alerts, toasts, sounds and haptics, in the order they came.
class Recorder final : public LiveMessages, public SystemSounds, public Haptics {
 public:
  void showAlert(const LiveAlert& alert) override { alerts.push_back(alert); }
  void showToast(const std::string& key, double seconds) override {
    events.push_back("toast " + key + " " + std::to_string(int(seconds * 1000)) + " ms");
  }
  void play(int sound) override { events.push_back("sound " + std::to_string(sound)); }
  void impact(int style) override { events.push_back("impact " + std::to_string(style)); }
  int count(const std::string& event) const {
    return static_cast<int>(std::count(events.begin(), events.end(), event));
  }
  std::vector<LiveAlert> alerts;
  std::vector<std::string> events;
};

class CoverRecorder final : public OXLiveViewDelegate {
 public:
  void showFullImage(const std::string& image, std::function<void()> completion) override {
    images.push_back(image);
    if (completion) this->completion = std::move(completion);
  }
  std::vector<std::string> images;
  std::function<void()> completion;
};

// The main screen: hands over the host and a carrier (new unless given); records calls.
class RecordingOwner final : public LiveScreenOwner {
 public:
  void prepareLiveView(LiveViewChannelTarget& view) override {
    calls.push_back("prepare");
    view.setHostIP("127.0.0.1");
    view.setHostPort(port);
    view.setCarrier(carrier ? carrier : std::make_shared<FakeCarrier>());
  }
  void liveViewRestart() override { calls.push_back("restart"); }
  void liveViewConnectionLost() override { calls.push_back("lost"); }
  void liveViewUserClose(bool byUser) override { calls.push_back(byUser ? "user" : "host"); }
  void viewWillAppear() override { calls.push_back("appear"); }
  void viewDidAppear() override { calls.push_back("didAppear"); }
  long long port = 5899;
  std::shared_ptr<Carrier> carrier;
  std::vector<std::string> calls;
};
inline std::vector<std::string> closedWith(const std::string& reaction) {
  return {"prepare", reaction, "appear", "didAppear"};
}

class LiveViewFixture : public testing::Test {
 protected:
  LiveViewFixture() : cameras_(defaultVirtualCameraSystem()) {
    cameras_.defaults().setInteger(keys::audioFormat, 0);  // no microphone
    battery_->setBatteryMonitoringEnabled(true);
  }
  ~LiveViewFixture() override { sendQueue_->stop(); }

  OXLiveView::Services services() {
    OXLiveView::Services s;
    s.sources.environment.socket.sendQueue = sendQueue_;
    s.sources.environment.socket.lifecycle = lifecycle_;
    s.sources.environment.statusSource = std::make_shared<PlainStatusSource>();
    s.cameraAccess = access_;
    s.haptics = recorder_;
    s.sounds = recorder_;
    s.messages = recorder_;
    s.battery = battery_;
    s.preview = preview_;
    s.backCameraHasTorch = true;
    return s;
  }
  std::shared_ptr<OXLiveView> makeView() {
    auto view = OXLiveView::create(844, 390, services());
    view->setDelegate(cover_);
    return view;
  }
  // shut_down waits for the stream socket's queue, which nobody drives
  // here: stopped, it answers at once.
  void shutDown(OXLiveView& view) {
    sendQueue_->stop();
    view.shut_down();
  }

  ManualMain env_;
  std::shared_ptr<Queue> sendQueue_ = Queue::createDriven("send", env_.clockPtr());
  CameraAndSettings cameras_;
  std::shared_ptr<FakeLifecycle> lifecycle_ = std::make_shared<FakeLifecycle>();
  std::shared_ptr<FakeAccess> access_ = std::make_shared<FakeAccess>();
  std::shared_ptr<Recorder> recorder_ = std::make_shared<Recorder>();
  std::shared_ptr<FakeBatteryMonitor> battery_ =
      std::make_shared<FakeBatteryMonitor>(BatteryState::unplugged, 0.9f);
  std::shared_ptr<GPUImageView> preview_ = std::make_shared<GPUImageView>();
  std::shared_ptr<CoverRecorder> cover_ = std::make_shared<CoverRecorder>();
};

}  // namespace oxelo::test
