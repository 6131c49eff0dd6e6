#include "http/FileInclusion.h"

#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

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

constexpr TagKind kIncludeTags[] = {TagKind::kIncludeFile, TagKind::kIncludeVirtual, TagKind::kInclude};

class IncludePass final : public PageProcessor {
 public:
  IncludePass(cls_HTTP& record, Page& page) : record_(record), page_(page), search_(record.Turns()) {}

  Task<void> Go() override {
    if (std::exchange(inclusion_.isPending, false)) Put();
    for (; kind_ != std::end(kIncludeTags); ++kind_, tags_.reset()) {
      if (!tags_ && !Begin()) continue;
      if (Task<void> wait = ReplaceAll()) return wait;
    }
    return {};
  }

 private:
  bool Begin() {
    if (!page_.Holds(*kind_) || record_.VirtualPath().empty() || record_.DocumentName().empty()) return false;
    tags_.emplace(page_, TagForm{OpenerOf(*kind_), "", "--"});
    return true;
  }

  // All tags of one kind.
  Task<void> ReplaceAll() {
    Task<void> wait;
    while (!wait && search_.Find(*tags_, wait, [this] { return tags_->Search(); })) wait = Replace();
    return wait;
  }

  Task<void> Replace() {
    std::string name;
    if (!tags_->IsKnown()) name = NameBelowRoot(record_, *kind_ != TagKind::kIncludeFile, tags_->Content());
    if (!name.empty()) {
      cls_HTTP::Inclusion inclusion = record_.Include(std::move(name));
      if (inclusion.isPending) {
        inclusion_ = std::move(inclusion);
        return record_.FinishInclusion(inclusion_);
      }
      tags_->Value(std::move(inclusion.text));
    }
    PutValue();
    return {};
  }

  void Put() {
    tags_->Value(std::move(inclusion_.text));
    inclusion_ = {};  // its file is open no longer
    PutValue();
  }

  void PutValue() {
    if (tags_->Value() && record_.TakeIncludeRoom(tags_->Value()->size())) {
      tags_->Replace();
    } else {
      tags_->Keep();
    }
  }

  cls_HTTP& record_;
  Page& page_;
  PacedSearch search_;
  const TagKind* kind_ = std::begin(kIncludeTags);
  std::optional<TagReplacement> tags_;
  cls_HTTP::Inclusion inclusion_;  // that of the tag found last, while it is waited for
};

}  // namespace

std::unique_ptr<PageProcessor> IncludeProcessor(cls_HTTP& record, Page& page) {
  return std::make_unique<IncludePass>(record, page);
}

Task<void> IncludeFiles(cls_HTTP& record, Page& page) { return RunToEnd(IncludeProcessor(record, page)); }

}  // namespace TesselServer
