// The inside of an event loop: watched descriptors, posted tasks, timers, and the place where things are kept that are
// deleted later.
//
// Thread:    the loop's thread; Stop and Post of a task without an owner may be called from any.
// Ownership: clients and owners of tasks are not owned; they remove their watches and tasks before they are destroyed.
// Errors:    the constructor raises Error; the rest reports failure by its result. The destructor asserts that no
//            running timer and no watch is left.
#pragma once

#include <sys/epoll.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/loop/HostedDescriptor.h"
#include "platform/loop/LongMemory.h"
#include "platform/loop/LoopThread.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

class World;

// Gets the events of a descriptor it watches.
class LoopClient {
 public:
  virtual void OnEvents(std::uint32_t events) = 0;

 protected:
  ~LoopClient() = default;
};

// A watch is known by its number; 0 is none. A number is never used twice, so a late event reaches no client.
using WatchId = std::uint64_t;

struct TimerState {
  explicit TimerState(class LoopCore& core) : loop(core) {}
  class LoopCore& loop;
  std::int32_t interval = 10000;
  bool enabled = false;
  std::int64_t due = 0;
  std::shared_ptr<const std::function<void()>> handler;
};

class LoopCore {
 public:
  // `report` is called with what a handler or a task of the host has thrown.
  LoopCore(World& world, std::function<void(std::string)> report);
  LoopCore(const LoopCore&) = delete;
  LoopCore& operator=(const LoopCore&) = delete;
  ~LoopCore();

  World& TheWorld() const { return world_; }
  LoopThread& Thread() { return thread_; }

  // The clock as it was read for this turn.
  std::int64_t Now() const;

  // ---- Turns: see EventLoop.
  bool TurnIsLong() const;
  // To be called where work begins that is cut when its time is over (WorkIsLong). Where no turn runs, a method of the
  // library having begun it, it has the time of a turn from here on. In a turn it may take a little longer than that:
  // to finish what is short costs less than to take it up again.
  void BeginWork();
  bool WorkIsLong() const;
  bool Turn(std::int32_t milliseconds);
  void DoEvents();
  void Run();
  void Stop() noexcept;
  int Descriptor();

  // ---- Watches. `events` are those of epoll_ctl(2), level-triggered; 0 still reports errors and hang-ups.
  // Watch returns 0 when the kernel refuses.
  WatchId Watch(int descriptor, std::uint32_t events, LoopClient& client);
  void Change(WatchId watch, std::uint32_t events);
  void Unwatch(WatchId watch) noexcept;

  // ---- Tasks: each is run once, in this turn or a later one, in the order of posting.
  struct PostedTask {
    const void* owner;  // nullptr: the host's
    std::function<void()> run;
  };
  void Post(std::function<void()> task);
  // A task of the library's own, on the loop's thread: `owner` can take all of its tasks back. What it throws goes out
  // of the turn.
  using TaskPlace = std::list<PostedTask>::iterator;
  TaskPlace Post(const void* owner, std::function<void()> task);
  void Withdraw(const void* owner) noexcept;
  // Takes back one that has not begun, at once however many there are.
  void Withdraw(TaskPlace task) noexcept { tasks_.erase(task); }
  // One of the library's own that is made now and posted later, from any thread and without taking memory.
  using PreparedTask = std::list<PostedTask>;
  static PreparedTask Prepare(const void* owner, std::function<void()> task);
  void Post(PreparedTask& task) noexcept;
  // Withdraw, for those too that other threads have posted and the loop has not seen yet.
  void WithdrawPosted(const void* owner) noexcept;

  // ---- Timers.
  void Arm(const std::shared_ptr<TimerState>& timer);
  void Disarm(TimerState& timer);

  // Keeps `thing` until no handler is on the stack, then drops it; at once when none is.
  void DeleteLater(std::shared_ptr<void> thing);
  // Keeps `thing` until the loop is destroyed; once, however often it is given.
  void KeepToTheEnd(std::shared_ptr<void> thing);

  // Calls a handler of the host. What it throws is reported, after `what` and ": ", and does not end the host's loop.
  void Guard(std::string_view what, const std::function<void()>& handler);

 private:
  static constexpr std::int64_t kMicrosecondsToFinish = 200;

  struct WatchEntry {
    LoopClient* client = nullptr;
    int descriptor = -1;
    WatchId id = 0;
  };
  class Nesting;

  WatchEntry* Find(WatchId watch);
  void BeginTime();
  bool KnowsEvents();
  std::int32_t WaitLimit(std::int32_t milliseconds) const;
  void Wake() noexcept;
  void Ask(std::int32_t milliseconds);
  void TakePosted();
  bool Pass();
  bool Deliver();
  bool DeliverEvent();
  bool DeliverTask();
  bool ServeTimers();
  void Report(std::string_view what, std::string_view failure) noexcept;
  void Announce();

  World& world_;
  const std::function<void(std::string)> report_;
  LoopThread thread_;
  UniqueDescriptor epoll_;
  UniqueDescriptor wake_;                   // an eventfd: a stop, or a task of another thread
  std::optional<HostedDescriptor> hosted_;  // once the host has asked for it
  std::atomic<bool> stop_ = false;
  int depth_ = 0;  // handlers on the stack
  std::int64_t now_ = 0;
  std::int64_t turnEnds_ = 0;  // microseconds
  std::int64_t workEnds_ = 0;  // likewise

  std::vector<WatchEntry> watches_;  // the low half of a watch's number is its place
  std::vector<std::uint32_t> freePlaces_;
  std::uint32_t serial_ = 0;  // the high half

  std::vector<epoll_event> fetched_;  // what the kernel reported, up to fetchedEnd_, delivered up to fetchedNext_
  std::size_t fetchedNext_ = 0;
  std::size_t fetchedEnd_ = 0;
  std::list<PostedTask> tasks_;
  std::mutex postedMutex_;
  std::list<PostedTask> posted_;  // by other threads, not seen by the loop yet
  std::multimap<std::int64_t, std::shared_ptr<TimerState>> timers_;
  std::vector<std::shared_ptr<void>> deletions_;
  std::vector<std::shared_ptr<void>> kept_;
  LongMemory longMemory_{*this};
};

}  // namespace TesselServer
