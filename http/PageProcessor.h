// What changes a "text/html" page on its way out, and the order in which that happens.
//
// Thread:    the host's thread only.
// Ownership: a pipeline owns its processors.
// Errors:    a processor that raises ends its own turn; the page keeps what was replaced before.
#pragma once

#include <memory>
#include <vector>

#include "http/Page.h"

namespace TesselServer {

class cls_HTTP;

class PageProcessor {
 public:
  virtual ~PageProcessor() = default;

  // Whether the switches of `record` ask for this processor.
  virtual bool Wants(const cls_HTTP& record) const = 0;

  // Does this processor's work on `page`, on behalf of `record`.
  virtual void Run(cls_HTTP& record, Page& page) = 0;
};

// Processors in the order they run. Empty when made: pages then go out as they are on disk.
class PagePipeline {
 public:
  void Add(std::unique_ptr<PageProcessor> processor) { processors_.push_back(std::move(processor)); }

  // Whether at least one processor wants the record's page. A page that none wants need not be read at all.
  bool Wants(const cls_HTTP& record) const;

  // Runs every processor that wants the record's page.
  void Run(cls_HTTP& record, Page& page) const;

 private:
  std::vector<std::unique_ptr<PageProcessor>> processors_;
};

}  // namespace TesselServer
