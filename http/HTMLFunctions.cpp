#include "http/HTMLFunctions.h"

#include <string>
#include <string_view>

#include "http/Pace.h"
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
std::string AnswerOf(const cls_HTTP& record, std::string_view call) {
  ParentControl* const control = record.ParentControl();
  if (control == nullptr) return {};
  const std::int16_t index = record.ConnectionIndex();
  const std::string name(Trim(call.substr(0, call.find('('))));
  std::string answer = control->RaiseCallFunction(index, name, "", Arguments(call));
  return control->FunctionWasAnswered(index) ? answer : std::string();
}

}  // namespace

Task<void> ReplaceFunctionTags(cls_HTTP& record, Page& page) {
  if (!page.Holds(TagKind::kFunction)) co_return;
  Pace pace(record.Turns());
  TagReplacement tags(page, {"<%=", "Function", "%"});
  for (auto found = tags.Search(); found != TagReplacement::Found::kNone; found = tags.Search()) {
    if (pace.IsOver(tags.TakeWork())) {
      auto next = pace.Next();
      co_await next;
    }
    if (found == TagReplacement::Found::kNotYet) continue;
    if (!tags.IsKnown()) tags.Value(AnswerOf(record, tags.Content()));
    tags.Replace();
  }
}

}  // namespace TesselServer
