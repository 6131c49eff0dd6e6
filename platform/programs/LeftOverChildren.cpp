#include "platform/programs/LeftOverChildren.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/world/World.h"

namespace TesselServer {

LeftOverChildren::LeftOverChildren(EventLoop& loop) : loop_(loop), timer_(loop) {
  timer_.Interval(kTickMilliseconds);
  timer_.OnTick([this] { Collect(); });
  Collect();
}

LeftOverChildren::~LeftOverChildren() {
  OwnedChild::Abandon(children_);
  OwnedChild::CollectAbandoned();
}

void LeftOverChildren::Add(OwnedChild child, std::shared_ptr<void> place, std::int64_t until) noexcept {
  const pid_t number = child.Number();
  child.MoveTo(children_);
  try {
    if (place && number > 0) held_.push_back({number, std::move(place), until});
    Collect();
  } catch (const std::bad_alloc&) {
    // it is in the list, and the next look at it comes with the next program
  }
}

void LeftOverChildren::Collect() {
  children_.remove_if(CollectChild);
  const std::int64_t now = loop_.TheWorld().MonotonicMicroseconds();
  held_.remove_if([&](const Held& held) {
    return now >= held.until || std::find(children_.begin(), children_.end(), held.child) == children_.end();
  });
  const bool othersAreLeft = OwnedChild::CollectAbandoned();
  timer_.Enabled(othersAreLeft || !children_.empty());
}

}  // namespace TesselServer
