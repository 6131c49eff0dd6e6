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
  if (isKeyed_) {
    const Found found = pass_.Search(form_.opener, ">");
    if (found != Found::kTag) return found;
    if (pass_.Content().size() > kMaxContentBytes || !IsOfTheForm()) {
      pass_.Keep();
      return Found::kNotYet;
    }
    content_ = pass_.Content();
    content_.remove_prefix(form_.begin.size());
    content_.remove_suffix(form_.end.size());
    key_.clear();
  }
  isKeyed_ = ExtendKey();
  if (!isKeyed_) return Found::kNotYet;
  const auto [value, isNew] = page_.FindValue(values_, key_);
  isKnown_ = !isNew;
  value_ = value;
  pass_.AddWork(kWorkOfAValue);
  return Found::kTag;
}

// By a window at most. Whether it is the whole key then.
bool TagReplacement::ExtendKey() {
  const std::string_view part = content_.substr(key_.size(), kSearchWindow);
  key_.reserve(content_.size());
  key_ += Lower(part);
  pass_.AddWork(part.size());
  return key_.size() == content_.size();
}

bool TagReplacement::IsOfTheForm() const {
  return pass_.Content().size() >= form_.begin.size() + form_.end.size() && pass_.ContentBeginsWith(form_.begin) &&
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
