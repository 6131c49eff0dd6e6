#include "http/TagReplacement.h"

#include "support/Text.h"

namespace TesselServer {

bool TagReplacement::Find() {
  while (pass_.Find(form_.opener, ">")) {
    if (!IsOfTheForm()) {
      pass_.Keep();
      continue;
    }
    content_ = pass_.Content();
    content_.remove_prefix(form_.begin.size());
    content_.remove_suffix(form_.end.size());
    const auto [known, isNew] = values_.try_emplace(Lower(content_));
    isKnown_ = !isNew;
    value_ = &known->second;
    return true;
  }
  return false;
}

bool TagReplacement::IsOfTheForm() const {
  return pass_.Content().size() >= form_.begin.size() + form_.end.size() && pass_.ContentBeginsWith(form_.begin) &&
         pass_.ContentEndsWith(form_.end);
}

}  // namespace TesselServer
