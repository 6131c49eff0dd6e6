// Which connections have gone without progress for how long. Each connection is in one list at most, in the order of
// its last progress, and to note progress is to move it to the end of its list: no timer is set or taken back for a
// request. One timer runs while there is any connection in a list, and comes when the first of them may be due.
//
// Thread:    the loop's thread.
// Ownership: links what its owner keeps; an entry leaves its list when it is destroyed.
// Errors:    none.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "platform/loop/EventLoop.h"
#include "platform/loop/Timer.h"

namespace TesselServer {

class Deadlines {
 public:
  // What a connection waits for.
  enum class Wait {
    kNextRequest,  // idle: none of the next request has come
    kClient,       // the client is to send the rest of something, or to take more of an answer
  };

  // The place of one connection.
  class Entry {
   public:
    Entry() : before_(this), after_(this) {}
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    ~Entry() { Leave(); }

    std::int32_t index = 0;  // which connection it is

    // Nothing is waited for.
    void Leave() {
      before_->after_ = after_;
      after_->before_ = before_;
      before_ = after_ = this;
    }
    bool IsWaiting() const { return after_ != this; }

   private:
    friend class Deadlines;
    Entry* before_;
    Entry* after_;
    std::int64_t since_ = 0;  // milliseconds, of the latest progress
  };

  // `overdue` is called with an entry that has left its list.
  Deadlines(EventLoop& loop, std::function<void(Entry&, Wait)> overdue);
  Deadlines(const Deadlines&) = delete;
  Deadlines& operator=(const Deadlines&) = delete;

  // How long each may last, in seconds; 0 for ever.
  void Limit(Wait wait, std::int32_t seconds) {
    limits_[static_cast<std::size_t>(wait)] = std::int64_t{seconds} * 1000;
  }

  // There was progress just now, and from here on `wait` is waited for.
  void Progress(Entry& entry, Wait wait);
  // The same, the progress having been at `since` (LoopCore::Now), which is no earlier than that of others.
  void ProgressAt(Entry& entry, Wait wait, std::int64_t since);

  // The one that has waited longest, null for none.
  Entry* Longest(Wait wait);

 private:
  static constexpr std::size_t kWaits = 2;
  // No look is closer to the next than this: a second is the unit of the limits.
  static constexpr std::int64_t kLeastMilliseconds = 100;

  Entry& ListOf(Wait wait) { return lists_[static_cast<std::size_t>(wait)]; }
  void Look();
  void LookAt(Wait wait, std::int64_t now);
  void SetTimer();

  EventLoop& loop_;
  std::function<void(Entry&, Wait)> overdue_;
  std::array<Entry, kWaits> lists_;  // each the head of a ring
  std::array<std::int64_t, kWaits> limits_ = {};
  Timer timer_;
  std::int64_t timerDue_ = 0;  // when it comes, while it runs
};

}  // namespace TesselServer
