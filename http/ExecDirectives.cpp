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

// The file is open for no longer than this.
Task<ProgramFile> FindTarget(cls_HTTP& record, std::string folder, std::string name) {
  auto search = record.FindFile(std::move(folder), name);
  const FoundEntry found = co_await search;
  co_return FoundProgram(record, found, name);
}

Task<std::string> RunTarget(cls_HTTP& record, std::string folder, std::string_view target) {
  const std::size_t mark = target.find('?');
  std::string program(Trim(target.substr(0, mark)));
  std::string arguments(mark == std::string_view::npos ? std::string_view() : Trim(target.substr(mark + 1)));
  if (IsBatchFile(program)) {
    std::replace_if(
        arguments.begin(), arguments.end(), [](char c) { return c == '?' || c == '&'; }, ' ');
  }
  auto search = FindTarget(record, std::move(folder), std::move(program));
  ProgramFile file = co_await search;
  auto running = RunProgram(record, std::move(file), std::move(arguments));
  co_return co_await running;
}

}  // namespace

Task<void> RunExecDirectives(cls_HTTP& record, Page& page) {
  const std::string documentFolder = DocumentFolder(record);
  Pace pace(record.Turns());
  for (const TagKind kind : {TagKind::kExecCommand, TagKind::kExecCGI}) {
    if (!page.Holds(kind)) continue;
    TagReplacement tags(page, {OpenerOf(kind), "", "--"});
    for (auto found = tags.Search(); found != TagReplacement::Found::kNone; found = tags.Search()) {
      if (pace.IsOver(tags.TakeWork())) {
        auto next = pace.Next();
        co_await next;
      }
      if (found == TagReplacement::Found::kNotYet) continue;
      if (!tags.IsKnown()) {
        // asked for each tag: the settings of a record may change while a program runs
        const bool isOfDocument = kind == TagKind::kExecCommand;
        auto running = RunTarget(record, isOfDocument ? documentFolder : record.CGIDirectory(), tags.Content());
        const std::string output = co_await running;
        tags.Value(ReplaceAll(output, kLineEnd, "<br>"));
      }
      tags.Replace();
    }
  }
}

}  // namespace TesselServer
