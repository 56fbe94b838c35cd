#include "shell/qt/PreviewItem.h"

#include <QImage>
#include <QQuickWindow>
#include <QSGSimpleTextureNode>
#include <cmath>

#include "shell/qt/QtLiveScreen.h"

namespace oxelo {

namespace {
// Pictures are looked for at about the display's rate.
constexpr int kPollMilliseconds = 15;
}  // namespace

PreviewItem::PreviewItem(QQuickItem* parent) : QQuickItem(parent) {
  setFlag(ItemHasContents, true);
  poll_.setInterval(kPollMilliseconds);
  connect(&poll_, &QTimer::timeout, this, &PreviewItem::poll);
}

void PreviewItem::setScreen(QObject* screen) {
  if (screen == screen_) return;
  screen_ = screen;
  auto* live = qobject_cast<QtLiveScreen*>(screen);
  setView(live ? live->preview() : nullptr);
  emit screenChanged();
}

void PreviewItem::setView(std::shared_ptr<GPUImageView> view) {
  view_ = std::move(view);
  shown_.reset();
  tellSize();
  if (view_) {
    poll_.start();
  } else {
    poll_.stop();
  }
  update();
}

void PreviewItem::geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) {
  QQuickItem::geometryChange(newGeometry, oldGeometry);
  if (newGeometry.size() == oldGeometry.size()) return;
  tellSize();
  update();
}

void PreviewItem::tellSize() {
  if (!view_) return;
  const double ratio = window() ? window()->effectiveDevicePixelRatio() : 1.0;
  view_->setSizeInPixels(GPUSize{std::round(width() * ratio), std::round(height() * ratio)});
}

void PreviewItem::poll() {
  if (view_ && view_->presentedImage() != shown_) update();
}

QSGNode* PreviewItem::updatePaintNode(QSGNode* old, UpdatePaintNodeData*) {
  auto* node = static_cast<QSGSimpleTextureNode*>(old);
  auto image = view_ ? view_->presentedImage() : nullptr;
  if (!image || image->format() != PixelFormat::bgra || width() <= 0 || height() <= 0) {
    delete node;
    shown_.reset();
    return nullptr;
  }
  if (!node) {
    node = new QSGSimpleTextureNode();
    node->setOwnsTexture(true);
  }
  if (image != shown_) {
    // B, G, R, A bytes are Qt's 32-bit RGB words on a little-endian machine.
    // The image only borrows the pixels: the texture copies them here.
    QImage frame(image->data(), image->width(), image->height(),
                 static_cast<qsizetype>(image->stride()), QImage::Format_RGB32);
    node->setTexture(window()->createTextureFromImage(frame));
    shown_ = image;
  }
  node->setRect(boundingRect());
  return node;
}

}  // namespace oxelo
