#include "http/HTMLFunctions.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "http/TagReplacement.h"
#include "http/cls_HTTP.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

// The text after the first "(", up to the last ")".
std::string Arguments(std::string_view call) {
  const std::size_t open = call.find('(');
  if (open == std::string_view::npos) return {};
  const std::string_view behind = call.substr(open + 1);
  return std::string(behind.substr(0, behind.rfind(')')));
}

// `call` is the text of the tag after the word "Function": a name, and arguments in parentheses.
Page::SharedText AnswerOf(const cls_HTTP& record, std::string_view call) {
  static const auto none = std::make_shared<const std::string>();
  ParentControl* const control = record.ParentControl();
  if (control == nullptr) return none;
  const std::int16_t index = record.ConnectionIndex();
  const std::string name(Trim(call.substr(0, call.find('('))));
  auto answer = control->RaiseCallFunction(index, name, "", Arguments(call));
  return answer && control->FunctionWasAnswered(index) ? answer : none;
}

class FunctionPass final : public PageProcessor {
 public:
  FunctionPass(cls_HTTP& record, Page& page)
      : record_(record), search_(record.Turns()), tags_(page, {"<%=", "Function", "%"}) {}

  Task<void> Go() override {
    Task<void> wait;
    while (search_.Find(tags_, wait, [this] { return tags_.Search(); })) {
      if (!tags_.IsKnown()) Take(AnswerOf(record_, tags_.Content()));
      tags_.Replace();
    }
    return wait;
  }

 private:
  // Short ones are copied: a page may have thousands, which would be dropped one by one.
  void Take(Page::SharedText answer) {
    answer->size() > PageTexts::kMaxSmallBytes ? tags_.Value(std::move(answer)) : tags_.Value(std::string(*answer));
  }

  cls_HTTP& record_;
  PacedSearch search_;
  TagReplacement tags_;
};

}  // namespace

std::unique_ptr<PageProcessor> FunctionProcessor(cls_HTTP& record, Page& page) {
  return std::make_unique<FunctionPass>(record, page);
}

Task<void> ReplaceFunctionTags(cls_HTTP& record, Page& page) { return RunToEnd(FunctionProcessor(record, page)); }

}  // namespace TesselServer
