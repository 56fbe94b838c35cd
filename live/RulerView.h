#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace oxelo {

// A colour as red, green, blue out of 255 and an alpha from 0 to 1.
struct PanelColour {
  int r = 0, g = 0, b = 0;
  double a = 1.0;
  bool operator==(const PanelColour&) const = default;
};

// Everything the ruler's look and range depend on. defaultConfig() holds the
// control's own defaults; a field not set there is 0 or false.
struct RulerConfig {
  bool selectionEnable = false;  // the chosen tick's number larger; unused
  bool reverse = false;          // the scale runs from max down
  bool infiniteLoop = false;     // unused
  double shortScaleLength = 0.0;
  double longScaleLength = 0.0;
  double scaleWidth = 0.0;  // thickness of a tick and width of its cell
  PanelColour scaleColor{};
  double shortScaleStart = 0.0;  // distance of a short tick from the edge
  double longScaleStart = 0.0;
  double distanceBetweenScale = 0.0;  // free space between two ticks
  // 0 numbers above a horizontal scale, 1 below, 2 left of a vertical one,
  // 3 right of it.
  int64_t numberDirection = 0;
  double distanceFromScaleToNumber = 0.0;
  double pointWidth = 0.0, pointLength = 0.0;  // the indicator
  PanelColour pointColor{};
  double pointStart = 0.0;
  double numberFontSize = 0.0;  // system font
  PanelColour numberColor{};
  int64_t max = 0;
  int64_t min = 0;
  int64_t defaultNumber = 0;  // the value shown after a reload
  int64_t offset = 0;         // snapping step, in ticks

  bool horizontal() const { return numberDirection == 0 || numberDirection == 1; }
  static RulerConfig defaultConfig();
  bool operator==(const RulerConfig&) const = default;
};

// The cell layout: one cell per value, cell i at i x pitch along the scale.
// Only the cells of a rectangle are ever computed.
class RulerLayout {
 public:
  double spacing = 0.0;
  int64_t actualLength = 0;  // number of ticks
  bool horizontal = true;
  double itemWidth = 280.0, itemHeight = 400.0;

  void setOffset(int64_t offset) { offset_ = offset; }
  int64_t offset() const { return offset_ < 1 ? 1 : offset_; }
  double itemLength() const { return horizontal ? itemWidth : itemHeight; }
  double pitch() const { return itemLength() + spacing; }
  double cellStart(int64_t index) const { return static_cast<double>(index) * pitch(); }
  double cellCentre(int64_t index) const { return cellStart(index) + itemLength() * 0.5; }
  // Along the scale.
  double contentLength() const;
  // The first and last index of the cells that meet [start, end] along the
  // scale; none when no cell does.
  std::optional<std::pair<int64_t, int64_t>> cellsIn(double start, double end) const;
  // Where a fling proposed to end at `proposed` rests instead: the nearest
  // cell whose index is a multiple of offset() under the centre of a control
  // `viewLength` long. The proposal itself when no such cell is in view.
  double targetOffset(double proposed, double viewLength) const;

 private:
  int64_t offset_ = 1;
};

// How one tick is drawn. Positions inside its cell, along and across the
// scale as the cell is laid out (x, y of the cell).
struct RulerTick {
  int64_t index = 0;
  bool isLong = false;
  double x = 0.0, y = 0.0, width = 0.0, height = 0.0;
  std::optional<std::string> text;  // every tenth tick
};

class RulerView;

// Told of what the user picks and asked for the marks. Main queue.
class RulerViewDelegate {
 public:
  virtual ~RulerViewDelegate() = default;
  virtual void rulerViewDidSelectValue(RulerView& ruler, int64_t value) = 0;
  // The text of the mark at `value`; none: the value as a number.
  virtual std::optional<std::string> rulerViewTextForCalibration(int64_t value) = 0;
};

// A scrollable scale of integer values under an indicator fixed in its
// middle: the logic of the control without its drawing. The view that draws
// it reports the size, the scroll position and the phases of a drag to this
// class; this class moves the scroll position through the scroller set with
// setScroller(). Positions are content offsets along the scale, the same
// convention as a platform scroll view with a content inset of half the
// control's length at both ends.
//
// Values set from outside (setCurrentValue) never reach the delegate; only
// scroll positions reported while the user drags do. Main queue only.
class RulerView {
 public:
  // (offset, animated): move the scale there.
  using Scroller = std::function<void(double, bool)>;
  static constexpr int64_t kNoValue = 0x7fffffff;

  RulerView(double width, double height);

  void setDelegate(RulerViewDelegate* delegate) { delegate_ = delegate; }  // not owned
  void setScroller(Scroller scroller) { scroller_ = std::move(scroller); }

  // Takes the configuration and rebuilds the scale; the value shown is then
  // the configuration's defaultNumber.
  void roloadWithNewConfig(const RulerConfig& config);
  const RulerConfig& rulerConfig() const { return config_; }
  const RulerLayout& rulerLayout() const { return layout_; }
  // A new size of the control: the value is applied again, without animation.
  void setSize(double width, double height);

  int64_t currentValue() const { return currentValue_; }
  void setCurrentValue(int64_t value) { setCurrentValue(value, true); }
  void setCurrentValue(int64_t value, bool animated);
  int64_t selectIndex() const { return selectIndex_; }
  bool empty() const { return layout_.actualLength == 0; }

  // The scroll view's report. The view calls these as the platform's scroll
  // view would call its delegate.
  void scrollViewDidScroll(double offset);
  void scrollViewWillBeginDragging();
  void scrollViewDidEndDragging(bool willDecelerate);
  void scrollViewDidEndDecelerating();
  // Where a fling with the proposed rest comes to rest instead.
  double targetContentOffset(double proposed) const;

  double contentOffset() const { return contentOffset_; }
  double contentInset() const { return length() * 0.5; }
  bool isTracking() const { return tracking_; }
  bool isDragging() const { return dragging_; }
  bool isDecelerating() const { return decelerating_; }

  // The indicator's frame, with the sub-point correction of the last move.
  struct Rect {
    double x = 0.0, y = 0.0, width = 0.0, height = 0.0;
  };
  Rect indicator() const;
  // The ticks whose cells meet the rectangle of the control's size at
  // `offset`; with the delegate's marks.
  std::vector<RulerTick> visibleTicks(double offset) const;
  RulerTick tick(int64_t index) const;
  // Where a mark of text size (tw, th) stands in its cell.
  std::pair<double, double> numberPosition(double tw, double th) const;

 private:
  double length() const { return config_.horizontal() ? width_ : height_; }
  double pitch() const { return config_.scaleWidth + config_.distanceBetweenScale; }
  bool inRange(int64_t value) const;
  void moveTo(double offset, bool animated);

  double width_, height_;
  RulerConfig config_;
  RulerLayout layout_;
  RulerViewDelegate* delegate_ = nullptr;
  Scroller scroller_;
  bool activeDelegate_ = false;
  int64_t currentValue_ = kNoValue;
  int64_t selectIndex_ = 0;
  double deviation_ = 0.0;  // the indicator's correction along the scale
  double contentOffset_ = 0.0;
  bool tracking_ = false, dragging_ = false, decelerating_ = false;
};

}  // namespace oxelo
