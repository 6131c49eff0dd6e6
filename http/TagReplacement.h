// The walk that the processors of includes, programs and functions have in common.
//
// Thread:    any.
// Ownership: borrows the page until it is destroyed; see PageRewriter, whose rules for exceptions hold here as well.
// Errors:    none but those of memory running out.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "http/Page.h"
#include "http/PageRewriter.h"

namespace TesselServer {

// A tag that ends at the first ">" after its opener. It is one only when the author wrote `begin` (any case) right
// after the opener and `end` right before the ">".
struct TagForm {
  std::string_view opener;
  std::string_view begin;
  std::string_view end;
};

//   TagReplacement tags(page, {"<%=", "Function", "%"});
//   while (tags.Find()) {
//     if (!tags.IsKnown()) tags.Value(ValueOf(tags.Content()));
//     tags.Replace();
//   }
class TagReplacement {
 public:
  TagReplacement(Page& page, const TagForm& form) : pass_(page), form_(form) {}

  // Goes to the next tag of that form. False when there is none.
  bool Find();

  // Of the tag found last: the text between `begin` and `end`, and whether a tag before it had the same without regard
  // to case, so that its value is known.
  std::string_view Content() const { return content_; }
  bool IsKnown() const { return isKnown_; }

  // Of the tag found last, and of all those after it that are equal: what is put in their places; null: they stay.
  const Page::SharedText& Value() const { return *value_; }
  void Value(Page::SharedText text) { *value_ = std::move(text); }

  // Puts the value in the place of the tag found last; it stays where there is no value or no room.
  void Replace() { *value_ ? pass_.Replace(*value_) : pass_.Keep(); }
  void Keep() { pass_.Keep(); }

 private:
  bool IsOfTheForm() const;

  PageRewriter pass_;
  TagForm form_;
  std::map<std::string, Page::SharedText> values_;  // by content in lower case
  std::string_view content_;
  bool isKnown_ = false;
  Page::SharedText* value_ = nullptr;
};

}  // namespace TesselServer
