#include "live/RulerView.h"

#include <cmath>
#include <limits>

namespace oxelo {

RulerConfig RulerConfig::defaultConfig() {
  RulerConfig c;
  c.shortScaleLength = 17.5;
  c.longScaleLength = 25.0;
  c.scaleWidth = 2.0;
  c.scaleColor = {218, 224, 237};
  c.shortScaleStart = 25.0;
  c.longScaleStart = 25.0;
  c.distanceBetweenScale = 8.0;
  c.numberDirection = 1;
  c.distanceFromScaleToNumber = 35.0;
  c.pointWidth = 4.0;
  c.pointLength = 40.0;
  c.pointColor = {32, 198, 186};
  c.pointStart = 20.0;
  c.numberFontSize = 11.0;
  c.numberColor = {97, 114, 114};
  c.offset = 1;
  return c;
}

double RulerLayout::contentLength() const {
  if (actualLength <= 0) return 0.0;
  return static_cast<double>(actualLength) * pitch() - spacing;
}

std::optional<std::pair<int64_t, int64_t>> RulerLayout::cellsIn(double start, double end) const {
  if (actualLength <= 0 || pitch() <= 0.0 || end < start) return std::nullopt;
  int64_t first = static_cast<int64_t>(std::trunc(start / pitch()));
  int64_t last = static_cast<int64_t>(std::trunc(end / pitch()));
  if (first < 0) first = 0;
  if (last > actualLength - 1) last = actualLength - 1;
  // The first cell may end before the rectangle starts (it lies in the gap).
  while (first <= last && cellStart(first) + itemLength() < start) ++first;
  while (last >= first && cellStart(last) > end) --last;
  if (first > last) return std::nullopt;
  return std::make_pair(first, last);
}

double RulerLayout::targetOffset(double proposed, double viewLength) const {
  const auto cells = cellsIn(proposed, proposed + viewLength);
  if (!cells) return proposed;
  const double centre = proposed + viewLength * 0.5;
  double distance = std::numeric_limits<float>::max();
  bool found = false;
  for (int64_t i = cells->first; i <= cells->second; ++i) {
    if (i % offset() != 0) continue;
    const double d = cellCentre(i) - centre;
    if (std::abs(d) < std::abs(distance)) {
      distance = d;
      found = true;
    }
  }
  return found ? proposed + distance : proposed;
}

RulerView::RulerView(double width, double height)
    : width_(width), height_(height), config_(RulerConfig::defaultConfig()) {}

void RulerView::roloadWithNewConfig(const RulerConfig& config) {
  config_ = config;
  layout_ = RulerLayout{};
  layout_.spacing = config_.distanceBetweenScale;
  layout_.setOffset(config_.offset);
  layout_.horizontal = config_.horizontal();
  if (layout_.horizontal) {
    layout_.itemWidth = config_.scaleWidth;
    layout_.itemHeight = height_;
  } else {
    layout_.itemWidth = width_;
    layout_.itemHeight = config_.scaleWidth;
  }
  // The test is on max being 0, not on the range being empty only.
  if (config_.max != 0 && config_.min < config_.max)
    layout_.actualLength = config_.max - config_.min + 1;
  deviation_ = 0.0;
  currentValue_ = kNoValue;
  setCurrentValue(config_.defaultNumber, false);
}

void RulerView::setSize(double width, double height) {
  width_ = width;
  height_ = height;
  if (layout_.horizontal) {
    layout_.itemHeight = height_;
  } else {
    layout_.itemWidth = width_;
  }
  // The inset moved with the size: the same value lands elsewhere.
  const int64_t value = currentValue_;
  currentValue_ = kNoValue;
  setCurrentValue(value, false);
}

void RulerView::setCurrentValue(int64_t value, bool animated) {
  if (value == currentValue_) return;
  currentValue_ = value;
  // The scale stays under the finger; the next scroll report decides.
  if (dragging_) return;
  const double w = config_.scaleWidth;
  const int64_t i = config_.reverse ? config_.max - value : value - config_.min;
  double position = 0.0;
  if (i >= 0) {
    position = static_cast<double>(i) * pitch() - contentInset() + w * 0.5;
    selectIndex_ = i;
  }
  if (i < 0 || position == 0.0) position = -contentInset() + w * 0.5;
  deviation_ = position - std::round(position);
  activeDelegate_ = false;
  moveTo(position, animated);
  activeDelegate_ = true;
}

void RulerView::moveTo(double offset, bool animated) {
  contentOffset_ = offset;
  if (scroller_) scroller_(offset, animated);
}

bool RulerView::inRange(int64_t value) const {
  return !empty() && value >= config_.min && value <= config_.max;
}

void RulerView::scrollViewDidScroll(double offset) {
  contentOffset_ = offset;
  if (pitch() <= 0.0) return;
  const int64_t i = static_cast<int64_t>(std::round((offset + contentInset()) / pitch()));
  selectIndex_ = i;
  const int64_t value = config_.reverse ? config_.max - i : config_.min + i;
  if (!inRange(value) || !activeDelegate_ || !dragging_ || value == currentValue_) return;
  currentValue_ = value;
  if (delegate_) delegate_->rulerViewDidSelectValue(*this, value);
}

void RulerView::scrollViewWillBeginDragging() {
  tracking_ = true;
  dragging_ = true;
  deviation_ = 0.0;  // the indicator back in the middle
}

void RulerView::scrollViewDidEndDragging(bool willDecelerate) {
  tracking_ = false;
  decelerating_ = willDecelerate;
  if (!willDecelerate) dragging_ = false;
}

void RulerView::scrollViewDidEndDecelerating() {
  dragging_ = false;
  decelerating_ = false;
  if (tracking_ || empty()) return;
  // Pins the tick under the indicator exactly.
  moveTo(layout_.cellCentre(selectIndex_) - contentInset(), false);
}

double RulerView::targetContentOffset(double proposed) const {
  return layout_.targetOffset(proposed, length());
}

RulerView::Rect RulerView::indicator() const {
  const double thickness = config_.pointWidth;
  if (config_.horizontal())
    return {(width_ - thickness) * 0.5 + deviation_, config_.pointStart, thickness,
            config_.pointLength};
  return {config_.pointStart, (height_ - thickness) * 0.5 + deviation_, config_.pointLength,
          thickness};
}

std::vector<RulerTick> RulerView::visibleTicks(double offset) const {
  std::vector<RulerTick> ticks;
  if (const auto cells = layout_.cellsIn(offset, offset + length()))
    for (int64_t i = cells->first; i <= cells->second; ++i) ticks.push_back(tick(i));
  return ticks;
}

RulerTick RulerView::tick(int64_t index) const {
  RulerTick t;
  t.index = index;
  t.isLong = index % 5 == 0;
  const double start = t.isLong ? config_.longScaleStart : config_.shortScaleStart;
  const double len = t.isLong ? config_.longScaleLength : config_.shortScaleLength;
  if (config_.horizontal()) {
    t = {index, t.isLong, 0.0, start, config_.scaleWidth, len, std::nullopt};
  } else {
    t = {index, t.isLong, start, 0.0, len, config_.scaleWidth, std::nullopt};
  }
  if (index % 10 == 0) {
    const int64_t value =
        config_.reverse ? config_.max - (config_.min + index) + config_.min : config_.min + index;
    std::optional<std::string> text;
    if (delegate_) text = delegate_->rulerViewTextForCalibration(value);
    t.text = text ? *text : std::to_string(value);
  }
  return t;
}

std::pair<double, double> RulerView::numberPosition(double tw, double th) const {
  const double cellW = layout_.itemWidth, cellH = layout_.itemHeight;
  const double beyond =
      config_.shortScaleStart + config_.shortScaleLength + config_.distanceFromScaleToNumber;
  const double before = config_.shortScaleStart - config_.distanceFromScaleToNumber;
  switch (config_.numberDirection) {
    case 0:
      return {(cellW - tw) * 0.5, before - th};
    case 1:
      return {(cellW - tw) * 0.5, beyond};
    case 2:
      return {before - tw, (cellH - th) * 0.5};
    default:
      return {beyond, (cellH - th) * 0.5};
  }
}

}  // namespace oxelo
