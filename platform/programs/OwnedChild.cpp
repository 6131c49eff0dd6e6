#include "platform/programs/OwnedChild.h"

#include <sys/wait.h>

#include <mutex>

namespace TesselServer {
namespace {

struct AbandonedChildren {
  std::mutex mutex;
  std::list<pid_t> children;
};

// Never destroyed: objects of a host may live longer than any static one here.
AbandonedChildren& AbandonedOfTheProcess() {
  static auto* const abandoned = new AbandonedChildren;
  return *abandoned;
}

}  // namespace

bool CollectChild(pid_t child) noexcept { return waitpid(child, nullptr, WNOHANG) != 0; }

OwnedChild::~OwnedChild() {
  if (Number() >= 0 && !CollectChild(Number())) Abandon(place_);
}

void OwnedChild::MoveTo(std::list<pid_t>& children) noexcept {
  if (Number() >= 0) children.splice(children.end(), place_);
}

void OwnedChild::Abandon(std::list<pid_t>& children) noexcept {
  AbandonedChildren& abandoned = AbandonedOfTheProcess();
  const std::scoped_lock lock(abandoned.mutex);
  abandoned.children.splice(abandoned.children.end(), children);
}

bool OwnedChild::CollectAbandoned() noexcept {
  AbandonedChildren& abandoned = AbandonedOfTheProcess();
  const std::scoped_lock lock(abandoned.mutex);
  abandoned.children.remove_if(CollectChild);
  return !abandoned.children.empty();
}

}  // namespace TesselServer
