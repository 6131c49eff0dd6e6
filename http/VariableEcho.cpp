#include "http/VariableEcho.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "http/PageRewriter.h"
#include "http/cls_HTTP.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::string_view kQueryOpener = "<%=Request.QueryString(";

// The values of one page, each found once.
class Values {
 public:
  explicit Values(std::function<std::string(std::string_view)> find) : find_(std::move(find)) {}

  Page::SharedText operator()(std::string_view name) {
    auto known = values_.find(name);
    if (known == values_.end()) {
      known = values_.emplace(name, std::make_shared<const std::string>(find_(name))).first;
    }
    return known->second;
  }

 private:
  std::function<std::string(std::string_view)> find_;
  std::map<std::string, Page::SharedText, std::less<>> values_;
};

std::string QueryItem(std::string_view query, std::string_view name) {
  if (Trim(name).empty()) return {};
  const std::size_t found = FindNoCase(query, name);
  if (found == std::string_view::npos) return {};
  const std::size_t begin = found + name.size() + 1;
  if (begin >= query.size()) return {};
  return std::string(query.substr(begin, query.find('&', begin) - begin));
}

void EchoAll(Page& page, std::string_view opener, std::string_view end, Values& values) {
  PageRewriter pass(page);
  while (pass.Find(opener, end)) pass.Replace(values(pass.Content()));
}

void EchoQueryItems(Page& page, Values& values) {
  PageRewriter pass(page);
  while (pass.Find(kQueryOpener, ")%>")) {
    if (pass.Opener() == kQueryOpener) {
      pass.Replace(values(pass.Content()));
    } else {
      pass.Keep();
    }
  }
}

void EchoPlainTags(Page& page, Values& values) {
  PageRewriter pass(page);
  while (pass.Find("<%=", "%>") && !pass.ContentBeginsWith("Function")) pass.Replace(values(pass.Content()));
}

}  // namespace

Task<void> EchoVariables(cls_HTTP& record, Page& page) {
  Values variables([&record](std::string_view name) { return record.ServerVariable(name); });
  Values items([&record](std::string_view name) { return QueryItem(record.Request().QueryString, name); });
  if (page.HoldsDirectives()) EchoAll(page, "<!--#echovar=", "-->", variables);
  if (!page.HoldsScripts()) co_return;
  EchoAll(page, "<%=Request.ServerVariables(", ")%>", variables);
  EchoQueryItems(page, items);
  EchoPlainTags(page, variables);
}

}  // namespace TesselServer
