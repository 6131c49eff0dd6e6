#include "support/cls_Strings.h"

#include <algorithm>

#include "support/Text.h"

namespace TesselServer {
namespace {

// Calls `take` with each piece of `list`, untrimmed, the last one too.
template <typename Take>
void ForEachPiece(std::string_view list, std::string_view delimiter, Take take) {
  std::size_t begin = 0;
  std::size_t end = delimiter.empty() ? std::string_view::npos : list.find(delimiter);
  for (; end != std::string_view::npos; end = list.find(delimiter, begin)) {
    take(list.substr(begin, end - begin));
    begin = end + delimiter.size();
  }
  take(list.substr(begin));
}

std::vector<std::string> AllPieces(std::string_view list, std::string_view delimiter) {
  std::vector<std::string> pieces;
  ForEachPiece(list, delimiter, [&](std::string_view piece) { pieces.emplace_back(Trim(piece)); });
  return pieces;
}

}  // namespace

std::vector<std::string> cls_Strings::ListStrToArray(std::string_view list, std::string_view delimiter) {
  if (Trim(list).empty()) return {};
  std::vector<std::string> items = AllPieces(list, delimiter);
  if (items.back().empty()) items.pop_back();
  return items;
}

std::vector<std::vector<std::string>> cls_Strings::ListStrTo2DArray(std::string_view list,
                                                                    std::string_view rowDelimiter,
                                                                    std::string_view columnDelimiter) {
  if (Trim(list).empty()) return {};
  std::vector<std::vector<std::string>> rows;
  std::size_t widest = 0;
  ForEachPiece(list, rowDelimiter, [&](std::string_view row) {
    rows.push_back(AllPieces(row, columnDelimiter));
    widest = std::max(widest, rows.back().size());
  });
  if (widest > kMaxCells / rows.size()) return {};
  for (auto& row : rows) row.resize(widest);
  return rows;
}

std::int32_t cls_Strings::CountItems(std::string_view list, std::string_view delimiter) {
  if (Trim(list).empty()) return 0;
  std::int32_t count = 0;
  bool lastIsEmpty = false;
  ForEachPiece(list, delimiter, [&](std::string_view piece) {
    ++count;
    lastIsEmpty = Trim(piece).empty();
  });
  return lastIsEmpty ? count - 1 : count;
}

std::int32_t cls_Strings::FindDelimiter(std::string_view list, std::string_view delimiter, std::int32_t start) {
  if (delimiter.empty()) return 0;
  const std::size_t found = list.find(delimiter, static_cast<std::size_t>(std::max(start, 1) - 1));
  return found == std::string_view::npos ? 0 : static_cast<std::int32_t>(found + 1);
}

}  // namespace TesselServer
