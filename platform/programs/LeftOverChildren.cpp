#include "platform/programs/LeftOverChildren.h"

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

// Looks at this one only: many may be left at once.
void LeftOverChildren::Add(OwnedChild child, std::shared_ptr<void> place, std::int64_t until) noexcept {
  const pid_t number = child.Number();
  child.MoveTo(children_);
  try {
    if (place && number > 0) held_.insert_or_assign(number, Held{std::move(place), until});
    if (number > 0 && IsCollected(number)) children_.pop_back();
    if (!children_.empty()) timer_.Enabled(true);
  } catch (const std::bad_alloc&) {
    // it is in the list, and the next look at it comes with the next program
  }
}

void LeftOverChildren::Collect() {
  children_.remove_if([this](pid_t child) { return IsCollected(child); });
  const std::int64_t now = loop_.TheWorld().MonotonicMicroseconds();
  std::erase_if(held_, [now](const auto& held) { return now >= held.second.until; });
  const bool othersAreLeft = OwnedChild::CollectAbandoned();
  timer_.Enabled(othersAreLeft || !children_.empty());
}

bool LeftOverChildren::IsCollected(pid_t child) noexcept {
  if (!CollectChild(child)) return false;
  held_.erase(child);
  return true;
}

}  // namespace TesselServer
