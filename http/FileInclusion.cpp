#include "http/FileInclusion.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

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

void Include(cls_HTTP& record, Page& page, std::string_view opener, bool fromRoot) {
  const auto textOf = [&](std::string_view written) -> Page::SharedText {
    const std::string name = NameBelowRoot(record, fromRoot, written);
    return name.empty() ? nullptr : record.IncludedText(name);
  };
  ReplaceTags(page, {opener, "", "--"}, textOf,
              [&record](const std::string& text) { return record.TakeIncludeRoom(text.size()); });
}

}  // namespace

void IncludeFiles(cls_HTTP& record, Page& page) {
  if (!page.HoldsDirectives() || record.VirtualPath().empty() || record.DocumentName().empty()) return;
  Include(record, page, "<!--#includefile=", false);
  Include(record, page, "<!--#includevirtual=", true);
  Include(record, page, "<!--#include=", true);
}

}  // namespace TesselServer
