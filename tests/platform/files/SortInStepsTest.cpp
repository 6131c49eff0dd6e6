#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

#include "platform/files/SortInSteps.h"

namespace TesselServer {
namespace {

using Numbered = std::pair<int, int>;

bool LessByFirst(const Numbered& a, const Numbered& b) { return a.first < b.first; }

// Many equal ones among them, each with its place.
std::vector<Numbered> Values(std::size_t count, int different) {
  std::mt19937 random(7);
  std::vector<Numbered> values;
  for (std::size_t i = 0; i < count; ++i) {
    values.emplace_back(static_cast<int>(random() % static_cast<unsigned>(different)), static_cast<int>(i));
  }
  return values;
}

TEST(SortInStepsTest, SortsAsOneStableSortDoes) {
  constexpr std::size_t kRun = SortInSteps<int>::kRun;
  for (const std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{2}, kRun - 1, kRun, kRun + 1, 2 * kRun,
                                  3 * kRun, 4 * kRun + 1, std::size_t{1000}, std::size_t{20'000}}) {
    for (const int different : {1, 10, 1'000'000}) {
      auto expected = Values(count, different);
      SortInSteps<Numbered> sort(expected);
      while (!sort.Step(LessByFirst)) {
      }
      std::stable_sort(expected.begin(), expected.end(), LessByFirst);
      EXPECT_EQ(sort.Take(), expected) << count << " values, " << different << " different ones";
    }
  }
}

TEST(SortInStepsTest, NoStepComparesMoreThanAFewHundredTimes) {
  SortInSteps<Numbered> sort(Values(20'000, 1'000'000));
  int steps = 0, most = 0;
  for (bool isSorted = false; !isSorted; ++steps) {
    int compared = 0;
    isSorted = sort.Step([&](const Numbered& a, const Numbered& b) {
      ++compared;
      return LessByFirst(a, b);
    });
    most = std::max(most, compared);
  }
  EXPECT_LE(most, 512);
  EXPECT_GT(steps, 500);
}

}  // namespace
}  // namespace TesselServer
