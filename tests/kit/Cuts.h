// All the ways of cutting a text that a reader of pieces is tried with.
#pragma once

#include <string_view>
#include <vector>

namespace TesselServer::Kit {

using Pieces = std::vector<std::string_view>;

// One byte a piece.
inline Pieces ByteByByte(std::string_view text) {
  Pieces pieces;
  for (std::size_t i = 0; i < text.size(); ++i) pieces.push_back(text.substr(i, 1));
  return pieces;
}

// Whole, byte by byte, and in two pieces at every position. The pieces look into `text`.
inline std::vector<Pieces> AllCuts(std::string_view text) {
  std::vector<Pieces> cuts = {{text}, ByteByByte(text)};
  for (std::size_t i = 1; i < text.size(); ++i) cuts.push_back({text.substr(0, i), text.substr(i)});
  return cuts;
}

}  // namespace TesselServer::Kit
