// A page on its way through the processors.
//
// Thread:    the host's thread only.
// Ownership: borrows the record, which outlives it. It outlives the tasks that it gives.
// Errors:    what a processor throws costs its own replacements, never the page or the processors after it.
#pragma once

#include <cstddef>
#include <memory>

#include "http/IncludeTrail.h"
#include "http/Page.h"
#include "http/PageProcessor.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class cls_HTTP;

class PageMaking {
 public:
  // `file` is the one that the page is; `outer` the trail of the page that includes it, which outlives this, or null.
  // `place` is where the record finds the page's own trail meanwhile.
  PageMaking(cls_HTTP& record, Page page, const FileIdentity& file, const IncludeTrail* outer,
             const IncludeTrail*& place);
  PageMaking(const PageMaking&) = delete;
  PageMaking& operator=(const PageMaking&) = delete;

  // Goes on until all is done, which an empty task says, or until something has to be waited for: await the task, call
  // Failed where it throws, and call this again.
  Task<void> Go();
  void Failed() { NextProcessor(); }

  const Page& ThePage() const { return page_; }

 private:
  struct Processor;
  static const Processor kProcessors[4];

  void NextProcessor() {
    running_.reset();
    ++next_;
  }

  cls_HTTP& record_;
  Page page_;
  IncludeRoom room_;
  IncludeTrail trail_;
  LaidTrail laid_;
  std::size_t next_ = 0;
  std::unique_ptr<PageProcessor> running_;
};

}  // namespace TesselServer
