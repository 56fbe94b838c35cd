// The ruler driven as its scroll view would; offsets by hand from pitch 2 + 8 and half-width inset.
#include <gtest/gtest.h>

#include "live/RulerView.h"

namespace oxelo {
namespace {

class RecordingDelegate final : public RulerViewDelegate {
 public:
  void rulerViewDidSelectValue(RulerView&, int64_t value) override { picked.push_back(value); }
  std::optional<std::string> rulerViewTextForCalibration(int64_t value) override {
    return "m" + std::to_string(value);
  }
  std::vector<int64_t> picked;
};

// A 300 wide ruler whose scroller reports every move back at once, as the platform's does.
class RulerTest : public testing::Test {
 protected:
  RulerTest() {
    ruler_.setDelegate(&delegate_);
    ruler_.setScroller([this](double offset, bool animated) {
      moves_.push_back({offset, animated});
      ruler_.scrollViewDidScroll(offset);
    });
  }
  void reload(int64_t min, int64_t max, int64_t value, int64_t offset = 1, bool reverse = false) {
    RulerConfig c = RulerConfig::defaultConfig();
    c.min = min;
    c.max = max;
    c.defaultNumber = value;
    c.offset = offset;
    c.reverse = reverse;
    ruler_.roloadWithNewConfig(c);
  }
  // A drag from the current place to `offset` through its ticks.
  void dragTo(double offset) {
    ruler_.scrollViewWillBeginDragging();
    ruler_.scrollViewDidScroll(offset);
  }
  struct Move {
    double offset;
    bool animated;
  };
  RulerView ruler_{300, 80};
  RecordingDelegate delegate_;
  std::vector<Move> moves_;
};

struct PlaceCase {
  const char* name;
  int64_t min, max, value;
  bool reverse;
  double offset;
};
class RulerPlaceTest : public RulerTest, public testing::WithParamInterface<PlaceCase> {};

TEST_P(RulerPlaceTest, ValueTurnsIntoOffsetAndADragBackIntoTheValue) {
  const auto& c = GetParam();
  reload(c.min, c.max, c.value, 1, c.reverse);
  ASSERT_FALSE(moves_.empty());
  EXPECT_DOUBLE_EQ(moves_.back().offset, c.offset);
  EXPECT_FALSE(moves_.back().animated);
  EXPECT_EQ(ruler_.rulerLayout().actualLength, c.max - c.min + 1);
  EXPECT_TRUE(delegate_.picked.empty());
  if (c.value < c.min || c.value > c.max) return;
  // Away and back by hand: the value comes through the delegate.
  dragTo(c.value == c.min ? c.offset + 30 : c.offset - 30);
  dragTo(c.offset + 0.4);
  ASSERT_FALSE(delegate_.picked.empty());
  EXPECT_EQ(delegate_.picked.back(), c.value);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Values, RulerPlaceTest, testing::Values(
    PlaceCase{"First", 20, 80, 20, false, -150 + 1},  // -inset + w x 0.5
    PlaceCase{"Middle", 0, 100, 37, false, 37 * 10 - 150 + 1},
    PlaceCase{"Last", 0, 100, 100, false, 1000 - 150 + 1},
    PlaceCase{"NegativeMin", -20, 20, 0, false, 200 - 150 + 1},
    PlaceCase{"BelowMinGoesToTheStart", 10, 50, 3, false, -150 + 1},
    PlaceCase{"AboveMaxPastTheLastTick", 10, 50, 60, false, 500 - 150 + 1},
    PlaceCase{"Reverse", 0, 100, 30, true, 70 * 10 - 150 + 1}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

TEST_F(RulerTest, ValuesSetFromOutsideAndASizeChangeNeverComeBack) {
  reload(0, 100, 10);
  ruler_.setCurrentValue(40);
  EXPECT_TRUE(moves_.back().animated);
  ruler_.scrollViewDidScroll(200);  // the animation's own reports, no finger
  ruler_.setSize(200, 80);          // the inset moves: the value is applied again
  EXPECT_EQ(moves_.back().offset, 400 - 100 + 1);
  EXPECT_FALSE(moves_.back().animated);
  EXPECT_EQ(ruler_.currentValue(), 40);
  EXPECT_TRUE(delegate_.picked.empty());
}

TEST_F(RulerTest, AValueSetDuringADragIsNotedAndTheNextTickOverwritesIt) {
  reload(0, 100, 10);
  dragTo(-150 + 1 + 120);  // tick 12
  ASSERT_EQ(delegate_.picked, (std::vector<int64_t>{12}));
  const size_t movesBefore = moves_.size();
  ruler_.setCurrentValue(50);
  EXPECT_EQ(moves_.size(), movesBefore);  // the scale stays under the finger
  EXPECT_EQ(ruler_.currentValue(), 50);
  ruler_.scrollViewDidScroll(-150 + 1 + 130);
  EXPECT_EQ(delegate_.picked, (std::vector<int64_t>{12, 13}));
  EXPECT_EQ(ruler_.currentValue(), 13);
}

struct SnapCase {
  const char* name;
  double proposed;
  int64_t offset;
  double rest;
};
class RulerSnapTest : public RulerTest, public testing::WithParamInterface<SnapCase> {};

TEST_P(RulerSnapTest, AFlingRestsOnTheNearestTick) {
  const auto& c = GetParam();
  reload(0, 100, 0, c.offset);
  EXPECT_DOUBLE_EQ(ruler_.targetContentOffset(c.proposed), c.rest);
}

// Tick i's centre is at 10 i + 1; the control's centre at proposed + 150.
// clang-format off
INSTANTIATE_TEST_SUITE_P(Flings, RulerSnapTest, testing::Values(
    SnapCase{"OnATick", 100 - 149, 1, 100 - 149},
    SnapCase{"JustPastATick", 103 - 149, 1, 100 - 149},
    SnapCase{"JustBeforeTheNext", 107 - 149, 1, 110 - 149},
    SnapCase{"StepOfFiveDown", 122 - 149, 5, 100 - 149},
    SnapCase{"StepOfFiveUp", 128 - 149, 5, 150 - 149},
    SnapCase{"PastTheEndToTheLastTick", 1040 - 149, 1, 1000 - 149}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

TEST_F(RulerTest, AFlingEndingBetweenTicksIsPinnedAndReportsTheNearestValue) {
  reload(0, 100, 0);
  ruler_.scrollViewWillBeginDragging();
  ruler_.scrollViewDidScroll(-149 + 60);
  ruler_.scrollViewDidEndDragging(/*willDecelerate=*/true);
  ruler_.scrollViewDidScroll(-149 + 233.7);  // the platform's deceleration
  ruler_.scrollViewDidEndDecelerating();
  EXPECT_EQ(delegate_.picked, (std::vector<int64_t>{6, 23}));
  EXPECT_EQ(moves_.back().offset, -149 + 230);
  EXPECT_FALSE(moves_.back().animated);
  EXPECT_FALSE(ruler_.isDragging() || ruler_.isDecelerating());
}

TEST_F(RulerTest, AnEmptyScaleForMaxZeroHasNoTicksAndNoCallbacks) {
  reload(-10, 0, -5);
  EXPECT_TRUE(ruler_.empty());
  EXPECT_TRUE(ruler_.visibleTicks(-150).empty());
  dragTo(-149 + 20);
  EXPECT_TRUE(delegate_.picked.empty());
}

TEST_F(RulerTest, OnlyTheVisibleTicksAreLaidOutWithMarksEveryTenth) {
  reload(3, 100000, 3);
  const auto ticks = ruler_.visibleTicks(1000.5);  // 1000.5 to 1300.5
  ASSERT_EQ(ticks.size(), 31u);                    // cells 100 (1000 to 1002) to 130 (1300 to 1302)
  EXPECT_EQ(ticks.front().index, 100);
  EXPECT_EQ(ticks.back().index, 130);
  EXPECT_EQ(ticks[0].text, "m103");  // marks in tens from the start, not round values
  EXPECT_FALSE(ticks[1].text);
  EXPECT_TRUE(ticks[5].isLong && !ticks[6].isLong);
  EXPECT_EQ(ticks[5].y, 25.0);
  EXPECT_EQ(ticks[6].height, 17.5);
}

}  // namespace
}  // namespace oxelo
