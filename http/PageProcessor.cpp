#include "http/PageProcessor.h"

namespace TesselServer {

Task<void> RunToEnd(std::unique_ptr<PageProcessor> processor) {
  for (Task<void> wait = processor->Go(); wait; wait = processor->Go()) co_await wait;
}

Task<void> PacedSearch::NextTurn() {
  auto next = pace_.Next();
  co_await next;
}

}  // namespace TesselServer
