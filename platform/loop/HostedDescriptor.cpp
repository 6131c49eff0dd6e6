#include "platform/loop/HostedDescriptor.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/world/SystemErrors.h"
#include "platform/world/World.h"

namespace TesselServer {

namespace {

bool Put(int epoll, int operation, int descriptor, std::uint32_t events) {
  epoll_event event{};
  event.events = events;
  return epoll_ctl(epoll, operation, descriptor, &event) == 0;
}

}  // namespace

HostedDescriptor::HostedDescriptor(int loopEpoll)
    : loopEpoll_(loopEpoll),
      outer_(epoll_create1(EPOLL_CLOEXEC)),
      tasks_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      alarm_(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {
  for (const int each : {loopEpoll_, tasks_.Get(), alarm_.Get()}) {
    if (!Put(outer_.Get(), EPOLL_CTL_ADD, each, EPOLLIN)) {
      throw SystemError(outer_.IsOpen() && tasks_.IsOpen() && alarm_.IsOpen() ? errno : EMFILE);
    }
  }
}

void HostedDescriptor::AnnounceEvents(bool on) {
  if (on == events_) return;
  Put(outer_.Get(), EPOLL_CTL_MOD, loopEpoll_, on ? std::uint32_t{EPOLLIN} : 0u);
  events_ = on;
}

void HostedDescriptor::AnnounceTasks(bool on) {
  if (on == tasksOn_) return;
  std::uint64_t count = 1;
  [[maybe_unused]] const auto done =
      on ? write(tasks_.Get(), &count, sizeof count) : read(tasks_.Get(), &count, sizeof count);
  tasksOn_ = on;
}

void HostedDescriptor::AnnounceTimer(std::optional<std::int64_t> due, const World& world) {
  if (due == due_) return;
  itimerspec alarm{};  // zero switches it off
  if (due) {
    const std::int64_t wait = std::max<std::int64_t>(*due - world.MonotonicMilliseconds(), 0);
    alarm.it_value.tv_sec = wait / 1000;
    alarm.it_value.tv_nsec = std::max<std::int64_t>(wait % 1000 * 1'000'000, wait == 0 ? 1 : 0);
  }
  timerfd_settime(alarm_.Get(), 0, &alarm, nullptr);
  due_ = due;
}

}  // namespace TesselServer
