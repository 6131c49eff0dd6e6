// The walk that the processors of includes, programs and functions have in common.
//
// Thread:    any.
// Errors:    what `valueOf` raises; the tags replaced before it stay replaced.
#pragma once

#include <functional>
#include <string_view>

#include "http/Page.h"

namespace TesselServer {

// A tag that ends at the first ">" after its opener. It is one only when the author wrote `begin` (any case) right
// after the opener and `end` right before the ">".
struct TagForm {
  std::string_view opener;
  std::string_view begin;
  std::string_view end;
};

// Replaces each tag of that form by `valueOf` of the text between `begin` and `end`, which is called once for all
// that are equal without regard to case. A tag stays when its value is null, or when `admit`, asked for each tag,
// refuses it.
void ReplaceTags(Page& page, const TagForm& form, const std::function<Page::SharedText(std::string_view)>& valueOf,
                 const std::function<bool(const std::string&)>& admit = nullptr);

}  // namespace TesselServer
