#include "http/VariableEcho.h"

#include <iterator>
#include <optional>
#include <string>
#include <string_view>

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

// Of the value; each byte of the query was looked at.
std::size_t WorkOf(const cls_HTTP& record, const EchoTag& tag, std::string_view name) {
  return kWorkOfAnEcho + (tag.isQueryItem ? name.size() + record.Request().QueryString.size() : 0);
}

class EchoPass final : public PageProcessor {
 public:
  EchoPass(cls_HTTP& record, Page& page) : record_(record), page_(page), search_(record.Turns()) {}

  Task<void> Go() override {
    for (; tag_ != std::end(kEchoTags); ++tag_, pass_.reset()) {
      if (!page_.Holds(tag_->kind)) continue;
      if (!pass_) pass_.emplace(page_);
      if (Task<void> wait = ReplaceAll()) return wait;
    }
    return {};
  }

 private:
  // All tags of one kind; a tag that has to wait for its value is found once more.
  Task<void> ReplaceAll() {
    Task<void> wait;
    while (search_.Find(*pass_, wait, [this] { return pass_->Search(tag_->opener, tag_->end); })) {
      if (tag_->isPlain && pass_->ContentBeginsWith("Function")) break;
      if (!hasAskedName_ && AwaitsName(record_, *tag_, pass_->Content())) {
        hasAskedName_ = true;
        return record_.FindRemoteHost();
      }
      Replace();
    }
    return wait;
  }

  void Replace() {
    const std::string_view name = pass_->Content();
    if (tag_->isQueryItem && pass_->Opener() != tag_->opener) return pass_->Keep();
    if (IsTooLong(record_, *tag_, name)) return pass_->ReplaceByKept("");
    const auto [value, isNew] = page_.FindValue(tag_->isQueryItem ? items_ : variables_, name);
    if (isNew) {
      *value = page_.Keep(ValueOf(record_, *tag_, name));
      pass_->AddWork(WorkOf(record_, *tag_, name));
    }
    pass_->ReplaceByKept(**value);
  }

  cls_HTTP& record_;
  Page& page_;
  PacedSearch search_;
  const EchoTag* tag_ = std::begin(kEchoTags);
  std::optional<PageRewriter> pass_;
  PageTexts::Values* variables_ = nullptr;
  PageTexts::Values* items_ = nullptr;
  bool hasAskedName_ = false;
};

}  // namespace

std::unique_ptr<PageProcessor> EchoProcessor(cls_HTTP& record, Page& page) {
  return std::make_unique<EchoPass>(record, page);
}

Task<void> EchoVariables(cls_HTTP& record, Page& page) { return RunToEnd(EchoProcessor(record, page)); }

}  // namespace TesselServer
