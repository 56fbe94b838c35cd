#pragma once

#include <QObject>
#include <QRectF>
#include <QString>
#include <memory>
#include <vector>

#include "capture/LFVideoCapture.h"
#include "discovery/LiveScreen.h"
#include "live/LiveScreenController.h"
#include "platform/dispatch/Observable.h"

namespace oxelo {

class GPUImageView;

// The live screen on the display: the edge between LiveScreenController and
// the QML view. It turns the session's observed properties and statistics
// into Qt properties, and the QML view's button presses into the session's
// operations. What the screen shows and does is decided in the plain
// classes; this only carries values across. Main queue (the GUI thread).
// Held by shared pointer (create()); deleted by its owner, never by Qt.
class QtLiveScreen final : public QObject,
                           public LiveViewController,
                           public LiveScreenView,
                           public LFVideoCaptureViewDelegate,
                           public std::enable_shared_from_this<QtLiveScreen> {
  Q_OBJECT
  Q_PROPERTY(QString statsLine READ statsLine NOTIFY changed)
  Q_PROPERTY(bool showInfo READ showInfo NOTIFY changed)
  Q_PROPERTY(int wifiLevel READ wifiLevel NOTIFY changed)
  Q_PROPERTY(int torchLevel READ torchLevel NOTIFY changed)
  Q_PROPERTY(bool beautyOn READ beautyOn NOTIFY changed)
  Q_PROPERTY(bool mirrorOn READ mirrorOn NOTIFY changed)
  Q_PROPERTY(bool recording READ recording NOTIFY changed)
  Q_PROPERTY(int lockLevel READ lockLevel NOTIFY changed)
  Q_PROPERTY(bool covered READ covered NOTIFY changed)
  Q_PROPERTY(bool coverImage READ coverImage NOTIFY changed)
  Q_PROPERTY(QRectF videoRect READ videoRect NOTIFY layoutChanged)
  Q_PROPERTY(int buttonSpace READ buttonSpace NOTIFY layoutChanged)
  Q_PROPERTY(double topMargin READ topMargin NOTIFY layoutChanged)
  Q_PROPERTY(double rowMargin READ rowMargin NOTIFY layoutChanged)
  Q_PROPERTY(double bottomMargin READ bottomMargin NOTIFY layoutChanged)
  Q_PROPERTY(bool wifiVisible READ wifiVisible NOTIFY layoutChanged)
  Q_PROPERTY(bool tablet READ tablet NOTIFY layoutChanged)
  Q_PROPERTY(bool landscape READ landscape NOTIFY layoutChanged)
  Q_PROPERTY(bool showGrid READ showGrid NOTIFY layoutChanged)
  Q_PROPERTY(bool torchVisible READ torchVisible NOTIFY changed)
  Q_PROPERTY(bool torchEnabled READ torchEnabled NOTIFY changed)
  Q_PROPERTY(QString batteryGlyph READ batteryGlyph NOTIFY changed)
  Q_PROPERTY(bool batteryRed READ batteryRed NOTIFY changed)

 public:
  struct Sources {
    LiveScreenController::Sources controller;
  };
  static std::shared_ptr<QtLiveScreen> create(Sources sources);
  ~QtLiveScreen() override;

  // The main screen as this screen sees it; before open().
  void setOwner(std::shared_ptr<LiveScreenOwner> owner) { owner_ = std::move(owner); }
  // viewDidLoad: the controller takes the connection over and starts.
  void open();
  void shutdown();
  const std::shared_ptr<GPUImageView>& preview() const { return preview_; }
  const std::shared_ptr<LiveScreenController>& controller() const { return controller_; }

  QString statsLine() const { return statsLine_; }
  bool showInfo() const { return showInfo_; }
  int wifiLevel() const { return wifiLevel_; }
  int torchLevel() const { return torchLevel_; }
  bool beautyOn() const { return beautyOn_; }
  bool mirrorOn() const { return mirrorOn_; }
  bool recording() const { return recording_; }
  int lockLevel() const { return lockLevel_; }
  bool covered() const { return covered_; }
  bool coverImage() const { return coverImage_; }
  QRectF videoRect() const { return videoRect_; }
  int buttonSpace() const { return static_cast<int>(layout_.buttonSpace); }
  double topMargin() const { return layout_.topMargin; }
  double rowMargin() const { return layout_.rowMargin; }
  double bottomMargin() const { return layout_.bottomMargin; }
  bool wifiVisible() const { return layout_.wifiVisible; }
  bool tablet() const { return false; }
  bool landscape() const { return landscape_; }
  bool showGrid() const { return showGrid_; }
  bool torchVisible() const { return torchVisible_; }
  bool torchEnabled() const { return torchEnabled_; }
  QString batteryGlyph() const { return batteryGlyph_; }
  bool batteryRed() const { return batteryRed_; }

  // The size of the view in points: lays the screen out for it.
  Q_INVOKABLE void setViewSize(double width, double height);
  // Gestures on the video rectangle, in its coordinates.
  Q_INVOKABLE void tap(double x, double y);
  Q_INVOKABLE void longPress(double x, double y);
  // state: 1 began, 2 changed, 3 ended.
  Q_INVOKABLE void pinch(int state, double scale);

  // The buttons.
  Q_INVOKABLE void closePressed();
  Q_INVOKABLE void cameraPressed();
  Q_INVOKABLE void mirrorPressed();
  Q_INVOKABLE void beautyPressed();
  Q_INVOKABLE void torchPressed();
  Q_INVOKABLE void recordPressed();
  Q_INVOKABLE void snapshotPressed();
  Q_INVOKABLE void coverTapped();

  // LiveScreenView.
  void liveScreenDidStart(OXLiveSession& session,
                          const LiveSessionConfiguration& configuration) override;
  void liveScreenWillStop(OXLiveSession& session) override;
  void liveScreenDebugInfo(const LFLiveDebug& info) override;

 signals:
  void changed();
  void layoutChanged();

 private:
  struct Layout {
    double buttonSpace = 10, topMargin = 15, rowMargin = 15, bottomMargin = 15;
    bool wifiVisible = true;
  };
  explicit QtLiveScreen(Sources sources);
  void layOut();
  OXLiveSession* session() const;
  void follow(OXLiveSession& session);

  Sources sources_;
  std::shared_ptr<LiveScreenOwner> owner_;
  std::shared_ptr<LiveScreenController> controller_;
  std::shared_ptr<GPUImageView> preview_;
  std::vector<Subscription> subscriptions_;
  QString statsLine_;
  bool showInfo_ = false;
  int wifiLevel_ = 5;
  int torchLevel_ = 0;
  bool beautyOn_ = false;
  bool mirrorOn_ = false;
  bool recording_ = false;
  int lockLevel_ = 0;
  bool covered_ = false;
  bool coverImage_ = false;
  QRectF videoRect_;
  double viewWidth_ = 0, viewHeight_ = 0, videoAspect_ = 0;
  Layout layout_;
  bool landscape_ = true;
  bool showGrid_ = false;
  bool torchVisible_ = false;
  bool torchEnabled_ = false;
  QString batteryGlyph_;
  bool batteryRed_ = false;
};

}  // namespace oxelo
