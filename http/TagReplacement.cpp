#include "http/TagReplacement.h"

#include <map>
#include <string>

#include "http/PageRewriter.h"
#include "support/Text.h"

namespace TesselServer {

void ReplaceTags(Page& page, const TagForm& form, const std::function<Page::SharedText(std::string_view)>& valueOf,
                 const std::function<bool(const std::string&)>& admit) {
  std::map<std::string, Page::SharedText> values;  // by content in lower case
  PageRewriter pass(page);
  while (pass.Find(form.opener, ">")) {
    std::string_view content = pass.Content();
    if (content.size() < form.begin.size() + form.end.size() || !pass.ContentBeginsWith(form.begin) ||
        !pass.ContentEndsWith(form.end)) {
      pass.Keep();
      continue;
    }
    content.remove_prefix(form.begin.size());
    content.remove_suffix(form.end.size());
    const auto [known, isNew] = values.try_emplace(Lower(content));
    if (isNew) known->second = valueOf(content);
    if (known->second && (!admit || admit(*known->second))) {
      pass.Replace(known->second);
    } else {
      pass.Keep();
    }
  }
}

}  // namespace TesselServer
