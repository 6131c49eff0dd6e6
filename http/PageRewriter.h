// One pass over a page that replaces tags: finds them in the author's text, and leaves everything else as it is.
//
// Thread:    any.
// Ownership: borrows the page until it is destroyed; what pieces the page has until then is not defined.
// Errors:    none but those of memory running out. An exception that ends the pass early loses nothing: what was
//            replaced stays replaced, and the rest of the page follows unchanged.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "http/Page.h"
#include "http/TagSearch.h"

namespace TesselServer {

//   PageRewriter pass(page);
//   while (pass.Find("<!--#echovar=", "-->")) pass.Replace(ValueOf(pass.Content()));
//
// The pass goes forward only, so it costs one walk over the page however many tags there are. One that replaces
// nothing asks for no memory and leaves the page as it is. Leaving it early is short whatever the page: what follows is
// taken over in whole chunks.
class PageRewriter {
 public:
  // `window`: how many bytes one step of the search looks at, at least 1.
  explicit PageRewriter(Page& page, std::size_t window = kSearchWindow) : page_(page), window_(window) {}
  PageRewriter(const PageRewriter&) = delete;
  PageRewriter& operator=(const PageRewriter&) = delete;
  ~PageRewriter();

  // Goes to the next tag: `opener`, ASCII letters being equal in either case, then `end` byte for byte. Both must be
  // in the author's text, each undivided; what processors have put in between them is part of the tag's content. False
  // when there is no such tag: the pass is over then.
  bool Find(std::string_view opener, std::string_view end);

  // The same in steps: kNotYet when another one is needed, with the same arguments.
  enum class Found { kTag, kNone, kNotYet };
  Found Search(std::string_view opener, std::string_view end);

  // How much work there was since the last call; see Pace. What takes long beside the pass may be added to it.
  std::size_t TakeWork() { return std::exchange(work_, 0); }
  void AddWork(std::size_t steps) { work_ += steps; }

  // Of the tag found last, until the next call of Find, Search, Replace or Keep: its opener as the author wrote it, and
  // the text between opener and end.
  std::string_view Opener() const;
  std::string_view Content() const { return content_; }

  // Whether the content begins or ends with `text`, all of it in the author's own writing; its begin in any case.
  bool ContentBeginsWith(std::string_view text) const;
  bool ContentEndsWith(std::string_view text) const;

  // Puts `text` in the place of the tag found last. Where the page has no room for it the tag stays. The page keeps a
  // shared text; any other is one that it keeps already.
  void Replace(Page::SharedText text);
  void ReplaceByKept(std::string_view text);

  // Leaves the tag found last as it is.
  void Keep() { at_ = tagEnd_; }

 private:
  struct Place {
    std::size_t chunk = 0;
    std::size_t piece = 0;
    std::size_t offset = 0;
  };

  const std::vector<PieceList::Chunk>& Chunks() const { return begun_ ? old_.Chunks() : page_.pieces_.Chunks(); }
  std::string_view TextAt(const Place& place) const { return Chunks()[place.chunk][place.piece].text; }
  enum class Phase { kOpener, kEnd, kContent, kOver };

  bool ContentIsInOnePiece() const {
    return contentBegin_.chunk == contentEnd_.chunk && contentBegin_.piece == contentEnd_.piece;
  }
  Place NextPiece(const Place& place) const {
    if (place.piece + 1 < Chunks()[place.chunk].size()) return {place.chunk, place.piece + 1, 0};
    return {place.chunk + 1, 0, 0};
  }
  Found Seek(std::string_view needle, bool isOpener, Place& found);
  void BeginContent(std::string_view opener);
  void EndContent(std::string_view end);
  void JoinContent();
  void UseContent(std::string_view content);
  void PrepareToReplace();
  void CopyUntil(const Place& end);
  void TakeRestOfChunk() noexcept;

  Page& page_;
  std::size_t window_;
  std::size_t work_ = 0;
  Phase phase_ = Phase::kOpener;
  bool begun_ = false;  // whether anything was replaced
  PieceList old_;       // the page's pieces as they were, once the pass has begun; the page has the new ones
  Place at_;            // where the search goes on
  Place copied_;        // everything in front of it is in the page already, once the pass has begun
  Place tag_;
  Place contentBegin_;
  Place contentEnd_;
  Place tagEnd_;
  std::string_view content_;
  std::size_t contentSize_ = 0;  // as far as its end is searched for
  std::string joined_;           // what content_ looks into when it spans pieces
};

}  // namespace TesselServer
