#include "platform/loop/LoopCore.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <exception>
#include <iterator>
#include <limits>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/world/Error.h"
#include "platform/world/SystemErrors.h"
#include "platform/world/World.h"

namespace TesselServer {

namespace {

constexpr std::uint64_t kWakeMark = ~std::uint64_t{0};  // no watch has this number

}  // namespace

// Counts the handlers on the stack and, as the last one leaves, ends the turn.
class LoopCore::Nesting {
 public:
  explicit Nesting(LoopCore& core) : core_(core) {
    if (++core_.depth_ > 1) core_.Announce();
    LongMemory::OfThisTurn() = &core_.longMemory_;
  }
  Nesting(const Nesting&) = delete;
  Nesting& operator=(const Nesting&) = delete;
  ~Nesting() {
    if (--core_.depth_ == 0) {
      while (!core_.deletions_.empty()) {
        const auto dropped = std::exchange(core_.deletions_, {});  // their destructors may delete more later
      }
      core_.thread_.EndTurn();
    }
    core_.Announce();
    LongMemory::OfThisTurn() = outer_;
  }

 private:
  LoopCore& core_;
  LongMemory* const outer_ = LongMemory::OfThisTurn();
};

LoopCore::LoopCore(World& world, std::function<void(std::string)> report)
    : world_(world),
      report_(std::move(report)),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      fetched_(EventLoop::kEventsPerTurn) {
  if (!epoll_.IsOpen() || !wake_.IsOpen()) throw SystemError(errno);
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = kWakeMark;
  if (epoll_ctl(epoll_.Get(), EPOLL_CTL_ADD, wake_.Get(), &event) != 0) throw SystemError(errno);
}

LoopCore::~LoopCore() {
  tasks_.splice(tasks_.end(), posted_);
  std::exchange(tasks_, {}).clear();  // what they hold may be a timer of this loop
  assert(timers_.empty() && "a timer is destroyed before its loop");
  assert(freePlaces_.size() == watches_.size() && "what watches a descriptor is destroyed before its loop");
}

std::int64_t LoopCore::Now() const { return depth_ > 0 ? now_ : world_.MonotonicMilliseconds(); }

// ---- Turns.

bool LoopCore::TurnIsLong() const { return depth_ > 0 && world_.MonotonicMicroseconds() >= turnEnds_; }

void LoopCore::BeginWork() {
  if (depth_ == 0) {
    BeginTime();
  } else {
    workEnds_ = turnEnds_ + kMicrosecondsToFinish;
  }
}

bool LoopCore::WorkIsLong() const { return world_.MonotonicMicroseconds() >= workEnds_; }

void LoopCore::BeginTime() { turnEnds_ = workEnds_ = world_.MonotonicMicroseconds() + EventLoop::kMicrosecondsPerTurn; }

bool LoopCore::Turn(std::int32_t milliseconds) {
  if (depth_ > 0) return Pass();
  [[maybe_unused]] const bool sameThread = thread_.Run();
  assert(sameThread);
  now_ = world_.MonotonicMilliseconds();
  const Nesting nesting(*this);
  // what the last turn had no time for comes first; the kernel would report it again
  if (!KnowsEvents()) Ask(tasks_.empty() ? WaitLimit(milliseconds) : 0);
  now_ = world_.MonotonicMilliseconds();
  BeginTime();
  const bool delivered = Deliver();
  return ServeTimers() || delivered;
}

void LoopCore::DoEvents() { Turn(0); }

// What a turn is inside a handler. The kernel is asked whenever no event is known: a task that posts itself again would
// otherwise keep the descriptors and the tasks of other threads waiting for ever.
bool LoopCore::Pass() {
  if (depth_ > EventLoop::kMaxNesting) return false;
  const Nesting nesting(*this);
  if (!KnowsEvents()) Ask(0);
  return Deliver();
}

void LoopCore::Run() {
  if (depth_ > 0) return;  // it would neither wait nor serve timers, and take the outer Run's Stop
  while (!stop_) Turn(-1);
  stop_ = false;
  thread_.Leave();
}

void LoopCore::Stop() noexcept {
  stop_ = true;
  Wake();
}

void LoopCore::Wake() noexcept {
  const int kept = errno;  // a signal handler must not change it
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = write(wake_.Get(), &one, sizeof one);  // a full counter is awake already
  errno = kept;
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
  const int count = epoll_wait(epoll_.Get(), fetched_.data(), static_cast<int>(fetched_.size()), milliseconds);
  fetchedNext_ = 0;
  fetchedEnd_ = static_cast<std::size_t>(std::max(count, 0));
  for (std::size_t i = 0; i < fetchedEnd_; ++i) {
    if (fetched_[i].data.u64 == kWakeMark) TakePosted();
  }
}

// One event, one task, and so on: however long the turn is, one of each is delivered, or nothing would go on at all;
// the rest as far as its time goes. A task that is posted by a task waits for the next time.
bool LoopCore::Deliver() {
  std::size_t events = fetchedEnd_ - fetchedNext_;
  std::size_t tasks = tasks_.size();
  bool delivered = false;
  while ((events > 0 || tasks > 0) && !(delivered && TurnIsLong())) {
    if (events > 0) {
      --events;
      if (DeliverEvent()) {
        delivered = true;
        tasks = tasks_.size();
      }
    }
    if (tasks > 0) {
      --tasks;
      delivered = DeliverTask() || delivered;
    }
  }
  return delivered;
}

// The sanitizer's look at the type of the client takes a descriptor, and this is called where there may be none.
__attribute__((no_sanitize("vptr"))) bool LoopCore::DeliverEvent() {
  if (!KnowsEvents()) return false;
  const epoll_event next = fetched_[fetchedNext_++];
  Find(next.data.u64)->client->OnEvents(next.events);
  return true;
}

// Whether an event is left to deliver; the loop's own and those of watches that were taken back meanwhile are skipped.
bool LoopCore::KnowsEvents() {
  while (fetchedNext_ < fetchedEnd_ && Find(fetched_[fetchedNext_].data.u64) == nullptr) ++fetchedNext_;
  return fetchedNext_ < fetchedEnd_;
}

// ---- Watches.

LoopCore::WatchEntry* LoopCore::Find(WatchId watch) {
  const auto place = static_cast<std::uint32_t>(watch);
  if (watch == 0 || place >= watches_.size()) return nullptr;
  WatchEntry& entry = watches_[place];
  return entry.id == watch ? &entry : nullptr;
}

WatchId LoopCore::Watch(int descriptor, std::uint32_t events, LoopClient& client) {
  if (freePlaces_.empty()) {
    // first, and for every place: Unwatch needs no memory then, and none is lost where there is no memory now
    if (freePlaces_.capacity() == watches_.size()) freePlaces_.reserve(2 * watches_.size() + 1);
    watches_.emplace_back();
    freePlaces_.push_back(static_cast<std::uint32_t>(watches_.size() - 1));
  }
  const std::uint32_t place = freePlaces_.back();
  if (++serial_ == 0xFFFFFFFFu) serial_ = 1;  // keeps clear of the loop's own number
  const WatchId id = (static_cast<std::uint64_t>(serial_) << 32) | place;
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  if (epoll_ctl(epoll_.Get(), EPOLL_CTL_ADD, descriptor, &event) != 0) return 0;
  freePlaces_.pop_back();
  watches_[place] = {&client, descriptor, id};
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

// ---- Tasks.

void LoopCore::Post(std::function<void()> task) {
  if (thread_.RunsTurn()) {
    Post(nullptr, std::move(task));
    return;
  }
  PreparedTask posted;
  posted.push_back({nullptr, std::move(task)});
  Post(posted);
}

LoopCore::TaskPlace LoopCore::Post(const void* owner, std::function<void()> task) {
  tasks_.push_back({owner, std::move(task)});
  if (hosted_ && depth_ <= EventLoop::kMaxNesting) hosted_->AnnounceTasks(true);
  return std::prev(tasks_.end());
}

LoopCore::PreparedTask LoopCore::Prepare(const void* owner, std::function<void()> task) {
  PreparedTask prepared;
  prepared.push_back({owner, std::move(task)});
  return prepared;
}

void LoopCore::WithdrawPosted(const void* owner) noexcept {
  std::list<PostedTask> withdrawn;  // what they hold goes without the lock
  {
    const std::scoped_lock lock(postedMutex_);
    for (auto each = posted_.begin(); each != posted_.end();) {
      const auto next = std::next(each);
      if (each->owner == owner) withdrawn.splice(withdrawn.end(), posted_, each);
      each = next;
    }
  }
  Withdraw(owner);
}

void LoopCore::Post(PreparedTask& task) noexcept {
  {
    const std::scoped_lock lock(postedMutex_);
    posted_.splice(posted_.end(), task);
  }
  Wake();
}

void LoopCore::Withdraw(const void* owner) noexcept {
  std::erase_if(tasks_, [&](const PostedTask& task) { return task.owner == owner; });
}

// Takes over what other threads have posted.
void LoopCore::TakePosted() {
  std::uint64_t count = 0;
  while (read(wake_.Get(), &count, sizeof count) < 0 && errno == EINTR) {
  }
  const std::scoped_lock lock(postedMutex_);
  tasks_.splice(tasks_.end(), posted_);
}

bool LoopCore::DeliverTask() {
  if (tasks_.empty()) return false;
  const PostedTask next = std::move(tasks_.front());
  tasks_.pop_front();
  if (next.owner != nullptr) {
    next.run();
  } else {
    Guard("Task", next.run);
  }
  return true;
}

void LoopCore::Guard(std::string_view what, const std::function<void()>& handler) {
  try {
    handler();
  } catch (const std::exception& error) {
    Report(what, error.what());
  } catch (...) {
    Report(what, "an exception of unknown type");
  }
}

void LoopCore::Report(std::string_view what, std::string_view failure) noexcept {
  try {
    report_(std::string(what).append(": ").append(failure));
  } catch (...) {  // no memory for it, or the report's own failure: the loop goes on
  }
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
  if (depth_ == 0) Announce();
}

bool LoopCore::ServeTimers() {
  bool served = false;
  for (int left = EventLoop::kTimersPerTurn; left > 0 && !timers_.empty(); --left) {
    const auto first = timers_.begin();
    if (first->first > now_) break;
    const std::shared_ptr<TimerState> timer = first->second;
    auto place = timers_.extract(first);  // and put back where it belongs, which takes no memory
    place.key() = timer->due = now_ + timer->interval;
    timers_.insert(std::move(place));
    served = true;
    const auto handler = timer->handler;  // outlives its own replacement
    if (handler) Guard("Timer", *handler);
    if (TurnIsLong()) break;
  }
  return served;
}

// ---- The end of a turn.

void LoopCore::DeleteLater(std::shared_ptr<void> thing) {
  if (depth_ > 0) deletions_.push_back(std::move(thing));
}

void LoopCore::KeepToTheEnd(std::shared_ptr<void> thing) {
  if (std::find(kept_.begin(), kept_.end(), thing) == kept_.end()) kept_.push_back(std::move(thing));
}

// ---- The host's descriptor.

int LoopCore::Descriptor() {
  if (!hosted_) {
    hosted_.emplace(epoll_.Get());
    Announce();
  }
  return hosted_->Get();
}

// Makes the descriptor readable for what RunOnce(0) would deliver as things are: nothing where handlers are nested as
// deep as they may be, and no timers inside a handler.
void LoopCore::Announce() {
  if (!hosted_) return;
  const bool delivers = depth_ <= EventLoop::kMaxNesting;
  hosted_->AnnounceEvents(delivers);
  hosted_->AnnounceTasks(delivers && !tasks_.empty());
  std::optional<std::int64_t> due;
  if (depth_ == 0 && !timers_.empty()) due = timers_.begin()->first;
  hosted_->AnnounceTimer(due, world_);
}

}  // namespace TesselServer
