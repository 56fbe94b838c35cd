#include <gtest/gtest.h>

#include <vector>

#include "platform/dispatch/Observable.h"

namespace oxelo {
namespace {

TEST(ObservableTest, NotifiesOnlyRealChangesWithOldAndNewUntilUnsubscribed) {
  Observable<bool> sending(false);
  std::vector<std::pair<bool, bool>> changes;
  auto sub = sending.observe([&](bool o, bool n) { changes.emplace_back(o, n); });
  sending.set(false);  // no change
  sending.set(true);
  sending.set(true);
  sending.set(false);
  EXPECT_EQ(changes, (std::vector<std::pair<bool, bool>>{{false, true}, {true, false}}));
  sub.reset();
  sending.set(true);
  EXPECT_EQ(changes.size(), 2u);
  EXPECT_TRUE(sending.get());
}

}  // namespace
}  // namespace oxelo
