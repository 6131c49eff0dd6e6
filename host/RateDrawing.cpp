#include "host/RateDrawing.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "host/RequestRate.h"

namespace TesselServer {
namespace {

// The picture's own units: 720 x 270 of them are shown on 640 x 240 pixels, so that a second is 2 units wide.
constexpr std::int64_t kSecond = 2;
constexpr std::int64_t kMinute = 60 * kSecond;
constexpr std::int64_t kMinutes = 5;
constexpr std::int64_t kLeft = 84;
constexpr std::int64_t kRight = kLeft + kMinutes * kMinute;
constexpr std::int64_t kTop = 48;
constexpr std::int64_t kHeight = 160;
constexpr std::int64_t kBottom = kTop + kHeight;
static_assert(RequestRate::kSeconds == kMinutes * 60);

constexpr std::int64_t kLongestAxis = 1'000'000'000'000'000;  // past it the heights would not fit their type

constexpr std::string_view kOpening =
    R"(<svg xmlns="http://www.w3.org/2000/svg" width="640" height="240" viewBox="0 0 720 270" role="img")"
    R"( font-family="Arial, 'DejaVu Sans', sans-serif" font-size="14" fill="#1f2d35">)"
    "\n<title>Requests per second over the last five minutes</title>\n"
    R"(<rect width="720" height="270" fill="#ffffff"/>)"
    "\n"
    R"(<text x="84" y="26" font-size="17" font-weight="bold">Requests per second over the last five minutes</text>)"
    "\n";

std::string Number(std::int64_t value) { return std::to_string(value); }

std::string Text(std::int64_t x, std::int64_t y, std::string_view anchor, std::string_view text) {
  return "<text x=\"" + Number(x) + "\" y=\"" + Number(y) + "\" text-anchor=\"" + std::string(anchor) + "\">" +
         std::string(text) + "</text>\n";
}

std::string Line(std::int64_t x1, std::int64_t y1, std::int64_t x2, std::int64_t y2, std::string_view colour) {
  return "<path d=\"M" + Number(x1) + " " + Number(y1) + "L" + Number(x2) + " " + Number(y2) + "\" stroke=\"" +
         std::string(colour) + "\"/>\n";
}

// The position of `value` on an axis that ends at `end`.
std::int64_t Height(std::int64_t value, std::int64_t end) {
  return kBottom - (std::clamp<std::int64_t>(value, 0, end) * kHeight + end / 2) / end;
}

// How many parts an axis is divided into, so that each number at it is whole.
std::int64_t Parts(std::int64_t end) {
  if (end < 5) return end;
  std::int64_t first = end;
  while (first >= 10) first /= 10;
  return first == 2 ? 4 : 5;
}

std::string VerticalAxis(std::int64_t end) {
  std::string axis;
  const auto parts = Parts(end);
  for (std::int64_t part = 0; part <= parts; ++part) {
    const auto value = end / parts * part;
    const auto y = Height(value, end);
    axis += Line(kLeft, y, kRight, y, part == 0 ? "#1f2d35" : "#e4d9bf");
    axis += Text(kLeft - 8, y + 5, "end", Number(value));
  }
  const auto middle = Number((kTop + kBottom) / 2);
  return axis + "<text transform=\"translate(20 " + middle + ") rotate(-90)\" text-anchor=\"middle\">" +
         "requests per second</text>\n";
}

std::string TimeAxis() {
  std::string axis;
  for (std::int64_t minutes = kMinutes; minutes >= 0; --minutes) {
    const auto x = kRight - minutes * kMinute;
    axis += Line(x, kBottom, x, kBottom + 5, "#1f2d35");
    axis += Text(x, kBottom + 22, "middle", minutes == 0 ? "now" : Number(minutes));
  }
  return axis + Text((kLeft + kRight) / 2, kBottom + 46, "middle", "minutes ago");
}

// One step for each second, closed along the axis.
std::string Area(const std::deque<std::int64_t>& seconds, std::int64_t end) {
  if (seconds.empty()) return {};
  auto x = kRight - static_cast<std::int64_t>(seconds.size()) * kSecond;
  std::string path = "M" + Number(x) + " " + Number(kBottom);
  for (const auto requests : seconds) {
    x += kSecond;
    path += "V" + Number(Height(requests, end)) + "H" + Number(x);
  }
  return "<path fill=\"#5c9ea0\" stroke=\"#1c5d67\" d=\"" + path + "V" + Number(kBottom) + "Z\"/>\n";
}

std::string Summary(const std::deque<std::int64_t>& seconds, std::int64_t highest) {
  if (seconds.empty()) return Text(kRight, 26, "end", "no second has passed yet");
  return Text(kRight, 26, "end", "highest " + Number(highest) + ", now " + Number(seconds.back()));
}

}  // namespace

std::int64_t AxisEnd(std::int64_t highest) {
  for (std::int64_t power = 1; power < kLongestAxis; power *= 10) {
    for (const std::int64_t first : {1, 2, 5}) {
      if (highest <= first * power) return first * power;
    }
  }
  return kLongestAxis;
}

std::string RateDrawing(const std::deque<std::int64_t>& perSecond) {
  auto seconds = perSecond;
  while (seconds.size() > RequestRate::kSeconds) seconds.pop_front();
  const auto highest = seconds.empty() ? 0 : *std::max_element(seconds.begin(), seconds.end());
  const auto end = AxisEnd(highest);
  return std::string(kOpening) + Summary(seconds, highest) + VerticalAxis(end) + Area(seconds, end) + TimeAxis() +
         "</svg>\n";
}

}  // namespace TesselServer
