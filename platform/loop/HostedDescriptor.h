// The one descriptor by which a host's own loop watches an event loop: an epoll that has in it the loop's own epoll, an
// eventfd for posted tasks and a timerfd for the next timer, each of them only while the loop can deliver what it
// signals.
//
// Thread:    the loop's thread.
// Ownership: owns its descriptors; the loop's own epoll outlives it.
// Errors:    the constructor raises Error when there are no descriptors left.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

class World;

class HostedDescriptor {
 public:
  explicit HostedDescriptor(int loopEpoll);

  int Get() const { return outer_.Get(); }

  // Makes the descriptor readable while the loop's epoll is, or not at all.
  void AnnounceEvents(bool on);
  // Makes it readable, or not, for tasks that are waiting.
  void AnnounceTasks(bool on);
  // Makes it readable when the monotonic clock of `world` reaches `due`, in milliseconds; never when there is none.
  void AnnounceTimer(std::optional<std::int64_t> due, const World& world);

 private:
  int loopEpoll_;
  UniqueDescriptor outer_;
  UniqueDescriptor tasks_;
  UniqueDescriptor alarm_;
  bool events_ = true;
  bool tasksOn_ = false;
  std::optional<std::int64_t> due_;
};

}  // namespace TesselServer
