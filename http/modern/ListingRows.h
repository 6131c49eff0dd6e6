// The entries of a folder of any size, as they are found, and then in the order of a listing. They lie in pieces, so
// that no step moves what was found before.
//
//   ListingRows rows;
//   while (...) rows.Add(entry);
//   while (!rows.SortSome(order)) DoOtherWork();
//   for (std::size_t i = 0; i < rows.Count(); ++i) Show(rows.Sorted(i));
//
// Thread:    one at a time; long memory is given back in turns where a loop's turn runs (LongMemory.h).
// Ownership: keeps its own copy of every name.
// Errors:    none but those of memory running out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "http/modern/ListingOrder.h"
#include "platform/files/SortInSteps.h"

namespace TesselServer::Modern {

class ListingRows {
 public:
  static constexpr std::size_t kMost = 500'000;  // entries; a page with more of them helps no one

  ListingRows() = default;
  ListingRows(const ListingRows&) = delete;
  ListingRows& operator=(const ListingRows&) = delete;
  ~ListingRows();

  // False, and it is left out, where there are kMost entries. Not once sorting has begun.
  bool Add(const ListedEntry& entry);

  std::size_t Count() const { return count_; }

  // Of memory, with what sorting takes.
  std::size_t Bytes() const;
  // What all names take.
  std::size_t NameBytes() const { return nameBytes_; }

  // Sorts a little further, some 50 us, by an order that is the same each time. Whether all are sorted.
  bool SortSome(const ListingOrder& order);

  // The entry at that place of the order, once all are sorted; its name is good as long as this.
  ListedEntry Sorted(std::size_t place) const { return At(sorted_[place]); }

 private:
  struct Row {
    std::int64_t size;
    std::int64_t modified;
    std::uint32_t nameAt;
    std::uint8_t nameBytes;
    bool isFolder;
  };
  using Number = std::uint32_t;  // of an entry, as it was found

  static constexpr std::uint32_t kNamesOfPiece = 64 * 1024;  // bytes
  static constexpr std::size_t kRowsOfPiece = 2048;
  static constexpr std::size_t kNumbersAtOnce = 8192;
  static_assert(kMost * 256 < UINT32_MAX);  // no name's place is beyond nameAt

  ListedEntry At(Number number) const;
  std::uint32_t AddName(std::string_view name);
  void NumberSome();

  std::vector<std::string> names_;
  std::vector<std::vector<Row>> rows_;
  std::size_t count_ = 0;
  std::size_t nameBytes_ = 0;
  std::vector<Number> sorted_;
  std::unique_ptr<SortInSteps<Number>> sorting_;  // once all are numbered, until they are sorted
  bool isSorted_ = false;
};

}  // namespace TesselServer::Modern
