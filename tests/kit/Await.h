// Tasks that have to wait for something, run by a loop of the test.
#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <stdexcept>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/tasks/Task.h"

namespace TesselServer::Kit {

// Runs turns until the condition holds; False when it has not within ten seconds.
inline bool TurnUntil(EventLoop& loop, const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    loop.RunOnce(20);
  }
  return true;
}

// A task that has been started, and its value when it is done. Destroying it cancels the task.
template <typename Value>
class Pending {
 public:
  explicit Pending(Task<Value> task) : running_(RunningTask::Start(Keep(std::move(task)))) {}
  Pending(const Pending&) = delete;
  Pending& operator=(const Pending&) = delete;

  bool IsDone() const { return running_.IsDone(); }
  // Its value, once; what it has thrown is thrown.
  Value Take() {
    if (failure_) std::rethrow_exception(failure_);
    return std::move(value_.value());
  }

 private:
  Task<void> Keep(Task<Value> given) {
    Task<Value> task = std::move(given);
    try {
      value_.emplace(co_await task);
    } catch (...) {
      failure_ = std::current_exception();
    }
  }

  std::optional<Value> value_;
  std::exception_ptr failure_;
  RunningTask running_;
};

// Runs the loop until the task is done, and gives its value. Throws where that takes too long.
template <typename Value>
Value Await(EventLoop& loop, Task<Value> task) {
  Pending<Value> pending(std::move(task));
  if (!TurnUntil(loop, [&] { return pending.IsDone(); })) throw std::runtime_error("the task is not done");
  return pending.Take();
}

}  // namespace TesselServer::Kit
