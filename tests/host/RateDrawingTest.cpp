#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "host/RateDrawing.h"

namespace TesselServer {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// The texts that `svg` shows from one x to another, in order.
std::vector<std::string> TextsAnchored(const std::string& svg, const std::string& anchor, const std::string& x) {
  std::vector<std::string> texts;
  const std::string opening = "<text x=\"" + x + "\"";
  for (auto at = svg.find(opening); at != std::string::npos; at = svg.find(opening, at + 1)) {
    const auto start = svg.find('>', at) + 1;
    if (svg.substr(at, start - at).find("text-anchor=\"" + anchor) == std::string::npos) continue;
    texts.push_back(svg.substr(start, svg.find('<', start) - start));
  }
  return texts;
}

std::vector<std::string> ScaleOf(const std::deque<std::int64_t>& perSecond) {
  return TextsAnchored(RateDrawing(perSecond), "end", "76");
}

std::string AreaOf(const std::deque<std::int64_t>& perSecond) {
  const auto svg = RateDrawing(perSecond);
  const auto area = svg.find("<path fill=");
  if (area == std::string::npos) return {};
  const auto start = svg.find(" d=\"", area) + 4;
  return svg.substr(start, svg.find('"', start) - start);
}

TEST(RateDrawingTest, TheAxisEndsAtARoundNumberThatHoldsTheHighest) {
  struct {
    std::int64_t highest, end;
  } const cases[] = {
      {-1, 1},
      {0, 1},
      {1, 1},
      {2, 2},
      {3, 5},
      {5, 5},
      {6, 10},
      {10, 10},
      {11, 20},
      {20, 20},
      {21, 50},
      {50, 50},
      {51, 100},
      {100, 100},
      {101, 200},
      {999, 1000},
      {1000, 1000},
      {1001, 2000},
      {20'001, 50'000},
      {1'000'000'000, 1'000'000'000},
      {INT64_MAX, 1'000'000'000'000'000},
  };
  for (const auto& c : cases) EXPECT_EQ(AxisEnd(c.highest), c.end) << c.highest;
}

TEST(RateDrawingTest, TheVerticalAxisIsLabelledWithWholeNumbers) {
  EXPECT_THAT(ScaleOf({0}), ElementsAre("0", "1"));
  EXPECT_THAT(ScaleOf({2, 0}), ElementsAre("0", "1", "2"));
  EXPECT_THAT(ScaleOf({3}), ElementsAre("0", "1", "2", "3", "4", "5"));
  EXPECT_THAT(ScaleOf({10}), ElementsAre("0", "2", "4", "6", "8", "10"));
  EXPECT_THAT(ScaleOf({11}), ElementsAre("0", "5", "10", "15", "20"));
  EXPECT_THAT(ScaleOf({4999}), ElementsAre("0", "1000", "2000", "3000", "4000", "5000"));
}

TEST(RateDrawingTest, BothAxesAndTheWholeHaveWords) {
  const auto svg = RateDrawing({1, 2, 3});
  EXPECT_THAT(svg, HasSubstr(">requests per second</text>"));
  EXPECT_THAT(svg, HasSubstr(">minutes ago</text>"));
  EXPECT_THAT(svg, HasSubstr("<title>Requests per second over the last five minutes</title>"));
  for (const char* label : {">5</text>", ">4</text>", ">3</text>", ">2</text>", ">1</text>", ">now</text>"}) {
    EXPECT_THAT(svg, HasSubstr(label));
  }
}

TEST(RateDrawingTest, WithoutFiguresTheAxesStandAlone) {
  const auto svg = RateDrawing({});
  EXPECT_EQ(AreaOf({}), "");
  EXPECT_THAT(ScaleOf({}), ElementsAre("0", "1"));
  EXPECT_THAT(svg, HasSubstr("no second has passed yet"));
}

TEST(RateDrawingTest, EachSecondIsAStepAndTheLastEndsNow) {
  EXPECT_EQ(AreaOf({5, 0, 2}), "M678 208V48H680V208H682V144H684V208Z");
}

TEST(RateDrawingTest, ValuesStayInsideThePicture) {
  EXPECT_EQ(AreaOf({-3, INT64_MAX}), "M680 208V208H682V48H684V208Z");
}

TEST(RateDrawingTest, TellsTheHighestAndTheLatest) {
  EXPECT_THAT(RateDrawing({4, 17, 3}), HasSubstr(">highest 17, now 3</text>"));
}

TEST(RateDrawingTest, DrawsTheLastFiveMinutesOnly) {
  std::deque<std::int64_t> seconds(400, 1);
  seconds.front() = 1000;
  EXPECT_THAT(AreaOf(seconds), testing::StartsWith("M84 208V48H86"));
  EXPECT_THAT(ScaleOf(seconds), ElementsAre("0", "1"));
}

TEST(RateDrawingTest, HoldsNothingThatRunsAndOnlyPlainText) {
  const auto svg = RateDrawing(std::deque<std::int64_t>(300, 12));
  EXPECT_THAT(svg, Not(HasSubstr("script")));
  EXPECT_THAT(svg, testing::StartsWith("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"640\" height=\"240\""));
  for (const char c : svg) EXPECT_TRUE(c == '\n' || (c >= 0x20 && c < 0x7F));
}

}  // namespace
}  // namespace TesselServer
