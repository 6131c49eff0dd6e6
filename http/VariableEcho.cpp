#include "http/VariableEcho.h"

#include <string>
#include <string_view>

#include "http/Pace.h"
#include "http/PageRewriter.h"
#include "http/TagSearch.h"
#include "http/ValueMap.h"
#include "http/cls_HTTP.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::string_view kRemoteHost = "REMOTE_HOST";
constexpr std::size_t kMaxVariableName = 64;  // there is none of a name that long

constexpr std::size_t kWorkOfAnEcho = 1024;  // to make one, or to find out that there is none; see Pace

struct EchoTag {
  std::string_view opener;
  std::string_view end;
  bool isQueryItem = false;  // and its opener is written exactly so
  bool isPlain = false;      // and may be a function's
};
constexpr EchoTag kEchoTags[] = {
    {"<!--#echovar=", "-->"},
    {"<%=Request.ServerVariables(", ")%>"},
    {"<%=Request.QueryString(", ")%>", true, false},
    {"<%=", "%>", false, true},
};

std::string QueryItem(std::string_view query, std::string_view name) {
  if (Trim(name).empty()) return {};
  const std::size_t found = FindNoCase(query, name);
  if (found == std::string_view::npos) return {};
  const std::size_t begin = found + name.size() + 1;
  if (begin >= query.size()) return {};
  return std::string(query.substr(begin, query.find('&', begin) - begin));
}

// Whether it shows nothing, which its length says.
bool IsTooLong(const cls_HTTP& record, const EchoTag& tag, const PageRewriter& pass) {
  return pass.ContentHas((tag.isQueryItem ? record.Request().QueryString.size() : kMaxVariableName) + 1);
}

bool AwaitsName(const cls_HTTP& record, const EchoTag& tag, std::string_view name) {
  return !tag.isQueryItem && name == kRemoteHost && record.AwaitsRemoteHost();
}

std::string ValueOf(cls_HTTP& record, const EchoTag& tag, std::string_view name) {
  return tag.isQueryItem ? QueryItem(record.Request().QueryString, name) : record.ServerVariable(name);
}

Task<void> EchoKind(cls_HTTP& record, Page& page, const EchoTag& tag, ValueMap& values) {
  Pace pace(record.Turns());
  PageRewriter pass(page);
  for (auto found = pass.Search(tag.opener, tag.end); found != PageRewriter::Found::kNone;
       found = pass.Search(tag.opener, tag.end)) {
    if (pace.IsOver(pass.TakeWork())) {
      auto next = pace.Next();
      co_await next;
    }
    if (found == PageRewriter::Found::kNotYet) continue;
    if (tag.isPlain && pass.ContentBeginsWith("Function")) break;
    if (tag.isQueryItem && pass.Opener() != tag.opener) {
      pass.Keep();
      continue;
    }
    if (IsTooLong(record, tag, pass)) {
      pass.ReplaceByKept("");
      continue;
    }
    const auto [value, isNew] = values.Find(pass.Content());
    if (isNew && AwaitsName(record, tag, pass.Content())) {
      auto name = record.FindRemoteHost();
      co_await name;
    }
    if (isNew) *value = page.Keep(ValueOf(record, tag, pass.Content()));
    if (isNew) pass.AddWork(kWorkOfAnEcho);
    pass.ReplaceByKept(**value);
  }
}

Task<void> EchoAllKinds(cls_HTTP& record, Page& page) {
  ValueMap variables;
  ValueMap items;
  for (const EchoTag& tag : kEchoTags) {
    const bool isDirective = tag.opener.starts_with(kDirectiveStart);
    if (!(isDirective ? page.HoldsDirectives() : page.HoldsScripts())) continue;
    auto echo = EchoKind(record, page, tag, tag.isQueryItem ? items : variables);
    co_await echo;
  }
}

}  // namespace

Task<void> EchoVariables(cls_HTTP& record, Page& page) { return EchoAllKinds(record, page); }

}  // namespace TesselServer
