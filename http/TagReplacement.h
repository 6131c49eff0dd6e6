// The walk that the processors of includes, programs and functions have in common.
//
// Thread:    any.
// Ownership: borrows the page until it is destroyed; see PageRewriter, whose rules for exceptions hold here as well.
// Errors:    none but those of memory running out.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

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
  using Found = PageRewriter::Found;

  // A tag with a longer content stays: what a host, a program or a look-up gets is handed over in one go.
  static constexpr std::size_t kMaxContentBytes = 64 * 1024;

  TagReplacement(Page& page, const TagForm& form) : page_(page), pass_(page), form_(form) {}

  // Goes to the next tag of that form. False when there is none.
  bool Find();

  // The same in steps: kNotYet when another one is needed. How much work there was since the last call; see Pace.
  Found Search();
  std::size_t TakeWork() { return pass_.TakeWork(); }

  // Of the tag found last: the text between `begin` and `end`, and whether a tag before it had the same without regard
  // to case, so that its value is known.
  std::string_view Content() const { return content_; }
  bool IsKnown() const { return isKnown_; }

  // Of the tag found last, and of all those after it that are equal: what is put in their places; nothing: they stay.
  const PageTexts::Value& Value() const { return *value_; }
  void Value(std::string text);
  void Value(Page::SharedText text);  // null: nothing

  // Puts the value in the place of the tag found last; it stays where there is no value or no room.
  void Replace() { *value_ ? pass_.ReplaceByKept(**value_) : pass_.Keep(); }
  void Keep() { pass_.Keep(); }

 private:
  bool IsOfTheForm() const;
  bool ExtendKey();

  Page& page_;
  PageRewriter pass_;
  TagForm form_;
  PageTexts::Values* values_ = nullptr;  // by content in lower case
  std::string_view content_;
  std::string key_;  // of the tag found last, as far as it is there
  bool isKeyed_ = true;
  bool isKnown_ = false;
  PageTexts::Value* value_ = nullptr;
};

}  // namespace TesselServer
