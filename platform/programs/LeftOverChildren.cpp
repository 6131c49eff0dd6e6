#include "platform/programs/LeftOverChildren.h"

#include <sys/wait.h>

#include <mutex>

namespace TesselServer {
namespace {

// Those whose object has died.
struct Orphans {
  std::mutex mutex;
  std::list<pid_t> children;
};

// Never destroyed: objects of a host may live longer than any static one here.
Orphans& OrphansOfTheProcess() {
  static auto* const orphans = new Orphans;
  return *orphans;
}

// ECHILD: there is none of that number any more.
bool IsCollected(pid_t child) { return waitpid(child, nullptr, WNOHANG) != 0; }

}  // namespace

LeftOverChildren::LeftOverChildren(EventLoop& loop) : timer_(loop) {
  timer_.Interval(kTickMilliseconds);
  timer_.OnTick([this] { Collect(); });
  Collect();
}

LeftOverChildren::~LeftOverChildren() {
  Orphans& orphans = OrphansOfTheProcess();
  const std::lock_guard lock(orphans.mutex);
  orphans.children.splice(orphans.children.end(), children_);
}

void LeftOverChildren::MakeRoom() {
  if (room_.empty()) room_.push_back(-1);
}

void LeftOverChildren::Add(pid_t child) noexcept {
  room_.front() = child;
  children_.splice(children_.end(), room_);
}

void LeftOverChildren::Collect() {
  children_.remove_if(IsCollected);
  Orphans& orphans = OrphansOfTheProcess();
  const std::lock_guard lock(orphans.mutex);
  orphans.children.remove_if(IsCollected);
  timer_.Enabled(!children_.empty() || !orphans.children.empty());
}

}  // namespace TesselServer
