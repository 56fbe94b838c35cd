// The settings panel on the live view's session and the virtual camera.
#include "live/CapturePanelCamera.h"
#include "tests/live/LiveViewFixture.h"

namespace oxelo::test {
namespace {

class LiveSettingsPanelTest : public LiveViewFixture {
 protected:
  // A view whose settings button makes the real panel, opened.
  std::shared_ptr<OXLiveView> openPanel() {
    auto slot = std::make_shared<std::weak_ptr<OXLiveView>>();
    auto s = services();
    s.makeSettingsPanel = [this, slot,
                           recorder = recorder_]() -> std::shared_ptr<LiveSettingsPanel> {
      auto view = slot->lock();
      if (!view) return nullptr;
      auto panel = makeLiveSettingsPanel(*view, {.haptics = recorder, .messages = recorder},
                                         /*tablet=*/false);
      panel_ = panel;
      return panel;
    };
    auto view = OXLiveView::create(844, 390, s);
    *slot = view;
    view->setDelegate(cover_);
    view->pressButton(LiveButton::settings);
    env_.advance(0.1);
    return view;
  }
  std::weak_ptr<OXLiveSettings> panel_;  // the panel the view made
};

TEST_F(LiveSettingsPanelTest, TheRulerSteersTheVirtualCamerasExposure) {
  auto view = openPanel();
  auto panel = panel_.lock();
  ASSERT_TRUE(panel && panel->visible());
  EXPECT_TRUE(panel->deviceObserverAdded());
  auto capture = view->session()->videoCapture();
  ASSERT_EQ(panel->activeIndex(), 0);
  ASSERT_TRUE(panel->rulerEnabled());
  // A drag to value 25 asks 1/188 s.
  RulerView& ruler = panel->ruler();
  ruler.scrollViewWillBeginDragging();
  const RulerConfig& c = ruler.rulerConfig();
  ruler.scrollViewDidScroll(25 * (c.scaleWidth + c.distanceBetweenScale) - ruler.contentInset());
  EXPECT_FALSE(capture->autoExposure());
  EXPECT_NEAR(capture->exposure(), 1.0 / 188, 1e-6);
  env_.advance(0.2);
  EXPECT_EQ(panel->item(0).title, "1/188S");
}

TEST_F(LiveSettingsPanelTest, ThePanelFollowsTheHostsChangesOnlyWhileOpen) {
  auto view = openPanel();
  auto panel = panel_.lock();
  ASSERT_TRUE(panel);
  auto capture = view->session()->videoCapture();
  panel->didSelectItem(4);
  capture->setLensPosition(0.25);  // as the host's command does
  env_.advance(0.2);
  EXPECT_EQ(panel->ruler().currentValue(), 25);
  EXPECT_EQ(panel->item(4).title, "25");

  bool closed = false;
  panel->slideDown([&](bool) { closed = true; });
  ASSERT_TRUE(closed);
  EXPECT_FALSE(panel->deviceObserverAdded());
  capture->setLensPosition(0.75);
  env_.advance(0.2);
  EXPECT_EQ(panel->item(4).title, "25");  // closed: not heard
  view->pressButton(LiveButton::settings);
  env_.advance(0.1);
  EXPECT_EQ(panel->item(4).title, "75");  // read anew on opening
}

}  // namespace
}  // namespace oxelo::test
