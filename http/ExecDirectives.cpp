#include "http/ExecDirectives.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

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

constexpr TagKind kExecTags[] = {TagKind::kExecCommand, TagKind::kExecCGI};

// The file is open for no longer than this.
Task<void> FindTarget(const cls_HTTP& record, std::string folder, std::string name, ProgramFile& program) {
  auto search = record.FindFile(std::move(folder), name);
  const FoundEntry found = co_await search;
  program = FoundProgram(record, found, name);
}

class ExecPass final : public PageProcessor {
 public:
  ExecPass(cls_HTTP& record, Page& page) : record_(record), page_(page), search_(record.Turns()) {}

  Task<void> Go() override {
    switch (std::exchange(waitsFor_, WaitsFor::kNothing)) {
      case WaitsFor::kTarget:
        if (AwaitsName(record_, program_)) {
          waitsFor_ = WaitsFor::kName;
          return record_.FindRemoteHost();
        }
        [[fallthrough]];
      case WaitsFor::kName:
        if (Task<void> running = Run()) return running;
        [[fallthrough]];
      case WaitsFor::kProgram:
        TakeOutput();
        break;
      case WaitsFor::kNothing:
        break;
    }
    for (; kind_ != std::end(kExecTags); ++kind_, tags_.reset()) {
      if (!page_.Holds(*kind_)) continue;
      if (!tags_) tags_.emplace(page_, TagForm{OpenerOf(*kind_), "", "--"});
      if (Task<void> wait = ReplaceAll()) return wait;
    }
    return {};
  }

 private:
  enum class WaitsFor { kNothing, kTarget, kName, kProgram };

  // All tags of one kind.
  Task<void> ReplaceAll() {
    Task<void> wait;
    while (search_.Find(*tags_, wait, [this] { return tags_->Search(); })) {
      if (!tags_->IsKnown()) return Find();
      tags_->Replace();
    }
    return wait;
  }

  std::string_view Target() const { return tags_->Content(); }

  // Settings are asked for each tag: those of a record may change while a program runs.
  Task<void> Find() {
    waitsFor_ = WaitsFor::kTarget;
    const bool isOfDocument = *kind_ == TagKind::kExecCommand;
    std::string name(Trim(Target().substr(0, Target().find('?'))));
    return FindTarget(record_, isOfDocument ? DocumentFolder(record_) : record_.CGIDirectory(), std::move(name),
                      program_);
  }

  Task<void> Run() {
    const std::size_t mark = Target().find('?');
    std::string arguments(mark == std::string_view::npos ? std::string_view() : Trim(Target().substr(mark + 1)));
    if (IsBatchFile(Trim(Target().substr(0, mark)))) {
      std::replace_if(
          arguments.begin(), arguments.end(), [](char c) { return c == '?' || c == '&'; }, ' ');
    }
    result_ = {};
    Task<void> running = StartProgram(record_, program_, arguments, result_);
    if (running) waitsFor_ = WaitsFor::kProgram;
    return running;
  }

  void TakeOutput() {
    tags_->Value(TesselServer::ReplaceAll(OutputOf(record_, program_.name, std::move(result_)), kLineEnd, "<br>"));
    tags_->Replace();
  }

  cls_HTTP& record_;
  Page& page_;
  PacedSearch search_;
  const TagKind* kind_ = std::begin(kExecTags);
  std::optional<TagReplacement> tags_;
  WaitsFor waitsFor_ = WaitsFor::kNothing;
  ProgramFile program_;
  ProgramResult result_;
};

}  // namespace

std::unique_ptr<PageProcessor> ExecProcessor(cls_HTTP& record, Page& page) {
  return std::make_unique<ExecPass>(record, page);
}

Task<void> RunExecDirectives(cls_HTTP& record, Page& page) { return RunToEnd(ExecProcessor(record, page)); }

}  // namespace TesselServer
