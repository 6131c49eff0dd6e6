// Query strings: values are parts of the text and end at the delimiter.
//
// The input's first line is the name asked for, its second the delimiter, the rest the query string.
#include <algorithm>
#include <string>

#include "fuzz/Require.h"
#include "support/cls_QueryString.h"

namespace {

constexpr std::int16_t kMostItems = 20;  // each costs a pass over the text

std::string_view TakeLine(std::string_view& text) {
  const auto end = std::min(text.find('\n'), text.size());
  const auto line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace TesselServer;
  auto text = AsText(data, size);
  const auto name = TakeLine(text);
  const auto delimiter = TakeLine(text);
  cls_QueryString query;
  query.QueryString(std::string(text));
  const auto count = query.Count(name);
  Require(count >= 0, "a count is not negative");
  Require(query.Count(name) == count, "a count asked for again is the same");
  Require(query.Item(name, 0, delimiter).empty(), "there is no item 0");
  for (std::int16_t i = 1; i <= std::min(count, kMostItems); ++i) {
    const auto item = query.Item(name, i, delimiter);
    Require(text.find(item) != std::string_view::npos, "an item is a part of the text");
    Require(delimiter.empty() || item.find(delimiter) == std::string::npos, "an item ends at the delimiter");
  }
  return 0;
}
