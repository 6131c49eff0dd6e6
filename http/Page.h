// A page under processing: a sequence of pieces, each the author's text or text that a processor has put in.
//
// Thread:    any; a value that can be moved, not copied.
// Ownership: keeps the texts that its pieces look into, the author's included, which never moves. A text that is in the
//            page many times is kept once.
// Errors:    none.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "http/PageTexts.h"
#include "http/PieceList.h"
#include "http/TagSearch.h"

namespace TesselServer {

// Processors look for tags in author pieces only, so what an echo, an include, a program or the host has put in is
// never scanned again. They do it through PageRewriter.
class Page {
 public:
  // What may be put into one page; the replacement that would pass it is not made. Without a bound a page with a
  // thousand echoes would turn one long header of a client into gigabytes.
  static constexpr std::size_t kMaxInsertedBytes = 64 * 1024 * 1024;

  // How many pieces a page may come apart into; a tag beyond it stays. A page of millions of tags would cost many times
  // its size otherwise.
  static constexpr std::size_t kMaxPieces = 1'000'000;

  using SharedText = std::shared_ptr<const std::string>;

  using Source = PieceSource;
  using Piece = PagePiece;

  Page() = default;
  explicit Page(SharedText authorText);
  explicit Page(std::string authorText) : Page(std::make_shared<const std::string>(std::move(authorText))) {}
  // Where it is known already which tags that text holds.
  Page(SharedText authorText, const TagKinds& kinds);
  Page(Page&&) = default;
  Page& operator=(Page&&) = default;
  Page(const Page&) = delete;
  Page& operator=(const Page&) = delete;

  const PieceList& Pieces() const { return pieces_; }

  // Which tags begin anywhere in the author's text. What has been put in does not count, and a tag
  // that has been replaced still does: a processor need not look at a page without its kind of tag.
  const TagKinds& Kinds() const { return kinds_; }
  bool Holds(TagKind kind) const { return kinds_.Has(kind); }
  bool HoldsDirectives() const { return Holds(TagKind::kDirective); }
  bool HoldsScripts() const { return Holds(TagKind::kScript); }

  // Whether `size` more bytes may be put in.
  bool HasRoomFor(std::size_t size) const { return size <= kMaxInsertedBytes - insertedBytes_; }

  // Adds `text` at the end, without copying it; "" adds nothing. False, and nothing is added, when HasRoomFor its size
  // is False or the page has kMaxPieces pieces.
  bool AppendInserted(SharedText text);

  // Keeps a text that may be put in many times, and says where it stays.
  template <typename Text>
  std::string_view Keep(Text text) {
    return texts_.Keep(std::move(text));
  }

  // The place of the value that a tag of the page has, see PageTexts::Find.
  auto FindValue(PageTexts::Values*& values, std::string_view key) { return texts_.Find(values, key); }

  // From here on what is put in is only taken as `mayGrow` allows: it is asked from time to time, with the bytes that
  // came since.
  void MayGrow(std::function<bool(std::size_t bytes)> mayGrow) { mayGrow_ = std::move(mayGrow); }

  // AppendInserted for a text that the page keeps.
  bool AppendKept(std::string_view text);

  // How long it has become, up to the length of the author's text and what was put in.
  std::size_t MaxSize() const { return (authorText_ ? authorText_->size() : 0) + insertedBytes_; }

  // The author's text when it is all that there is; null otherwise.
  SharedText Unchanged() const;

  // All pieces joined.
  std::string Text() const;

  // The same, without a copy when the page is the author's text still.
  SharedText Result() const;

 private:
  friend class PageRewriter;

  static constexpr std::size_t kAskedBytes = 64 * 1024;

  bool Takes(std::size_t size) { return HasRoomFor(size) && pieces_.size() < kMaxPieces && MayGrow(size); }
  bool MayGrow(std::size_t size);

  PieceList pieces_;
  SharedText authorText_;  // what the author's pieces look into
  PageTexts texts_;        // what the others look into
  TagKinds kinds_;
  std::size_t insertedBytes_ = 0;
  std::function<bool(std::size_t bytes)> mayGrow_;
  std::size_t unaskedBytes_ = 0;
};

}  // namespace TesselServer
