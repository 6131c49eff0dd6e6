// Children whose caller has stopped waiting for them: collected when they have ended, so that no zombie stays.
//
// Each is checked by its own process number (waitpid(2)); other children of the host are never touched, and one that
// the host has collected is dropped. A timer on the loop checks every second while there is any.
//
// Thread:    the loop's thread; objects on several threads share the children of destroyed ones.
// Ownership: the loop outlives it. Children that still run when it is destroyed go to a list of the process (class
//            OwnedChild), which every other object, present or future, collects from whenever it looks for its own.
// Errors:    none but those of memory running out.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>

#include "platform/loop/Timer.h"
#include "platform/programs/OwnedChild.h"

namespace TesselServer {

class LeftOverChildren {
 public:
  static constexpr std::int32_t kTickMilliseconds = 1000;

  explicit LeftOverChildren(EventLoop& loop);
  LeftOverChildren(const LeftOverChildren&) = delete;
  LeftOverChildren& operator=(const LeftOverChildren&) = delete;
  ~LeftOverChildren();

  // Looks after the child from now on, collecting it at once if it has ended. Takes no memory for the child; where
  // there is none for the timer, the next call of Collect finds it. `place` is kept until the child is collected or the
  // loop's World::MonotonicMicroseconds are `until`; where there is no memory for that, it is dropped at once.
  void Add(OwnedChild child, std::shared_ptr<void> place = nullptr, std::int64_t until = 0) noexcept;

  // Collects the children that have ended, its own and those of the process's list.
  void Collect();

  // How many of its own have not been collected yet.
  std::size_t Count() const { return children_.size(); }

 private:
  struct Held {
    std::shared_ptr<void> place;
    std::int64_t until;
  };

  bool IsCollected(pid_t child) noexcept;

  EventLoop& loop_;
  std::list<pid_t> children_;
  std::map<pid_t, Held> held_;  // by child
  Timer timer_;
};

}  // namespace TesselServer
