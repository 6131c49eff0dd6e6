// Lists that are written as one text, such as "index.html,index.htm".
//
// Thread:    any.
// Ownership: values; views given are read during the call.
// Errors:    none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TesselServer {

class cls_Strings {
 public:
  // The most cells that ListStrTo2DArray makes. One long row widens all others, so that a short text could ask for
  // more memory than there is.
  static constexpr std::size_t kMaxCells = 1'000'000;

  // The pieces of `list` between the `delimiter`s (exact), each without its outer blanks, in their order. Empty pieces
  // are kept as "", except after the last delimiter. A blank list has no pieces; an empty delimiter cuts nothing.
  //
  //   cls_Strings::ListStrToArray("a, b,,c,", ",");  // {"a", "b", "", "c"}
  static std::vector<std::string> ListStrToArray(std::string_view list, std::string_view delimiter);

  // Rows of columns: `list` cut at each `rowDelimiter`, each row cut at each `columnDelimiter`, every cell without its
  // outer blanks. Empty pieces are kept as "", the last one too, and every row is filled up with "" to the widest. A
  // blank list has no rows, nor has one that would need more than kMaxCells.
  //
  //   cls_Strings::ListStrTo2DArray("a=1;b", ";", "=");  // {{"a", "1"}, {"b", ""}}
  static std::vector<std::vector<std::string>> ListStrTo2DArray(std::string_view list, std::string_view rowDelimiter,
                                                                std::string_view columnDelimiter);

  // How many pieces ListStrToArray makes of `list`.
  static std::int32_t CountItems(std::string_view list, std::string_view delimiter);

  // The position (the first is 1) of the first `delimiter` (exact) at or after the position `start`; a start below 1
  // counts as 1. 0 when there is none or `delimiter` is empty.
  static std::int32_t FindDelimiter(std::string_view list, std::string_view delimiter, std::int32_t start);
};

}  // namespace TesselServer
