#include "http/PageProcessor.h"

#include <algorithm>
#include <exception>

namespace TesselServer {

bool PagePipeline::Wants(const cls_HTTP& record) const {
  return std::any_of(processors_.begin(), processors_.end(),
                     [&record](const auto& processor) { return processor->Wants(record); });
}

void PagePipeline::Run(cls_HTTP& record, Page& page) const {
  for (const auto& processor : processors_) {
    if (!processor->Wants(record)) continue;
    try {
      processor->Run(record, page);
    } catch (const std::exception&) {
      // kept: a failing processor costs its own replacements, never the page or the processors behind it
    }
  }
}

}  // namespace TesselServer
