#include "http/ExecDirectives.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "http/Pace.h"
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

Task<std::string> RunTarget(cls_HTTP& record, const std::string& folder, std::string_view target) {
  const std::size_t mark = target.find('?');
  const std::string_view program = Trim(target.substr(0, mark));
  std::string arguments(mark == std::string_view::npos ? std::string_view() : Trim(target.substr(mark + 1)));
  if (IsBatchFile(program)) {
    std::replace_if(
        arguments.begin(), arguments.end(), [](char c) { return c == '?' || c == '&'; }, ' ');
  }
  return RunProgram(record, FoundProgram(record, record.FindFile(folder, program), program), std::move(arguments));
}

}  // namespace

Task<void> RunExecDirectives(cls_HTTP& record, Page& page) {
  if (!page.HoldsDirectives()) co_return;
  const std::string documentFolder = DocumentFolder(record);
  Pace pace(record.Turns());
  for (const bool isOfDocument : {true, false}) {
    TagReplacement tags(page, {isOfDocument ? "<!--#execcmd=" : "<!--#execcgi=", "", "--"});
    for (auto found = tags.Search(); found != TagReplacement::Found::kNone; found = tags.Search()) {
      if (pace.IsOver(tags.TakeWork())) {
        auto next = pace.Next();
        co_await next;
      }
      if (found == TagReplacement::Found::kNotYet) continue;
      if (!tags.IsKnown()) {
        // asked for each tag: the settings of a record may change while a program runs
        const std::string folder = isOfDocument ? documentFolder : record.CGIDirectory();
        auto running = RunTarget(record, folder, tags.Content());
        const std::string output = co_await running;
        tags.Value(ReplaceAll(output, kLineEnd, "<br>"));
      }
      tags.Replace();
    }
  }
}

}  // namespace TesselServer
