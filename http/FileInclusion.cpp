#include "http/FileInclusion.h"

#include <string>
#include <string_view>
#include <utility>

#include "http/Pace.h"
#include "http/TagReplacement.h"
#include "http/cls_HTTP.h"
#include "support/PathText.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

// The name below the root that a directive means.
std::string NameBelowRoot(const cls_HTTP& record, bool fromRoot, std::string_view written) {
  std::string name(written);
  if (fromRoot) name = ReplaceAll(ReplaceAll(name, "../", ""), "./", "");
  if (name.starts_with('/')) name.erase(0, 1);
  name = Trim(name);
  if (name.empty() || fromRoot) return name;
  return std::string(FolderOf(record.DocumentName())) + name;
}

struct Directive {
  std::string_view opener;
  bool fromRoot;
};
constexpr Directive kDirectives[] = {
    {"<!--#includefile=", false}, {"<!--#includevirtual=", true}, {"<!--#include=", true}};

Task<void> IncludeAll(cls_HTTP& record, Page& page) {
  if (!page.HoldsDirectives() || record.VirtualPath().empty() || record.DocumentName().empty()) co_return;
  Pace pace(record.Turns());
  for (const Directive& directive : kDirectives) {
    TagReplacement tags(page, {directive.opener, "", "--"});
    for (auto found = tags.Search(); found != TagReplacement::Found::kNone; found = tags.Search()) {
      if (pace.IsOver(tags.TakeWork())) {
        auto next = pace.Next();
        co_await next;
      }
      if (found == TagReplacement::Found::kNotYet) continue;
      std::string name;
      if (!tags.IsKnown()) name = NameBelowRoot(record, directive.fromRoot, tags.Content());
      if (!name.empty()) {
        auto text = record.IncludedText(std::move(name));
        tags.Value(co_await text);
      }
      if (tags.Value() && record.TakeIncludeRoom(tags.Value()->size())) {
        tags.Replace();
      } else {
        tags.Keep();
      }
    }
  }
}

}  // namespace

Task<void> IncludeFiles(cls_HTTP& record, Page& page) { return IncludeAll(record, page); }

}  // namespace TesselServer
