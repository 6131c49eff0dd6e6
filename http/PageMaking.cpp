#include "http/PageMaking.h"

#include <exception>
#include <iterator>
#include <utility>

#include "http/ExecDirectives.h"
#include "http/FileInclusion.h"
#include "http/HTMLFunctions.h"
#include "http/VariableEcho.h"
#include "http/cls_HTTP.h"

namespace TesselServer {

struct PageMaking::Processor {
  bool (cls_HTTP::*isOn)() const;
  std::unique_ptr<PageProcessor> (*make)(cls_HTTP& record, Page& page);
  TagKinds kinds;  // what it looks for
};
// In the order in which they run.
const PageMaking::Processor PageMaking::kProcessors[4] = {
    {&cls_HTTP::SSIEnable, EchoProcessor, {TagKind::kEcho, TagKind::kScript}},
    {&cls_HTTP::SSIEnable, IncludeProcessor, {TagKind::kIncludeFile, TagKind::kIncludeVirtual, TagKind::kInclude}},
    {&cls_HTTP::CGIEnable, ExecProcessor, {TagKind::kExecCommand, TagKind::kExecCGI}},
    {&cls_HTTP::HTMLFunctionsEnable, FunctionProcessor, {TagKind::kFunction}},
};

PageMaking::PageMaking(cls_HTTP& record, Page page, const FileIdentity& file, const IncludeTrail* outer,
                       const IncludeTrail*& place)
    : record_(record), page_(std::move(page)), trail_{file, outer, 0, &room_}, laid_(place, trail_) {
  page_.MayGrow([&record](std::size_t bytes) { return record.PageMayTake(static_cast<std::int64_t>(bytes)); });
  if (outer == nullptr) return;
  trail_.depth = outer->depth + 1;
  trail_.room = outer->room;
}

Task<void> PageMaking::Go() {
  for (; next_ != std::size(kProcessors); NextProcessor()) {
    const Processor& processor = kProcessors[next_];
    try {
      if (!running_) {
        // each switch as it is when its turn comes: the host may change them inside an event
        if (!(record_.*processor.isOn)() || !page_.Kinds().HasAnyOf(processor.kinds)) continue;
        running_ = processor.make(record_, page_);
      }
      if (Task<void> wait = running_->Go()) return wait;
    } catch (const std::exception&) {
      // kept: a failing processor costs its own replacements, never the page or the processors after it
    }
  }
  return {};
}

}  // namespace TesselServer
