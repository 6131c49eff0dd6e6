#include "http/modern/ListingRows.h"

#include <algorithm>
#include <utility>

#include "platform/loop/LongMemory.h"

namespace TesselServer::Modern {

ListingRows::~ListingRows() {
  GiveBackPieces(names_);
  GiveBackPieces(rows_);
  std::vector<std::vector<Number>> numbers;
  numbers.push_back(std::move(sorted_));
  GiveBackPieces(numbers);
}

bool ListingRows::Add(const ListedEntry& entry) {
  if (count_ == kMost) return false;
  const std::uint32_t nameAt = AddName(entry.name);
  if (rows_.empty() || rows_.back().size() == kRowsOfPiece) rows_.emplace_back();
  rows_.back().push_back(
      {entry.size, entry.modified, nameAt, static_cast<std::uint8_t>(entry.name.size()), entry.isFolder});
  ++count_;
  return true;
}

// A name lies in one piece.
std::uint32_t ListingRows::AddName(std::string_view name) {
  if (names_.empty() || names_.back().size() + name.size() > kNamesOfPiece) names_.emplace_back();
  const std::size_t at = (names_.size() - 1) * kNamesOfPiece + names_.back().size();
  names_.back() += name;
  nameBytes_ += name.size();
  return static_cast<std::uint32_t>(at);
}

std::size_t ListingRows::Bytes() const {
  const std::size_t lastNames = names_.empty() ? 0 : names_.back().capacity();
  const std::size_t lastRows = rows_.empty() ? 0 : rows_.back().capacity() * sizeof(Row);
  const std::size_t fullNames = names_.size() <= 1 ? 0 : (names_.size() - 1) * kNamesOfPiece;
  const std::size_t fullRows = rows_.size() <= 1 ? 0 : (rows_.size() - 1) * kRowsOfPiece * sizeof(Row);
  return fullNames + lastNames + fullRows + lastRows + 2 * count_ * sizeof(Number);
}

bool ListingRows::SortSome(const ListingOrder& order) {
  if (isSorted_ || count_ == 0) return true;
  if (!sorting_) {
    NumberSome();
    return false;
  }
  isSorted_ = sorting_->Step([this, &order](Number a, Number b) { return order.IsBefore(At(a), At(b)); });
  if (!isSorted_) return false;
  sorted_ = sorting_->Take();
  sorting_.reset();
  return true;
}

void ListingRows::NumberSome() {
  sorted_.reserve(count_);
  const std::size_t end = std::min(sorted_.size() + kNumbersAtOnce, count_);
  while (sorted_.size() < end) sorted_.push_back(static_cast<Number>(sorted_.size()));
  if (end == count_) sorting_ = std::make_unique<SortInSteps<Number>>(std::move(sorted_));
}

ListedEntry ListingRows::At(Number number) const {
  const Row& row = rows_[number / kRowsOfPiece][number % kRowsOfPiece];
  const std::string& names = names_[row.nameAt / kNamesOfPiece];
  return {std::string_view(names).substr(row.nameAt % kNamesOfPiece, row.nameBytes), row.isFolder, row.size,
          row.modified};
}

}  // namespace TesselServer::Modern
