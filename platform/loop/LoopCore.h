// The inside of an event loop: watched descriptors, posted notices, timers, and the place where closed things are
// buried.
//
// Thread:    the loop's thread; only Wake may be called from elsewhere.
// Ownership: clients are not owned; a client takes its watches and notices back before it dies (Forget). What is given
//            to Bury lives until no handler of this loop is on the stack.
// Errors:    the constructor raises Error; the rest reports failure by its result.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/loop/Timer.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

class World;

// Hears what happened to a descriptor it watches, and the notices it posted to itself.
class LoopClient {
 public:
  virtual void OnEvents(std::uint64_t cookie, std::uint32_t events) = 0;
  virtual void OnNotice(std::uint64_t cookie) = 0;
  // See LoopCore::AtTurnEnd.
  virtual void OnTurnEnd() noexcept {}

 protected:
  ~LoopClient() = default;
};

// A watch is known by its number; 0 is none. A number is never used twice, so a late event finds nobody.
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
  explicit LoopCore(World& world);
  LoopCore(const LoopCore&) = delete;
  LoopCore& operator=(const LoopCore&) = delete;
  ~LoopCore();

  World& TheWorld() const { return world_; }

  // The clock as it was read for this turn.
  std::int64_t Now() const;

  // ---- Turns.

  // Whether the present turn, what was yielded inside it included, has taken its time (kMicrosecondsPerTurn). The
  // rest is then left to the next turn, or to whoever yields again.
  bool TurnIsLong() const;
  // How often there were deliveries that bring at least one thing of each kind: turns, and DoEvents inside them.
  std::uint64_t Passes() const { return passes_; }

  bool Turn(std::int32_t milliseconds);
  void DoEvents();
  void Yield();
  void Run();
  void Wake() noexcept;
  int Descriptor();

  // ---- Watches. `events` are those of epoll_ctl(2), level-triggered; 0 still hears of errors and hang-ups.
  // Watch returns 0 when the kernel refuses.
  WatchId Watch(int descriptor, std::uint32_t events, LoopClient& client, std::uint64_t cookie);
  void Change(WatchId watch, std::uint32_t events);
  void Unwatch(WatchId watch) noexcept;

  // ---- Notices: OnNotice(cookie) is called once, in this turn or a later one, in the order of posting.
  void Post(LoopClient& client, std::uint64_t cookie);
  // Has OnTurnEnd called once: when the present turn ends, before its timers are served, or before that by DoEvents or
  // EndTurn. False outside a turn, and for want of memory: it is not called then.
  bool AtTurnEnd(LoopClient& client) noexcept;
  // Calls whoever waits for the end of the turn; inside one it goes on.
  void EndTurn() noexcept;
  // Drops every notice of `client`, and its wish to hear of the turn's end.
  void Forget(const LoopClient& client);

  // ---- Timers.
  void Arm(const std::shared_ptr<TimerState>& timer);
  void Disarm(TimerState& timer);

  // Keeps `thing` until no handler is on the stack, then drops it; at once when none is.
  void Bury(std::shared_ptr<void> thing);

 private:
  struct WatchEntry {
    LoopClient* client = nullptr;
    std::uint64_t cookie = 0;
    int descriptor = -1;
    WatchId id = 0;
  };
  struct Notice {
    LoopClient* client;
    std::uint64_t cookie;
  };
  struct Fetched {
    WatchId watch;
    std::uint32_t events;
  };
  class Nesting;

  WatchEntry* Find(WatchId watch);
  bool KnowsEvents() const { return fetchedNext_ < fetched_.size(); }
  bool KnowsWork() const { return KnowsEvents() || !notices_.empty(); }
  std::int32_t WaitLimit(std::int32_t milliseconds) const;
  void Ask(std::int32_t milliseconds);
  // kOne: one thing of each kind is delivered however long the turn is, or nothing would go on at all.
  enum class AtLeast { kOne, kNothing };
  void Pass(AtLeast least);
  bool Deliver(AtLeast least);
  bool DeliverEvents(AtLeast least);
  bool DeliverNotices(AtLeast least);
  bool ServeTimers();
  void Empty();
  void Announce();
  void SetAlarm();

  World& world_;
  UniqueDescriptor epoll_;
  UniqueDescriptor wake_;
  UniqueDescriptor alarm_{-1};  // a timerfd, made when the host asks for the descriptor
  bool hosted_ = false;         // the host watches the descriptor itself
  std::atomic<bool> stop_ = false;
  int depth_ = 0;
  std::int64_t now_ = 0;
  bool nowValid_ = false;
  std::int64_t turnEnds_ = 0;  // microseconds
  std::uint64_t passes_ = 0;

  std::vector<WatchEntry> watches_;  // the low half of a watch's number is its place
  std::vector<std::uint32_t> freePlaces_;
  std::uint32_t serial_ = 0;  // the high half

  std::vector<Fetched> fetched_;
  std::size_t fetchedNext_ = 0;
  std::deque<Notice> notices_;
  std::vector<LoopClient*> endings_;
  std::multimap<std::int64_t, std::shared_ptr<TimerState>> timers_;
  std::vector<std::shared_ptr<void>> graves_;
};

}  // namespace TesselServer
