#include "platform/loop/LoopCore.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <new>

#include "platform/loop/EventLoop.h"
#include "platform/world/Error.h"
#include "platform/world/SystemErrors.h"
#include "platform/world/World.h"

namespace TesselServer {

namespace {

// The numbers by which the loop knows its own two descriptors; no watch has them.
constexpr std::uint64_t kWakeMark = ~std::uint64_t{0};
constexpr std::uint64_t kAlarmMark = kWakeMark - 1;

constexpr std::int64_t kMicrosecondsForNotices = 50;

void AddOwn(int epoll, int descriptor, std::uint64_t mark) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = mark;
  if (epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) != 0) throw SystemError(errno);
}

void Drain(int descriptor) {
  std::uint64_t count = 0;
  while (read(descriptor, &count, sizeof count) < 0 && errno == EINTR) {
  }
}

}  // namespace

// Counts the handlers on the stack and, as the last one leaves, ends the turn.
class LoopCore::Nesting {
 public:
  explicit Nesting(LoopCore& core) : core_(core) { ++core_.depth_; }
  Nesting(const Nesting&) = delete;
  Nesting& operator=(const Nesting&) = delete;
  ~Nesting() {
    if (core_.depth_ == 1) core_.EndTurn();
    if (--core_.depth_ > 0) return;
    core_.nowValid_ = false;
    core_.Empty();
    core_.Announce();
  }

 private:
  LoopCore& core_;
};

LoopCore::LoopCore(World& world)
    : world_(world), epoll_(epoll_create1(EPOLL_CLOEXEC)), wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (!epoll_.IsOpen() || !wake_.IsOpen()) throw SystemError(errno);
  AddOwn(epoll_.Get(), wake_.Get(), kWakeMark);
}

LoopCore::~LoopCore() { Empty(); }

std::int64_t LoopCore::Now() const { return nowValid_ ? now_ : world_.MonotonicMilliseconds(); }

// ---- Turns.

bool LoopCore::TurnIsLong() const { return depth_ > 0 && world_.MonotonicMicroseconds() >= turnEnds_; }

bool LoopCore::Turn(std::int32_t milliseconds) {
  if (depth_ > 0) {
    DoEvents();
    return true;
  }
  const Nesting nesting(*this);
  now_ = world_.MonotonicMilliseconds();
  nowValid_ = true;
  // what the last turn had no time for comes first; it would be told of again
  if (!KnowsEvents()) Ask(KnowsWork() ? 0 : WaitLimit(milliseconds));
  now_ = world_.MonotonicMilliseconds();
  turnEnds_ = world_.MonotonicMicroseconds() + EventLoop::kMicrosecondsPerTurn;
  ++passes_;
  const bool delivered = Deliver(AtLeast::kOne);
  EndTurn();
  return ServeTimers() || delivered;
}

void LoopCore::DoEvents() {
  EndTurn();
  Pass(AtLeast::kOne);
  EndTurn();  // the caller may take its time
}

void LoopCore::Yield() { Pass(AtLeast::kNothing); }

void LoopCore::Pass(AtLeast least) {
  if (depth_ == 0) {
    Turn(0);
    return;
  }
  if (depth_ > EventLoop::kMaxNesting || (least == AtLeast::kNothing && TurnIsLong())) return;
  const Nesting nesting(*this);
  if (!KnowsWork()) Ask(0);
  if (least == AtLeast::kOne) ++passes_;
  Deliver(least);
}

void LoopCore::Run() {
  if (depth_ > 0) return;  // it would neither wait nor serve timers, and take the outer Run's Stop
  while (!stop_) Turn(-1);
  stop_ = false;
}

void LoopCore::Wake() noexcept {
  const int kept = errno;
  stop_ = true;
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = write(wake_.Get(), &one, sizeof one);  // a full counter is awake already
  errno = kept;
}

int LoopCore::Descriptor() {
  if (hosted_) return epoll_.Get();
  UniqueDescriptor alarm(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
  if (!alarm.IsOpen()) throw SystemError(errno);
  AddOwn(epoll_.Get(), alarm.Get(), kAlarmMark);
  alarm_ = std::move(alarm);
  hosted_ = true;
  if (depth_ == 0) Announce();
  return epoll_.Get();
}

// How long the kernel may be waited for: up to `milliseconds`, but not past the next timer.
std::int32_t LoopCore::WaitLimit(std::int32_t milliseconds) const {
  if (timers_.empty()) return milliseconds;
  const std::int64_t untilTimer =
      std::clamp<std::int64_t>(timers_.begin()->first - now_, 0, std::numeric_limits<std::int32_t>::max());
  if (milliseconds < 0) return static_cast<std::int32_t>(untilTimer);
  return static_cast<std::int32_t>(std::min<std::int64_t>(untilTimer, milliseconds));
}

// Fetches what the kernel has, when all that was known is delivered.
void LoopCore::Ask(std::int32_t milliseconds) {
  fetched_.clear();
  fetchedNext_ = 0;
  std::array<epoll_event, EventLoop::kEventsPerTurn> events;
  const int count = epoll_wait(epoll_.Get(), events.data(), static_cast<int>(events.size()), milliseconds);
  for (int i = 0; i < count; ++i) {
    const epoll_event& event = events[static_cast<std::size_t>(i)];
    if (event.data.u64 == kWakeMark) {
      Drain(wake_.Get());
    } else if (event.data.u64 == kAlarmMark) {
      Drain(alarm_.Get());
    } else {
      fetched_.push_back({event.data.u64, event.events});
    }
  }
}

bool LoopCore::Deliver(AtLeast least) {
  const bool events = DeliverEvents(least);
  return DeliverNotices(least) || events;
}

bool LoopCore::DeliverEvents(AtLeast least) {
  bool delivered = false;
  for (std::size_t left = fetched_.size() - fetchedNext_; left > 0 && KnowsEvents(); --left) {
    if ((delivered || least == AtLeast::kNothing) && TurnIsLong()) break;
    const Fetched next = fetched_[fetchedNext_++];
    WatchEntry* entry = Find(next.watch);
    if (entry == nullptr) continue;  // closed since
    delivered = true;
    entry->client->OnEvents(entry->cookie, next.events);
  }
  return delivered;
}

// Has a little time even in a long turn: most notices are for nobody any more, and must not gather. For whoever hears
// of one the turn is long all the same.
bool LoopCore::DeliverNotices(AtLeast least) {
  if (notices_.empty()) return false;
  const std::int64_t own = depth_ == 1 ? world_.MonotonicMicroseconds() + kMicrosecondsForNotices : 0;
  const std::int64_t end = std::max(turnEnds_, own);
  bool delivered = false;
  for (std::size_t left = notices_.size(); left > 0 && !notices_.empty(); --left) {
    if ((delivered || least == AtLeast::kNothing) && world_.MonotonicMicroseconds() >= end) break;
    const Notice next = notices_.front();
    notices_.pop_front();
    delivered = true;
    next.client->OnNotice(next.cookie);
  }
  return delivered;
}

// ---- Watches.

LoopCore::WatchEntry* LoopCore::Find(WatchId watch) {
  const auto place = static_cast<std::uint32_t>(watch);
  if (watch == 0 || place >= watches_.size()) return nullptr;
  WatchEntry& entry = watches_[place];
  return entry.id == watch ? &entry : nullptr;
}

WatchId LoopCore::Watch(int descriptor, std::uint32_t events, LoopClient& client, std::uint64_t cookie) {
  if (freePlaces_.empty()) {
    watches_.emplace_back();
    freePlaces_.reserve(watches_.capacity());  // so that Unwatch needs no memory
    freePlaces_.push_back(static_cast<std::uint32_t>(watches_.size() - 1));
  }
  const std::uint32_t place = freePlaces_.back();
  if (++serial_ >= 0xFFFFFFFEu) serial_ = 1;  // keeps clear of the loop's own two numbers
  const WatchId id = (static_cast<std::uint64_t>(serial_) << 32) | place;
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  if (epoll_ctl(epoll_.Get(), EPOLL_CTL_ADD, descriptor, &event) != 0) return 0;
  freePlaces_.pop_back();
  watches_[place] = {&client, cookie, descriptor, id};
  return id;
}

void LoopCore::Change(WatchId watch, std::uint32_t events) {
  const WatchEntry* entry = Find(watch);
  if (entry == nullptr) return;
  epoll_event event{};
  event.events = events;
  event.data.u64 = watch;
  epoll_ctl(epoll_.Get(), EPOLL_CTL_MOD, entry->descriptor, &event);
}

void LoopCore::Unwatch(WatchId watch) noexcept {
  WatchEntry* entry = Find(watch);
  if (entry == nullptr) return;
  epoll_ctl(epoll_.Get(), EPOLL_CTL_DEL, entry->descriptor, nullptr);
  *entry = {};
  freePlaces_.push_back(static_cast<std::uint32_t>(watch));
}

// ---- Notices.

void LoopCore::Post(LoopClient& client, std::uint64_t cookie) {
  notices_.push_back({&client, cookie});
  if (depth_ == 0) Announce();
}

void LoopCore::Forget(const LoopClient& client) {
  std::erase_if(notices_, [&](const Notice& notice) { return notice.client == &client; });
  std::erase(endings_, &client);
}

bool LoopCore::AtTurnEnd(LoopClient& client) noexcept {
  if (depth_ == 0) return false;
  if (std::find(endings_.begin(), endings_.end(), &client) != endings_.end()) return true;
  try {
    endings_.push_back(&client);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

// What is called raises no events of the host's, so nobody comes or goes meanwhile.
void LoopCore::EndTurn() noexcept {
  for (LoopClient* client : endings_) client->OnTurnEnd();
  endings_.clear();
}

// ---- Timers.

void LoopCore::Arm(const std::shared_ptr<TimerState>& timer) {
  timer->due = world_.MonotonicMilliseconds() + timer->interval;  // the turn may have taken long
  timers_.emplace(timer->due, timer);
  if (depth_ == 0) Announce();
}

void LoopCore::Disarm(TimerState& timer) {
  const auto [first, last] = timers_.equal_range(timer.due);
  const auto found = std::find_if(first, last, [&](const auto& each) { return each.second.get() == &timer; });
  if (found != last) timers_.erase(found);
}

bool LoopCore::ServeTimers() {
  bool served = false;
  for (int left = EventLoop::kTimersPerTurn; left > 0 && !timers_.empty(); --left) {
    const auto first = timers_.begin();
    if (first->first > now_) break;
    const std::shared_ptr<TimerState> timer = first->second;
    auto place = timers_.extract(first);  // and put back where it belongs, which takes no memory
    place.key() = timer->due = Now() + timer->interval;
    timers_.insert(std::move(place));
    served = true;
    const auto handler = timer->handler;  // outlives its own replacement
    if (!handler) continue;
    try {
      (*handler)();
    } catch (...) {  // a handler's own failure must not end the host's loop
    }
  }
  return served;
}

// ---- The end of a turn.

void LoopCore::Bury(std::shared_ptr<void> thing) {
  if (depth_ > 0) graves_.push_back(std::move(thing));
}

void LoopCore::Empty() {
  while (!graves_.empty()) {
    const auto buried = std::exchange(graves_, {});  // what is dropped may bury more
  }
}

// Makes the descriptor readable when RunOnce(0) has something to do later than now.
void LoopCore::Announce() {
  if (!hosted_) return;
  if (KnowsWork()) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(wake_.Get(), &one, sizeof one);
  }
  SetAlarm();
}

void LoopCore::SetAlarm() {
  itimerspec alarm{};
  if (!timers_.empty()) {
    const std::int64_t wait = std::max<std::int64_t>(timers_.begin()->first - Now(), 0);
    alarm.it_value.tv_sec = wait / 1000;
    alarm.it_value.tv_nsec = wait % 1000 * 1'000'000;
    if (wait == 0) alarm.it_value.tv_nsec = 1;  // zero would switch the alarm off
  }
  timerfd_settime(alarm_.Get(), 0, &alarm, nullptr);
}

}  // namespace TesselServer
