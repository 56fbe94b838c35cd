#pragma once

#include <QQuickItem>
#include <QTimer>
#include <memory>

#include "filters/GPUImageView.h"

namespace oxelo {

// Presents the preview node's read-back picture in the scene: each new
// picture becomes one texture of a texture node that fills the item. The
// item tells the node its size in pixels, so the node draws at the size
// shown and the texture is never scaled. A texture node rather than an image
// provider: the picture is already a CPU image, and a provider would need a
// new address and a cache entry for every frame. GUI thread.
class PreviewItem : public QQuickItem {
  Q_OBJECT
  // The live screen (a QtLiveScreen) whose preview node is shown.
  Q_PROPERTY(QObject* screen READ screen WRITE setScreen NOTIFY screenChanged)
 public:
  explicit PreviewItem(QQuickItem* parent = nullptr);

  QObject* screen() const { return screen_; }
  void setScreen(QObject* screen);

  // The node whose pictures are shown; none shows black.
  void setView(std::shared_ptr<GPUImageView> view);
  // The picture last handed to the scene; null before the first.
  const std::shared_ptr<PixelBuffer>& shownImage() const { return shown_; }

 signals:
  void screenChanged();

 protected:
  QSGNode* updatePaintNode(QSGNode* node, UpdatePaintNodeData*) override;
  void geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) override;

 private:
  void tellSize();
  // Asks for a new frame of the scene when the node has presented a new picture.
  void poll();

  QObject* screen_ = nullptr;
  std::shared_ptr<GPUImageView> view_;
  std::shared_ptr<PixelBuffer> shown_;
  QTimer poll_;
};

}  // namespace oxelo
