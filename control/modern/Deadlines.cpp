#include "control/modern/Deadlines.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/loop/LoopCore.h"

namespace TesselServer {

namespace {

constexpr Deadlines::Wait kAllWaits[] = {Deadlines::Wait::kNextRequest, Deadlines::Wait::kClient};

}  // namespace

Deadlines::Deadlines(EventLoop& loop, std::function<void(Entry&, Wait)> overdue)
    : loop_(loop), overdue_(std::move(overdue)), timer_(loop) {
  timer_.OnTick([this] { Look(); });
}

void Deadlines::Progress(Entry& entry, Wait wait) { ProgressAt(entry, wait, loop_.Core().Now()); }

void Deadlines::ProgressAt(Entry& entry, Wait wait, std::int64_t since) {
  Entry& list = ListOf(wait);
  entry.Leave();
  entry.since_ = since;
  entry.before_ = list.before_;
  entry.after_ = &list;
  list.before_->after_ = &entry;
  list.before_ = &entry;
  const std::int64_t limit = limits_[static_cast<std::size_t>(wait)];
  if (limit != 0 && (!timer_.Enabled() || since + limit < timerDue_)) SetTimer();
}

Deadlines::Entry* Deadlines::Longest(Wait wait) {
  Entry& list = ListOf(wait);
  return list.IsWaiting() ? list.after_ : nullptr;
}

void Deadlines::Look() {
  timer_.Enabled(false);
  const std::int64_t now = loop_.Core().Now();
  for (const Wait wait : kAllWaits) LookAt(wait, now);
  SetTimer();
}

// As many as there are now: one that makes progress meanwhile goes to the end.
void Deadlines::LookAt(Wait wait, std::int64_t now) {
  const std::int64_t limit = limits_[static_cast<std::size_t>(wait)];
  if (limit == 0) return;
  for (Entry* first = Longest(wait); first != nullptr && now - first->since_ >= limit; first = Longest(wait)) {
    first->Leave();
    overdue_(*first, wait);
  }
}

void Deadlines::SetTimer() {
  std::int64_t next = std::numeric_limits<std::int64_t>::max();
  const std::int64_t now = loop_.Core().Now();
  for (const Wait wait : kAllWaits) {
    const std::int64_t limit = limits_[static_cast<std::size_t>(wait)];
    const Entry* first = Longest(wait);
    if (limit != 0 && first != nullptr) next = std::min(next, first->since_ + limit - now);
  }
  if (next == std::numeric_limits<std::int64_t>::max()) return;
  next = std::max(next, kLeastMilliseconds);
  timerDue_ = now + next;
  timer_.Interval(static_cast<std::int32_t>(std::min<std::int64_t>(next, std::numeric_limits<std::int32_t>::max())));
  timer_.Enabled(true);
}

}  // namespace TesselServer
