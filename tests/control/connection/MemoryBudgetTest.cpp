// The bound on what several holders keep in memory at once.

#include <gtest/gtest.h>

#include <limits>

#include "control/connection/MemoryBudget.h"

namespace TesselServer {
namespace {

TEST(MemoryBudgetTest, SharesTogetherStayWithinTheLimit) {
  MemoryBudget budget(100);
  MemoryShare first, second;
  EXPECT_TRUE(first.Resize(budget, 80));
  EXPECT_FALSE(second.Fits(budget, 21));
  EXPECT_FALSE(second.Resize(budget, 21));
  EXPECT_TRUE(second.Resize(budget, 20));
  EXPECT_EQ(budget.Used(), 100);
  EXPECT_FALSE(first.Resize(budget, 81)) << "it grows by what it does not have yet";
  EXPECT_EQ(budget.Used(), 100) << "what does not fit changes nothing";
  EXPECT_TRUE(first.Resize(budget, 10));
  EXPECT_EQ(budget.Used(), 30);
}

TEST(MemoryBudgetTest, AShareGivesItsBytesBackWhenItIsReleasedOrDies) {
  MemoryBudget budget(100);
  {
    MemoryShare share;
    EXPECT_TRUE(share.Resize(budget, 60));
    share.Release();
    EXPECT_EQ(budget.Used(), 0);
    share.Release();
    EXPECT_EQ(budget.Used(), 0) << "once only";
    EXPECT_TRUE(share.Resize(budget, 70));
  }
  EXPECT_EQ(budget.Used(), 0);
}

TEST(MemoryBudgetTest, ALoweredLimitTakesNothingAway) {
  MemoryBudget budget(100);
  MemoryShare share, other;
  ASSERT_TRUE(share.Resize(budget, 80));
  budget.Limit(50);
  EXPECT_FALSE(other.Resize(budget, 1));
  EXPECT_FALSE(share.Resize(budget, 81));
  EXPECT_TRUE(share.Resize(budget, 70)) << "it may become smaller";
  EXPECT_EQ(budget.Used(), 70);
}

TEST(MemoryBudgetTest, TheLargestNumbersDoNotOverflow) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  MemoryBudget budget(kMost);
  MemoryShare share, other;
  EXPECT_TRUE(share.Resize(budget, kMost));
  EXPECT_FALSE(other.Resize(budget, 1));
  EXPECT_TRUE(other.Resize(budget, 0));
  budget.Limit(-1);
  EXPECT_EQ(budget.Limit(), 0);
  EXPECT_FALSE(other.Fits(budget, kMost));
}

}  // namespace
}  // namespace TesselServer
