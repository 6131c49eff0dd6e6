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
  std::string_view Content();
  bool ContentHas(std::size_t size) const;  // whether it has so many bytes or more

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
  bool ContentIsInOnePiece() const;
  Place NextPiece(const Place& place) const;
  Found Seek(std::string_view needle, bool isOpener, Place& found);
  void JoinContent();
  void PrepareToReplace();
  void CopyUntil(const Place& end);
  void TakeRestOfChunk() noexcept;

  Page& page_;
  std::size_t window_;
  std::size_t work_ = 0;
  bool isInTag_ = false;  // the opener is found, the end is searched for
  bool isOver_ = false;
  bool isJoined_ = false;  // whether joined_ is the content of the tag found last
  bool begun_ = false;     // whether anything was replaced
  PieceList old_;          // the page's pieces as they were, once the pass has begun; the page has the new ones
  Place at_;               // where the search goes on
  Place copied_;           // everything in front of it is in the page already, once the pass has begun
  Place tag_;
  Place contentBegin_;
  Place contentEnd_;
  Place tagEnd_;
  std::string joined_;  // a content that spans pieces
};

}  // namespace TesselServer
