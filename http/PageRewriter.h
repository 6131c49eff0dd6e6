// One pass over a page that replaces tags: finds them in the author's text, and leaves everything else as it is.
//
// Thread:    any.
// Ownership: borrows the page until it is destroyed; what the page holds until then is not defined.
// Errors:    none but those of memory running out. An exception that ends the pass early loses nothing: what was
//            replaced stays replaced, and the rest of the page follows unchanged.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "http/Page.h"

namespace TesselServer {

//   PageRewriter pass(page);
//   while (pass.Find("<!--#echovar=", "-->")) pass.Replace(ValueOf(pass.Content()));
//
// The pass goes forward only, so it costs one walk over the page however many tags there are. One that replaces
// nothing asks for no memory and leaves the page as it is.
class PageRewriter {
 public:
  explicit PageRewriter(Page& page);
  PageRewriter(const PageRewriter&) = delete;
  PageRewriter& operator=(const PageRewriter&) = delete;
  ~PageRewriter();

  // Goes to the next tag: `opener`, ASCII letters being equal in either case, then `end` byte for byte. Both must be
  // in the author's text, each undivided; what processors have put in between them is part of the tag's content. False
  // when there is no such tag: the pass is over then.
  bool Find(std::string_view opener, std::string_view end);

  // Of the tag found last, until the next call of Find, Replace or Keep: its opener as the author wrote it, and the
  // text between opener and end.
  std::string_view Opener() const;
  std::string_view Content() const { return content_; }

  // Whether the content begins or ends with `text`, all of it in the author's own writing; its begin in any case.
  bool ContentBeginsWith(std::string_view text) const;
  bool ContentEndsWith(std::string_view text) const;

  // Puts `text` in the place of the tag found last. Where the page has no room for it the tag stays.
  void Replace(Page::SharedText text);

  // Leaves the tag found last as it is.
  void Keep();

 private:
  struct Place {
    std::size_t piece = 0;
    std::size_t offset = 0;
  };

  const std::vector<Page::Piece>& Pieces() const { return begun_ ? old_ : page_.pieces_; }
  bool FindAuthor(std::string_view needle, Place from, bool anyCase, Place& found) const;
  void CollectContent();
  void Begin();
  void ReserveForRest();
  void CopyUntil(Place end);
  void Append(const Page::Piece& piece);

  Page& page_;
  bool begun_ = false;            // whether anything was replaced
  std::vector<Page::Piece> old_;  // the page's pieces as they were, once the pass has begun; the page has the new ones
  Place next_;                    // where the search goes on
  Place copied_;                  // everything in front of it is in the page already, once the pass has begun
  Place tag_;
  Place contentBegin_;
  Place contentEnd_;
  Place tagEnd_;
  std::string_view content_;
  std::string joined_;  // what content_ looks into when it spans pieces
};

}  // namespace TesselServer
