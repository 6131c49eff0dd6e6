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

// No file has a name that long: what follows makes no difference.
constexpr std::size_t kMaxWritten = 16'384;

// The name below the root that a directive means.
std::string NameBelowRoot(const cls_HTTP& record, bool fromRoot, std::string_view written) {
  std::string name(written.substr(0, kMaxWritten));
  if (fromRoot) name = ReplaceAll(ReplaceAll(name, "../", ""), "./", "");
  if (name.starts_with('/')) name.erase(0, 1);
  name = Trim(name);
  if (name.empty() || fromRoot) return name;
  return std::string(FolderOf(record.DocumentName())) + name;
}

Task<void> IncludeAll(cls_HTTP& record, Page& page) {
  Pace pace(record.Turns());
  for (const TagKind kind : {TagKind::kIncludeFile, TagKind::kIncludeVirtual, TagKind::kInclude}) {
    if (!page.Holds(kind) || record.VirtualPath().empty() || record.DocumentName().empty()) continue;
    TagReplacement tags(page, {OpenerOf(kind), "", "--"});
    for (auto found = tags.Search(); found != TagReplacement::Found::kNone; found = tags.Search()) {
      if (pace.IsOver(tags.TakeWork())) {
        auto next = pace.Next();
        co_await next;
      }
      if (found == TagReplacement::Found::kNotYet) continue;
      std::string name;
      if (!tags.IsKnown()) name = NameBelowRoot(record, kind != TagKind::kIncludeFile, tags.Content());
      if (!name.empty()) {
        cls_HTTP::Inclusion inclusion = record.Include(std::move(name));
        if (inclusion.isPending) {
          auto making = record.IncludedText(inclusion);
          inclusion.text = co_await making;
        }
        tags.Value(std::move(inclusion.text));
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
