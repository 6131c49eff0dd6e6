#include "http/VariableEcho.h"

#include <string>
#include <string_view>

#include "http/Pace.h"
#include "http/PageRewriter.h"
#include "http/TagSearch.h"
#include "http/cls_HTTP.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::string_view kRemoteHost = "REMOTE_HOST";
constexpr std::size_t kMaxVariableName = 64;  // there is none of a name that long

constexpr std::size_t kWorkOfAnEcho = 1024;  // to make one, or to find out that there is none; see Pace

struct EchoTag {
  TagKind kind;
  std::string_view opener;
  std::string_view end;
  bool isQueryItem = false;  // and its opener is written exactly so
  bool isPlain = false;      // and may be a function's
};
constexpr EchoTag kEchoTags[] = {
    {TagKind::kEcho, "<!--#echovar=", "-->"},
    {TagKind::kScript, "<%=Request.ServerVariables(", ")%>"},
    {TagKind::kScript, "<%=Request.QueryString(", ")%>", true, false},
    {TagKind::kScript, "<%=", "%>", false, true},
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
bool IsTooLong(const cls_HTTP& record, const EchoTag& tag, std::string_view name) {
  return name.size() > (tag.isQueryItem ? record.Request().QueryString.size() : kMaxVariableName);
}

bool AwaitsName(const cls_HTTP& record, const EchoTag& tag, std::string_view name) {
  return !tag.isQueryItem && name == kRemoteHost && record.AwaitsRemoteHost();
}

std::string ValueOf(cls_HTTP& record, const EchoTag& tag, std::string_view name) {
  return tag.isQueryItem ? QueryItem(record.Request().QueryString, name) : record.ServerVariable(name);
}

Task<void> EchoAll(cls_HTTP& record, Page& page) {
  Pace pace(record.Turns());
  PageTexts::Values* variables = nullptr;
  PageTexts::Values* items = nullptr;
  for (const EchoTag& tag : kEchoTags) {
    if (!page.Holds(tag.kind)) continue;
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
      if (IsTooLong(record, tag, pass.Content())) {
        pass.ReplaceByKept("");
        continue;
      }
      const auto [value, isNew] = page.FindValue(tag.isQueryItem ? items : variables, pass.Content());
      if (isNew && AwaitsName(record, tag, pass.Content())) {
        auto name = record.FindRemoteHost();
        co_await name;
      }
      if (isNew) *value = page.Keep(ValueOf(record, tag, pass.Content()));
      if (isNew) pass.AddWork(kWorkOfAnEcho);
      pass.ReplaceByKept(**value);
    }
  }
}

}  // namespace

Task<void> EchoVariables(cls_HTTP& record, Page& page) { return EchoAll(record, page); }

}  // namespace TesselServer
