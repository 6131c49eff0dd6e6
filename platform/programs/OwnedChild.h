// A child process and the duty to collect it (waitpid(2)). Where the object is destroyed before that, on whatever
// thread, the child goes to a list of the process, from which LeftOverChildren collects: no zombie stays.
//
// Thread:    any, one at a time.
// Ownership: moves with the object.
// Errors:    MakeRoom takes memory; nothing else does, so nothing can fail once the child runs.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <list>

namespace TesselServer {

class OwnedChild {
 public:
  OwnedChild() noexcept = default;
  OwnedChild(OwnedChild&&) noexcept = default;
  OwnedChild& operator=(OwnedChild&& other) noexcept {
    place_.swap(other.place_);
    return *this;
  }
  ~OwnedChild();

  // To be called before the child is started.
  void MakeRoom() { place_.assign(1, -1); }

  // Makes the process `number` its child; there is room for it.
  void Own(pid_t number) noexcept { place_.front() = number; }

  // The child's process number; -1 when there is none.
  pid_t Number() const { return place_.empty() ? -1 : place_.front(); }

  // Appends the child to `children`, whose owner collects it from now on.
  void MoveTo(std::list<pid_t>& children) noexcept;

  // ---- The children of the process whose owner has gone.

  // Takes `children` over.
  static void Abandon(std::list<pid_t>& children) noexcept;
  // Collects those that have ended. Whether any is left.
  static bool CollectAbandoned() noexcept;

 private:
  std::list<pid_t> place_;  // one element, or none
};

// Collects the child if it has ended, or if there is none of that number any more. Whether it is gone.
bool CollectChild(pid_t child) noexcept;

}  // namespace TesselServer
