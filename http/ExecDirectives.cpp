#include "http/ExecDirectives.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "http/RunCGI.h"
#include "http/TagReplacement.h"
#include "http/cls_HTTP.h"
#include "support/PathText.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

std::string DocumentFolder(const cls_HTTP& record) {
  if (record.VirtualPath().empty() || record.DocumentName().empty()) return {};
  return record.VirtualPath() + "/" + std::string(FolderOf(record.DocumentName()));
}

std::string OutputOf(cls_HTTP& record, const std::string& folder, std::string_view target) {
  const std::size_t mark = target.find('?');
  const std::string_view program = Trim(target.substr(0, mark));
  std::string arguments(mark == std::string_view::npos ? std::string_view() : Trim(target.substr(mark + 1)));
  if (IsBatchFile(program)) {
    std::replace_if(
        arguments.begin(), arguments.end(), [](char c) { return c == '?' || c == '&'; }, ' ');
  }
  const ProgramFile found = FoundProgram(record, record.FindFile(folder, program), program);
  return ReplaceAll(RunProgram(record, found, arguments), kLineEnd, "<br>");
}

// `folder` is asked for each tag: the settings of a record may change while a program runs.
template <typename Folder>
void Execute(cls_HTTP& record, Page& page, std::string_view opener, Folder&& folder) {
  ReplaceTags(page, {opener, "", "--"}, [&](std::string_view target) {
    return std::make_shared<const std::string>(OutputOf(record, folder(), target));
  });
}

}  // namespace

void RunExecDirectives(cls_HTTP& record, Page& page) {
  if (!page.HoldsDirectives()) return;
  const std::string documentFolder = DocumentFolder(record);
  Execute(record, page, "<!--#execcmd=", [&] { return std::string(documentFolder); });
  Execute(record, page, "<!--#execcgi=", [&] { return record.CGIDirectory(); });
}

}  // namespace TesselServer
