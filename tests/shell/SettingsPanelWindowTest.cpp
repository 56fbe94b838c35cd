// The settings panel in the window, over the virtual camera's picture: what
// the user sees and what the host gets when the ruler is dragged.
#include "shell/qt/QtSettingsPanel.h"
#include "tests/shell/support/LiveWindowFixture.h"
#include "wire/CommandPackets.h"
#include "wire/TailBlocks.h"

namespace oxelo {
namespace {

class SettingsPanelWindowTest : public test::LiveWindowFixture {
 protected:
  QtSettingsPanel* panel() const { return shell_->live()->settingsPanelView(); }
  void hostSets(int32_t parameter, int32_t value) {
    main_->post([this, parameter, value] {
      shell_->live()->liveView()->session()->socketClientCommand(
          nullptr, {wire::kHostSetCameraParameter, parameter, value});
    });
  }
  // What the next status block tells the host.
  wire::StatusBlock statusBlock() {
    auto session = shell_->live()->liveView()->session();
    auto block = wire::parseStatusBlock(wire::buildStatusBlock(*session->statusSource()));
    EXPECT_TRUE(block.ok());
    return block.ok() ? *block : wire::StatusBlock{};
  }
  QString title(int item) { return panel()->items().value(item).toMap().value("title").toString(); }
  // The camera's changes reach the panel at its next look at the device.
  void pollDevice() {
    clock_->advance(0.1);
    test::settle(50);
  }
  // A mouse event `after` milliseconds of the event time after the last:
  // Qt works out a fling's speed from these times.
  void mouse(QEvent::Type type, QPointF at, ulong after = 16) {
    QMouseEvent event(type, at, at, window_->mapToGlobal(at),
                      type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton,
                      type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton,
                      Qt::NoModifier);
    event.setTimestamp(time_ += after);
    QCoreApplication::sendEvent(window_, &event);
    test::settle(20);
  }
  // A finger on the middle of `name` moved by `by` in a few steps, lifted
  // after `hold` ms: at once flings, after a while does not. The scale
  // follows from the second move past the drag threshold, or a little
  // before: under a third of a tick either way.
  void drag(const char* name, QPointF by, ulong hold = 300) {
    const QPointF from = sceneRect(name).center(), way = by / std::hypot(by.x(), by.y());
    mouse(QEvent::MouseButtonPress, from);
    mouse(QEvent::MouseMove, from + way * 20);
    for (int i = 0; i <= 5; ++i) mouse(QEvent::MouseMove, from + way * 25 + by * i / 5.0);
    mouse(QEvent::MouseButtonRelease, from + way * 25 + by, hold);
  }
  // The live screen at 1280 x 720 with the panel opened by its button.
  void openPanel() {
    open(1280, 720);
    test::tap(window_, item("settingsButton"));
    clock_->advance(0.1);  // the panel slides up a tenth of a second later
    ASSERT_TRUE(test::spinUntil([&] {
      return item("settingsPanel") && item("settingsPanel")->opacity() == 1.0 && panel()->open();
    }));
    test::settle();
  }
  // Event times only go forward, across tests too: the pointer keeps its last.
  static inline ulong time_ = 1000;
  QRectF sceneRect(const char* name) {
    auto* it = item(name);
    return it ? it->mapRectToScene(QRectF(0, 0, it->width(), it->height())) : QRectF();
  }
  // How many pixels of the item `name` are near `colour`.
  int pixelsLike(const QImage& shot, const char* name, QColor colour) {
    const QRect area = sceneRect(name).toRect();
    int n = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
      for (int x = area.left(); x <= area.right(); ++x) {
        const QColor c = shot.pixelColor(x, y);
        n += std::abs(c.red() - colour.red()) + std::abs(c.green() - colour.green()) +
                 std::abs(c.blue() - colour.blue()) <
             60;
      }
    return n;
  }
};

// Opened over the picture, the panel dims it and shows its indicator; the
// host's exposure moves the ruler; a drag on the ruler sets the camera's
// exposure, which the status block then carries; the host's exposure lock
// turns item 0 orange while item 3 is shown, with the toast; a drag down
// closes it.
TEST_F(SettingsPanelWindowTest, ThePanelSteersTheCameraAndFollowsTheHost) {
  openPanel();
  // The button's tap is the button's: the picture beneath neither focuses nor exposes.
  EXPECT_EQ(shell_->live()->focusSquare().value("phase").toInt(), 0);
  QImage shot = test::grabShot(window_, "panel-item0");
  // The blue patch at the bottom left lies under the panel's black at 0.4.
  const QColor under = shot.pixelColor(5, 715);
  EXPECT_TRUE(under.blue() > 120 && under.blue() < 175 && under.red() < 40) << under.name().data();
  EXPECT_GT(shot.pixelColor(5, 5).red(), 190);  // the red patch above it is not
  EXPECT_GT(pixelsLike(shot, "rulerIndicator", QColor(237, 237, 0)), 10);
  EXPECT_GT(pixelsLike(shot, "panelItem0", QColor(237, 237, 0)), 20);  // active icon

  auto* scale = item("rulerScale");
  ASSERT_NE(scale, nullptr);
  const double pitch = panel()->panel()->ruler().rulerLayout().pitch();
  const double inset = scale->width() / 2;
  // The tick of `value` under the indicator (ticks 2 wide).
  auto rulerAt = [&](int64_t value) {
    return std::abs(scale->property("contentX").toDouble() - (value * pitch - inset + 1.0)) < 0.01;
  };
  hostSets(wire::kParameterExposure, 80);  // 1/125 s: the mark at 30
  pollDevice();
  ASSERT_TRUE(test::spinUntil([&] { return rulerAt(30); }));
  EXPECT_EQ(title(0), "1/125S");

  // Five ticks on: 125 - 65 x 5 / 10 gives 1/93 s, 107 in the block's units.
  drag("rulerScale", QPointF(-5 * pitch, 0));
  ASSERT_TRUE(test::spinUntil([&] { return rulerAt(35); }))
      << "at " << scale->property("contentX").toDouble();
  EXPECT_EQ(statusBlock().exposure, 107);
  pollDevice();
  EXPECT_TRUE(test::spinUntil([&] { return title(0) == "1/93S"; })) << title(0).toStdString();
  // A fling well past the end rests on the last tick, 60, which asks 1/15 s.
  drag("rulerScale", QPointF(-150, 0), /*hold=*/16);
  ASSERT_TRUE(test::spinUntil([&] { return rulerAt(60); }));
  EXPECT_EQ(statusBlock().exposure, 666);

  test::tap(window_, item("panelItem3"));
  ASSERT_TRUE(test::spinUntil([&] { return panel()->activeIndex() == 3; }));
  test::settle();
  test::grabShot(window_, "panel-item3");
  const auto autoStatus = [&] { return panel()->autoButton().value("status").toInt(); };
  const int whiteBalanceStatus = autoStatus();
  hostSets(wire::kParameterAutoExposure, 2);
  ASSERT_TRUE(
      test::spinUntil([&] { return shell_->live()->notice().value("message") == "AE LOCK"; }));
  EXPECT_TRUE(statusBlock().exposureFlags.locked);
  test::settle();
  EXPECT_EQ(autoStatus(), whiteBalanceStatus);
  EXPECT_EQ(panel()->items().value(0).toMap().value("titleColour"), QColor(255, 149, 0));

  test::tap(window_, item("panelItem5"));
  ASSERT_TRUE(test::spinUntil([&] { return panel()->activeIndex() == 5; }));
  shell_->live()->noticeButton(-1);  // the toast goes
  test::settle();
  test::grabShot(window_, "panel-item5");

  test::tap(window_, item("panelItem0"));  // exposure, locked: the orange lock
  ASSERT_TRUE(test::spinUntil([&] { return autoStatus() == 2; }));
  test::settle();
  EXPECT_GT(pixelsLike(window_->grabWindow(), "autoButton", QColor(255, 149, 0)), 20);

  drag("panelItem2", QPointF(0, 60));
  EXPECT_TRUE(
      test::spinUntil([&] { return !panel()->open() && !item("settingsPanel")->isVisible(); }));
  EXPECT_TRUE(item("recordButton")->isVisible());
}

// Each other item steers its own value: five ticks of its ruler change what
// the host then reads of the camera.
TEST_F(SettingsPanelWindowTest, EveryItemSteersItsValueOnTheCamera) {
  openPanel();
  const double pitch = panel()->panel()->ruler().rulerLayout().pitch();
  const std::pair<int, int32_t wire::StatusBlock::*> items[] = {
      {2, &wire::StatusBlock::bias},  // before ISO: bias only acts in automatic exposure
      {1, &wire::StatusBlock::iso},
      {3, &wire::StatusBlock::temperature},
      {4, &wire::StatusBlock::lensPosition},
      {5, &wire::StatusBlock::zoom}};
  for (auto [index, field] : items) {
    test::tap(window_, item(("panelItem" + std::to_string(index)).c_str()));
    ASSERT_TRUE(test::spinUntil([&] { return panel()->activeIndex() == index; }))
        << "item " << index;
    test::settle();
    const int32_t before = statusBlock().*field;
    drag("rulerScale", QPointF(-5 * pitch, 0));
    EXPECT_TRUE(test::spinUntil([&] { return statusBlock().*field != before; }, 3000))
        << "item " << index << " left the camera at " << before;
  }
}

}  // namespace
}  // namespace oxelo
