#include "platform/programs/LeftOverChildren.h"

#include <new>

namespace TesselServer {

LeftOverChildren::LeftOverChildren(EventLoop& loop) : timer_(loop) {
  timer_.Interval(kTickMilliseconds);
  timer_.OnTick([this] { Collect(); });
  Collect();
}

LeftOverChildren::~LeftOverChildren() {
  OwnedChild::Abandon(children_);
  OwnedChild::CollectAbandoned();
}

void LeftOverChildren::Add(OwnedChild child) noexcept {
  child.MoveTo(children_);
  try {
    Collect();
  } catch (const std::bad_alloc&) {
    // it is in the list, and the next look at it comes with the next program
  }
}

void LeftOverChildren::Collect() {
  children_.remove_if(CollectChild);
  const bool othersAreLeft = OwnedChild::CollectAbandoned();
  timer_.Enabled(othersAreLeft || !children_.empty());
}

}  // namespace TesselServer
