#include "http/TagReplacement.h"

#include "http/Pace.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::size_t kWorkOfAValue = 256;  // to find it among those that are known

}  // namespace

bool TagReplacement::Find() {
  Found found = Found::kNotYet;
  while (found == Found::kNotYet) found = Search();
  return found == Found::kTag;
}

TagReplacement::Found TagReplacement::Search() {
  const Found found = pass_.Search(form_.opener, ">");
  if (found != Found::kTag) return found;
  if (!IsOfTheForm()) {
    pass_.Keep();
    return Found::kNotYet;
  }
  content_ = pass_.Content();
  content_.remove_prefix(form_.begin.size());
  content_.remove_suffix(form_.end.size());
  const auto [value, isNew] = values_.Find(Lower(content_));
  pass_.AddWork(kWorkOfAValue + content_.size());
  isKnown_ = !isNew;
  value_ = value;
  return found;
}

bool TagReplacement::IsOfTheForm() const {
  return pass_.ContentHas(form_.begin.size() + form_.end.size()) && pass_.ContentBeginsWith(form_.begin) &&
         pass_.ContentEndsWith(form_.end);
}

// What makes a value is no small work, whatever it is: the clock is looked at before the next one.

void TagReplacement::Value(std::string text) {
  *value_ = page_.Keep(std::move(text));
  pass_.AddWork(Pace::kSteps);
}

void TagReplacement::Value(Page::SharedText text) {
  if (text) *value_ = page_.Keep(std::move(text));
  pass_.AddWork(Pace::kSteps);
}

}  // namespace TesselServer
